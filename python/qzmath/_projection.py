# SPDX-License-Identifier: Apache-2.0
"""Points on meshes, polylines and nets."""
from __future__ import annotations

from typing import Any

import numpy as np
import numpy.typing as npt

from . import _checks, _qzmath
from ._mesh import Mesh, PointCloud
from ._progress import Progress, shown


def project_points(points: npt.ArrayLike | PointCloud, onto: npt.ArrayLike | Mesh, *, threads: int = 0,
                   progress: Progress = None) -> tuple[npt.NDArray[np.float64], npt.NDArray[Any]]:
    """
    The nearest points on a mesh or a polyline, or the projections on a surface that is given as a net of nodes.

    Parameters
    ----------
    points : (n, 3) real, or PointCloud
    onto : Mesh, or (k, 3) real for a polyline, or (rows, columns, 3) real for a net
        Between its nodes a net is bilinear; points are projected along the normal at the nearest node, which is exact
        where cells are parallelograms in one plane.
    threads, progress
        As of `reconstruct`; for a mesh.

    Returns
    -------
    feet : (n, 3) float64
        On a mesh and a net computed in float32, relative to the mesh's origin.
    where : (n,) int32, (n,) float64 or (n, 2) float64
        On a mesh the number of the triangle, -1 and a foot of NaN where there is none; on a polyline the number of the
        segment plus the part of it; on a net u along the columns and v along the rows, beyond 0 and the last index
        where a point lies beside the net.

    Raises
    ------
    TypeError, ValueError
        For arguments that cannot be used.

    Notes
    -----
    A mesh is searched by a tree; of a polyline and a net every point is compared with all segments and nodes.

    Examples
    --------
    >>> import numpy as np, qzmath
    >>> feet, where = qzmath.project_points([[0.5, 0.2, 0], [9, 9, 9]], [[0, 0, 0], [1, 0, 0], [1, 2, 0]])
    >>> feet.tolist(), where.tolist()
    ([[0.5, 0.0, 0.0], [1.0, 2.0, 0.0]], [0.5, 2.0])

    How far is a scan from its mesh?

    >>> cloud = qzmath.sample("torus", 5000, noise=0.001)
    >>> mesh = qzmath.reconstruct(cloud, depth=5)
    >>> feet, triangles = qzmath.project_points(cloud.points, mesh)
    >>> bool(np.linalg.norm(feet - cloud.points, axis=1).max() < 0.05)
    True
    """
    if isinstance(points, PointCloud):
        points = points.points
    count = _checks.integer(threads, "threads", 0, 1024)
    if isinstance(onto, Mesh):
        onto._check()
        given = _checks.reals(points, "points", (None, 3), "f8")
        with np.errstate(over="ignore"), shown(progress) as callback:
            local = (given - onto.origin).astype(np.float32)
            _checks.finite(local, "points, within the range of float32,")
            vertices = (onto.vertices - onto.origin).astype(np.float32)
            feet, triangles = _qzmath.project_on_mesh(local, vertices, onto.triangles, count, callback)
        places = feet + onto.origin
        places[triangles < 0] = np.nan
        return places, triangles
    nodes = _checks.any_reals(onto, "onto")
    if nodes.ndim != 3:
        return _qzmath.project_on_polyline(_checks.reals(points, "points", (None, 3), "f8"),
                                           _checks.points(nodes, "onto", "f8"))
    rows, columns = nodes.shape[:2]
    if nodes.shape[2] != 3 or rows < 2 or columns < 2 or rows * columns > 2**31 - 1:
        raise ValueError(f"onto must be of shape (rows, columns, 3) with at least 2 rows and columns, not {nodes.shape}")
    net = _checks.reals(nodes, "onto", (rows, columns, 3), "f4").reshape(-1, 3)
    feet, params = _qzmath.project_on_net(_checks.reals(points, "points", (None, 3), "f4"), net, rows, columns)
    return feet.astype(np.float64), params
