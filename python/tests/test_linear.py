# SPDX-License-Identifier: Apache-2.0
import numpy as np
import pytest

import qzmath

scipy_sparse = pytest.importorskip("scipy.sparse")
scipy_solve = pytest.importorskip("scipy.sparse.linalg").spsolve


def laplacian(side):
    """Of a cube of side^3 vertices."""
    line = scipy_sparse.diags([-1.0, 2.0, -1.0], [-1, 0, 1], (side, side))
    return (scipy_sparse.kronsum(scipy_sparse.kronsum(line, line), line)).tocsr()


@pytest.mark.parametrize("solver", ["direct", "iterative", "decomposing", "dense"])
@pytest.mark.parametrize("symmetric", [True, False])
def test_every_solver_gives_what_scipy_gives(rng, solver, symmetric):
    matrix = laplacian(8)
    if not symmetric:
        matrix = (matrix + scipy_sparse.random(512, 512, 0.005, random_state=1)).tocsr()
    system = qzmath.LinearSystem.from_scipy(matrix, symmetric=symmetric, positive_definite=symmetric)
    right = rng.normal(size=(512, 3))
    right[:, 1] = 0
    options = dict(boundaries=[128, 256, 384]) if solver == "decomposing" else {}
    expected = scipy_solve(matrix.tocsc(), right)
    found = system.solve(right=right, solver=solver, tolerance=1e-12, **options)
    assert np.allclose(found, expected, atol=1e-8) and found.shape == (512, 3)
    assert np.allclose(system.solve(right=right[:, 0], solver=solver, tolerance=1e-12, **options), expected[:, 0],
                       atol=1e-8)
    assert (abs(system.to_scipy()[0] - matrix) > 1e-15).nnz == 0


def test_vertices_are_named_freely_and_fixed_ones_are_moved_over(rng):
    matrix = laplacian(6)
    names = rng.permutation(1000)[:216].astype(np.int32) - 300
    free, fixed = np.arange(150), np.arange(150, 216)
    system = qzmath.LinearSystem(names[free], names[fixed])
    top = matrix[:150]
    system.add_equations(top.indptr, names[top.indices], top.data)
    positions, right = rng.normal(size=(66, 3)), rng.normal(size=(150, 3))
    expected = scipy_solve(top[:, :150].tocsc(), right - top[:, 150:] @ positions)
    assert np.allclose(system.solve(positions, right), expected)
    F, G = system.to_scipy()
    assert (abs(F - top[:, :150]) > 0).nnz == 0 and (abs(G - top[:, 150:]) > 0).nnz == 0
    assert np.array_equal(system.free, names[:150]) and "150 equations" in repr(system)


def test_a_singular_or_stubborn_system_says_so():
    singular = qzmath.LinearSystem.from_scipy(scipy_sparse.csr_matrix([[1.0, 1.0], [1.0, 1.0]]))
    with pytest.raises(qzmath.SolveError, match="singular"):
        singular.solve(right=[1.0, 0.0])
    sound = qzmath.LinearSystem.from_scipy(laplacian(3), symmetric=True, positive_definite=True)
    with pytest.raises(qzmath.SolveError, match="residual") as caught:
        qzmath.LinearSystem.from_scipy(laplacian(8)).solve(right=np.arange(512.0), solver="iterative", max_iterations=2)
    assert caught.value.solution.shape[0] == 512 and caught.value.residual > 1e-8
    with pytest.raises(qzmath.Cancelled):
        sound.solve(right=np.ones(27), progress=lambda *_: True)


def line_of():
    return qzmath.LinearSystem(2, fixed=[7])


@pytest.mark.parametrize("call, error, words", [
    (lambda: qzmath.LinearSystem([1, 1]), ValueError, "free names a vertex that is named already"),
    (lambda: qzmath.LinearSystem([1], [1]), ValueError, "fixed names"),
    (lambda: qzmath.LinearSystem([1.5]), TypeError, "integers"),
    (lambda: qzmath.LinearSystem([2**40]), ValueError, "integers from"),
    (lambda: qzmath.LinearSystem(-1), ValueError, "free must be"),
    (lambda: line_of().add_equations([0, 2], [0], [1.0]), ValueError, "indptr must end with .* 1"),
    (lambda: line_of().add_equations([0, 2, 1], [0], [1.0]), ValueError, "equation 1 begins"),
    (lambda: line_of().add_equations([1, 1], [0], [1.0]), ValueError, "equation 0"),
    (lambda: line_of().add_equations([0, 1, 2], [0, 5], [1.0, 1]), ValueError, "equation 1 .* neither free nor fixed"),
    (lambda: line_of().add_equations([0, 1], [7], [1.0]), ValueError, "equation 0 has no free vertex"),
    (lambda: line_of().add_equations([0, 1], [0], [np.nan]), ValueError, "finite"),
    (lambda: line_of().add_equations([0, 1, 2, 3], [0, 1, 0], [1.0] * 3), ValueError, "equation 2 is one more"),
    (lambda: line_of().solve([0.0]), ValueError, "0 equations for 2"),
    (lambda: qzmath.LinearSystem(0, [1]).solve(), ValueError, "positions of 1 vertices"),
    (lambda: qzmath.LinearSystem(0, [1]).solve([[0.0]], [1.0]), ValueError, "both"),
    (lambda: qzmath.LinearSystem.from_scipy(np.eye(2)), TypeError, "sparse matrix"),
    (lambda: qzmath.LinearSystem.from_scipy(scipy_sparse.csr_matrix((2, 3))), ValueError, "square"),
    (lambda: qzmath.LinearSystem.from_scipy(scipy_sparse.csr_matrix((2, 2))), ValueError, "no free vertex"),
])
def test_wrong_arguments_are_named(call, error, words):
    with pytest.raises(error, match=words):
        call()
