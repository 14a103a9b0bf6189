# SPDX-License-Identifier: Apache-2.0
import itertools

import numpy as np
import pytest

import qzmath

FRAME = np.linalg.qr(np.random.default_rng(7).normal(size=(3, 3)))[0]
CENTER = np.array([3.0, -2.0, 5.0])


def place(local):
    return CENTER + np.asarray(local) @ FRAME.T


@pytest.fixture
def shapes(rng):
    t = rng.uniform(0, 5, 300)
    zero = 0 * t
    noise = 0.005 * rng.normal(size=(300, 3))
    return {
        "line": place(np.stack([t, zero, zero], 1) + noise),
        "plane": place(np.stack([t, rng.uniform(-3, 3, 300), zero], 1) + noise),
        "circle": place(np.stack([2 * np.cos(t), 2 * np.sin(t), zero], 1) + noise),
    }


FITS = {"line": qzmath.fit_line, "plane": qzmath.fit_plane, "circle": qzmath.fit_circle}


@pytest.mark.parametrize("what, method, outliers", [
    (what, method, outliers) for what, (method, outliers) in
    itertools.product(FITS, [("least_squares", 0), ("robust", 0), ("robust", 30), ("consensus", 300)])
    if (what, method) != ("plane", "robust") and (what, outliers) != ("circle", 30)])
def test_fits_find_the_shape(shapes, rng, what, method, outliers):
    clean = shapes[what]
    found = FITS[what](np.vstack([clean, rng.uniform(-8, 8, (outliers, 3)) + CENTER]), method=method)
    assert np.sqrt(np.mean(found.distances(clean) ** 2)) < 0.02
    axis = found.direction if what == "line" else found.normal
    assert abs(axis @ FRAME[:, 0 if what == "line" else 2]) > 0.9999
    if what == "circle":
        assert found.radius == pytest.approx(2, abs=0.01) and np.allclose(found.center, CENTER, atol=0.02)
    assert (found.consensus is not None) == (method == "consensus")
    if found.consensus:
        assert np.count_nonzero(found.consensus.inliers < 300) > 280
        assert found.consensus.support == pytest.approx(len(found.consensus.inliers) / 600)


def test_constraints_of_fits_are_kept(shapes):
    through = place([[2.0, 0, 0], [0, 2.0, 0]])
    line = qzmath.fit_line(shapes["line"], method="robust", through=CENTER)
    assert np.allclose(line.origin, CENTER) and line.distances([CENTER])[0] < 1e-12
    one = qzmath.fit_circle(shapes["circle"], method="robust", through=through[:1])
    two = qzmath.fit_circle(shapes["circle"], method="robust", through=through)
    tangent = qzmath.fit_circle(shapes["circle"], method="robust", through=through[:1], tangents=[FRAME[:, 1]])
    for circle, points in ((one, through[:1]), (two, through), (tangent, through[:1])):
        assert circle.radius == pytest.approx(2, abs=0.02)
        assert np.abs(circle.distances(points)).max() < 0.02        # they are put into the plane of the points
    assert abs((through[0] - tangent.center) @ FRAME[:, 1]) < 0.02


def test_polylines_become_chains(rng):
    t = np.linspace(0, 1, 40)[:, None]
    square = [place(4 * ((1 - t) * np.array(a) + t * np.array(b))) for a, b in
              itertools.pairwise([(0, 0, 0), (1, 0, 0), (1, 1, 0), (0, 1, 0), (0, 0, 0)])]
    fit = qzmath.fit_polyline([side + 1e-4 * rng.normal(size=side.shape) for side in square[:-1]]
                              + [np.vstack([square[3][:-1], square[0][:1]])])
    assert [curve.kind for curve in fit.curves] == ["line"] * 4
    assert len(fit.joints) == (4 if fit.is_closed else 5)
    for curve, side in zip(fit.curves, square):
        assert curve.shape.distances(side).max() < 1e-2
    wild = qzmath.fit_polyline([rng.normal(size=(20, 3)), square[0], np.zeros((0, 3))])
    assert wild.curves[0].kind == "free" and wild.curves[0].shape is None


def test_quadratic_programs_fulfil_their_conditions(rng):
    for _ in range(20):
        n, equalities, inequalities = 6, 2, 5
        half = rng.normal(size=(n, n))
        h, c, inside = half @ half.T, rng.normal(size=n), rng.normal(size=n)
        a_eq, a_ge = rng.normal(size=(equalities, n)), rng.normal(size=(inequalities, n))
        b_ge = a_ge @ inside - rng.uniform(0, 1, inequalities)
        found = qzmath.quadratic_program(h, c, a_eq=a_eq, b_eq=a_eq @ inside, a_ge=a_ge, b_ge=b_ge, lower=inside - 1,
                                         upper=np.where(np.arange(n) < 3, np.inf, inside + 1))
        assert np.allclose(h @ found.x + c, a_eq.T @ found.equality_multipliers + a_ge.T @ found.inequality_multipliers
                           + found.lower_multipliers - found.upper_multipliers, atol=1e-8)
        assert np.allclose(a_eq @ found.x, a_eq @ inside) and (a_ge @ found.x >= b_ge - 1e-9).all()
        assert (found.inequality_multipliers >= 0).all()
        assert np.allclose(found.inequality_multipliers * (a_ge @ found.x - b_ge), 0, atol=1e-8)
        assert found.objective == pytest.approx(found.x @ h @ found.x / 2 + c @ found.x)
    with pytest.raises(qzmath.QuadraticProgramError, match="contradict") as caught:
        qzmath.quadratic_program(np.eye(2), [0, 0], a_eq=[[1, 1], [1, 1]], b_eq=[0, 1])
    assert caught.value.constraint in (0, 1)


def test_the_worst_function_is_raised():
    seen = []
    functions = [lambda p: -np.linalg.norm(p - [1, 0, 0]), lambda p: -np.linalg.norm(p + [1, 0, 0])]
    best = qzmath.optimize_min_max(functions, [0.9, 0.8, 0], [-2] * 3, [2] * 3, max_steps=50,
                                   projector=lambda p: (seen.append(p), p * [1, 1, 0])[1])
    assert min(f(best) for f in functions) > min(f(np.array([0.9, 0.8, 0])) for f in functions) + 0.3 and seen
    with pytest.raises(ZeroDivisionError):
        qzmath.optimize_min_max([lambda p: 1 / 0], [0, 0, 0], [-1] * 3, [1] * 3)


def test_points_are_projected_on_polylines_meshes_and_nets(rng):
    polyline, points = rng.normal(size=(12, 3)), rng.normal(size=(50, 3))
    feet, where = qzmath.project_points(points, polyline)
    along = np.linspace(0, 11, 20001)
    dense = np.stack([np.interp(along, np.arange(12), polyline[:, axis]) for axis in range(3)], 1)
    assert np.allclose(feet, np.stack([np.interp(where, np.arange(12), polyline[:, k]) for k in range(3)], 1))
    nearest = np.linalg.norm(points[:, None] - dense, axis=2).min(1)
    assert np.allclose(np.linalg.norm(points - feet, axis=1), nearest, atol=1e-3)
    brick = qzmath.reconstruct(qzmath.sample("block", 4000), depth=4)
    shifted = qzmath.Mesh(brick.vertices + [1e6, 0, 0], brick.triangles)
    far = points * 2 + [1e6, 0, 0]
    feet, triangles = qzmath.project_points(far, shifted)
    corners = shifted.vertices[shifted.triangles[triangles]]
    normals = np.cross(corners[:, 1] - corners[:, 0], corners[:, 2] - corners[:, 0])
    off_plane = np.einsum("ij,ij->i", feet - corners[:, 0], normals) / np.linalg.norm(normals, axis=1)
    assert np.abs(off_plane).max() < 1e-6
    to_vertices = np.linalg.norm(far[:, None] - shifted.vertices, axis=2).min(1)
    apart = np.linalg.norm(far - feet, axis=1)
    assert (apart < to_vertices + 1e-6).all() and (apart > to_vertices - 0.2).all()
    assert np.isnan(qzmath.project_points([[0, 0, 0]], qzmath.Mesh([[0, 0, 0]], np.zeros((0, 3), int)))[0]).all()
    u, v = np.meshgrid(np.arange(5.0), np.arange(4.0))
    net = place(np.stack([u, v, 0 * u], 2))
    feet, where = qzmath.project_points(place([[1.25, 2.5, 3.0], [3.5, 0.5, -1.0]]), net)
    assert np.allclose(where, [[1.25, 2.5], [3.5, 0.5]], atol=1e-5)
    assert np.allclose(feet, place([[1.25, 2.5, 0], [3.5, 0.5, 0]]), atol=1e-5)


@pytest.mark.parametrize("call, error, words", [
    (lambda: qzmath.fit_plane([[0, 0, 0]]), qzmath.FitError, "no plane"),
    (lambda: qzmath.fit_line([[1, 1, 1]] * 5), qzmath.FitError, "no line"),
    (lambda: qzmath.fit_circle([[0, 0, 0], [1, 1, 1], [2, 2, 2]]), qzmath.FitError, "no circle"),
    (lambda: qzmath.fit_plane(np.random.default_rng(1).normal(size=(50, 3)), method="consensus"), qzmath.FitError,
     "no plane has more support"),
    (lambda: qzmath.fit_plane(np.eye(3), method="robust"), ValueError, "method must be one of"),
    (lambda: qzmath.fit_line(np.eye(3), through=[0, 0, 0]), ValueError, 'needs method="robust"'),
    (lambda: qzmath.fit_circle(np.eye(3), method="robust", tangents=np.eye(3)[:1]), ValueError, "tangents"),
    (lambda: qzmath.fit_polyline([]), ValueError, "at least one"),
    (lambda: qzmath.fit_polyline([np.zeros((2, 2))]), ValueError, r"segments\[0\]"),
    (lambda: qzmath.quadratic_program(np.eye(2), [0, 0], a_eq=[[1, 1]]), ValueError, "a_eq and b_eq go together"),
    (lambda: qzmath.quadratic_program(np.eye(3), [0, 0]), ValueError, r"h must be .*\(2, 2\)"),
    (lambda: qzmath.quadratic_program(-np.eye(2), [0, 0]), qzmath.QuadraticProgramError, "semidefinite"),
    (lambda: qzmath.quadratic_program(np.zeros((2, 2)), [1, 0]), qzmath.QuadraticProgramError, "unbounded"),
    (lambda: qzmath.optimize_min_max([3], [0] * 3, [0] * 3, [1] * 3), TypeError, "functions of a point"),
    (lambda: qzmath.optimize_min_max([lambda p: "a"], [0] * 3, [0] * 3, [1] * 3), TypeError, r"functions\[0\]"),
    (lambda: qzmath.project_points(np.eye(3), np.zeros((1, 3, 3))), ValueError, "at least 2 rows"),
])
def test_wrong_arguments_are_named(call, error, words):
    with pytest.raises(error, match=words):
        call()
