// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <apps/sampling/SampleShapes.h>

#include <array>
#include <iosfwd>
#include <optional>
#include <string>

namespace qz_sampling
{

/// Exit codes of the program.
int const st_exitDone = 0;
int const st_exitFailure = 1;
int const st_exitUsage = 2;

struct Options
{
    std::string shape;          ///< one of `shapeNames`, or "terrain"
    std::string output;         ///< "-" is standard output
    std::array<int, 2> tiles{}; ///< of a terrain, along x and y; 0: one file
    bool quiet = false;
    SamplingOptions sampling;
};

/// Reads the command line. Without a result the program ends with `exitCode`: its help or version, which was
/// asked for, or what is wrong has been printed.
std::optional<Options> parseOptions(int argc, char const * const * argv, std::ostream & output,
                                    std::ostream & errors, int & exitCode);

} // namespace qz_sampling
