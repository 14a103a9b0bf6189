// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/VolTriang/Lattice.h>

#include <vector>

namespace QzBackend
{
class LoopTeam;
}

namespace VolTr
{

class IInputSamples;
struct TreeCube;

/// The leaf cells that hold samples, ascending in x, then y, then z, and the samples of each.
struct SortedCells
{
    std::vector<CInt3> places;
    std::vector<int> samplesBegin; ///< of each cell in `samples`, and the end
    std::vector<int> samples;      ///< cell after cell, ascending in each
};

/// Sorts samples into their cells: by splitters of a sample of their places into parts, and each part for
/// itself. O(n log n), on all threads also where most samples lie in few planes of the lattice. Takes 4 bytes
/// a sample beside the result, which does not depend on the number of threads.
SortedCells sortIntoCells(IInputSamples const & samples, TreeCube const & cube, QzBackend::LoopTeam & team,
                          double until);

} // namespace VolTr
