// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Distributed/Field/RankLattice.h>

#include <QZmath/Distributed/Ranks/Petsc.h>

#include <QZmath/Backend/Parallel.h>
#include <QZmath/VolTriang/Octree.h>

#include <petscsf.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <new>
#include <utility>

namespace QZmath::Distributed
{

using QzBackend::LoopTeam;
using VolTr::brickEdge;
using VolTr::BrickLattice;
using VolTr::BrickLevel;
using VolTr::brickRows;

namespace
{

int const brickShift = 3; // a brick has 2^3 places along an axis
// In leaf cells: of a brick of the deepest nodes, and how far such a node reaches.
int const deepestBrick = 2 * brickEdge;
int const deepestSupport = 3;

using BrickPlace = std::array<int, 3>;

// A brick as it is sent.
struct BrickRecord
{
    BrickPlace place;
    std::uint8_t rows[brickRows];
    std::int32_t isTouching; // the territory of the receiver
};

// Where a brick lies at its owner.
struct BrickAddress
{
    std::uint32_t brick;
    std::uint32_t firstNode;
};

BrickRecord recordOf(BrickLevel::Outline const & outline, std::size_t brick)
{
    BrickRecord record;
    record.place = outline.bricks[brick];
    std::memcpy(record.rows, outline.rows.data() + brick * brickRows, brickRows);
    record.isTouching = 0;
    return record;
}

// Ascending, each place once with the rows of all records of it.
BrickLevel::Outline merge(std::vector<BrickRecord> records)
{
    std::sort(records.begin(), records.end(),
              [](BrickRecord const & a, BrickRecord const & b) { return a.place < b.place; });
    BrickLevel::Outline outline;
    for (BrickRecord const & record : records) {
        if (outline.bricks.empty() || outline.bricks.back() != record.place) {
            outline.bricks.push_back(record.place);
            outline.rows.insert(outline.rows.end(), record.rows, record.rows + brickRows);
            continue;
        }
        std::uint8_t * const rows = outline.rows.data() + outline.rows.size() - brickRows;
        for (int row = 0; row < brickRows; ++row)
            rows[row] = static_cast<std::uint8_t>(rows[row] | record.rows[row]);
    }
    return outline;
}

// Calls visit(bit's place in the brick) for the nodes of a brick in their order.
template <class Visit>
void forNodes(BrickLevel const & level, int brick, Visit const & visit)
{
    std::uint8_t const * const rows = level.rowsOf(brick);
    for (int row = 0; row < brickRows; ++row) {
        for (unsigned left = rows[row]; left != 0; left &= left - 1)
            visit(row * brickEdge + __builtin_ctz(left));
    }
}

PetscInt toPetsc(std::size_t number)
{
    if (number > static_cast<std::size_t>(PETSC_MAX_INT))
        throw std::bad_alloc(); // more than PETSc can number on a rank
    return static_cast<PetscInt>(number);
}

} // namespace

// A star forest over the numbers of a rank, from owners to copies.
struct RankLattice::Exchange
{
    std::vector<PetscInt> leaves;
    std::vector<PetscSFNode> roots;
    PetscSF forest = nullptr;

    Exchange() = default;
    ~Exchange()
    {
        PetscBool isFinalized = PETSC_FALSE;
        if (forest != nullptr && PetscFinalized(&isFinalized) == 0 && isFinalized == PETSC_FALSE)
            PetscSFDestroy(&forest);
    }
    Exchange(Exchange const &) = delete;
    Exchange & operator=(Exchange const &) = delete;

    void add(std::size_t leaf, int rank, std::size_t root)
    {
        leaves.push_back(toPetsc(leaf));
        roots.push_back({rank, toPetsc(root)});
    }
    void finish(MPI_Comm comm, std::size_t numbers)
    {
        checkPetsc(PetscSFCreate(comm, &forest));
        checkPetsc(PetscSFSetGraph(forest, toPetsc(numbers), toPetsc(leaves.size()), leaves.data(),
                                   PETSC_COPY_VALUES, roots.data(), PETSC_COPY_VALUES));
        checkPetsc(PetscSFSetUp(forest));
        leaves = decltype(leaves)();
        roots = decltype(roots)();
    }
};

// Copies of a level's bricks, by rank.
struct RankLattice::Copies
{
    struct Copy
    {
        BrickPlace place;
        bool isTouching;
    };
    std::vector<std::vector<Copy>> sent;
    std::vector<std::vector<Copy>> received;
};

RankLattice::RankLattice(Communicator const & ranks, Partition const & partition,
                         VolTr::COctree const & octree, int margin, LoopTeam & team)
    : m_ranks(ranks), m_partition(partition),
      m_deepestReach((margin + deepestSupport + deepestBrick - 1) / deepestBrick)
{
    ensurePetsc();
    mergeBricks(octree, team);
}

RankLattice::~RankLattice() = default;

int RankLattice::ownerOf(int depth, BrickPlace const & brick) const
{
    return m_partition.ownerOfCell(depth - brickShift, brick);
}

void RankLattice::mergeBricks(VolTr::COctree const & octree, LoopTeam & team)
{
    int const firstDepth = octree.getNodeDepthBegin();
    int const endDepth = octree.getNodeDepthEnd();
    int const levels = endDepth - firstDepth;
    m_replicatedLevels = std::clamp(m_partition.unitDepth() + brickShift - firstDepth, 0, levels);
    std::vector<BrickLevel::Outline> outlines(static_cast<std::size_t>(levels));
    bool isCentred = false;
    {
        BrickLattice const own(octree, team);
        isCentred = own.isCentred();
        for (int level = 0; level < levels; ++level) {
            outlines[static_cast<std::size_t>(level)].bricks = own.level(firstDepth + level).bricks;
            outlines[static_cast<std::size_t>(level)].rows = own.level(firstDepth + level).rows;
        }
    }
    std::vector<Copies> copies(outlines.size());
    for (int level = 0; level < levels; ++level) {
        BrickLevel::Outline & outline = outlines[static_cast<std::size_t>(level)];
        if (level >= m_replicatedLevels) {
            exchangeLevel(outline, firstDepth + level, level + 1 == levels,
                          copies[static_cast<std::size_t>(level)]);
            continue;
        }
        std::vector<BrickRecord> records;
        for (std::size_t brick = 0; brick < outline.bricks.size(); ++brick)
            records.push_back(recordOf(outline, brick));
        outline = merge(m_ranks.gatherToAll(records));
    }
    m_ranks.together([&] { m_lattice.emplace(firstDepth, isCentred, std::move(outlines), team); });
    connect(copies);
}

// Turns the bricks that this rank's samples have into those of its territory and their copies around it.
void RankLattice::exchangeLevel(BrickLevel::Outline & outline, int depth, bool isDeepest,
                                Copies & copies) const
{
    std::size_t const ranks = static_cast<std::size_t>(m_ranks.size());
    std::vector<std::vector<BrickRecord>> toOwners(ranks);
    for (std::size_t brick = 0; brick < outline.bricks.size(); ++brick)
        toOwners[static_cast<std::size_t>(ownerOf(depth, outline.bricks[brick]))].push_back(
            recordOf(outline, brick));
    outline = merge(m_ranks.exchange(toOwners));

    int const reach = isDeepest ? m_deepestReach : 1;
    std::vector<std::vector<BrickRecord>> toRanks(ranks);
    copies.sent.resize(ranks);
    std::vector<std::pair<int, bool>> around;
    for (std::size_t brick = 0; brick < outline.bricks.size(); ++brick) {
        BrickPlace const & place = outline.bricks[brick];
        around.clear();
        for (int x = -reach; x <= reach; ++x) {
            for (int y = -reach; y <= reach; ++y) {
                for (int z = -reach; z <= reach; ++z) {
                    int const owner = ownerOf(depth, {place[0] + x, place[1] + y, place[2] + z});
                    if (owner == m_ranks.rank())
                        continue;
                    bool const isTouching = std::max({std::abs(x), std::abs(y), std::abs(z)}) <= 1;
                    auto const known = std::find_if(around.begin(), around.end(), [owner](auto const & rank) {
                        return rank.first == owner;
                    });
                    if (known == around.end())
                        around.emplace_back(owner, isTouching);
                    else
                        known->second = known->second || isTouching;
                }
            }
        }
        for (auto const & [rank, isTouching] : around) {
            BrickRecord record = recordOf(outline, brick);
            record.isTouching = isTouching ? 1 : 0;
            toRanks[static_cast<std::size_t>(rank)].push_back(record);
            copies.sent[static_cast<std::size_t>(rank)].push_back({place, isTouching});
        }
    }
    std::vector<std::size_t> counts;
    std::vector<BrickRecord> records = m_ranks.exchange(toRanks, &counts);
    copies.received.resize(ranks);
    std::size_t next = 0;
    for (std::size_t rank = 0; rank < ranks; ++rank) {
        for (std::size_t n = 0; n < counts[rank]; ++n, ++next)
            copies.received[rank].push_back({records[next].place, records[next].isTouching != 0});
    }
    for (std::size_t brick = 0; brick < outline.bricks.size(); ++brick)
        records.push_back(recordOf(outline, brick));
    outline = merge(std::move(records));
}

// Finds out what belongs to whom, and makes the star forests.
void RankLattice::connect(std::vector<Copies> const & copies)
{
    std::size_t const ranks = static_cast<std::size_t>(m_ranks.size());
    int const levels = m_lattice->endDepth() - m_lattice->firstDepth();
    m_parts.resize(static_cast<std::size_t>(levels));
    m_exchanges.resize(m_parts.size());
    m_all = std::make_unique<Exchange>();
    if (m_replicatedLevels > 0)
        m_replicatedNodes =
            m_lattice->level(m_lattice->firstDepth() + m_replicatedLevels - 1).firstNode.back();
    auto const shareOf = [&](int rank) {
        return static_cast<std::uint32_t>(m_replicatedNodes * rank / m_ranks.size());
    };
    m_ownNodes.push_back({shareOf(m_ranks.rank()), shareOf(m_ranks.rank() + 1)});
    std::int64_t messages = 0, bytes = 0;
    for (int index = 0; index < levels; ++index) {
        BrickLevel const & level = m_lattice->level(m_lattice->firstDepth() + index);
        Part & part = m_parts[static_cast<std::size_t>(index)];
        bool const isDeepest = index + 1 == levels;
        part.isReplicated = index < m_replicatedLevels;
        if (part.isReplicated) {
            for (int brick = 0; brick < level.bricksNumber(); ++brick)
                part.inner.push_back(brick);
            continue;
        }
        Copies const & of = copies[static_cast<std::size_t>(index)];
        auto const find = [&](BrickPlace const & place) {
            return static_cast<std::size_t>(level.find(place[0], place[1], place[2]));
        };
        std::vector<std::uint8_t> isShared(level.bricks.size(), 0);
        std::vector<std::vector<BrickAddress>> addresses(ranks);
        for (std::size_t rank = 0; rank < ranks; ++rank) {
            std::int64_t nodes = 0;
            for (Copies::Copy const & copy : of.sent[rank]) {
                std::size_t const brick = find(copy.place);
                isShared[brick] = isShared[brick] != 0 || copy.isTouching ? 1 : 0;
                addresses[rank].push_back({static_cast<std::uint32_t>(brick), level.firstNode[brick]});
                if (copy.isTouching)
                    nodes += level.firstNode[brick + 1] - level.firstNode[brick];
            }
            // What is spread: values, and sums where there are finer depths.
            messages += nodes > 0 ? (isDeepest ? 1 : 2) : 0;
            bytes += nodes * static_cast<std::int64_t>(sizeof(float)) * (isDeepest ? 1 : 2);
        }
        std::vector<BrickAddress> const roots = m_ranks.exchange(addresses);
        std::vector<std::uint8_t> isForeign(level.bricks.size(), 0);
        auto exchange = std::make_unique<Exchange>();
        std::size_t next = 0;
        for (std::size_t rank = 0; rank < ranks; ++rank) {
            std::int64_t nodes = 0;
            for (Copies::Copy const & copy : of.received[rank]) {
                BrickAddress const & root = roots[next++];
                std::size_t const brick = find(copy.place);
                isForeign[brick] = 1;
                std::size_t number = 0;
                forNodes(level, static_cast<int>(brick), [&](int place) {
                    m_all->add(level.firstNode[brick] + number, static_cast<int>(rank),
                               root.firstNode + number);
                    ++number;
                    if (copy.isTouching)
                        exchange->add(brick * brickRows * brickEdge + static_cast<std::size_t>(place),
                                      static_cast<int>(rank),
                                      std::size_t{root.brick} * brickRows * brickEdge +
                                          static_cast<std::size_t>(place));
                });
                nodes += copy.isTouching ? static_cast<std::int64_t>(number) : 0;
            }
            messages += nodes > 0 && !isDeepest ? 1 : 0; // what is collected
            bytes += isDeepest ? 0 : nodes * static_cast<std::int64_t>(sizeof(float));
        }
        exchange->finish(m_ranks.get(), level.bricks.size() * brickRows * brickEdge);
        m_exchanges[static_cast<std::size_t>(index)] = std::move(exchange);
        for (std::size_t brick = 0; brick < level.bricks.size(); ++brick) {
            if (isForeign[brick] != 0) {
                part.foreign.push_back(static_cast<int>(brick));
                continue;
            }
            (isShared[brick] != 0 ? part.shared : part.inner).push_back(static_cast<int>(brick));
            Range const nodes = {level.firstNode[brick], level.firstNode[brick + 1]};
            if (m_ownNodes.back().end == nodes.begin)
                m_ownNodes.back().end = nodes.end;
            else
                m_ownNodes.push_back(nodes);
        }
    }
    m_all->finish(m_ranks.get(), m_lattice->nodesNumber());
    for (Range const & range : m_ownNodes)
        m_ownNodesNumber += range.end - range.begin;
    if (m_ranks.size() > 1 && m_replicatedLevels > 0) {
        // A sum over all ranks and a collection of shares, each as large as the replicated depths.
        bytes += 2 * m_replicatedNodes * static_cast<std::int64_t>(sizeof(float));
        messages += 2;
    }
    m_bytesPerProduct = bytes;
    m_messagesPerProduct = messages;
}

void RankLattice::spreadReplicated(std::vector<float> & compact) const
{
    std::vector<int> counts, begins;
    for (std::int64_t rank = 0; rank < m_ranks.size(); ++rank) {
        std::int64_t const begin = m_replicatedNodes * rank / m_ranks.size();
        begins.push_back(static_cast<int>(begin));
        counts.push_back(static_cast<int>(m_replicatedNodes * (rank + 1) / m_ranks.size() - begin));
    }
    MPI_Allgatherv(MPI_IN_PLACE, 0, MPI_DATATYPE_NULL, compact.data(), counts.data(), begins.data(),
                   MPI_FLOAT, m_ranks.get());
}

void RankLattice::spread(std::vector<float> & compact) const
{
    spreadReplicated(compact);
    checkPetsc(PetscSFBcastBegin(m_all->forest, MPI_FLOAT, compact.data(), compact.data(), MPI_REPLACE));
    checkPetsc(PetscSFBcastEnd(m_all->forest, MPI_FLOAT, compact.data(), compact.data(), MPI_REPLACE));
}

void RankLattice::collect(std::vector<std::array<double, 3>> & compact) const
{
    m_ranks.sum(compact.empty() ? nullptr : compact[0].data(),
                3 * static_cast<std::size_t>(m_replicatedNodes));
    MPI_Datatype type = MPI_DATATYPE_NULL;
    MPI_Type_contiguous(3, MPI_DOUBLE, &type);
    MPI_Type_commit(&type);
    checkPetsc(PetscSFReduceBegin(m_all->forest, type, compact.data(), compact.data(), MPI_SUM));
    checkPetsc(PetscSFReduceEnd(m_all->forest, type, compact.data(), compact.data(), MPI_SUM));
    checkPetsc(PetscSFBcastBegin(m_all->forest, type, compact.data(), compact.data(), MPI_REPLACE));
    checkPetsc(PetscSFBcastEnd(m_all->forest, type, compact.data(), compact.data(), MPI_REPLACE));
    MPI_Type_free(&type);
}

void RankLattice::beginSpread(int level, float * numbers)
{
    checkPetsc(PetscSFBcastBegin(m_exchanges[static_cast<std::size_t>(level)]->forest, MPI_FLOAT, numbers,
                                 numbers, MPI_REPLACE));
}

void RankLattice::endSpread(int level, float * numbers)
{
    checkPetsc(PetscSFBcastEnd(m_exchanges[static_cast<std::size_t>(level)]->forest, MPI_FLOAT, numbers,
                               numbers, MPI_REPLACE));
}

void RankLattice::beginCollect(int level, float * numbers)
{
    checkPetsc(PetscSFReduceBegin(m_exchanges[static_cast<std::size_t>(level)]->forest, MPI_FLOAT, numbers,
                                  numbers, MPI_SUM));
}

void RankLattice::endCollect(int level, float * numbers)
{
    checkPetsc(PetscSFReduceEnd(m_exchanges[static_cast<std::size_t>(level)]->forest, MPI_FLOAT, numbers,
                                numbers, MPI_SUM));
}

void RankLattice::sumReplicated(std::vector<float *> const & levels)
{
    // Only the places of nodes: a third of all.
    std::vector<float> compact(static_cast<std::size_t>(m_replicatedNodes));
    auto const forAll = [&](auto const & move) {
        std::size_t next = 0;
        for (std::size_t index = 0; index < levels.size(); ++index) {
            BrickLevel const & level = m_lattice->level(m_lattice->firstDepth() + static_cast<int>(index));
            for (int brick = 0; brick < level.bricksNumber(); ++brick) {
                float * const dense = levels[index] + static_cast<std::size_t>(brick) * brickRows * brickEdge;
                forNodes(level, brick, [&](int place) { move(dense[place], compact[next++]); });
            }
        }
    };
    forAll([](float & dense, float & number) { number = dense; });
    m_ranks.sum(compact.data(), compact.size());
    forAll([](float & dense, float & number) { dense = number; });
}

} // namespace QZmath::Distributed
