# SPDX-License-Identifier: Apache-2.0
"""Normals and curvatures of clouds."""
from __future__ import annotations

from typing import Any, NamedTuple

import numpy as np
import numpy.typing as npt

from . import _checks, _qzmath
from ._mesh import PointCloud
from ._progress import Progress, shown

_ORIENTATIONS = {None: 0, "viewpoint": 1, "tree": 2}


def _near_origin(points: object, viewpoint: object = None) -> tuple[npt.NDArray[np.float32], npt.NDArray[np.float64]]:
    """The points as float32, moved where they are given with more digits, and the viewpoint moved likewise."""
    array = _checks.points(points.points if isinstance(points, PointCloud) else points)
    place = np.zeros(3) if viewpoint is None else _checks.place(viewpoint, "viewpoint")
    if array.dtype == np.float64:
        middle = array.min(0) / 2 + array.max(0) / 2
        with np.errstate(over="ignore"):
            array, place = (array - middle).astype(np.float32), place - middle
        _checks.finite(array, "points, within the range of float32,")
    return array, np.ascontiguousarray(place)


def _limits(k: object, radius: object) -> tuple[int, float]:
    count = 0 if k is None else _checks.integer(k, "k", 3, 100000)
    limit = 0.0 if radius is None else _checks.real(radius, "radius")
    if radius is not None and limit <= 0.0:
        _checks.wrong_value("radius", "above 0", radius)
    if k is None and radius is None:
        raise ValueError("one of k and radius must be given")
    return count, limit


def estimate_normals(points: npt.ArrayLike | PointCloud, k: int | None = 20, radius: float | None = None,
                     orient: str | None = "tree", viewpoint: npt.ArrayLike | None = None, *, threads: int = 0,
                     progress: Progress = None) -> npt.NDArray[np.float32]:
    """
    Unit normals of a cloud, from the planes of least squares through the neighbours of each point.

    Parameters
    ----------
    points : (n, 3) real, or PointCloud
        Contiguous float32 is read in place.
    k : int or None
        Neighbours, the point included, 3 to 100000; None for no limit, which takes a `radius`.
    radius : float, optional
        Neighbours are within it, in units of the points.
    orient : {"tree", "viewpoint", None}
        Signs consistent over the surface and outwards, by a minimum spanning tree; towards the `viewpoint`; or
        arbitrary.
    viewpoint : (3,) real
        Place of the scanner, for "viewpoint".
    threads, progress
        As of `reconstruct`.

    Returns
    -------
    (n, 3) float32
        Zero for points with fewer than three neighbours, or neighbours on a line.

    Raises
    ------
    TypeError, ValueError
        For arguments that cannot be used.

    Examples
    --------
    >>> import numpy as np, qzmath
    >>> cloud = qzmath.sample("sphere", 5000)
    >>> normals = qzmath.estimate_normals(cloud.points)
    >>> bool(np.all(np.sum(normals * cloud.points, axis=1) > 0.99))
    True
    """
    count, limit = _limits(k, radius)
    orientation = _checks.choice(orient, "orient", _ORIENTATIONS)
    if orient == "viewpoint" and viewpoint is None:
        raise ValueError('orient="viewpoint" needs a viewpoint')
    array, place = _near_origin(points, viewpoint)
    with shown(progress) as callback:
        return np.asarray(_qzmath.estimate_normals(array, count, limit, orientation, place,
                                                   _checks.integer(threads, "threads", 0, 1024), callback))


class Curvatures(NamedTuple):
    """
    What `estimate_curvatures` finds at each of n points.

    Attributes
    ----------
    minimum, maximum : (n,) float32
        Principal curvatures, 1 / radius, positive where the surface bends towards the normal.
    normal : (n, 3) float32
        Unit normal of the fitted surface.
    direction : (n, 3) float32
        Unit direction of the larger curvature, of either sign; 0 for a sphere.
    method : (n,) int32
        0 where nothing was found, 1 by a quadric, 2 by a sphere.
    """

    minimum: npt.NDArray[np.float32]
    maximum: npt.NDArray[np.float32]
    normal: npt.NDArray[np.float32]
    direction: npt.NDArray[np.float32]
    method: npt.NDArray[np.int32]

    @property
    def mean(self) -> npt.NDArray[np.float32]:
        """(n,) mean curvature."""
        return np.asarray((self.minimum + self.maximum) / np.float32(2))

    @property
    def gaussian(self) -> npt.NDArray[np.float32]:
        """(n,) Gaussian curvature."""
        return np.asarray(self.minimum * self.maximum)


def estimate_curvatures(points: npt.ArrayLike | PointCloud, normals: npt.ArrayLike | None = None, k: int | None = 20,
                        radius: float | None = None, *, threads: int = 0, progress: Progress = None) -> Curvatures:
    """
    Principal curvatures of a cloud, by a quadric through each point, or a sphere where one fits better.

    Parameters
    ----------
    points : (n, 3) real, or PointCloud
    normals : (n, 3) real, optional
        They decide the sides from which the curvatures are seen; without them the sides are arbitrary.
    k, radius
        As of `estimate_normals`. Noise enters amplified by about 1 / (radius of the neighbourhood)^2.
    threads, progress
        As of `reconstruct`.

    Returns
    -------
    Curvatures

    Raises
    ------
    TypeError, ValueError
        For arguments that cannot be used.

    Examples
    --------
    >>> import numpy as np, qzmath
    >>> cloud = qzmath.sample("torus", 20000)
    >>> curvatures = qzmath.estimate_curvatures(cloud.points, cloud.normals)
    >>> round(float(np.median(curvatures.minimum)), 1)      # the tube has the radius 0.4
    -2.5
    """
    count, limit = _limits(k, radius)
    if isinstance(points, PointCloud) and normals is None:
        normals = points.normals
    array, _ = _near_origin(points)
    with shown(progress) as callback:
        found: Any = _qzmath.estimate_curvatures(array, _checks.normals(normals, "normals", len(array)), count, limit,
                                                 _checks.integer(threads, "threads", 0, 1024), callback)
    return Curvatures(*(np.ascontiguousarray(found[name]) for name in Curvatures._fields))
