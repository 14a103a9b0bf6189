// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Files/PointReader.h>
#include <QZmath/Reconstruction/Reconstruction.h>
#include <QZmath/Viewer/MeshStill.h>

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

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
    std::vector<std::string> inputs;  ///< "-" is standard input
    std::vector<std::string> outputs; ///< "-" is standard output; at least one
    QZmath::ReadOptions reading;
    QZmath::ReconstructionOptions reconstruction; ///< without log, viewpoint ends and memory limit
    bool mayEstimateNormals = true;               ///< of an input that has none
    bool withColors = true;
    bool writesNormals = false; ///< to meshes; `reconstruction` also has what pages and pictures show
    bool writesDensity = false;
    QZmath::StillOptions picture;
    bool opensViewer = false; ///< shows the first page when it is written
    std::string logFile;      ///< empty: no log
    bool quiet = false;
    double memoryLimit = 0.0; ///< bytes; 0: what is available
};

/// Reads the command line. Nothing when the program has only been asked for its help or version, which is
/// then printed. Throws `UsageError`.
std::optional<Options> parseOptions(int argc, char const * const * argv);

} // namespace qz_recon
