# SPDX-License-Identifier: Apache-2.0
"""From points to a mesh."""
from __future__ import annotations

from dataclasses import dataclass
from typing import Any, NoReturn, Sequence

import numpy as np
import numpy.typing as npt

from . import _checks, _qzmath
from ._errors import ReconstructionError, with_names_of_arguments
from ._mesh import Mesh, PointCloud
from ._progress import Progress, shown
from ._report import Report

_CHOICES: dict[str, dict[str, int]] = {
    "boundary": {"auto": 0, "closed": 1, "open": 2},
    "input_normals": {"auto": 0, "given": 1, "reorient": 2, "estimate": 3},
    "solver": {"auto": 0, "direct": 2, "iterative": 3, "decomposing": 4},
}
_REALS = ("trim_distance", "largest_hole", "smallest_component", "outlier_removal", "simplify_error", "tolerance",
          "subdivision", "kernel_scale")
_FLAGS = ("refine", "all_components", "vertex_normals", "vertex_density", "use_center", "variable_density",
          "accelerated", "correct_field")
_INTEGERS = ("normal_neighbours", "threads", "density_delta", "levels")
_CORE = ("subdivision", "use_center", "kernel_scale", "variable_density", "density_delta", "levels", "solver",
         "accelerated", "tolerance", "correct_field")


def _options(depth: object, cell_size: object, viewpoint: object, memory_limit: object, rest: dict[str, object],
             core: dict[str, object], points: int) -> dict[str, Any]:
    options: dict[str, Any] = {}
    for name in core:
        if name not in _CORE:
            raise TypeError(f"reconstruct() got an unexpected keyword argument {name!r}; those of the core are "
                            + ", ".join(_CORE))
    if cell_size is not None:
        options["cell_size"] = _checks.real(cell_size, "cell_size")
        if options["cell_size"] <= 0.0:
            _checks.wrong_value("cell_size", "above 0", cell_size)
    elif depth is not None:
        options["depth"] = _checks.integer(depth, "depth")
        if options["depth"] == 0:
            _checks.wrong_value("depth", "2 to 29, or None for one that suits the points", depth)
    for name, value in {**rest, **core}.items():
        if name in _REALS:
            options[name] = _checks.real(value, name)
        elif name in _FLAGS:
            options[name] = _checks.flag(value, name)
        elif name in _INTEGERS:
            options[name] = _checks.integer(value, name)
        else:
            options[name] = _checks.choice(value, name, _CHOICES[name])
    if memory_limit is not None:
        options["memory_limit"] = _checks.integer(memory_limit, "memory_limit", 1, 2**63 - 1)
    if viewpoint is not None:
        if isinstance(viewpoint, Sequence) and len(viewpoint) > 0 and isinstance(viewpoint[0], tuple):
            _set_viewpoints(options, viewpoint, points)
        else:
            options["viewpoint"] = _checks.place(viewpoint, "viewpoint").tolist()
    return options


def _set_viewpoints(options: dict[str, Any], viewpoints: Sequence[Any], points: int) -> None:
    """Pairs of a place and the number of points that were seen from there, in the order of the points."""
    places, ends, end = [], [], 0
    for pair in viewpoints:
        if len(pair) != 2:
            _checks.wrong_type("viewpoint", "a place, or a list of pairs (place, number of points)", viewpoints)
        places.append(_checks.place(pair[0], "viewpoint").tolist())
        end += _checks.integer(pair[1], "the number of points of a viewpoint", 0)
        ends.append(end)
    if end != points:
        raise ValueError(f"viewpoint has places for {end} points, expected {points}")
    options["viewpoints"], options["viewpoint_ends"] = places, ends


def _raise(kind: str, sentence: str, report: Report | None) -> NoReturn:
    text = with_names_of_arguments(sentence)
    if kind == "failed":
        error = ReconstructionError(text)
        error.report = report
        raise error
    raise MemoryError(text) if kind == "memory" else ValueError(text)


def _cloud(points: object, normals: object, colors: object, border: object, viewpoint: object) -> tuple[Any, ...]:
    if isinstance(points, PointCloud):
        normals = points.normals if normals is None else normals
        colors = points.colors if colors is None else colors
        border = points.border if border is None else border
        viewpoint = points.viewpoint if viewpoint is None else viewpoint
        points = points.points
    # The library tells which points are not finite, so this is not looked at twice.
    array = _checks.points(points, check=False)
    rows = len(array)
    return (array, _checks.normals(normals, "normals", rows, check=False), _checks.colors(colors, "colors", rows),
            _checks.marks(border, "border", rows), viewpoint)


def reconstruct(points: npt.ArrayLike | PointCloud, normals: npt.ArrayLike | None = None,
                colors: npt.ArrayLike | None = None, *, depth: int | None = 8, cell_size: float | None = None,
                boundary: str = "auto", refine: bool = True, all_components: bool = True,
                trim_distance: float = 2.0, largest_hole: float = 0.2, smallest_component: float = 1e-3,
                outlier_removal: float = 0.0, simplify_error: float = 0.0, vertex_normals: bool = True,
                vertex_density: bool = False, viewpoint: npt.ArrayLike | Sequence[Any] | None = None,
                input_normals: str = "auto", normal_neighbours: int = 20, border: npt.ArrayLike | None = None,
                memory_limit: int | None = None, threads: int = 0, progress: Progress = None, **core: Any) -> Mesh:
    """
    The surface of a cloud of points.

    Checks the points, removes outliers if asked for, estimates or checks the normals, solves for an implicit function
    on an octree and extracts all pieces of its level set, moves the vertices onto the samples, drops specks, closes or
    cuts off what no sample supports, merges triangles if asked for, and gives the vertices what they are to carry.

    Parameters
    ----------
    points : (n, 3) real, or PointCloud
        In any unit. Contiguous float32 and float64 are read in place; others are copied once. They must not be
        changed while the call runs.
    normals : (n, 3) real, optional
        Of any length above 0, read in place where they are float32. Estimated when not given.
    colors : (n, 3) uint8, or floating from 0 to 1, optional
        sRGB; the mesh then has colours.
    depth : int or None
        The octree's finest cells are the cloud's longest side over 2^depth: 2 to 29. None for the depth whose cells are
        about as large as the spacing of the samples.
    cell_size : float, optional
        In place of `depth`: the depth whose finest cells are at most as large, in units of the cloud.
    boundary : {"auto", "closed", "open"}
        Surface far from samples: small gaps closed, all of it kept, all of it cut off.
    refine : bool
        Move the vertices onto the samples, over a width that suits their noise.
    all_components : bool
        All pieces of the surface, or only the one with most samples.
    trim_distance : float
        Distance from the nearest sample up to which the surface is supported, 0.5 to 100 leaf cells, or spacings of the
        samples where these are larger.
    largest_hole : float
        With "auto": share of the area up to which a gap is closed, 0 to 1.
    smallest_component : float
        Pieces with a smaller share of the triangles are dropped, 0 to 1.
    outlier_removal : float
        Leave out points so many standard deviations farther from their neighbours than usual; 0 for none, usual 2 to 4.
    simplify_error : float
        Merge triangles as long as the surface stays within so many leaf cells; 0 for none.
    vertex_normals, vertex_density : bool
        What the vertices are to carry.
    viewpoint : (3,) real, optional
        Place of the scanner, to which estimated normals point; or a list of pairs ``(place, number of points)`` in the
        order of the points.
    input_normals : {"auto", "given", "reorient", "estimate"}
        Of given normals: replace those that are wrong beyond doubt; take them as they are; keep directions and find
        signs anew; do not look at them.
    normal_neighbours : int
        Points that an estimated normal is taken from, 3 to 1000.
    border : (n,) bool, optional
        Points on the border of an open surface; a gap with such a rim stays open.
    memory_limit : int, optional
        Bytes that the call may take beside the arrays given; refused before it begins, by an estimate.
    threads : int
        0 for all that the process may use.
    progress : True, callable or None
        True for a bar; a function of (fraction, phase), called about every 20 ms from the calling thread, that returns
        True to cancel.
    **core
        Of the method itself: `subdivision`, `use_center`, `kernel_scale`, `variable_density`, `density_delta`,
        `levels`, `solver` ("auto", "direct", "iterative", "decomposing"), `accelerated`, `tolerance`, `correct_field`;
        the options of the program `qzrecon` with these names.

    Returns
    -------
    Mesh
        With a `report`. The same input gives the same bits for any number of threads.

    Raises
    ------
    TypeError, ValueError
        For arguments that cannot be used; the sentence names the first bad point.
    ReconstructionError
        When no surface came out.
    MemoryError
        When memory is short, or `memory_limit` would not suffice.
    Cancelled
        When `progress` returned True.
    KeyboardInterrupt
        On Ctrl-C. Other threads of Python run meanwhile: the GIL is not held.

    Examples
    --------
    >>> import qzmath
    >>> cloud = qzmath.sample("sphere", 5000)
    >>> mesh = qzmath.reconstruct(cloud, depth=5)
    >>> len(mesh.triangles) == 2 * len(mesh.vertices) - 4      # Euler's formula
    True
    >>> mesh.report.is_closed, mesh.report.warnings
    (True, ())
    """
    array, normal_array, color_array, marks, viewpoint = _cloud(points, normals, colors, border, viewpoint)
    options = _options(depth, cell_size, viewpoint, memory_limit, {
        "boundary": boundary, "refine": refine, "all_components": all_components, "trim_distance": trim_distance,
        "largest_hole": largest_hole, "smallest_component": smallest_component, "outlier_removal": outlier_removal,
        "simplify_error": simplify_error, "vertex_normals": vertex_normals, "vertex_density": vertex_density,
        "input_normals": input_normals, "normal_neighbours": normal_neighbours, "threads": threads}, core, len(array))
    with shown(progress) as callback:
        arrays, contents, kind, sentence = _qzmath.reconstruct(array, normal_array, color_array, marks, options,
                                                               callback)
    report = Report._of(contents)
    if arrays is None:
        _raise(kind, sentence, report)
    return Mesh._of(arrays, report)


@dataclass(frozen=True)
class ReconstructionEstimate:
    """What a call of `reconstruct` would take: the depth it would use, the nodes of its octree, the triangles about,
    and the bytes of memory at the peak, beside the arrays given."""

    depth: int
    nodes: int
    triangles: int
    memory: int


def estimate_reconstruction(points: npt.ArrayLike | PointCloud, normals: npt.ArrayLike | None = None, *,
                            depth: int | None = 8, cell_size: float | None = None, boundary: str = "auto",
                            trim_distance: float = 2.0, largest_hole: float = 0.2, outlier_removal: float = 0.0,
                            threads: int = 0, **core: Any) -> ReconstructionEstimate:
    """
    What `reconstruct` with the same arguments would take, from one pass over the points.

    The memory is right within a third for clouds as most are.

    Parameters
    ----------
    points, normals, depth, cell_size, boundary, trim_distance, largest_hole, outlier_removal, threads, **core
        As of `reconstruct`.

    Returns
    -------
    ReconstructionEstimate

    Raises
    ------
    TypeError, ValueError
        As `reconstruct` does, for what is refused before the work begins.

    Examples
    --------
    >>> import qzmath
    >>> estimate = qzmath.estimate_reconstruction(qzmath.sample("sphere", 5000), depth=6)
    >>> estimate.depth, 20000 < estimate.triangles < 40000
    (6, True)
    """
    array, normal_array, _, marks, _ = _cloud(points, normals, None, None, None)
    options = _options(depth, cell_size, None, None, {
        "boundary": boundary, "trim_distance": trim_distance, "largest_hole": largest_hole,
        "outlier_removal": outlier_removal, "threads": threads}, core, len(array))
    found, kind, sentence = _qzmath.estimate_reconstruction(array, normal_array, marks, options)
    if found is None:
        _raise(kind, sentence, None)
    return ReconstructionEstimate(*found)


def sample(shape: str, n: int = 100000, noise: float = 0.0, density_ratio: float = 1.0, seed: int = 1) -> PointCloud:
    """
    A cloud on a surface whose true form is known, as a scanner would see it.

    Parameters
    ----------
    shape : str
        "sphere", "torus", "genus3", "plate", "thin-plate", "block", "bumpy-sphere" or "sheet", which is open; about two
        units wide, around the origin.
    n : int
        Number of points.
    noise : float
        Standard deviation along each axis as a share of the longest side, 0 to 1. The normals stay the true ones.
    density_ratio : float
        Points per area at the high end of x over those at the low end, up to 1e6.
    seed : int
        Another one gives another cloud; the same one the same cloud on every machine.

    Returns
    -------
    PointCloud
        With points and normals of float32, and `border` where the surface is open.

    Examples
    --------
    >>> import numpy as np, qzmath
    >>> cloud = qzmath.sample("sphere", 100)
    >>> bool(np.allclose(np.linalg.norm(cloud.points, axis=1), 1, atol=1e-6))
    True
    """
    names = {name: name for name in _qzmath.shape_names()}
    ratio = _checks.real(density_ratio, "density_ratio", 0.0, 1e6)
    if ratio == 0.0:
        _checks.wrong_value("density_ratio", "above 0", density_ratio)
    points, normals, border = _qzmath.sample(
        _checks.choice(shape, "shape", names), _checks.integer(n, "n", 1), _checks.real(noise, "noise", 0.0, 1.0),
        ratio, _checks.integer(seed, "seed", 0, 2**64 - 1))
    return PointCloud(points, normals, border=border)
