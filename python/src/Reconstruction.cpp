// SPDX-License-Identifier: Apache-2.0
#include <python/src/Arrays.h>
#include <python/src/CallProgress.h>
#include <python/src/CloudAndMesh.h>
#include <python/src/Subsystems.h>

#include <QZmath/Reconstruction/Reconstruction.h>

#include <pybind11/stl.h>

namespace qz_python
{

namespace
{

using QZmath::ReconstructionError;
using QZmath::ReconstructionOptions;
using QZmath::ReconstructionReport;

py::dict anglesOf(ReconstructionReport::Angles const & angles)
{
    using namespace py::literals;
    return py::dict("least"_a = angles.least, "below_one"_a = angles.belowOne,
                    "below_five"_a = angles.belowFive, "below_ten"_a = angles.belowTen);
}

py::dict refinementOf(ReconstructionReport::Refinement const & found)
{
    using namespace py::literals;
    py::list widths;
    for (auto const & width : found.widths)
        widths.append(py::make_tuple(width.cell, width.leftOutError));
    return py::dict("widths"_a = py::tuple(widths), "width"_a = found.width, "noise"_a = found.noise,
                    "moved_share"_a = found.movedShare, "rms_move"_a = found.rmsMove,
                    "greatest_move"_a = found.greatestMove, "unfolded_vertices"_a = found.unfoldedVertices,
                    "correction_shares"_a = py::tuple(py::cast(found.correctionShares)));
}

// Every field by its name, the way Python writes names.
py::dict contentsOf(ReconstructionReport const & report)
{
    using namespace py::literals;
    py::list phases;
    for (auto const & phase : report.phases)
        phases.append(py::make_tuple(phase.name, phase.seconds, phase.share));
    py::dict all("path"_a = report.pathText(), "reason"_a = report.reasonText(), "threads"_a = report.threads,
                 "octree_depth"_a = report.octreeDepth, "leaf_cells"_a = report.leafCells,
                 "nodes"_a = report.nodes, "unknowns"_a = report.unknowns,
                 "matrix_elements"_a = report.matrixElements, "solver"_a = report.solverText(),
                 "iterations"_a = report.iterations, "relative_residual"_a = report.relativeResidual,
                 "converged"_a = report.converged, "iso_value"_a = report.isoValue,
                 "vertices"_a = report.vertices, "triangles"_a = report.triangles, "pieces"_a = report.pieces,
                 "closed_patches"_a = report.closedPatches, "abandoned_patches"_a = report.abandonedPatches,
                 "ends_at_limit"_a = report.endsAtLimit, "failure"_a = report.failure,
                 "seconds"_a = report.seconds, "peak_memory"_a = report.peakMemory);
    all["refinement"] = refinementOf(report.refinement);
    all["phases"] = py::tuple(phases);
    all["spacing"] = report.spacing;
    all["cloud_noise"] = report.cloudNoise;
    all["leaf_cell"] = report.leafCell;
    all["outliers_removed"] = report.outliersRemoved;
    all["repeated_removed"] = report.repeatedRemoved;
    all["normals_estimated"] = report.normalsEstimated;
    all["normals_replaced"] = report.normalsReplaced;
    all["points_without_normal"] = report.pointsWithoutNormal;
    all["normals_off_plane"] = report.normalsOffPlane;
    all["normals_against_others"] = report.normalsAgainstOthers;
    all["turned_inside_out"] = report.turnedInsideOut;
    all["guessed_orientation"] = report.guessedOrientation;
    all["components_found"] = report.componentsFound;
    all["components_kept"] = report.componentsKept;
    all["specks_dropped"] = report.specksDropped;
    all["supported_area"] = report.supportedArea;
    all["holes_closed"] = report.holesClosed;
    all["gaps_faired"] = report.gapsFaired;
    all["gaps_left_rough"] = report.gapsLeftRough;
    all["closed_area"] = report.closedArea;
    all["boundaries_left"] = report.boundariesLeft;
    all["boundary_length"] = report.boundaryLength;
    all["is_closed"] = report.isClosed;
    all["samples_far_from_mesh"] = report.samplesFarFromMesh;
    all["angles_before"] = anglesOf(report.anglesBefore);
    all["angles_after"] = anglesOf(report.anglesAfter);
    all["slivers_removed"] = report.sliversRemoved;
    all["triangles_before_simplification"] = report.trianglesBeforeSimplification;
    all["warnings"] = py::tuple(py::cast(report.warnings));
    all["summary"] = report.summary();
    return all;
}

template <class T>
void take(py::dict const & given, char const * name, T & option)
{
    if (given.contains(name))
        option = given[name].cast<T>();
}

// The options that are there, by their names.
ReconstructionOptions optionsOf(py::dict const & given)
{
    ReconstructionOptions options;
    int boundary = static_cast<int>(options.boundary), normals = static_cast<int>(options.normals);
    take(given, "depth", options.depth);
    take(given, "cell_size", options.cellSize);
    take(given, "boundary", boundary);
    take(given, "trim_distance", options.trimDistance);
    take(given, "largest_hole", options.largestHole);
    take(given, "all_components", options.allComponents);
    take(given, "smallest_component", options.smallestComponent);
    take(given, "refine", options.refine);
    take(given, "vertex_normals", options.vertexNormals);
    take(given, "vertex_density", options.vertexDensity);
    take(given, "outlier_removal", options.outlierRemoval);
    take(given, "simplify_error", options.simplifyError);
    take(given, "input_normals", normals);
    take(given, "normal_neighbours", options.normalNeighbours);
    take(given, "viewpoint", options.viewpoint);
    options.hasViewpoint = given.contains("viewpoint");
    take(given, "viewpoints", options.viewpoints);
    take(given, "viewpoint_ends", options.viewpointEnds);
    take(given, "threads", options.threads);
    take(given, "memory_limit", options.memoryLimit);
    take(given, "subdivision", options.core.reconstructFactor());
    take(given, "use_center", options.core.useCenter());
    take(given, "kernel_scale", options.core.kernelScaleFactor());
    take(given, "variable_density", options.core.variableDensity());
    take(given, "density_delta", options.core.densityEstimationDepthDelta());
    take(given, "levels", options.core.detalizationLevel());
    take(given, "solver", options.core.prefferedSolver());
    take(given, "accelerated", options.core.accelerated());
    take(given, "tolerance", options.core.solverTolerance());
    take(given, "correct_field", options.core.correctField());
    options.boundary = static_cast<QZmath::Boundary>(boundary);
    options.normals = static_cast<QZmath::Normals>(normals);
    return options;
}

char const * kindName(ReconstructionError::Kind kind)
{
    switch (kind) {
    case ReconstructionError::Kind::input:
        return "input";
    case ReconstructionError::Kind::options:
        return "options";
    case ReconstructionError::Kind::memory:
        return "memory";
    default:
        return "failed";
    }
}

// The mesh or None, the report, and of a refusal its kind and sentence.
py::tuple reconstruct(py::array const & points, py::object const & normals, py::object const & colors,
                      py::object const & border, py::dict const & given, py::object const & callback)
{
    ReconstructionOptions options = optionsOf(given);
    options.core.setPhaseNameShown(true);
    QZmath::PointCloudView const cloud = viewOf(points, normals, colors, border);
    ReconstructionReport report;
    QZmath::TriangleMesh mesh;
    CallProgress progress(callback);
    try {
        progress.run(options.threads, [&](CProgressCounter & counter) {
            mesh = QZmath::reconstruct(cloud, options, &report, &counter);
        });
    } catch (ReconstructionError const & error) {
        return py::make_tuple(py::none(), contentsOf(report), kindName(error.kind()), error.what());
    }
    return py::make_tuple(arraysOf(std::move(mesh)), contentsOf(report), py::none(), py::none());
}

// Depth, nodes, triangles and bytes; the kind and the sentence of a refusal.
py::tuple estimate(py::array const & points, py::object const & normals, py::object const & border,
                   py::dict const & given)
{
    ReconstructionOptions const options = optionsOf(given);
    QZmath::PointCloudView const cloud = viewOf(points, normals, py::none(), border);
    QZmath::ReconstructionEstimate found;
    CallProgress progress{py::none()};
    try {
        progress.run(options.threads, [&](CProgressCounter & counter) {
            found = QZmath::estimateReconstruction(cloud, options, &counter);
        });
    } catch (ReconstructionError const & error) {
        return py::make_tuple(py::none(), kindName(error.kind()), error.what());
    }
    return py::make_tuple(py::make_tuple(found.depth, found.nodes, found.triangles, found.memory), py::none(),
                          py::none());
}

} // namespace

void bindReconstruction(py::module_ & module)
{
    module.def("reconstruct", &reconstruct, py::arg("points"), py::arg("normals"), py::arg("colors"),
               py::arg("border"), py::arg("options"), py::arg("callback"));
    module.def("estimate_reconstruction", &estimate, py::arg("points"), py::arg("normals"), py::arg("border"),
               py::arg("options"));
}

} // namespace qz_python
