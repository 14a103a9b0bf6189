// SPDX-License-Identifier: Apache-2.0
#include <apps/qzrecon-sample/Options.h>
#include <apps/sampling/CloudFile.h>
#include <apps/sampling/SampleShapes.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <iostream>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>

int main(int argc, char ** argv)
{
    using namespace qz_sampling;
    int exitCode = st_exitDone;
    std::optional<Options> const options = parseOptions(argc, argv, std::cout, std::cerr, exitCode);
    if (!options)
        return exitCode;
    try {
        auto const shape = makeShape(options->shape);
        Cloud const cloud = sampleCloud(*shape, options->sampling);
        writeCloud(cloud, options->output);
        if (!options->quiet && options->output != "-")
            std::cout << "Wrote " << cloud.size() << " points of " << options->shape << " to "
                      << options->output << "\n";
        errno = 0;
        if (!std::cout.flush())
            throw std::runtime_error(std::string("cannot write to standard output: ") +
                                     (errno != 0 ? std::strerror(errno) : "the stream failed"));
    } catch (std::bad_alloc const &) {
        std::cerr << "qzrecon-sample: not enough memory for " << options->sampling.pointNumber << " points\n";
        return st_exitFailure;
    } catch (std::exception const & error) {
        std::cerr << "qzrecon-sample: " << error.what() << "\n";
        return st_exitFailure;
    }
    return st_exitDone;
}
