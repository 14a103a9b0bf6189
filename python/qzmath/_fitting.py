# SPDX-License-Identifier: Apache-2.0
"""Lines, planes, circles and chains of them through points; small optimisation."""
from __future__ import annotations

from dataclasses import dataclass
from typing import Any, Callable, Sequence

import numpy as np
import numpy.typing as npt

from . import _checks, _qzmath

Array = npt.NDArray[np.float64]


class FitError(ValueError):
    """The points determine no such object, or too few of them agree on one."""


@dataclass(frozen=True, eq=False)
class Consensus:
    """
    Of a fit by consensus: which points agree, and how well.

    Attributes
    ----------
    inliers : (k,) int64
        Numbers of the points within `inlier_distance`, ascending.
    rms : float
        Of their distances.
    inlier_distance : float
        The given one, or the one that was found.
    support : float
        Share of the inliers, 0 to 1.
    trials : int
        Samples that were drawn.
    """

    inliers: npt.NDArray[np.int64]
    rms: float
    inlier_distance: float
    support: float
    trials: int


@dataclass(frozen=True, eq=False)
class Line:
    """A point on it, and its unit direction, of arbitrary sign."""

    origin: Array
    direction: Array
    consensus: Consensus | None = None

    def distances(self, points: npt.ArrayLike) -> Array:
        """(n,) distances of (n, 3) points."""
        apart = _checks.reals(points, "points", (None, 3)) - self.origin
        return np.asarray(np.linalg.norm(np.cross(apart, self.direction), axis=1))


@dataclass(frozen=True, eq=False)
class Plane:
    """A point in it, and its unit normal, of arbitrary sign."""

    origin: Array
    normal: Array
    consensus: Consensus | None = None

    def distances(self, points: npt.ArrayLike) -> Array:
        """(n,) distances of (n, 3) points, positive on the side of the normal."""
        return np.asarray((_checks.reals(points, "points", (None, 3)) - self.origin) @ self.normal)


@dataclass(frozen=True, eq=False)
class Circle:
    """Its centre, the unit normal of its plane, of arbitrary sign, and its radius."""

    center: Array
    normal: Array
    radius: float
    consensus: Consensus | None = None

    def distances(self, points: npt.ArrayLike) -> Array:
        """(n,) distances of (n, 3) points from the curve."""
        apart = _checks.reals(points, "points", (None, 3)) - self.center
        height = apart @ self.normal
        return np.asarray(np.hypot(np.linalg.norm(apart - height[:, None] * self.normal, axis=1) - self.radius, height))


_METHODS = {name: name for name in ("least_squares", "robust", "consensus")}


def _consensus(found: Any, what: str) -> tuple[Any, Consensus]:
    if found is None:
        raise FitError(f"no {what} has more support than points spread at random would give it")
    return found[0], Consensus(*found[1:])


def _search(inlier_distance: object, confidence: object, max_trials: object, seed: object) -> tuple[Any, ...]:
    sure = _checks.real(confidence, "confidence", 0.0, 1.0)
    return (0.0 if inlier_distance is None else _checks.real(inlier_distance, "inlier_distance", 0.0), sure,
            _checks.integer(max_trials, "max_trials", 1), _checks.integer(seed, "seed", 0, 2**64 - 1))


def fit_plane(points: npt.ArrayLike, *, method: str = "least_squares", inlier_distance: float | None = None,
              confidence: float = 0.9999, max_trials: int = 10000, seed: int = 0) -> Plane:
    """
    The plane of least squares through points, or the one that most points agree on.

    Parameters
    ----------
    points : (n, 3) real
        At least three; four for "consensus".
    method : {"least_squares", "consensus"}
        "consensus" is right however many points belong to something else.
    inlier_distance : float, optional
        Of "consensus": greatest distance of a supporting point, about 2.5 deviations of the noise; found when not given.
    confidence, max_trials, seed
        Of "consensus": the trials end when the best plane would have been hit with this probability.

    Returns
    -------
    Plane

    Raises
    ------
    FitError
        When the points determine none.
    TypeError, ValueError
        For arguments that cannot be used.

    Examples
    --------
    >>> import numpy as np, qzmath
    >>> rng = np.random.default_rng(1)
    >>> floor = rng.uniform(-1, 1, (200, 3)) * [1, 1, 0.01]
    >>> clutter = rng.uniform(-1, 1, (300, 3))
    >>> plane = qzmath.fit_plane(np.vstack([floor, clutter]), method="consensus")
    >>> bool(abs(plane.normal[2]) > 0.999), round(plane.consensus.support, 1)
    (True, 0.4)
    """
    array = _checks.points(points, dtype="f8")
    search = _search(inlier_distance, confidence, max_trials, seed)
    if _checks.choice(method, "method", {"least_squares": False, "consensus": True}):
        (origin, normal), consensus = _consensus(_qzmath.find_plane(array, *search), "plane")
        return Plane(origin, normal, consensus)
    found = _qzmath.fit_plane(array)
    if found is None:
        raise FitError("the points determine no plane: at least 3 are needed, within the range of float32")
    return Plane(*found)


def fit_line(points: npt.ArrayLike, *, method: str = "least_squares", through: npt.ArrayLike | None = None,
             inlier_distance: float | None = None, confidence: float = 0.9999, max_trials: int = 10000,
             seed: int = 0) -> Line:
    """
    The line of least squares through points, the robust one, or the one that most points agree on.

    Parameters
    ----------
    points : (n, 3) real
        At least two; three for "consensus".
    method : {"least_squares", "robust", "consensus"}
        "robust" weighs outliers down, starting from all points; "consensus" is right however many there are.
    through : (3,) real, optional
        A point that the line passes through; with "robust".
    inlier_distance, confidence, max_trials, seed
        As of `fit_plane`.

    Returns
    -------
    Line

    Raises
    ------
    FitError
        When the points determine none.
    TypeError, ValueError
        For arguments that cannot be used.

    Examples
    --------
    >>> import qzmath
    >>> line = qzmath.fit_line([[0, 0, 1], [1, 0, 1], [2, 0, 1]])
    >>> line.origin, abs(line.direction)
    (array([1., 0., 1.]), array([1., 0., 0.]))
    """
    array = _checks.points(points, dtype="f8")
    search = _search(inlier_distance, confidence, max_trials, seed)
    way = _checks.choice(method, "method", _METHODS)
    fixed = np.zeros((0, 3)) if through is None else _checks.place(through, "through").reshape(1, 3)
    if len(fixed) > 0 and way != "robust":
        raise ValueError('through needs method="robust"')
    if way == "consensus":
        (origin, direction), consensus = _consensus(_qzmath.find_line(array, *search), "line")
        return Line(origin, direction, consensus)
    found = _qzmath.fit_line(array, way == "robust", fixed)
    if found is None:
        raise FitError("the points determine no line: at least 2 in different places are needed")
    return Line(*found)


def fit_circle(points: npt.ArrayLike, *, method: str = "least_squares", through: npt.ArrayLike | None = None,
               tangents: npt.ArrayLike | None = None, inlier_distance: float | None = None, confidence: float = 0.9999,
               max_trials: int = 10000, seed: int = 0) -> Circle:
    """
    The circle of least squares through points of space, the robust one, or the one that most points agree on.

    Parameters
    ----------
    points : (n, 3) real
        At least three; four for "consensus". Robust fits are refined until steps fall below 1e-4: give units in which
        that is small against the noise.
    method : {"least_squares", "robust", "consensus"}
        As of `fit_line`; outliers beside the plane tilt the first two.
    through : (1 to 3, 3) real, optional
        Points that the circle passes through; with "robust".
    tangents : (1 or 2, 3) real, optional
        Directions of the circle at the first points of `through`.
    inlier_distance, confidence, max_trials, seed
        As of `fit_plane`.

    Returns
    -------
    Circle

    Raises
    ------
    FitError
        When the points determine none.
    TypeError, ValueError
        For arguments that cannot be used.

    Examples
    --------
    >>> import numpy as np, qzmath
    >>> angle = np.linspace(0, 3, 20)
    >>> arc = np.stack([2 + 5 * np.cos(angle), 5 * np.sin(angle), 0 * angle], 1)
    >>> circle = qzmath.fit_circle(arc)
    >>> round(circle.radius, 9), bool(np.allclose(circle.center, [2, 0, 0]))
    (5.0, True)
    """
    array = _checks.points(points, dtype="f8")
    search = _search(inlier_distance, confidence, max_trials, seed)
    way = _checks.choice(method, "method", _METHODS)
    fixed = np.zeros((0, 3)) if through is None else _checks.reals(through, "through", (None, 3))
    directions = np.zeros((0, 3)) if tangents is None else _checks.reals(tangents, "tangents", (None, 3))
    if len(fixed) > 3 or len(directions) > 2 or (len(directions) > 0 and len(directions) != min(len(fixed), 2)):
        raise ValueError("through must have at most 3 points, and tangents one direction for each of the first two")
    if len(fixed) > 0 and way != "robust":
        raise ValueError('through needs method="robust"')
    if way == "consensus":
        (center, normal, radius), consensus = _consensus(_qzmath.find_circle(array, *search), "circle")
        return Circle(center, normal, radius, consensus)
    found = _qzmath.fit_circle(array, way == "robust", fixed, directions)
    if found is None:
        raise FitError("the points determine no circle: at least 3 that are not on a line are needed")
    return Circle(*found)


@dataclass(frozen=True, eq=False)
class Curve:
    """
    A segment of a fitted polyline.

    Attributes
    ----------
    kind : str
        "line", "arc", or "free" where neither fits.
    shape : Line, Circle or None
    """

    kind: str
    shape: Line | Circle | None


@dataclass(frozen=True, eq=False)
class Joint:
    """
    What two neighbouring curves share.

    Attributes
    ----------
    kind : str
        "free" for nothing, "point", or "smooth" for a point and the direction there.
    point, direction : (3,) float64 or None
    """

    kind: str
    point: Array | None
    direction: Array | None


@dataclass(frozen=True, eq=False)
class PolylineFit:
    """Curves in their order; `joints[k]` is before and `joints[k + 1]` behind `curves[k]`. A closed polyline has as many
    joints as curves."""

    curves: tuple[Curve, ...]
    joints: tuple[Joint, ...]
    is_closed: bool


def fit_polyline(segments: Sequence[npt.ArrayLike], tolerance: float = 0.01) -> PolylineFit:
    """
    A chain of straight lines and circular arcs through a polyline that has been cut into segments.

    Parameters
    ----------
    segments : sequence of (n, 3) real
        The points of each segment, in the order of the polyline; all about in one plane.
    tolerance : float
        Greatest mean distance of a line or an arc from its points. It is compared with cosines too: give units in which
        it is small against 1.

    Returns
    -------
    PolylineFit

    Raises
    ------
    TypeError, ValueError
        For arguments that cannot be used.

    Examples
    --------
    A straight piece that goes over into a quarter of a circle:

    >>> import numpy as np, qzmath
    >>> t = np.linspace(0, 1, 30)
    >>> straight = np.stack([t - 1, 0 * t, 0 * t], 1)
    >>> bend = np.stack([np.sin(t * np.pi / 2), 1 - np.cos(t * np.pi / 2), 0 * t], 1)
    >>> fit = qzmath.fit_polyline([straight, bend])
    >>> [curve.kind for curve in fit.curves], [joint.kind for joint in fit.joints]
    (['line', 'arc'], ['free', 'smooth', 'free'])
    >>> round(fit.curves[1].shape.radius, 6)
    1.0
    """
    if isinstance(segments, (str, bytes)) or not isinstance(segments, (Sequence, np.ndarray)) or len(segments) == 0:
        _checks.wrong_value("segments", "a sequence of at least one array of points", segments)
    arrays = [_checks.reals(segment, f"segments[{k}]", (None, 3)) for k, segment in enumerate(segments)]
    limit = _checks.real(tolerance, "tolerance", 0.0)
    types, curves, conditions, boundaries, closed = _qzmath.fit_polyline(arrays, limit)

    def curve(kind: int, numbers: Array) -> Curve:
        if kind == 0 and np.isfinite(numbers).all():
            return Curve("line", Line(numbers[:3], numbers[3:6]))
        if kind == 1 and np.isfinite(numbers).all():
            return Curve("arc", Circle(numbers[:3], numbers[3:6], float(abs(numbers[6]))))
        return Curve("free", None)

    def joint(kind: int, numbers: Array) -> Joint:
        point = numbers[:3] if kind > 0 and np.isfinite(numbers[:3]).all() else None
        direction = numbers[3:] if kind == 2 and np.isfinite(numbers[3:]).all() else None
        return Joint("free" if point is None else "point" if direction is None else "smooth", point, direction)

    return PolylineFit(tuple(map(curve, types.tolist(), curves)), tuple(map(joint, conditions.tolist(), boundaries)),
                       bool(closed))


@dataclass(frozen=True, eq=False)
class QuadraticProgramResult:
    """
    The solution of a quadratic program, with H x + c = A_eq' y_eq + A_ge' y_ge + z_lower - z_upper.

    Attributes
    ----------
    x : (n,) float64
    objective : float
    equality_multipliers, inequality_multipliers, lower_multipliers, upper_multipliers : float64
    violation : float
        Greatest violation of a constraint.
    iterations : int
    """

    x: Array
    objective: float
    equality_multipliers: Array
    inequality_multipliers: Array
    lower_multipliers: Array
    upper_multipliers: Array
    violation: float
    iterations: int


class QuadraticProgramError(RuntimeError):
    """
    A quadratic program has no solution, or was not solved.

    Attributes
    ----------
    constraint : int or None
        When the constraints contradict each other, one of those: equalities count first, then inequalities, then the
        bounds of each variable.
    """

    constraint: int | None = None


_STATUS = {1: "the limit of iterations was reached", 2: "the constraints contradict each other",
           3: "the objective is unbounded", 4: "h is not positive semidefinite"}


def quadratic_program(h: npt.ArrayLike, c: npt.ArrayLike, *, a_eq: npt.ArrayLike | None = None,
                      b_eq: npt.ArrayLike | None = None, a_ge: npt.ArrayLike | None = None,
                      b_ge: npt.ArrayLike | None = None, lower: npt.ArrayLike | None = None,
                      upper: npt.ArrayLike | None = None, start: npt.ArrayLike | None = None, tolerance: float = 0.0,
                      max_iterations: int = 0) -> QuadraticProgramResult:
    """
    Minimise 1/2 x'Hx + c'x subject to A_eq x = b_eq, A_ge x >= b_ge and lower <= x <= upper.

    Parameters
    ----------
    h : (n, n) real
        Positive semidefinite; 0 for a linear program.
    c : (n,) real
    a_eq, b_eq, a_ge, b_ge : (k, n) and (k,) real, optional
    lower, upper : (n,) real, optional
        Magnitudes of 1e9 or more, infinity included, mean none.
    start : (n,) real, optional
        Selects among several solutions one nearby.
    tolerance : float
        Relative, at most 0.01; 0 for about 1e-13.
    max_iterations : int
        0 for 40 times the number of variables and constraints.

    Returns
    -------
    QuadraticProgramResult

    Raises
    ------
    QuadraticProgramError
        When there is no solution.
    TypeError, ValueError
        For arrays that do not fit together.

    Examples
    --------
    >>> import qzmath
    >>> qzmath.quadratic_program([[2, 0], [0, 2]], [-2, -5], a_ge=[[1, -2]], b_ge=[-2], lower=[0, 0]).x.round(6)
    array([1.4, 1.7])
    """
    gradient = _checks.reals(c, "c", (None,))
    n = len(gradient)
    if not 1 <= n <= 20000:
        raise ValueError(f"c must have 1 to 20000 elements, not {n}")
    rows, sides = [], []
    for letter, matrix, right in (("eq", a_eq, b_eq), ("ge", a_ge, b_ge)):
        if (matrix is None) != (right is None):
            raise ValueError(f"a_{letter} and b_{letter} go together")
        rows.append(np.zeros((0, n)) if matrix is None else _checks.reals(matrix, f"a_{letter}", (None, n)))
        sides.append(np.zeros(0) if right is None else _checks.reals(right, f"b_{letter}", (len(rows[-1]),)))

    def bound(value: object, name: str, none: float) -> Array:
        array = np.full(n, none) if value is None else _checks.reals(value, name, (n,), check=False)
        if np.isnan(array).any():
            raise ValueError(f"{name} must be numbers, or infinite for none")
        return array

    x, multipliers, at_lower, at_upper, objective, violation, _, iterations, status, bad = _qzmath.quadratic_program(
        _checks.reals(h, "h", (n, n)), gradient, np.ascontiguousarray(np.vstack(rows).T), np.concatenate(sides),
        len(rows[0]), bound(lower, "lower", -np.inf), bound(upper, "upper", np.inf),
        np.zeros(n) if start is None else _checks.reals(start, "start", (n,)),
        _checks.real(tolerance, "tolerance", 0.0, 0.01), _checks.integer(max_iterations, "max_iterations", 0))
    if status != 0:
        if status not in _STATUS:
            raise ValueError("the quadratic program cannot be stated like that")
        error = QuadraticProgramError(_STATUS[status])
        error.constraint = bad - 1 if status == 2 else None
        raise error
    return QuadraticProgramResult(x, objective, multipliers[:len(rows[0])], multipliers[len(rows[0]):], at_lower,
                                  at_upper, violation, iterations)


def optimize_min_max(functions: Sequence[Callable[[Array], float]], start: npt.ArrayLike, lower: npt.ArrayLike,
                     upper: npt.ArrayLike, *, projector: Callable[[Array], npt.ArrayLike] | None = None,
                     tolerance: float = 1e-5, max_steps: int = 4, attempts: int = 3) -> Array:
    """
    A point of a box in space where the smallest of several functions is about as large as can be.

    A short ascent from the start, see the page on fitting; its exceptions are those of the functions.

    Parameters
    ----------
    functions : sequence of callables
        Of an array of (3,), giving a float.
    start, lower, upper : (3,) real
    projector : callable, optional
        Gives the admissible point, (3,), that belongs to a point.
    tolerance : float
        Least gain of a step that counts.
    max_steps, attempts : int
        Steps, and step lengths tried for each.

    Returns
    -------
    (3,) float64

    Examples
    --------
    >>> import numpy as np, qzmath
    >>> best = qzmath.optimize_min_max([lambda p: -np.sum((p - 1) ** 2)], [0, 0, 0], [-2, -2, -2], [2, 2, 2])
    >>> bool(np.linalg.norm(best - 1) < 0.2)
    True
    """
    if isinstance(functions, (str, bytes)) or not isinstance(functions, Sequence):
        _checks.wrong_type("functions", "a sequence of functions", functions)
    for function in [*functions, *([] if projector is None else [projector])]:
        if not callable(function):
            _checks.wrong_type("functions", "functions of a point", function)
    onto = None
    if projector is not None:
        given = projector

        def onto(point: Array) -> Array:
            return _checks.place(given(point), "the answer of the projector")
    wrapped = [_checked(function, k) for k, function in enumerate(functions)]
    return np.asarray(_qzmath.optimize_min_max(
        wrapped, _checks.place(start, "start"), _checks.place(lower, "lower"), _checks.place(upper, "upper"), onto,
        _checks.real(tolerance, "tolerance", 0.0), _checks.integer(max_steps, "max_steps", 0, 10**6),
        _checks.integer(attempts, "attempts", 0, 1000)))


def _checked(function: Callable[[Array], float], number: int) -> Callable[[Array], float]:
    def call(point: Array) -> float:
        value = function(point)
        try:
            return float(value)
        except (TypeError, ValueError):
            _checks.wrong_type(f"the answer of functions[{number}]", "a number", value)
    return call
