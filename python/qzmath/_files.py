# SPDX-License-Identifier: Apache-2.0
"""Reading and writing clouds and meshes."""
from __future__ import annotations

import os

import numpy as np
import numpy.typing as npt

from . import _checks, _qzmath
from ._mesh import Mesh, PathLike, PointCloud, path_text
from ._progress import Progress, shown


def _existing(path: PathLike) -> str:
    text = path_text(path)
    if text != "-":
        os.stat(text)  # the usual error of Python where there is no file
        if os.path.isdir(text):
            raise IsADirectoryError(f"{text!r} is a folder")
    return text


def read_points(path: PathLike, columns: str = "", progress: Progress = None) -> PointCloud:
    """
    Read a cloud from a PLY, OBJ, PCD, LAS or text file, or from standard input for "-".

    Parameters
    ----------
    path : str or path-like
    columns : str
        Of a text file, what its columns are, such as ``"x,y,z,_,nx,ny,nz,r,g,b"``; empty for a guess.
    progress : True, callable or None
        See `reconstruct`.

    Returns
    -------
    PointCloud

    Raises
    ------
    FileNotFoundError, OSError
        When there is no such file.
    ValueError
        When the file is not of its format.

    Examples
    --------
    >>> import os, qzmath, tempfile
    >>> path = os.path.join(tempfile.mkdtemp(), "cloud.ply")
    >>> qzmath.write_points(path, [[0, 0, 0], [1, 2, 3]])
    >>> qzmath.read_points(path).points[1]
    array([1., 2., 3.], dtype=float32)
    """
    if not isinstance(columns, str):
        _checks.wrong_type("columns", "a str", columns)
    with shown(progress) as callback:
        found = _qzmath.read_points(_existing(path), columns, callback)
    if found["viewpoint"] is not None:
        found["viewpoint"] = np.array(found["viewpoint"])
    return PointCloud(**found)


def write_points(path: PathLike, points: npt.ArrayLike | PointCloud, normals: npt.ArrayLike | None = None,
                 colors: npt.ArrayLike | None = None, border: npt.ArrayLike | None = None,
                 progress: Progress = None) -> None:
    """
    Write a cloud to a file, whose ending says how: .ply, .obj, .xyz, .txt, .asc or .csv.

    Parameters
    ----------
    path : str or path-like
    points : (n, 3) real, or PointCloud
        float32 is written as such, everything else as float64.
    normals : (n, 3) real, optional
    colors : (n, 3) uint8, or floating from 0 to 1, optional
    border : (n,) bool, optional
    progress : True, callable or None

    Raises
    ------
    ValueError, TypeError
        For another ending, and for arrays that do not fit together.
    OSError
        When the system refuses.

    Examples
    --------
    >>> import os, qzmath, tempfile
    >>> path = os.path.join(tempfile.mkdtemp(), "cloud.csv")
    >>> qzmath.write_points(path, [[0.5, 0, 0]], normals=[[0, 0, 1]], colors=[[255, 0, 0]])
    >>> print(open(path).read().splitlines()[1])
    0.5,0,0,0,0,1,255,0,0
    """
    if isinstance(points, PointCloud):
        normals = points.normals if normals is None else normals
        colors = points.colors if colors is None else colors
        border = points.border if border is None else border
        points = points.points
    text = path_text(path)
    array = _checks.reals(points, "points", (None, 3), None)
    rows = len(array)
    with shown(progress) as callback:
        _qzmath.write_points(text, array, _checks.normals(normals, "normals", rows),
                             _checks.colors(colors, "colors", rows), _checks.marks(border, "border", rows), callback)


def read_mesh(path: PathLike, progress: Progress = None) -> Mesh:
    """
    Read a mesh from a PLY, OBJ, STL or glTF file.

    Polygons are cut into triangles. STL has no shared vertices: corners in one place become one.

    Returns
    -------
    Mesh
        Without a report.

    Raises
    ------
    FileNotFoundError, OSError
        When there is no such file.
    ValueError
        When the file is not of its format.

    Examples
    --------
    >>> import os, qzmath, tempfile
    >>> path = os.path.join(tempfile.mkdtemp(), "mesh.stl")
    >>> qzmath.Mesh([[0, 0, 0], [1, 0, 0], [0, 1, 0]], [[0, 1, 2]]).save(path)
    >>> qzmath.read_mesh(path).triangles
    array([[0, 1, 2]], dtype=int32)
    """
    with shown(progress) as callback:
        return Mesh._of(_qzmath.read_mesh(_existing(path), callback), None)
