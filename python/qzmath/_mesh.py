# SPDX-License-Identifier: Apache-2.0
"""Triangle meshes and point clouds."""
from __future__ import annotations

import html
import os
from dataclasses import dataclass
from typing import Any, Union

import numpy as np
import numpy.typing as npt

from . import _checks, _picture, _qzmath
from ._progress import Progress, shown
from ._report import Report

# A mesh of more is simplified for a notebook, which keeps the page of each output.
_NOTEBOOK_TRIANGLES = 100000

PathLike = Union[str, "os.PathLike[str]"]


def path_text(path: object, name: str = "path") -> str:
    if not isinstance(path, (str, os.PathLike)) or isinstance(os.fspath(path), bytes):
        _checks.wrong_type(name, "a str or an object with such a path", path)
    text = str(os.fspath(path))
    if not text or "\0" in text:
        _checks.wrong_value(name, "a name of a file", path)
    return text


class Mesh:
    """
    A triangle mesh.

    Arrays are taken as they are where their dtypes are those below, and otherwise converted.

    Parameters
    ----------
    vertices : (m, 3) float64
        In units of the cloud.
    triangles : (k, 3) int32
        Indices of vertices, counter-clockwise seen from outside.
    normals : (m, 3) float32, optional
        Unit vectors.
    colors : (m, 3) uint8, optional
        Red, green, blue, in sRGB; floating-point colours are taken as 0 to 1.
    density : (m,) float32, optional
        Samples per unit of area.
    report : Report, optional
        Of the reconstruction that the mesh is from.
    origin : (3,) float64, optional
        Point near the mesh to which files refer their coordinates, so that a mesh far from zero keeps its precision.
        Chosen from the vertices when not given.

    Raises
    ------
    TypeError, ValueError
        For arrays that do not fit together, and for indices of vertices that do not exist.

    Examples
    --------
    >>> import qzmath
    >>> mesh = qzmath.Mesh([[0, 0, 0], [1, 0, 0], [0, 1, 0]], [[0, 1, 2]])
    >>> mesh
    <qzmath.Mesh: 3 vertices, 1 triangle>
    >>> mesh.vertices.dtype, mesh.triangles.dtype
    (dtype('float64'), dtype('int32'))
    """

    vertices: npt.NDArray[np.float64]
    triangles: npt.NDArray[np.int32]
    normals: npt.NDArray[np.float32] | None
    colors: npt.NDArray[np.uint8] | None
    density: npt.NDArray[np.float32] | None
    report: Report | None
    origin: npt.NDArray[np.float64]

    def __init__(self, vertices: npt.ArrayLike, triangles: npt.ArrayLike, normals: npt.ArrayLike | None = None,
                 colors: npt.ArrayLike | None = None, density: npt.ArrayLike | None = None,
                 report: Report | None = None, origin: npt.ArrayLike | None = None) -> None:
        self._take(vertices, triangles, normals, colors, density, report, origin)

    def _take(self, vertices: object, triangles: object, normals: object, colors: object, density: object,
              report: object, origin: object) -> None:
        self.vertices = _checks.reals(vertices, "vertices", (None, 3))
        rows = len(self.vertices)
        self.triangles = _checks.integers(triangles, "triangles", (None, 3), "i4", 0, rows - 1)
        self.normals = _checks.normals(normals, "normals", rows)
        self.colors = _checks.colors(colors, "colors", rows)
        self.density = None if density is None else _checks.reals(density, "density", (rows,), "f4")
        if report is not None and not isinstance(report, Report):
            _checks.wrong_type("report", "a Report or None", report)
        self.report = report
        self.origin = _origin_of(self.vertices) if origin is None else _checks.place(origin, "origin")

    def _check(self) -> None:
        """Attributes can be set to anything."""
        self._take(self.vertices, self.triangles, self.normals, self.colors, self.density, self.report, self.origin)

    @classmethod
    def _of(cls, arrays: dict[str, Any], report: Report | None) -> Mesh:
        mesh = cls.__new__(cls)
        mesh.origin = np.array(arrays["origin"])
        mesh.vertices = arrays["positions"].astype(np.float64)
        if mesh.origin.any():
            mesh.vertices += mesh.origin
        mesh.triangles = arrays["triangles"]
        mesh.normals, mesh.colors, mesh.density = arrays["normals"], arrays["colors"], arrays["density"]
        mesh.report = report
        return mesh

    def save(self, path: PathLike, progress: Progress = None) -> None:
        """
        Write the mesh to a file, whose ending says how: .ply, .obj, .stl, .gltf or .glb; .html for a page that shows it
        in any browser, .png for a picture.

        The file appears under its name when it is complete. Coordinates are rounded to float32, relative to `origin`
        where the format has a place for one; see the page on files.

        Raises
        ------
        ValueError
            For another ending.
        OSError
            When the system refuses, or the format cannot hold the mesh.

        Examples
        --------
        >>> import os, qzmath, tempfile
        >>> path = os.path.join(tempfile.mkdtemp(), "triangle.ply")
        >>> qzmath.Mesh([[0, 0, 0], [1, 0, 0], [0, 1, 0]], [[0, 1, 2]]).save(path)
        >>> qzmath.read_mesh(path)
        <qzmath.Mesh: 3 vertices, 1 triangle>
        """
        self._check()
        with shown(progress) as callback:
            _qzmath.write_mesh(path_text(path), *self._arrays(), callback)

    def render(self, size: int = 480, view: tuple[float, float] = (-60.0, 25.0)) -> npt.NDArray[np.uint8]:
        """
        A still picture of the mesh.

        Parameters
        ----------
        size : int
            Pixels along each side, 16 to 4096.
        view : (azimuth, elevation)
            Of the viewer, in degrees; the z axis points up.

        Returns
        -------
        (size, size, 3) uint8
            Grey or in the colours of the vertices; red where the inside is seen.

        Examples
        --------
        >>> import qzmath
        >>> qzmath.Mesh([[0, 0, 0], [1, 0, 0], [0, 1, 0]], [[0, 1, 2]]).render(64).shape
        (64, 64, 3)
        """
        self._check()
        angles = _checks.reals(view, "view", (2,))
        return _picture.render(self.vertices, self.triangles, self.colors, (float(angles[0]), float(angles[1])),
                               _checks.integer(size, "size", 16, 4096))

    def _arrays(self) -> tuple[list[float], Any, Any, Any, Any, Any]:
        """What the extension takes a mesh by."""
        local = (self.vertices - self.origin).astype(np.float32)
        return ([float(coord) for coord in self.origin], local, self.triangles, self.normals, self.colors,
                self.density)

    def _what(self) -> str:
        def counted(number: int, singular: str, plural: str) -> str:
            return f"{number} {singular if number == 1 else plural}"
        parts = [counted(len(self.vertices), "vertex", "vertices"),
                 counted(len(self.triangles), "triangle", "triangles")]
        if self.report is not None:
            parts.append("closed" if self.report.is_closed else "with a border")
        carried = [name for name in ("normals", "colors", "density") if getattr(self, name) is not None]
        if carried:
            parts.append("with " + ", ".join(carried))
        return ", ".join(parts)

    def __repr__(self) -> str:
        return f"<qzmath.Mesh: {self._what()}>"

    def _repr_html_(self) -> str:
        self._check()
        page = html.escape(_qzmath.mesh_page(self._what(), _NOTEBOOK_TRIANGLES, *self._arrays()))
        return (f'<iframe srcdoc="{page}" title="{self._what()}" style="border:0;width:100%;height:520px">'
                f'{self._what()}</iframe>')


def _origin_of(vertices: npt.NDArray[np.float64]) -> npt.NDArray[np.float64]:
    """0 where float32 holds the vertices well, and else a round number in their middle."""
    if len(vertices) == 0:
        return np.zeros(3)
    low, high = vertices.min(0), vertices.max(0)
    extent = float((high - low).max())
    if not np.isfinite(extent) or np.abs(vertices).max() <= 16.0 * extent or (
            vertices == vertices.astype(np.float32)).all():
        return np.zeros(3)
    step = 2.0 ** (np.frexp(extent)[1] if extent > 0.0 else 0)
    middle = np.rint((low / 2 + high / 2) / step) * step
    return np.asarray(np.where(np.isfinite(middle), middle, 0.0))


@dataclass(eq=False, repr=False)
class PointCloud:
    """
    Points with what a file or a sampler tells about them.

    Attributes
    ----------
    points : (n, 3) float32 or float64
        float64 where float32 would lose digits.
    normals : (n, 3) float32 or None
    colors : (n, 3) uint8 or None
    border : (n,) uint8 or None
        1 on the border of an open surface.
    viewpoint : (3,) float64 or None
        Place of the scanner.
    notes : tuple of str
        What was guessed or left out while a file was read.
    """

    points: npt.NDArray[Any]
    normals: npt.NDArray[np.float32] | None = None
    colors: npt.NDArray[np.uint8] | None = None
    border: npt.NDArray[np.uint8] | None = None
    viewpoint: npt.NDArray[np.float64] | None = None
    notes: tuple[str, ...] = ()

    def __len__(self) -> int:
        return len(self.points)

    def __repr__(self) -> str:
        carried = [name for name in ("normals", "colors", "border", "viewpoint") if getattr(self, name) is not None]
        return f"<qzmath.PointCloud: {len(self)} points{', with ' + ', '.join(carried) if carried else ''}>"
