// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace qz_recon_mpi
{

/// What a run needs, by a model of it.
struct Plan
{
    double memory = 0;            ///< bytes a rank, at the peak
    double replicated = 0;        ///< of these, what every rank has
    double copies = 0;            ///< of these, what comes of others' samples around the territory
    double samplesSent = 0;       ///< bytes a rank, once
    double bytesPerIteration = 0; ///< a rank
    double messagesPerIteration = 0;
    double seconds = 0; ///< without reading and writing
    std::string text;   ///< all of it, and the time of each stage, in lines
};

/// Counts what an open surface of so many leaf cells needs on so many ranks of one core each. Both at
/// least 1.
///
/// The surface is taken for a plane: a rank's territory has cells / ranks leaf cells, as many rows as
/// columns, and a border that is longer than that of a square, since territories are made of units.
Plan planRun(double cells, double ranks);

} // namespace qz_recon_mpi
