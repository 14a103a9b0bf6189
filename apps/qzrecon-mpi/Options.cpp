// SPDX-License-Identifier: Apache-2.0
#include <apps/qzrecon-mpi/Options.h>

#include <apps/qzrecon/Options.h>
#include <apps/qzrecon/PlainFormatter.h>

#include <QZmath/Files/Errors.h>
#include <QZmath/Files/MeshWriter.h>
#include <QZmath/Reconstruction/Reconstruction.h>
#include <QZmath/Version.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <iostream>
#include <memory>

namespace qz_recon_mpi
{

namespace
{

using qz_recon::UsageError;

char const st_footer[] = R"(
Input:  .ply, .obj, .pcd, .las, .xyz .xyzn .asc .txt .csv .pts; several files are one cloud. Ranks
        share the bytes of .las, text, and .ply that is binary or has points only; others are read by one each.
Output: .ply (binary), written by all ranks together; or DIR/, a .ply of each rank

Examples:
  mpirun -n 64 qzrecon-mpi tiles/*.ply -o city.ply --cell-size 0.02
  mpirun -n 64 qzrecon-mpi tiles/*.ply -o city/ --depth 16 --checkpoint state
  mpirun -n 48 qzrecon-mpi --resume state -o city/
  qzrecon-mpi --plan 1e10,512

Exit codes:
  0    the mesh was written
  1    the reconstruction failed
  2    the input or the command line cannot be used
  3    the mesh or the closing line could not be written
  130  interrupted by Ctrl-C or a request to end; no file was written
)";

void check(Options const & options)
{
    auto const & wanted = options.reconstruction;
    if (options.output.empty())
        throw UsageError("--output is required");
    if (options.inputs.empty() && wanted.resume.empty())
        throw UsageError("INPUT is required");
    if (!options.inputs.empty() && !wanted.resume.empty())
        throw UsageError("--resume takes the points of the earlier run, and no others");
    if (std::count(options.inputs.begin(), options.inputs.end(), "") > 0)
        throw UsageError("the name of a file is empty");
    if (std::count(options.inputs.begin(), options.inputs.end(), "-") > 0)
        throw UsageError("standard input goes to one rank only; name a file instead");
    if (options.output == "-")
        throw UsageError("ranks cannot write to standard output together; name a file instead");
    try {
        if (options.output.back() != '/' && QZmath::meshFormatOf(options.output) != QZmath::MeshFormat::ply)
            throw UsageError("several ranks write .ply only, or with DIR/ a .ply each: " +
                             QZmath::quotable(options.output));
        QZmath::checkColumns(options.reading.columns);
        wanted.check();
    } catch (QZmath::InputError const & error) {
        throw UsageError(error.what());
    } catch (QZmath::ReconstructionError const & error) {
        throw UsageError(error.what());
    }
}

} // namespace

std::optional<Options> parseOptions(int argc, char const * const * argv, bool mayPrint)
{
    Options options;
    auto & wanted = options.reconstruction;
    wanted.vertexNormals = false;
    std::vector<double> plan;

    CLI::App app("Reconstructs one triangle mesh from a point cloud on the machines of a cluster.",
                 "qzrecon-mpi");
    app.formatter(std::make_shared<qz_recon::PlainFormatter>());
    app.footer(st_footer);
    app.set_version_flag("--version", std::string("qzrecon-mpi ") + QZmath::versionString());
    app.add_option("INPUT", options.inputs, "Point clouds, which are taken as one")->option_text("FILES");
    app.add_option("-o,--output", options.output, "The mesh to write")->option_text("FILE|DIR/");
    app.add_option("--columns", options.reading.columns,
                   "Columns of text files: x,y,z,nx,ny,nz,r,g,b,boundary,intensity in their order,\n"
                   "_ for one that is not wanted; guessed without")
        ->type_name("LIST");
    app.add_flag("--colors,!--no-colors", wanted.vertexColors,
                 "Give the vertices the colours of the samples (default, where there are any)");
    app.add_option(
           "-d,--depth", wanted.depth,
           "Depth of the octree, 2 to 21: the lattice has 2^depth cells along the cloud's longest side")
        ->type_name("N");
    app.add_option(
           "--cell-size", wanted.cellSize,
           "The depth whose finest cells are at most as large, in units of the cloud; this or --depth\n"
           "is needed")
        ->type_name("S");
    app.add_flag_callback(
        "--closed,--watertight", [&wanted] { wanted.trimDistance = -1.0; },
        "Keep the surface far from all samples too, so that gaps are closed");
    app.add_option(
           "--trim", wanted.trimDistance,
           "Leaf cells from the nearest sample, or spacings of the samples, at which the surface ends")
        ->type_name("D")
        ->capture_default_str();
    CLI::Option const * const viewpoint =
        app.add_option(
               "--viewpoint", wanted.viewpoint,
               "Where the scanner stood, for points without normals: these get some towards it; far above\n"
               "for what was seen from the air")
            ->type_name("X Y Z");
    app.add_option("--smallest-component,--min-component", wanted.smallestComponent,
                   "Share of the triangles below which a piece is dropped")
        ->type_name("A")
        ->capture_default_str();
    app.add_flag("--normals,!--no-normals", wanted.vertexNormals, "Give the vertices normals (default: no)");
    app.add_flag("--refine,!--no-refine", wanted.refine,
                 "Move the surface onto the samples, over a width that suits their noise (default)");
    app.add_option("--tolerance", wanted.tolerance,
                   "Relative residual at which the solver stops; 0 for the usual one")
        ->type_name("R");
    app.add_option("--threads", wanted.threads,
                   "Threads of each rank; 0 for the cores of its machine by the ranks on it")
        ->capture_default_str();
    app.add_option("--checkpoint", wanted.checkpoint, "Folder for what is needed to go on after a fault")
        ->type_name("DIR");
    app.add_option("--resume", wanted.resume,
                   "Folder of --checkpoint of an earlier run to go on from, on any number of ranks")
        ->type_name("DIR");
    app.add_flag("--details", options.showsDetails,
                 "Print the balance, the traffic, and time and memory of each phase behind the closing line");
    app.add_option("--plan", plan,
                   "Only print what so many leaf cells would need on so many ranks: memory, traffic and time")
        ->delimiter(',')
        ->expected(2)
        ->check(CLI::Range(1.0, 1e18))
        ->type_name("CELLS,RANKS");
    app.add_flag("-q,--quiet", options.quiet, "Print nothing but errors and warnings");

    try {
        app.parse(argc, argv);
    } catch (CLI::Success const & request) {
        if (mayPrint)
            app.exit(request, std::cout, std::cerr);
        return std::nullopt;
    } catch (CLI::ParseError const & error) {
        throw UsageError(error.what());
    }
    wanted.hasViewpoint = viewpoint->count() > 0;
    if (plan.size() == 2) {
        options.plan = {plan[0], plan[1]};
        return options;
    }
    if (wanted.trimDistance < 0.0 && app.count("--trim") > 0)
        throw UsageError(
            "the value of --trim is out of range: 0.5 to 100; --closed leaves the surface whole");
    check(options);
    return options;
}

} // namespace qz_recon_mpi
