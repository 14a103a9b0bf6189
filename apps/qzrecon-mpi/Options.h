// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Distributed/DistributedReconstruction.h>
#include <QZmath/Files/PointReader.h>

#include <optional>
#include <string>
#include <vector>

namespace qz_recon_mpi
{

struct Options
{
    std::vector<std::string> inputs; ///< none when a run is resumed
    std::string output;              ///< a .ply, or a folder with "/" at its end
    QZmath::ReadOptions reading;
    QZmath::Distributed::DistributedOptions reconstruction;
    bool quiet = false;
};

/// Reads the command line. Nothing when the program has only been asked for its help or version, which is
/// then printed, by one of the ranks. Throws `qz_recon::UsageError`.
std::optional<Options> parseOptions(int argc, char const * const * argv, bool mayPrint);

} // namespace qz_recon_mpi
