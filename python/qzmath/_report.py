# SPDX-License-Identifier: Apache-2.0
"""What a reconstruction found out."""
from __future__ import annotations

from dataclasses import dataclass
from typing import Any, NamedTuple

from ._errors import with_names_of_arguments


class Phase(NamedTuple):
    """A part of the work: its name, wall time in seconds, and share of the whole."""

    name: str
    seconds: float
    share: float


class Width(NamedTuple):
    """A width of the refinement that was tried: the cell in units of the cloud, and the rms distance of samples
    that were left out from what the others say."""

    cell: float
    left_out_error: float


@dataclass(frozen=True)
class Angles:
    """How the least angles of the triangles are distributed: the least in degrees, and the shares of the
    triangles with a lesser one than 1, 5 and 10 degrees."""

    least: float
    below_one: float
    below_five: float
    below_ten: float


@dataclass(frozen=True)
class Refinement:
    """What the refinement found; all 0 without. Lengths in units of the cloud."""

    widths: tuple[Width, ...]
    width: float
    noise: float
    moved_share: float
    rms_move: float
    greatest_move: float
    unfolded_vertices: int
    correction_shares: tuple[float, ...]


@dataclass(frozen=True)
class Report:
    """
    What a call of `reconstruct` found and did. All lengths in units of the cloud.

    Attributes
    ----------
    summary : str
        In words what was done.
    warnings : tuple of str
        Sentences about what is doubtful in the cloud or the result, each with the argument that helps.
    path, reason, solver : str
        How the implicit function was found, why so, and by which solver.
    threads : int
        That the call was allowed to use.
    octree_depth, leaf_cells, nodes, unknowns, matrix_elements : int
        Sizes of the octree and of the system; no matrix is stored on the accelerated path.
    iterations, relative_residual, converged
        How the solver ended.
    iso_value : float
        Of the implicit function on the surface.
    vertices, triangles, pieces : int
        Of the mesh.
    closed_patches, abandoned_patches : int
        Patches of surface far from samples that were followed to their end, and that were not.
    ends_at_limit : bool
        The surface runs out of the octree, so the mesh has a border there.
    failure : str
        Why there is no surface; else empty.
    refinement : Refinement
    phases : tuple of Phase
    seconds : float
        Wall time of the call.
    peak_memory : int
        Bytes, estimated from the process; 0 where the system does not tell.
    spacing, cloud_noise, leaf_cell : float
        Mean distance of neighbouring samples, their rms distance from the planes of their neighbours, edge of a
        leaf cell.
    outliers_removed, repeated_removed : int
        Points left out.
    normals_estimated : bool
        All normals were made from the points.
    normals_replaced, points_without_normal : int
    normals_off_plane, normals_against_others : float
        Shares of the given normals that disagree with the plane, and in sign, with the neighbours.
    turned_inside_out : bool
        The given normals pointed into the body and were turned.
    guessed_orientation : int
        Points of parts whose side could not be told from their shape.
    components_found, components_kept, specks_dropped : int
    supported_area, closed_area : float
        Area of surface near samples; area of closed holes as a share of it.
    holes_closed, gaps_faired, gaps_left_rough : int
        Holes closed, and patches over them that were smoothed and that were not.
    boundaries_left : int
        Loops along which the surface ends.
    boundary_length : float
    is_closed : bool
        The mesh has no border.
    samples_far_from_mesh : int
        Farther than two leaf cells.
    angles_before, angles_after : Angles
        Of the removal of slivers.
    slivers_removed, triangles_before_simplification : int
    """

    summary: str
    warnings: tuple[str, ...]
    path: str
    reason: str
    solver: str
    threads: int
    octree_depth: int
    leaf_cells: int
    nodes: int
    unknowns: int
    matrix_elements: int
    iterations: int
    relative_residual: float
    converged: bool
    iso_value: float
    vertices: int
    triangles: int
    pieces: int
    closed_patches: int
    abandoned_patches: int
    ends_at_limit: bool
    failure: str
    refinement: Refinement
    phases: tuple[Phase, ...]
    seconds: float
    peak_memory: int
    spacing: float
    cloud_noise: float
    leaf_cell: float
    outliers_removed: int
    repeated_removed: int
    normals_estimated: bool
    normals_replaced: int
    points_without_normal: int
    normals_off_plane: float
    normals_against_others: float
    turned_inside_out: bool
    guessed_orientation: int
    components_found: int
    components_kept: int
    specks_dropped: int
    supported_area: float
    closed_area: float
    holes_closed: int
    gaps_faired: int
    gaps_left_rough: int
    boundaries_left: int
    boundary_length: float
    is_closed: bool
    samples_far_from_mesh: int
    angles_before: Angles
    angles_after: Angles
    slivers_removed: int
    triangles_before_simplification: int

    @classmethod
    def _of(cls, contents: dict[str, Any]) -> Report:
        refinement = dict(contents["refinement"])
        refinement["widths"] = tuple(Width(*width) for width in refinement["widths"])
        nested: dict[str, Any] = {
            "refinement": Refinement(**refinement),
            "phases": tuple(Phase(*phase) for phase in contents["phases"]),
            "warnings": tuple(with_names_of_arguments(sentence) for sentence in contents["warnings"]),
            "angles_before": Angles(**contents["angles_before"]),
            "angles_after": Angles(**contents["angles_after"])}
        return cls(**{**contents, **nested})
