// SPDX-License-Identifier: Apache-2.0
#include <apps/qzrecon-sample/Options.h>

#include <QZmath/Files/Errors.h>
#include <QZmath/Files/PointWriter.h>
#include <QZmath/Version.h>

#include <CLI/CLI.hpp>

#include <cstddef>
#include <sstream>

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

} // namespace

std::optional<Options> parseOptions(int argc, char const * const * argv, std::ostream & output,
                                    std::ostream & errors, int & exitCode)
{
    Options options;
    SamplingOptions & sampling = options.sampling;
    CLI::App app("Samples an oriented point cloud on an analytic surface, as a scanner would see it.",
                 "qzrecon-sample");
    app.set_version_flag("--version", std::string("qzrecon-sample ") + QZmath::versionString());
    app.footer("Example: qzrecon-sample torus -n 200000 --noise 0.001 -o torus.ply\n\n"
               "The same options give the same cloud on every machine.\n"
               "Exit codes: 0 done, 1 the output could not be written, 2 bad arguments.");
    app.add_option("shape", options.shape, "Surface to sample")
        ->required()
        ->type_name("SHAPE")
        ->check(CLI::IsMember(shapeNames()));
    app.add_option("-n,--points", sampling.pointNumber, "Number of points")
        ->capture_default_str()
        ->check(CLI::Range(std::size_t{1}, std::size_t{1000000000}));
    app.add_option("-o,--output", options.output,
                   "File to write: .ply (binary, with a boundary mark per point of the sheet), .obj, .xyz, "
                   ".txt, .asc\n"
                   "or .csv; - for PLY on standard output")
        ->required()
        ->type_name("FILE")
        ->check([](std::string const & name) {
            return QZmath::isPointFileToWrite(name)
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
    app.add_flag("-q,--quiet", options.quiet, "Print nothing but errors");
    try {
        app.parse(argc, argv);
    } catch (CLI::ParseError const & error) {
        exitCode = app.exit(error, output, errors) == 0 ? st_exitDone : st_exitUsage;
        return std::nullopt;
    }
    return options;
}

} // namespace qz_sampling
