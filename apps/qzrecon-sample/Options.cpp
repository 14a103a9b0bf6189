// SPDX-License-Identifier: Apache-2.0
#include <apps/qzrecon-sample/Options.h>

#include <QZmath/Files/Errors.h>
#include <QZmath/Files/PointReader.h>
#include <QZmath/Files/PointWriter.h>
#include <QZmath/Version.h>

#include <CLI/CLI.hpp>

#include <cstddef>
#include <sstream>
#include <string>
#include <vector>

namespace qz_sampling
{

namespace
{

// Unlike the ready-made range check this one refuses NaN.
CLI::Validator within(double low, double high)
{
    auto const check = [=](std::string const & text) {
        double value = 0;
        if (CLI::detail::lexical_cast(text, value) && value >= low && value <= high)
            return std::string();
        std::ostringstream message;
        message << '"' << text << "\" is not a number from " << low << " to " << high;
        return message.str();
    };
    return CLI::Validator(check, "");
}

// What concerns several options.
void check(Options const & options)
{
    bool const isTerrain = options.shape == "terrain", isFolder = options.output.back() == '/';
    auto const refuse = [](char const * what) { throw CLI::ValidationError(what); };
    if (isTerrain && options.sampling.densityRatio != 1.0)
        refuse("a terrain is sampled evenly, without --density-ratio");
    if (isTerrain && !isFolder && options.output != "-" &&
        QZmath::pointFormatOf(options.output) != QZmath::PointFormat::ply)
        refuse("a terrain is written as .ply");
    if (!isTerrain && options.sampling.pointNumber > 1000000000)
        refuse("more than 1000000000 points are for the shape terrain only");
    if (!isTerrain && options.tiles[0] > 0)
        refuse("--tiles is for the shape terrain only");
    if (isFolder != (options.tiles[0] > 0))
        refuse("--tiles needs a folder to write to, -o DIR/, and a folder --tiles");
}

} // namespace

std::optional<Options> parseOptions(int argc, char const * const * argv, std::ostream & output,
                                    std::ostream & errors, int & exitCode)
{
    Options options;
    SamplingOptions & sampling = options.sampling;
    std::vector<std::string> shapes = shapeNames();
    shapes.push_back("terrain");
    std::vector<int> tiles;
    CLI::App app("Samples an oriented point cloud on an analytic surface, as a scanner would see it.",
                 "qzrecon-sample");
    app.set_version_flag("--version", std::string("qzrecon-sample ") + QZmath::versionString());
    app.footer("Example: qzrecon-sample torus -n 200000 --noise 0.001 -o torus.ply\n\n"
               "The same options give the same cloud on every machine.\n"
               "Exit codes: 0 done, 1 the output could not be written, 2 bad arguments.");
    app.add_option("shape", options.shape, "Surface to sample")
        ->required()
        ->type_name("SHAPE")
        ->check(CLI::IsMember(shapes));
    app.add_option("-n,--points", sampling.pointNumber, "Number of points")
        ->capture_default_str()
        ->check(CLI::Range(std::size_t{1}, std::size_t{1000000000000}));
    app.add_option("-o,--output", options.output,
                   "File to write: .ply (binary, with a boundary mark per point of the sheet), .obj, .xyz, "
                   ".txt, .asc\n"
                   "or .csv; - for PLY on standard output; DIR/ for the tiles of a terrain")
        ->required()
        ->type_name("FILE")
        ->check([](std::string const & name) {
            return QZmath::isPointFileToWrite(name) || (!name.empty() && name.back() == '/')
                       ? std::string()
                       : "\"" + QZmath::quotable(name) +
                             "\" does not end in .ply, .obj, .xyz, .txt, .asc or .csv";
        });
    app.add_option(
           "--noise", sampling.noise,
           "Standard deviation of the position along each axis, relative to the longest side of the shape")
        ->capture_default_str()
        ->check(within(0, 1));
    app.add_option("--density-ratio", sampling.densityRatio,
                   "Point density at the high end of x over that at the low end, linear between")
        ->capture_default_str()
        ->check(within(0, 1e6));
    app.add_option("--seed", sampling.seed, "Seed of the random numbers")->capture_default_str();
    app.add_option("--tiles", tiles, "Cut a terrain into so many files along x and y, tile-0-0.ply and so on")
        ->delimiter(',')
        ->expected(2)
        ->check(CLI::Range(1, 100000))
        ->type_name("X,Y");
    app.add_flag("-q,--quiet", options.quiet, "Print nothing but errors");
    try {
        app.parse(argc, argv);
        if (tiles.size() == 2)
            options.tiles = {tiles[0], tiles[1]};
        check(options);
    } catch (CLI::ParseError const & error) {
        exitCode = app.exit(error, output, errors) == 0 ? st_exitDone : st_exitUsage;
        return std::nullopt;
    }
    return options;
}

} // namespace qz_sampling
