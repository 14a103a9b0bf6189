// SPDX-License-Identifier: Apache-2.0
#include <apps/qzrecon/Options.h>

#include <QZmath/Version.h>

#include <CLI/CLI.hpp>

#include <cmath>
#include <iostream>
#include <map>
#include <vector>

namespace qz_recon
{

namespace
{

int const st_defaultDepth = 8;
int const st_greatestDepth = 29; // the lattice has to fit into an int

char const st_footer[] = R"(
Input:  .ply (ascii, binary), .obj, .xyz .xyzn .asc .txt (columns x y z nx ny nz [boundary], # comments);
        without normals with --estimate-normals
Output: .ply (binary), .obj, .stl (binary), .gltf (with a .bin beside it), .glb

Example:
  qzrecon scan.ply -o mesh.ply --depth 9 --normals

Exit codes:
  0    the mesh was written
  1    the reconstruction failed
  2    the input or the command line cannot be used, or the memory would not suffice
  3    the mesh or the log could not be written
  130  interrupted by Ctrl-C or a request to end; no file was written
)";

void check(Options const & options)
{
    VolTr::CVolTriangulationParams const & params = options.params;
    int const leastDepth = params.getUseCenter() ? 2 : 1;
    if (params.getOctreeDepth() < leastDepth || params.getOctreeDepth() > st_greatestDepth)
        throw UsageError("depth " + std::to_string(params.getOctreeDepth()) + " is out of range: " +
                         std::to_string(leastDepth) + " to " + std::to_string(st_greatestDepth) +
                         (params.getUseCenter() ? " with --center" : " with --corner"));
    if (!(params.getReconstructFactor() >= 0.01f && params.getReconstructFactor() <= 100.0f))
        throw UsageError("the value of --subdivision is out of range: 0.01 to 100");
    if (!std::isfinite(params.getKernelScaleFactor()) || params.getKernelScaleFactor() > 100.0f)
        throw UsageError("the value of --kernel-scale is out of range: at most 100");
    if (!(params.getSolverTolerance() >= 1e-6 && params.getSolverTolerance() <= 0.1))
        throw UsageError("the value of --tolerance is out of range: 1e-6 to 0.1");
    if (options.normalNeighbours != 0 && (options.normalNeighbours < 3 || options.normalNeighbours > 1000))
        throw UsageError("the value of --estimate-normals is out of range: 3 to 1000, or 0 for none");
    if (options.viewpoint && options.normalNeighbours == 0)
        throw UsageError("--viewpoint means something together with --estimate-normals only");
    if (options.viewpoint &&
        !(std::isfinite(options.viewpoint->x()) && std::isfinite(options.viewpoint->y()) &&
          std::isfinite(options.viewpoint->z())))
        throw UsageError("the coordinates of --viewpoint are not finite");
    if (options.threads < 0 || options.threads > 1024)
        throw UsageError("the value of --threads is out of range: 0 to 1024");
    if (!std::isfinite(options.memoryLimit) || options.memoryLimit < 0.0)
        throw UsageError(
            "the value of --max-memory is out of range: a number of GB, or 0 for what is available");
}

} // namespace

std::optional<Options> parseOptions(int argc, char const * const * argv)
{
    Options options;
    VolTr::CVolTriangulationParams & params = options.params;
    params.setOctreeDepth(st_defaultDepth);
    params.setPhaseNameShown(true);
    params.setAccelerated(true);
    params.setRefine(true);
    double memoryLimitGb = 0.0;
    std::vector<float> viewpoint;

    CLI::App app("Reconstructs a triangle mesh from an oriented point cloud.", "qzrecon");
    app.footer(st_footer);
    app.set_version_flag("--version", std::string("qzrecon ") + QZmath::versionString());
    app.option_defaults()->always_capture_default();
    app.add_option("INPUT", options.input, "Oriented point cloud")->required()->capture_default_str();
    app.add_option("-o,--output", options.output, "Mesh to write; the ending decides its format")->required();

    app.add_option(
           "--estimate-normals", options.normalNeighbours,
           "Estimate the normals of an input that has none, by so many nearest points each (20 is usual);\n"
           "0 refuses such an input")
        ->type_name("K");
    app.add_option("--viewpoint", viewpoint,
                   "Where the scanner stood: estimated normals are turned towards it, else outwards")
        ->expected(3)
        ->type_name("X Y Z");

    app.add_option("-d,--depth", params.octreeDepth(),
                   "Depth of the octree: the lattice has 2^depth steps along the cloud's longest side");
    app.add_option("--subdivision", params.reconstructFactor(),
                   "Polygoniser cubes per cell along an axis; above 1 gives smaller triangles");
    app.add_flag("--closed,!--open", params.closed(),
                 "Close the surface (default), or let it end far from samples and at boundary marks");
    app.add_flag("--normals,!--no-normals", params.estimateResultNormals(),
                 "Give the vertices normals, from the gradient of the implicit function (default: no)");
    app.add_flag("--refine,!--no-refine", params.refine(),
                 "Move the surface onto the samples, over a width that suits their noise (default)");
    app.add_flag("--center,!--corner", params.useCenter(),
                 "Basis functions at cell centres (default) or corners");
    app.add_option("--kernel-scale", params.kernelScaleFactor(),
                   "Width of the basis functions; above 1 smooths, 0 leaves them unscaled");
    app.add_flag("--variable-density,!--uniform-density", params.variableDensity(),
                 "Estimate the density of the samples (default), or take it as even");
    app.add_option("--density-delta", params.densityEstimationDepthDelta(),
                   "Depths above the deepest one on which the density is estimated");
    app.add_option("--levels", params.detalizationLevel(),
                   "Depths above the deepest one that carry basis functions; -1 for all");
    app.add_flag("--accelerated,!--exact", params.accelerated(),
                 "Solve without a matrix (default), or solve the stored system: the same surface to a small\n"
                 "fraction of a cell, in far more time and memory");
    app.add_option("--tolerance", params.solverTolerance(),
                   "Relative residual at which the accelerated solver stops");
    app.add_option(
           "--solver", params.prefferedSolver(),
           "Linear solver: auto, direct, iterative, decomposing, or its number; all but auto are exact")
        ->transform(CLI::CheckedTransformer(
            std::map<std::string, int>{{"auto", 0}, {"direct", 1}, {"iterative", 3}, {"decomposing", 4}}));
    app.add_flag("--phase-names,!--no-phase-names", params.phaseNameShown(),
                 "Show the phases of the reconstruction by name (default), or only the progress");
    app.add_option("--log", options.logFile, "File for the log of the reconstruction");

    app.add_option("--threads", options.threads, "Threads to use; 0 for all that the process may use");
    app.add_option("--max-memory", memoryLimitGb,
                   "Memory in GB that the estimated need is compared with; 0 for what is available");
    app.add_flag("-q,--quiet", options.quiet, "Print nothing but errors");

    try {
        app.parse(argc, argv);
    } catch (CLI::Success const & request) {
        app.exit(request, std::cout, std::cerr);
        return std::nullopt;
    } catch (CLI::ParseError const & error) {
        throw UsageError(error.what());
    }
    options.memoryLimit = memoryLimitGb * 1e9;
    if (!viewpoint.empty())
        options.viewpoint = REmath::Point3D(viewpoint.data());
    check(options);
    return options;
}

} // namespace qz_recon
