// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Distributed/Cloud/RankCloud.h>
#include <QZmath/Distributed/Communicator.h>
#include <QZmath/Files/PointCloud.h>

#include <cstdint>
#include <string>
#include <vector>

namespace QZmath::Distributed
{

class RankLattice;

/// What a run leaves in a folder, so that another one, on any number of ranks, goes on from there: after the
/// distribution the samples, after the iteration also its solution. `state.json` tells what there is and is
/// written last; each rank has files of its own, which nothing half-written replaces. The octree is made anew
/// of the samples, which takes less time than reading it.
///
/// All members are collective and throw as `Communicator::together` does.
class Checkpoint
{
public:
    /// \param folder is made when it is not there
    Checkpoint(Communicator const & ranks, std::string const & folder) : m_ranks(ranks), m_folder(folder) {}

    void writeSamples(RankCloud const & cloud, CloudFrame const & frame);
    void writeSolution(RankLattice const & lattice, std::vector<float> const & amplitudes,
                       CloudFrame const & frame);

    /// Reads the state: which depth the run had, and whether its solution is there.
    void open();
    int depth() const { return m_depth; }
    bool hasSolution() const { return m_hasSolution; }
    /// This rank's share of the samples, in units of the cloud.
    PointCloud readSamples() const;
    /// The amplitudes at own nodes and on replicated depths, by compact index.
    std::vector<float> readSolution(RankLattice const & lattice) const;

private:
    std::string pathOf(char const * kind, int rank, char const * ending) const;
    void writeState(CloudFrame const & frame, bool hasSolution) const;

    Communicator const & m_ranks;
    std::string const m_folder;
    int m_depth = 0;
    std::vector<std::int64_t> m_samples; // by rank of the run that wrote it
    bool m_hasSolution = false;
};

} // namespace QZmath::Distributed
