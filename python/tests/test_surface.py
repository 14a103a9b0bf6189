# SPDX-License-Identifier: Apache-2.0
import numpy as np
import pytest

import qzmath


@pytest.mark.parametrize("offset", [0.0, 1e7])
@pytest.mark.parametrize("arguments", [dict(), dict(k=None, radius=0.1), dict(orient="viewpoint", viewpoint=None),
                                       dict(orient=None)])
def test_normals_are_those_of_the_surface(torus, offset, arguments):
    if "viewpoint" in arguments:
        arguments = {**arguments, "viewpoint": np.array([0, 0, 50.0]) + offset}
    normals = qzmath.estimate_normals(torus.points.astype(float) + offset if offset else torus.points, **arguments)
    assert normals.dtype == np.float32
    agreement = np.sum(normals * torus.normals, axis=1)
    if arguments.get("orient", "tree") == "tree":
        assert agreement.min() > 0.9
    else:
        assert np.abs(agreement).min() > 0.9
    if "viewpoint" in arguments:
        assert np.all(np.sum(normals * ([0, 0, 50] - torus.points), axis=1) >= -1e-3)
    same = qzmath.estimate_normals(torus.points.astype(float) + offset if offset else torus.points, threads=1,
                                   **arguments)
    assert np.array_equal(normals, same)


def test_curvatures_are_those_of_the_surface():
    cloud = qzmath.sample("torus", 30000)
    found = qzmath.estimate_curvatures(cloud)
    x, y = cloud.points[:, 0], cloud.points[:, 1]
    around = -(1 - 1 / np.hypot(x, y)) / 0.4          # of the ring, 0 at the top
    assert np.median(np.abs(found.minimum + 2.5)) < 0.05 and np.median(np.abs(found.maximum - around)) < 0.05
    assert np.array_equal(found.mean, (found.minimum + found.maximum) / 2)
    assert np.median(np.abs(found.gaussian + 2.5 * around)) < 0.2
    assert found.normal.shape == found.direction.shape == (30000, 3) and set(found.method) <= {0, 1, 2}
    flipped = qzmath.estimate_curvatures(cloud.points, -cloud.normals)
    assert np.allclose(flipped.maximum, -found.minimum)


@pytest.mark.parametrize("call, error, words", [
    (lambda p: qzmath.estimate_normals(p, k=2), ValueError, "k must be an integer from 3"),
    (lambda p: qzmath.estimate_normals(p, k=None), ValueError, "one of k and radius"),
    (lambda p: qzmath.estimate_normals(p, radius=0), ValueError, "radius must be above 0"),
    (lambda p: qzmath.estimate_normals(p, orient="up"), ValueError, "orient must be one of None, 'viewpoint', 'tree'"),
    (lambda p: qzmath.estimate_normals(p, orient="viewpoint"), ValueError, "needs a viewpoint"),
    (lambda p: qzmath.estimate_normals([[0, 0, np.nan]]), ValueError, r"\[0, 2\] is nan"),
    (lambda p: qzmath.estimate_curvatures(p, p[:3]), ValueError, "normals must be"),
    (lambda p: qzmath.estimate_normals(p, progress=lambda *_: True), qzmath.Cancelled, ""),
])
def test_wrong_arguments_are_named(torus, call, error, words):
    with pytest.raises(error, match=words):
        call(torus.points)
