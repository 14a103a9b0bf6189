# SPDX-License-Identifier: Apache-2.0
"""Sparse linear systems over free and fixed vertices."""
from __future__ import annotations

from dataclasses import dataclass
from typing import Any

import numpy as np
import numpy.typing as npt

from . import _checks, _qzmath
from ._progress import Progress, shown

_SOLVERS = {name: name for name in ("direct", "iterative", "decomposing", "dense")}


class SolveError(RuntimeError):
    """
    A linear system was not solved; the sentence says why.

    Attributes
    ----------
    solution : array or None
        What was reached, where an iteration ended at its limit.
    residual : float
        In terms of the right side, where a limit ended it.
    """

    solution: npt.NDArray[np.float64] | None = None
    residual: float = 0.0


@dataclass(frozen=True)
class Matrix:
    """A matrix in compressed rows, as `scipy.sparse.csr_matrix((data, indices, indptr), shape)` takes it."""

    data: npt.NDArray[np.float64]
    indices: npt.NDArray[np.int32]
    indptr: npt.NDArray[Any]
    shape: tuple[int, int]


class LinearSystem:
    """
    Equations between free and fixed vertices: F x + G p = r, with the free vertices x, the positions p of the fixed
    ones and right sides r.

    A vertex is an integer of your choice. An equation is a list of vertices with coefficients; there are to be as many
    as there are free vertices. A system is stated once and solved as often as you like.

    Parameters
    ----------
    free : (n,) int
        Vertices to be solved for; a single number n stands for 0 to n - 1.
    fixed : (f,) int, optional
        Vertices whose positions are given to `solve`.
    symmetric, positive_definite : bool
        Promises about F. They make the direct solver faster; of a symmetric system the equations may be stated in full
        or without what is left of the diagonal.

    Raises
    ------
    TypeError, ValueError
        For a vertex that is named twice.

    Examples
    --------
    Ten points on a line, each in the middle of its neighbours, between ends at 1 and 3:

    >>> import numpy as np, qzmath
    >>> inner = np.arange(1, 9)
    >>> system = qzmath.LinearSystem(inner, fixed=[0, 9], symmetric=True, positive_definite=True)
    >>> system.add_equations(np.arange(0, 25, 3), np.stack([inner - 1, inner, inner + 1], 1).ravel(),
    ...                      np.tile([-1.0, 2.0, -1.0], 8))
    >>> system.solve(fixed=[1.0, 3.0]).round(3)
    array([1.222, 1.444, 1.667, 1.889, 2.111, 2.333, 2.556, 2.778])
    """

    def __init__(self, free: npt.ArrayLike | int, fixed: npt.ArrayLike = (), *, symmetric: bool = False,
                 positive_definite: bool = False) -> None:
        if isinstance(free, (int, np.integer)) and not isinstance(free, bool):
            free = np.arange(_checks.integer(free, "free", 0), dtype=np.int32)
        self._symmetric = _checks.flag(symmetric, "symmetric")
        self._free = _checks.integers(free, "free", (None,), "i4").copy()
        self._fixed = _checks.integers(fixed, "fixed", (None,), "i4").copy()
        self._system = _qzmath.System(self._symmetric, _checks.flag(positive_definite, "positive_definite"))
        for name, vertices in (("free", self._free), ("fixed", self._fixed)):
            if not self._system.define(vertices, name == "free"):
                raise ValueError(f"{name} names a vertex that is named already")

    @property
    def free(self) -> npt.NDArray[np.int32]:
        """(n,) free vertices, in the order of solutions."""
        return np.asarray(self._free.copy())

    @property
    def fixed(self) -> npt.NDArray[np.int32]:
        """(f,) fixed vertices, in the order of their positions."""
        return np.asarray(self._fixed.copy())

    def __repr__(self) -> str:
        return (f"<qzmath.LinearSystem: {len(self._free)} free and {len(self._fixed)} fixed vertices, "
                f"{self._system.equation_count()} equations>")

    def add_equations(self, indptr: npt.ArrayLike, vertices: npt.ArrayLike, coefficients: npt.ArrayLike) -> None:
        """
        Add equations, all at once; equation k has the terms from ``indptr[k]`` to ``indptr[k + 1]``.

        Parameters
        ----------
        indptr : (k + 1,) int
            Begins with 0 and ascends.
        vertices : (t,) int
            In any order; coefficients of one vertex are added up.
        coefficients : (t,) real

        Raises
        ------
        ValueError
            Names the first equation that cannot be taken; none is added then.
        """
        begins = _checks.integers(indptr, "indptr", (None,), "i8", 0)
        terms = _checks.integers(vertices, "vertices", (None,), "i4")
        values = _checks.reals(coefficients, "coefficients", (len(terms),))
        if len(begins) == 0 or begins[-1] != len(terms):
            raise ValueError(f"indptr must end with the number of vertices, which is {len(terms)}")
        fault = self._system.add_equations(begins, terms, values)
        if fault is not None:
            raise ValueError(f"equation {fault[0]} {fault[1]}")

    def solve(self, fixed: npt.ArrayLike | None = None, right: npt.ArrayLike | None = None, *, solver: str = "direct",
              tolerance: float = 1e-8, max_iterations: int = 10000, semidefinite_lift: float = 0.0,
              boundaries: npt.ArrayLike = (), threads: int = 0,
              progress: Progress = None) -> npt.NDArray[np.float64]:
        """
        Positions of the free vertices.

        Parameters
        ----------
        fixed : (f,) or (f, d) real
            Positions of the fixed vertices; left out when there are none.
        right : (n,) or (n, d) real, optional
            Right sides of the equations; 0 when left out.
        solver : {"direct", "iterative", "decomposing", "dense"}
            One factorisation for all right sides; the stabilised method of biconjugate gradients without a
            preconditioner; blocks between `boundaries` solved directly and merged by iterations; a dense
            factorisation, for up to some thousand vertices.
        tolerance : float
            Relative residual at which iterations stop.
        max_iterations : int
            For each right side.
        semidefinite_lift : float
            With "direct" and a promise of definiteness that fails: try once more with this share of the largest
            diagonal element added, and accept solutions that solve the given system.
        boundaries : (b,) int
            Of "decomposing": ascending numbers of equations at which the system is cut.
        threads, progress
            As of `reconstruct`.

        Returns
        -------
        (n,) or (n, d) float64
            In the order of `free`.

        Raises
        ------
        SolveError
            For a singular matrix, or an iteration that did not converge.
        TypeError, ValueError
            For arrays that do not fit the system.
        """
        count, equations = len(self._free), self._system.equation_count()
        if equations != count:
            raise ValueError(f"the system has {equations} equations for {count} free vertices")
        given = [(name, np.asarray(value)) for name, value in (("fixed", fixed), ("right", right)) if value is not None]
        dimensions = {array.ndim for _, array in given}
        flat = dimensions <= {1}
        if not (flat or dimensions == {2}):
            raise ValueError("fixed and right must both have one dimension or both two")
        if fixed is None and len(self._fixed) > 0:
            raise ValueError(f"fixed must have the positions of {len(self._fixed)} vertices")
        columns = 1 if flat else given[-1][1].shape[1]
        if columns == 0:
            raise ValueError("there must be at least one right side")

        def of(value: object, name: str, rows: int) -> npt.NDArray[Any]:
            return _checks.reals(value, name, (rows,) if flat else (rows, columns)).reshape(rows, columns)

        positions = np.zeros((0, columns)) if fixed is None else of(fixed, "fixed", len(self._fixed))
        sides = None if right is None else of(right, "right", count)
        cuts = _checks.integers(boundaries, "boundaries", (None,), "i4", 0, count).tolist()
        if cuts != sorted(cuts):
            raise ValueError("boundaries must ascend")
        with shown(progress) as callback:
            found, reason, iterations, residual, no_memory = self._system.solve(
                _checks.choice(solver, "solver", _SOLVERS), positions, sides,
                _checks.real(tolerance, "tolerance", 0.0, 1.0), _checks.integer(max_iterations, "max_iterations", 1),
                _checks.real(semidefinite_lift, "semidefinite_lift", 0.0, 1.0), cuts,
                _checks.integer(threads, "threads", 0, 1024), callback)
        # A right side of zeros has the solution zero, where an iteration cannot begin.
        if found is not None and reason is None and not np.isfinite(found).all():
            reason = "the solution is not finite"
        if found is None or reason is not None:
            if no_memory:
                raise MemoryError(str(reason))
            reached = f" (relative residual {residual:.3g} after {iterations} iterations)" if residual else ""
            error = SolveError(f"the system was not solved: {reason}{reached}")
            error.solution, error.residual = found, residual
            raise error
        return np.asarray(found.reshape(count) if flat else found)

    def matrices(self) -> tuple[Matrix, Matrix]:
        """
        Copies of F, with what is left of the diagonal missing when the system is symmetric, and of G.

        Examples
        --------
        >>> import qzmath
        >>> system = qzmath.LinearSystem(2, fixed=[7])
        >>> system.add_equations([0, 2, 4], [0, 7, 1, 0], [2, -1, 3, 1])
        >>> free, fixed = system.matrices()
        >>> free.data, free.indices, free.indptr
        (array([2., 1., 3.]), array([0, 0, 1], dtype=int32), array([0, 1, 3], dtype=int32))
        """
        (begins, columns, values), (fixed_begins, fixed_columns, fixed_values) = self._system.matrices()
        rows = self._system.equation_count()
        return (Matrix(values, columns, begins[:rows + 1], (rows, len(self._free))),
                Matrix(fixed_values, fixed_columns, fixed_begins, (rows, len(self._fixed))))

    def to_scipy(self) -> tuple[Any, Any]:
        """
        F, in full, and G as `scipy.sparse.csr_matrix`.

        Raises
        ------
        ImportError
            Without scipy.
        """
        import scipy.sparse  # type: ignore[import]
        free, fixed = (scipy.sparse.csr_matrix((one.data, one.indices, one.indptr), one.shape)
                       for one in self.matrices())
        if self._symmetric:
            free = (free + scipy.sparse.triu(free, 1).T).tocsr()
        return free, fixed

    @classmethod
    def from_scipy(cls, matrix: Any, *, symmetric: bool = False, positive_definite: bool = False) -> LinearSystem:
        """
        The system of a square sparse matrix, without fixed vertices; solve it for right sides.

        Parameters
        ----------
        matrix : sparse matrix of scipy, of shape (n, n)
        symmetric, positive_definite : bool
            Promises, see `LinearSystem`.

        Examples
        --------
        >>> import numpy as np, qzmath, scipy.sparse
        >>> matrix = scipy.sparse.diags([-1, 2, -1], [-1, 0, 1], (5, 5))
        >>> system = qzmath.LinearSystem.from_scipy(matrix, symmetric=True, positive_definite=True)
        >>> system.solve(right=np.ones(5))
        array([2.5, 4. , 4.5, 4. , 2.5])
        """
        if not hasattr(matrix, "tocsr") or not hasattr(matrix, "shape"):
            _checks.wrong_type("matrix", "a sparse matrix of scipy", matrix)
        rows = matrix.tocsr()
        if len(rows.shape) != 2 or rows.shape[0] != rows.shape[1]:
            raise ValueError(f"matrix must be square, not of shape {rows.shape}")
        system = cls(int(rows.shape[0]), symmetric=symmetric, positive_definite=positive_definite)
        system.add_equations(rows.indptr, rows.indices, rows.data)
        return system
