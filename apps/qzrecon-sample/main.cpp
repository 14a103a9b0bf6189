// SPDX-License-Identifier: Apache-2.0
#include <apps/sampling/CloudFile.h>
#include <apps/sampling/SampleShapes.h>

#include <QZmath/Files/Errors.h>
#include <QZmath/Files/PointWriter.h>
#include <QZmath/Version.h>

#include <CLI/CLI.hpp>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <exception>
#include <iostream>
#include <new>
#include <sstream>
#include <stdexcept>
#include <string>

namespace
{

constexpr int exitFailure = 1;
constexpr int exitUsage = 2;

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

int main(int argc, char ** argv)
{
    std::string shapeName;
    std::string outputName;
    bool isQuiet = false;
    qz_sampling::SamplingOptions options;

    CLI::App app("Samples an oriented point cloud on an analytic surface, as a scanner would see it.",
                 "qzrecon-sample");
    app.set_version_flag("--version", std::string("qzrecon-sample ") + QZmath::versionString());
    app.footer("Example: qzrecon-sample torus -n 200000 --noise 0.001 -o torus.ply\n\n"
               "The same options give the same cloud on every machine.\n"
               "Exit codes: 0 done, 1 the output could not be written, 2 bad arguments.");
    app.add_option("shape", shapeName, "Surface to sample")
        ->required()
        ->type_name("SHAPE")
        ->check(CLI::IsMember(qz_sampling::shapeNames()));
    app.add_option("-n,--points", options.pointNumber, "Number of points")
        ->capture_default_str()
        ->check(CLI::Range(std::size_t{1}, std::size_t{1000000000}));
    app.add_option("-o,--output", outputName,
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
           "--noise", options.noise,
           "Standard deviation of the position along each axis, relative to the longest side of the shape")
        ->capture_default_str()
        ->check(within(0, 1));
    app.add_option("--density-ratio", options.densityRatio,
                   "Point density at the high end of x over that at the low end, linear between")
        ->capture_default_str()
        ->check(within(0, 1e6));
    app.add_option("--seed", options.seed, "Seed of the random numbers")->capture_default_str();
    app.add_flag("-q,--quiet", isQuiet, "Print nothing but errors");

    try {
        app.parse(argc, argv);
    } catch (CLI::ParseError const & error) {
        return app.exit(error) == 0 ? 0 : exitUsage;
    }

    try {
        auto const shape = qz_sampling::makeShape(shapeName);
        qz_sampling::Cloud const cloud = qz_sampling::sampleCloud(*shape, options);
        qz_sampling::writeCloud(cloud, outputName);
        if (!isQuiet && outputName != "-")
            std::cout << "Wrote " << cloud.size() << " points of " << shapeName << " to " << outputName
                      << "\n";
        errno = 0;
        if (!std::cout.flush())
            throw std::runtime_error(std::string("cannot write to standard output: ") +
                                     (errno != 0 ? std::strerror(errno) : "the stream failed"));
    } catch (std::bad_alloc const &) {
        std::cerr << "qzrecon-sample: not enough memory for " << options.pointNumber << " points\n";
        return exitFailure;
    } catch (std::exception const & error) {
        std::cerr << "qzrecon-sample: " << error.what() << "\n";
        return exitFailure;
    }
    return 0;
}
