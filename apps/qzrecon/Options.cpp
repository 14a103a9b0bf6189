// SPDX-License-Identifier: Apache-2.0
#include <apps/qzrecon/Options.h>

#include <apps/qzrecon/Outputs.h>
#include <apps/qzrecon/PlainFormatter.h>

#include <QZmath/Files/Errors.h>
#include <QZmath/Version.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cmath>
#include <iostream>
#include <map>
#include <memory>
#include <vector>

namespace qz_recon
{

namespace
{

using QZmath::Boundary;
using QZmath::Normals;

char const st_footer[] = R"(
Input:  .ply, .obj, .pcd, .las, .xyz .xyzn .asc .txt .csv .pts, or - for standard input; several files are one
        cloud. Normals and colours are taken where there are any.
Output: .ply (binary), .obj, .stl (binary), .gltf (with a .bin beside it), .glb, or - for PLY on standard output;
        .html, a page that shows the mesh in any browser; .png, a picture of it

Examples:
  qzrecon scan.ply -o mesh.ply
  qzrecon scan.ply -o mesh.ply -o mesh.html -o mesh.png
  qzrecon left.las right.las -o mesh.glb --cell-size 0.01 --outliers 3 --simplify 0.1

Exit codes:
  0    the mesh was written
  1    the reconstruction failed
  2    the input or the command line cannot be used, or the memory would not suffice
  3    the mesh, the log or the closing line could not be written
  130  interrupted by Ctrl-C or a request to end; no file was written
)";

bool isPage(std::string const & output) { return outputKindOf(output) == OutputKind::page; }

void check(Options const & options, bool isDepthGiven)
{
    if (isDepthGiven && options.reconstruction.depth == 0)
        throw UsageError("depth 0 is out of range: 2 to 29; without --depth it is chosen by the samples");
    if (!std::isfinite(options.memoryLimit) || options.memoryLimit < 0.0)
        throw UsageError(
            "the value of --max-memory is out of range: a number of GB, or 0 for what is available");
    std::size_t const viewpoints = options.reconstruction.viewpoints.size();
    if (viewpoints > 1 && viewpoints != options.inputs.size())
        throw UsageError("there are " + std::to_string(viewpoints) + " viewpoints for " +
                         std::to_string(options.inputs.size()) +
                         " files: --viewpoint comes once, or once a file");
    for (std::vector<std::string> const * names : {&options.inputs, &options.outputs}) {
        if (std::count(names->begin(), names->end(), "") > 0)
            throw UsageError("the name of a file is empty");
    }
    if (std::count(options.outputs.begin(), options.outputs.end(), "-") > 1)
        throw UsageError("standard output can be written only once");
    if (options.opensViewer && std::none_of(options.outputs.begin(), options.outputs.end(), isPage))
        throw UsageError("--open-viewer needs an output that ends in .html");
    if (std::count(options.inputs.begin(), options.inputs.end(), "-") > 1)
        throw UsageError("standard input can be read only once");
    try {
        QZmath::checkColumns(options.reading.columns);
        options.reconstruction.check();
    } catch (QZmath::InputError const & error) {
        throw UsageError(error.what());
    } catch (QZmath::ReconstructionError const & error) {
        throw UsageError(error.what());
    }
}

void addCloudOptions(CLI::App & app, Options & options, std::vector<double> & viewpoints)
{
    QZmath::ReconstructionOptions & wanted = options.reconstruction;
    app.add_option("--columns", options.reading.columns,
                   "Columns of text files: x,y,z,nx,ny,nz,r,g,b,boundary,intensity in their order,\n"
                   "_ for one that is not wanted; guessed without")
        ->type_name("LIST");
    app.add_option("--estimate-normals", wanted.normalNeighbours,
                   "Points that an estimated normal is taken from; 0 refuses an input without normals")
        ->type_name("K")
        ->capture_default_str();
    app.add_option("--input-normals", wanted.normals,
                   "The input's normals: auto (missing ones are estimated, an inside-out result is turned),\n"
                   "given (as they are), reorient (signs anew), estimate (all anew)")
        ->transform(CLI::CheckedTransformer(std::map<std::string, Normals>{{"auto", Normals::automatic},
                                                                           {"given", Normals::asGiven},
                                                                           {"reorient", Normals::reorient},
                                                                           {"estimate", Normals::estimate}}))
        ->option_text("auto|given|reorient|estimate");
    app.add_option("--viewpoint", viewpoints,
                   "Where the scanner stood: estimated normals are turned towards it, else outwards;\n"
                   "once, or once for each file")
        ->type_size(3)
        ->expected(1, 100000)
        ->allow_extra_args(false)
        ->option_text("X Y Z");
    app.add_option("--outliers", wanted.outlierRemoval,
                   "Leave out points that are S deviations farther from their neighbours than usual\n"
                   "(3 is usual); 0 for none")
        ->type_name("S")
        ->capture_default_str();
    app.add_flag("--colors,!--no-colors", options.withColors,
                 "Give the vertices the colours of the samples (default, where there are any)");
}

void addSurfaceOptions(CLI::App & app, Options & options)
{
    QZmath::ReconstructionOptions & wanted = options.reconstruction;
    app.add_option("-d,--depth", wanted.depth,
                   "Depth of the octree: the lattice has 2^depth cells along the cloud's longest side;\n"
                   "chosen by the spacing of the samples without")
        ->type_name("N");
    app.add_option("--cell-size", wanted.cellSize,
                   "The depth whose finest cells are at most as large, in units of the cloud")
        ->type_name("S");
    app.add_option("--boundary", wanted.boundary,
                   "Surface far from all samples: auto (small gaps are closed, larger ones left open),\n"
                   "closed (all of it stays), open (all of it goes)")
        ->transform(CLI::CheckedTransformer(std::map<std::string, Boundary>{
            {"auto", Boundary::automatic}, {"closed", Boundary::closed}, {"open", Boundary::open}}))
        ->option_text("auto|closed|open");
    app.add_flag_callback(
        "--closed", [&wanted] { wanted.boundary = Boundary::closed; }, "The same as --boundary closed");
    app.add_flag_callback(
        "--open", [&wanted] { wanted.boundary = Boundary::open; }, "The same as --boundary open");
    app.add_option("--trim", wanted.trimDistance,
                   "Leaf cells from the nearest sample at which an open surface ends")
        ->type_name("D")
        ->capture_default_str();
    app.add_option("--largest-hole", wanted.largestHole,
                   "Share of the supported area up to which --boundary auto closes a gap")
        ->type_name("A")
        ->capture_default_str();
    app.add_option("--components", wanted.allComponents, "Pieces of the surface: all, or the largest")
        ->transform(CLI::CheckedTransformer(std::map<std::string, bool>{{"all", true}, {"largest", false}}))
        ->option_text("all|largest");
    app.add_option("--smallest-component", wanted.smallestComponent,
                   "Share of the triangles below which a piece is dropped")
        ->type_name("A")
        ->capture_default_str();
    app.add_option("--simplify", wanted.simplifyError,
                   "Merge triangles as long as the surface stays within E leaf cells; 0 for none")
        ->type_name("E")
        ->capture_default_str();
    app.add_flag("--normals,!--no-normals", wanted.vertexNormals, "Give the vertices normals (default: no)");
    app.add_flag("--density,!--no-density", wanted.vertexDensity,
                 "Give the vertices the number of samples per unit of area around them (default: no)");
    app.add_flag("--refine,!--no-refine", wanted.refine,
                 "Move the surface onto the samples, over a width that suits their noise (default)");
}

void addPictureOptions(CLI::App & app, Options & options)
{
    using Shading = QZmath::StillOptions::Shading;
    app.add_option("--picture-size", "Pixels of a .png, 1600 1200 without")
        ->expected(2)
        ->option_text("W H")
        ->each([&options, isWidth = true](std::string const & text) mutable {
            int & side = isWidth ? options.picture.width : options.picture.height;
            isWidth = false;
            int const least = 16, most = 16384;
            if (!CLI::detail::lexical_cast(text, side) || side < least || side > most)
                throw UsageError("the value of --picture-size is out of range: two numbers from 16 to 16384");
        });
    app.add_option("--picture-shading", options.picture.shading,
                   "What a .png is coloured by: auto (colours where there are any), plain, color, normal,\n"
                   "density, distance (to the samples)")
        ->transform(CLI::CheckedTransformer(std::map<std::string, Shading>{{"auto", Shading::automatic},
                                                                           {"plain", Shading::plain},
                                                                           {"color", Shading::color},
                                                                           {"normal", Shading::normal},
                                                                           {"density", Shading::density},
                                                                           {"distance", Shading::distance}}))
        ->option_text("NAME");
    app.add_flag("--picture-dark,!--picture-light", options.picture.dark,
                 "Dark or light (default) ground of a .png");
    app.add_flag("--open-viewer", options.opensViewer, "Open the .html that is written, with xdg-open");
}

void addCoreOptions(CLI::App & app, VolTr::CVolTriangulationParams & params)
{
    app.add_option("--subdivision", params.reconstructFactor(),
                   "Polygoniser cubes per cell along an axis; above 1 gives smaller triangles")
        ->capture_default_str();
    app.add_flag("--center,!--corner", params.useCenter(),
                 "Basis functions at cell centres (default) or corners");
    app.add_option("--kernel-scale", params.kernelScaleFactor(),
                   "Width of the basis functions; above 1 smooths, 0 leaves them unscaled")
        ->capture_default_str();
    app.add_flag("--variable-density,!--uniform-density", params.variableDensity(),
                 "Estimate the density of the samples (default), or take it as even");
    app.add_option("--density-delta", params.densityEstimationDepthDelta(),
                   "Depths above the deepest one on which the density is estimated")
        ->capture_default_str();
    app.add_option("--levels", params.detalizationLevel(),
                   "Depths above the deepest one that carry basis functions; -1 for all")
        ->capture_default_str();
    app.add_flag("--correct-field,!--no-correct-field", params.correctField(),
                 "Bring the implicit function nearer to one value at the samples: sharper creases, other\n"
                 "topology at times (default: no)");
    app.add_flag("--accelerated,!--exact", params.accelerated(),
                 "Solve without a matrix (default), or solve the stored system: the same surface to a small\n"
                 "fraction of a cell, in far more time and memory");
    app.add_option("--tolerance", params.solverTolerance(),
                   "Relative residual at which the accelerated solver stops")
        ->capture_default_str();
    app.add_option(
           "--solver", params.prefferedSolver(),
           "Linear solver: auto, direct, iterative, decomposing, or its number; all but auto are exact")
        ->transform(CLI::CheckedTransformer(
            std::map<std::string, int>{{"auto", 0}, {"direct", 1}, {"iterative", 3}, {"decomposing", 4}}))
        ->option_text("NAME");
    app.add_flag("--phase-names,!--no-phase-names", params.phaseNameShown(),
                 "Show the phases of the reconstruction by name (default), or only the progress");
}

} // namespace

std::optional<Options> parseOptions(int argc, char const * const * argv)
{
    Options options;
    QZmath::ReconstructionOptions & wanted = options.reconstruction;
    wanted.vertexNormals = false;
    wanted.core.setPhaseNameShown(true);
    double memoryLimitGb = 0.0;
    std::vector<double> viewpoints;

    CLI::App app("Reconstructs a triangle mesh from a point cloud.", "qzrecon");
    app.formatter(std::make_shared<PlainFormatter>());
    app.footer(st_footer);
    app.set_version_flag("--version", std::string("qzrecon ") + QZmath::versionString());
    app.add_option("INPUT", options.inputs, "Point clouds, which are taken as one")
        ->required()
        ->option_text("FILES");
    app.add_option("-o,--output", options.outputs,
                   "What to write: a mesh, a page to look at it, or a picture, by the ending; may come\n"
                   "several times")
        ->required()
        ->expected(1)
        ->allow_extra_args(false)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->option_text("FILE");
    addCloudOptions(app, options, viewpoints);
    addSurfaceOptions(app, options);
    addCoreOptions(app, wanted.core);
    addPictureOptions(app, options);
    app.add_option("--log", options.logFile, "File for the log of the reconstruction");
    app.add_option("--threads", wanted.threads, "Threads to use; 0 for all that the process may use")
        ->capture_default_str();
    app.add_option("--max-memory", memoryLimitGb,
                   "Memory in GB that the estimated need is compared with; 0 for what is available")
        ->capture_default_str();
    app.add_flag("-q,--quiet", options.quiet, "Print nothing but errors and warnings");

    try {
        app.parse(argc, argv);
    } catch (CLI::Success const & request) {
        app.exit(request, std::cout, std::cerr);
        return std::nullopt;
    } catch (CLI::ParseError const & error) {
        throw UsageError(error.what());
    }
    options.memoryLimit = memoryLimitGb * 1e9;
    options.mayEstimateNormals = wanted.normalNeighbours != 0;
    if (!options.mayEstimateNormals)
        wanted.normalNeighbours = QZmath::ReconstructionOptions().normalNeighbours;
    options.writesNormals = wanted.vertexNormals;
    options.writesDensity = wanted.vertexDensity;
    for (std::size_t i = 0; i + 2 < viewpoints.size(); i += 3)
        wanted.viewpoints.push_back({viewpoints[i], viewpoints[i + 1], viewpoints[i + 2]});
    wanted.viewpointEnds.assign(wanted.viewpoints.size(), 0); // until the files are read
    check(options, app.count("--depth") > 0);
    return options;
}

} // namespace qz_recon
