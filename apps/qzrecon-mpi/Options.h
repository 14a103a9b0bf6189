// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Distributed/DistributedReconstruction.h>
#include <QZmath/Files/PointReader.h>

#include <array>
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
    bool showsDetails = false;
    std::array<double, 2> plan{}; ///< leaf cells and ranks of a run that is only reckoned; 0: none
};

/// Reads the command line. Nothing when the program has only been asked for its help or version, which is
/// then printed, by one of the ranks. Throws `qz_recon::UsageError`.
std::optional<Options> parseOptions(int argc, char const * const * argv, bool mayPrint);

} // namespace qz_recon_mpi
