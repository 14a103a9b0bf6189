// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Distributed/Communicator.h>
#include <QZmath/Distributed/Ranks/Partition.h>
#include <QZmath/VolTriang/Bricks/BrickLattice.h>
#include <QZmath/VolTriang/Bricks/BrickShare.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace QzBackend
{
class LoopTeam;
}
namespace VolTr
{
class COctree;
}

namespace QZmath::Distributed
{

/// The nodes of all ranks in bricks, as far as a rank needs them: those of its territory, copies of the
/// bricks around it, and all bricks of the coarsest depths.
///
/// A depth has owners where its bricks fit into the units of the partition; the coarser ones are replicated.
/// Of the others a rank has copies of the bricks that touch its territory, and of the deepest those that
/// touch these where the margin is wider than one. The copies that touch it take part in the exchange of an
/// iteration, which PETSc's star forests carry.
class RankLattice final : public VolTr::BrickShare
{
public:
    /// Collective.
    /// \param octree of the samples that this rank has, over the cube of all ranks
    /// \param margin around the territory in which the function is to be exact, in leaf cells
    RankLattice(Communicator const & ranks, Partition const & partition, VolTr::COctree const & octree,
                int margin, QzBackend::LoopTeam & team);
    ~RankLattice() override;
    RankLattice(RankLattice const &) = delete;
    RankLattice & operator=(RankLattice const &) = delete;

    VolTr::BrickLattice const & lattice() const { return *m_lattice; }

    /// Ranges of compact indices that belong to this rank: together, over all ranks, each node once. Of the
    /// replicated depths every rank has an equal share.
    struct Range
    {
        std::uint32_t begin, end;
    };
    std::vector<Range> const & ownNodes() const { return m_ownNodes; }
    std::int64_t ownNodesNumber() const { return m_ownNodesNumber; }
    std::int64_t replicatedNodes() const { return m_replicatedNodes; }
    int replicatedLevels() const { return m_replicatedLevels; }
    /// Of a brick of a depth that is not replicated.
    int ownerOf(int depth, std::array<int, 3> const & brick) const;

    /// Copies of nodes get the numbers of their owners, which are spread over a vector by compact index. Of
    /// replicated depths every rank gives its share.
    void spread(std::vector<float> & compact) const;
    /// Only the replicated depths of it.
    void spreadReplicated(std::vector<float> & compact) const;
    /// The numbers at copies of nodes are added to those of their owners, which are then spread; on
    /// replicated depths those of all ranks are added up.
    void collect(std::vector<std::array<double, 3>> & compact) const;

    Part const & part(int level) const override { return m_parts[static_cast<std::size_t>(level)]; }
    void beginSpread(int level, float * numbers) override;
    void endSpread(int level, float * numbers) override;
    void beginCollect(int level, float * numbers) override;
    void endCollect(int level, float * numbers) override;
    void sumReplicated(std::vector<float *> const & levels) override;

    /// What this rank sends in one product of the system.
    std::int64_t bytesPerProduct() const { return m_bytesPerProduct; }
    std::int64_t messagesPerProduct() const { return m_messagesPerProduct; }

private:
    struct Exchange;
    struct Copies;

    void mergeBricks(VolTr::COctree const & octree, QzBackend::LoopTeam & team);
    void exchangeLevel(VolTr::BrickLevel::Outline & outline, int depth, bool isDeepest,
                       Copies & copies) const;
    void connect(std::vector<Copies> const & copies);

    Communicator const & m_ranks;
    Partition const & m_partition;
    int const m_deepestReach; // of copies of the deepest bricks, in bricks
    std::optional<VolTr::BrickLattice> m_lattice;
    int m_replicatedLevels = 0;
    std::int64_t m_replicatedNodes = 0;
    std::vector<Part> m_parts;
    std::vector<std::unique_ptr<Exchange>> m_exchanges; // by level, of dense numbers; null where replicated
    std::unique_ptr<Exchange> m_all;                    // of all levels, of compact numbers
    std::vector<Range> m_ownNodes;
    std::int64_t m_ownNodesNumber = 0;
    std::int64_t m_bytesPerProduct = 0;
    std::int64_t m_messagesPerProduct = 0;
};

} // namespace QZmath::Distributed
