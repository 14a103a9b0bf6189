// SPDX-License-Identifier: Apache-2.0
#include <apps/qzrecon-sample/Options.h>
#include <apps/sampling/CloudFile.h>
#include <apps/sampling/SampleShapes.h>
#include <apps/sampling/Terrain.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <exception>
#include <iostream>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>

namespace
{

using namespace qz_sampling;

// Returns how many points were written.
std::uint64_t writeSamples(Options const & options)
{
    if (options.shape != "terrain") {
        Cloud const cloud = sampleCloud(*makeShape(options.shape), options.sampling);
        writeCloud(cloud, options.output);
        return cloud.size();
    }
    TerrainScan const scan(options.sampling);
    return options.tiles[0] > 0 ? writeTerrainTiles(scan, options.tiles, options.output)
                                : writeTerrain(scan, {0, scan.columns(), 0, scan.rows()}, options.output);
}

} // namespace

int main(int argc, char ** argv)
{
    int exitCode = st_exitDone;
    std::optional<Options> const options = parseOptions(argc, argv, std::cout, std::cerr, exitCode);
    if (!options)
        return exitCode;
    try {
        std::uint64_t const points = writeSamples(*options);
        if (!options->quiet && options->output != "-")
            std::cout << "Wrote " << points << " points of " << options->shape << " to " << options->output
                      << "\n";
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
