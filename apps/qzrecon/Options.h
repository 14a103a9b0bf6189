// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Foundation/Point3D.h>
#include <QZmath/VolTriang/VolTriangulationParams.h>

#include <optional>
#include <stdexcept>
#include <string>

namespace qz_recon
{

/// Exit codes of the program; 130 is that of an interruption.
int const st_exitSuccess = 0;
int const st_exitFailed = 1;
int const st_exitBadInput = 2;
int const st_exitNotWritten = 3;

/// The command line cannot be understood or asks for what cannot be; the text is one sentence.
class UsageError : public std::runtime_error
{
public:
    explicit UsageError(std::string const & sentence) : std::runtime_error(sentence) {}
};

struct Options
{
    std::string input;
    std::string output;
    VolTr::CVolTriangulationParams params; ///< without the log
    int threads = 0;                       ///< 0: all that the process may use
    std::string logFile;                   ///< empty: no log
    int normalNeighbours = 0; ///< points for the normal of each in an input without normals; 0: it needs them
    std::optional<REmath::Point3D> viewpoint;
    bool quiet = false;
    double memoryLimit = 0.0; ///< bytes; 0: what is available
};

/// Reads the command line. Nothing when the program has only been asked for its help or version, which is
/// then printed. Throws `UsageError`.
std::optional<Options> parseOptions(int argc, char const * const * argv);

} // namespace qz_recon
