// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Stages/MomentLattice.h>

#include <QZmath/Backend/LargeVector.h>
#include <QZmath/Backend/Parallel.h>
#include <QZmath/Backend/RawArray.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <iterator>

namespace VolTr
{

namespace
{

int const edge = MomentLattice::edge;
int const places = edge * edge * edge;

// Bricks that a thread fills at a time; their nodes lie together.
int const bricksPerChunk = 16;
int const pointsPerChunk = 1 << 14;
std::size_t const bricksPerTurn = 1 << 10; // on one thread
std::size_t const entriesPerTurn = 1 << 15;
// What a thread does before it looks for an interruption: some 10 ms, in units of a point that is looked at;
// one that reaches the brick takes some more.
int const workPerTurn = 1 << 19;
int const workOfReaching = 3;

std::uint64_t hashOf(std::array<int, 3> const & place)
{
    return CLatticeHash::hashOf(CInt3(place[0], place[1], place[2]), 0);
}

// Weights of the places before, at and behind the cell of a point that lies `t` of a cell behind its middle.
void splineWeights(float t, float * weights3)
{
    weights3[0] = 0.5f * (0.5f - t) * (0.5f - t);
    weights3[1] = 0.75f - t * t;
    weights3[2] = 0.5f * (0.5f + t) * (0.5f + t);
}

using Float4 = float __attribute__((vector_size(16)));

inline Float4 load(float const * from)
{
    Float4 value;
    std::memcpy(&value, from, sizeof value);
    return value;
}
inline void store(float * to, Float4 value) { std::memcpy(to, &value, sizeof value); }

// Products and sums are rounded one by one, so any width of vector instructions gives the same bits.
inline void addTo(Moments & sum, float weight, Moments const & moments)
{
    store(sum.of, load(sum.of) + weight * load(moments.of));
    store(sum.of + 4, load(sum.of + 4) + weight * load(moments.of + 4));
}

// The two coarse places around a fine one on an axis: the nearer with weight 3/4, the other with 1/4.
struct CoarsePlaces
{
    int at[2];

    explicit CoarsePlaces(int fine) : at{fine >> 1, (fine >> 1) + ((fine & 1) != 0 ? 1 : -1)} {}
    static float weight(int n) { return n == 0 ? 0.75f : 0.25f; }
    bool isAnyInside() const { return (at[0] >= 0 && at[0] < edge) || (at[1] >= 0 && at[1] < edge); }
};

// Which of the bricks -1, 0, 1 along an axis the places around a point in cell 0 to 7 reach.
bool reaches(int cell, int offset) { return offset == 0 || (offset < 0 ? cell == 0 : cell == edge - 1); }

} // namespace

MomentLattice::Window::Window(double const * place3)
{
    for (std::size_t axis = 0; axis < 3; ++axis) {
        double const down = std::floor(place3[axis]);
        int const whole = static_cast<int>(down);
        brick[axis] = whole >> 3;
        cell[axis] = whole & 7;
        splineWeights(static_cast<float>(place3[axis] - down) - 0.5f, weights[axis]);
    }
}

MomentLattice::Window::Window(std::array<int, 3> const & ofBrick, float const * local3) : brick(ofBrick)
{
    for (std::size_t axis = 0; axis < 3; ++axis) {
        cell[axis] = std::min(static_cast<int>(local3[axis]), edge - 1); // rounding may reach the edge
        splineWeights(local3[axis] - static_cast<float>(cell[axis]) - 0.5f, weights[axis]);
    }
}

float MomentLattice::Window::ownShare() const
{
    float share = 1.0f;
    for (float const(&axis)[3] : weights)
        share *= axis[0] * axis[0] + axis[1] * axis[1] + axis[2] * axis[2];
    return share;
}

int MomentLattice::find(std::array<int, 3> const & place) const
{
    return m_table.find(hashOf(place),
                        [&](int index) { return m_places[static_cast<std::size_t>(index)] == place; });
}

int MomentLattice::findOrAdd(std::array<int, 3> const & place)
{
    std::uint64_t const hash = hashOf(place);
    int index = m_table.find(hash, [&](int at) { return m_places[static_cast<std::size_t>(at)] == place; });
    if (index < 0) {
        index = static_cast<int>(m_places.size());
        m_places.push_back(place);
        m_table.insert(hash, index, [&](int at) { return hashOf(m_places[static_cast<std::size_t>(at)]); });
    }
    return index;
}

void MomentLattice::build(
    int count, Payload payload, std::function<bool(int, double *)> const & placeOf,
    std::function<void(Entry const &, std::array<int, 3> const &, Moments &)> const & momentsOf,
    QzBackend::LoopTeam & team)
{
    m_payload = payload;
    // The points by bricks, in each in their own order. Points in a row mostly share their brick, so bricks
    // are looked up and numbered for runs of them.
    struct Run
    {
        std::array<int, 3> place;
        std::uint32_t length;
        std::size_t target; // its brick, then where it goes
    };
    std::vector<std::vector<Run>> chunks(
        static_cast<std::size_t>((count + pointsPerChunk - 1) / pointsPerChunk));
    // Calls visit(point, place, brick) for the points of a chunk. Done twice, which takes less than to keep
    // what comes out.
    auto const forPoints = [&](int number, auto const & visit) {
        int const begin = number * pointsPerChunk;
        int const end = begin + std::min(pointsPerChunk, count - begin);
        for (int point = begin; point < end; ++point) {
            double place[3];
            if (!placeOf(point, place))
                continue;
            visit(point, place,
                  std::array<int, 3>{static_cast<int>(std::floor(place[0])) >> 3,
                                     static_cast<int>(std::floor(place[1])) >> 3,
                                     static_cast<int>(std::floor(place[2])) >> 3});
        }
    };
    team.forEach(static_cast<int>(chunks.size()), [&](int number) {
        std::vector<Run> & runs = chunks[static_cast<std::size_t>(number)];
        forPoints(number, [&](int, double const *, std::array<int, 3> const & brick) {
            if (runs.empty() || runs.back().place != brick)
                runs.push_back({brick, 0, 0});
            ++runs.back().length;
        });
    });
    std::vector<std::uint32_t> firstEntry(1, 0);
    for (std::vector<Run> & runs : chunks) {
        team.serve();
        for (Run & run : runs) {
            run.target = static_cast<std::size_t>(findOrAdd(run.place));
            firstEntry.resize(m_places.size() + 1, 0);
            firstEntry[run.target + 1] += run.length;
        }
    }
    for (std::size_t brick = 1; brick < firstEntry.size(); ++brick)
        firstEntry[brick] += firstEntry[brick - 1];
    {
        std::vector<std::uint32_t> next(firstEntry.begin(), firstEntry.end() - 1);
        for (std::vector<Run> & runs : chunks) {
            team.serve();
            for (Run & run : runs) {
                std::uint32_t & place = next[run.target];
                run.target = place;
                place += run.length;
            }
        }
    }
    QzBackend::RawArray<Entry> entries(firstEntry.back());
    team.forEach(static_cast<int>(chunks.size()), [&](int number) {
        std::vector<Run> & runs = chunks[static_cast<std::size_t>(number)];
        std::size_t run = 0;
        forPoints(number, [&](int point, double const * place, std::array<int, 3> const & brick) {
            if (runs[run].length == 0)
                ++run;
            --runs[run].length;
            Entry & entry = entries[runs[run].target++];
            for (std::size_t axis = 0; axis < 3; ++axis)
                entry.local[axis] = static_cast<float>(place[axis] - static_cast<double>(brick[axis]) * edge);
            entry.point = point;
        });
        std::vector<Run>().swap(runs);
    });
    int const ownBricks = static_cast<int>(m_places.size());
    addReachedBricks(entries, firstEntry, team);

    fillBricks(
        [&](int brick, Dense & dense, FillState & state) {
            std::array<int, 3> const & place = m_places[static_cast<std::size_t>(brick)];
            for (int & n = state.neighbour; n < 27; ++n, state.entries = 0) {
                std::array<int, 3> const offset = {n / 9 - 1, n / 3 % 3 - 1, n % 3 - 1};
                std::array<int, 3> const source = {place[0] + offset[0], place[1] + offset[1],
                                                   place[2] + offset[2]};
                int const index = find(source);
                if (index < 0 || index >= ownBricks)
                    continue;
                std::size_t const begin = firstEntry[static_cast<std::size_t>(index)];
                std::size_t const end = firstEntry[static_cast<std::size_t>(index) + 1];
                for (; state.entries < end - begin; ++state.entries) {
                    if (state.left <= 0)
                        return false;
                    --state.left;
                    Entry const & entry = entries[begin + state.entries];
                    Window const window(source, entry.local);
                    // The brick lies at -offset as seen from the point's.
                    if (!reaches(window.cell[0], -offset[0]) || !reaches(window.cell[1], -offset[1]) ||
                        !reaches(window.cell[2], -offset[2]))
                        continue;
                    Moments moments;
                    momentsOf(entry, source, moments);
                    if (m_payload == Payload::surface)
                        rebase(moments, offset);
                    addEntry(window, offset, moments, dense);
                    state.left -= workOfReaching;
                }
            }
            return true;
        },
        team);
}

// Into the frame of a brick from that of the one `offset` bricks away.
void MomentLattice::rebase(Moments & moments, std::array<int, 3> const & offset)
{
    float(&of)[8] = moments.of;
    float const shift[3] = {static_cast<float>(edge * offset[0]), static_cast<float>(edge * offset[1]),
                            static_cast<float>(edge * offset[2])};
    of[4] += shift[0] * of[1] + shift[1] * of[2] + shift[2] * of[3];
    for (int axis = 0; axis < 3; ++axis)
        of[5 + axis] += shift[axis] * of[0];
}

void MomentLattice::addEntry(Window const & window, std::array<int, 3> const & offset,
                             Moments const & moments, Dense & dense)
{
    // Places of the point in this brick: first - 1 + 8 offset + 0..2, where they fall into 0..7.
    int low[3];
    int high[3];
    int begin[3];
    for (std::size_t axis = 0; axis < 3; ++axis) {
        begin[axis] = window.cell[axis] - 1 + edge * offset[axis];
        low[axis] = std::max(0, -begin[axis]);
        high[axis] = std::min(3, edge - begin[axis]);
    }
    for (int x = low[0]; x < high[0]; ++x) {
        for (int y = low[1]; y < high[1]; ++y) {
            float const weightXY = window.weights[0][x] * window.weights[1][y];
            Moments * const row =
                dense.data() + (begin[0] + x) * edge * edge + (begin[1] + y) * edge + begin[2];
            for (int z = low[2]; z < high[2]; ++z)
                addTo(row[z], weightXY * window.weights[2][z], moments);
        }
    }
}

void MomentLattice::addReachedBricks(QzBackend::RawArray<Entry> const & entries,
                                     std::vector<std::uint32_t> const & firstEntry,
                                     QzBackend::LoopTeam & team)
{
    std::size_t const ownBricks = m_places.size();
    std::vector<std::atomic<std::uint32_t>> reached(ownBricks); // bit n: the neighbour n = 9 x + 3 y + z
    int const chunks = static_cast<int>((entries.size() + entriesPerTurn - 1) / entriesPerTurn);
    team.forEach(chunks, [&](int chunk) {
        std::size_t at = static_cast<std::size_t>(chunk) * entriesPerTurn;
        std::size_t const end = std::min(entries.size(), at + entriesPerTurn);
        std::size_t brick = static_cast<std::size_t>(
            std::upper_bound(firstEntry.begin(), firstEntry.end(), at) - firstEntry.begin() - 1);
        for (; at < end; ++brick) {
            std::uint32_t here = 0;
            for (; at < std::min<std::size_t>(end, firstEntry[brick + 1]); ++at) {
                bool isReached[3][3] = {}; // by axis: does the point reach -1, 0, 1 there?
                for (int axis = 0; axis < 3; ++axis) {
                    int const cell = std::min(static_cast<int>(entries[at].local[axis]), edge - 1);
                    for (int offset = -1; offset <= 1; ++offset)
                        isReached[axis][offset + 1] = reaches(cell, offset);
                }
                for (int n = 0; n < 27; ++n) {
                    if (isReached[0][n / 9] && isReached[1][n / 3 % 3] && isReached[2][n % 3])
                        here |= 1U << n;
                }
            }
            reached[brick].fetch_or(here, std::memory_order_relaxed);
        }
    });
    for (std::size_t brick = 0; brick < ownBricks; ++brick) {
        if (brick % bricksPerTurn == 0)
            team.serve();
        for (int n = 0; n < 27; ++n) {
            std::array<int, 3> const place = m_places[brick];
            if ((reached[brick].load(std::memory_order_relaxed) >> n & 1) != 0)
                findOrAdd({place[0] + n / 9 - 1, place[1] + n / 3 % 3 - 1, place[2] + n % 3 - 1});
        }
    }
}

void MomentLattice::fillBricks(BrickFilling const & fillBrick, QzBackend::LoopTeam & team)
{
    int const bricks = bricksNumber();
    int const chunks = (bricks + bricksPerChunk - 1) / bricksPerChunk;
    QzBackend::assignLarge(team, m_bricks, m_places.size());
    m_chunks.resize(static_cast<std::size_t>(chunks));
    std::vector<std::vector<int>> crowded(m_chunks.size()); // bricks that are left when the turn is over
    team.forEach(chunks, [&](int chunk) {
        Dense dense(static_cast<std::size_t>(places));
        int left = workPerTurn;
        for (int brick = chunk * bricksPerChunk; brick < std::min(bricks, (chunk + 1) * bricksPerChunk);
             ++brick) {
            std::fill(dense.begin(), dense.end(), Moments());
            FillState state = {left, 0, 0};
            if (fillBrick(brick, dense, state))
                keep(dense, static_cast<std::size_t>(brick), static_cast<std::uint32_t>(chunk));
            else
                crowded[static_cast<std::size_t>(chunk)].push_back(brick);
            left = state.left;
        }
        m_chunks[static_cast<std::size_t>(chunk)].shrink_to_fit();
    });
    std::vector<int> left;
    for (std::vector<int> const & some : crowded)
        left.insert(left.end(), some.begin(), some.end());
    fillCrowdedBricks(left, fillBrick, team);
}

// Some bricks at a time, turn by turn, each in a chunk of its own.
void MomentLattice::fillCrowdedBricks(std::vector<int> const & bricks, BrickFilling const & fillBrick,
                                      QzBackend::LoopTeam & team)
{
    struct Open
    {
        int brick;
        Dense dense;
        FillState state;
        bool isDone;
    };
    std::size_t const together = 16 * static_cast<std::size_t>(team.threads());
    for (std::size_t first = 0; first < bricks.size(); first += together) {
        std::vector<Open> open;
        for (std::size_t n = first; n < std::min(bricks.size(), first + together); ++n)
            open.push_back({bricks[n], Dense(static_cast<std::size_t>(places)), {0, 0, 0}, false});
        while (!open.empty()) {
            team.forEach(static_cast<int>(open.size()), [&](int number) {
                Open & own = open[static_cast<std::size_t>(number)];
                own.state.left = workPerTurn;
                own.isDone = fillBrick(own.brick, own.dense, own.state);
            });
            for (Open const & own : open) {
                if (!own.isDone)
                    continue;
                m_chunks.emplace_back();
                keep(own.dense, static_cast<std::size_t>(own.brick),
                     static_cast<std::uint32_t>(m_chunks.size() - 1));
            }
            open.erase(std::remove_if(open.begin(), open.end(), [](Open const & own) { return own.isDone; }),
                       open.end());
        }
    }
}

void MomentLattice::keep(Dense const & dense, std::size_t brick, std::uint32_t chunk)
{
    std::vector<Moments> & nodes = m_chunks[chunk];
    m_bricks[brick].chunk = chunk;
    std::size_t const firstNode = nodes.size();
    m_bricks[brick].firstNode = static_cast<std::uint32_t>(firstNode);
    for (std::size_t row = 0; row < 64; ++row) {
        Moments const * const source = dense.data() + row * edge;
        auto const isUsed = [&](int z) { return source[z].of[0] != 0.0f; };
        int begin = 0;
        int end = edge;
        while (begin < edge && !isUsed(begin))
            ++begin;
        while (end > begin && !isUsed(end - 1))
            --end;
        Row & target = m_bricks[brick].rows[row];
        target.start = static_cast<std::uint16_t>(nodes.size() - firstNode);
        target.begin = static_cast<std::uint8_t>(begin);
        target.end = static_cast<std::uint8_t>(end);
        nodes.insert(nodes.end(), source + begin, source + end);
    }
}

// A coarse node J is the sum of the fine nodes 2 J - 1 to 2 J + 2 with the weights 1/4, 3/4, 3/4, 1/4 an
// axis.
void MomentLattice::buildFromFiner(MomentLattice const & finer, QzBackend::LoopTeam & team)
{
    m_payload = finer.m_payload;
    // Fine brick b covers the fine places 8 b to 8 b + 7, which belong to the coarse places 4 b - 1 to 4 b +
    // 4: those of the brick above it, and of the neighbour on the side where it lies.
    for (std::size_t brick = 0; brick < finer.m_places.size(); ++brick) {
        if (brick % bricksPerTurn == 0)
            team.serve();
        std::array<int, 3> const & place = finer.m_places[brick];
        for (int n = 0; n < 8; ++n) {
            std::array<int, 3> coarse;
            for (std::size_t axis = 0; axis < 3; ++axis) {
                int const side = (place[axis] & 1) != 0 ? 1 : -1;
                coarse[axis] = (place[axis] >> 1) + ((n >> axis & 1) != 0 ? side : 0);
            }
            findOrAdd(coarse);
        }
    }
    bool const hasPlaces = m_payload == Payload::surface;
    fillBricks(
        [&](int brick, Dense & dense, FillState &) {
            std::array<int, 3> const & place = m_places[static_cast<std::size_t>(brick)];
            for (int n = 0; n < 64; ++n) {
                std::array<int, 3> const step = {n >> 4, n >> 2 & 3,
                                                 n & 3}; // the fine bricks 2 b - 1 to 2 b + 2
                std::array<int, 3> const source = {2 * place[0] - 1 + step[0], 2 * place[1] - 1 + step[1],
                                                   2 * place[2] - 1 + step[2]};
                int const index = finer.find(source);
                if (index < 0)
                    continue;
                Brick const & fine = finer.m_bricks[static_cast<std::size_t>(index)];
                Moments const * const nodes = finer.nodesOf(fine);
                // Of the fine brick's corner from this one's, in fine cells.
                float const shift[3] = {static_cast<float>(edge * (step[0] - 1)),
                                        static_cast<float>(edge * (step[1] - 1)),
                                        static_cast<float>(edge * (step[2] - 1))};
                for (std::size_t rowIndex = 0; rowIndex < 64; ++rowIndex) {
                    Row const & row = fine.rows[rowIndex];
                    if (row.begin == row.end)
                        continue;
                    CoarsePlaces const x(static_cast<int>(rowIndex >> 3) + edge * (step[0] - 1));
                    CoarsePlaces const y(static_cast<int>(rowIndex & 7) + edge * (step[1] - 1));
                    if (!x.isAnyInside() || !y.isAnyInside())
                        continue;
                    // Along z first: the fine row becomes a short coarse one.
                    std::array<Moments, edge> line;
                    int low = edge;
                    int high = -1;
                    Moments const * node = nodes + row.start;
                    for (int z = row.begin; z < row.end; ++z, ++node) {
                        CoarsePlaces const around(z + edge * (step[2] - 1));
                        for (int n2 = 0; n2 < 2; ++n2) {
                            int const at = around.at[n2];
                            if (at < 0 || at >= edge)
                                continue;
                            low = std::min(low, at);
                            high = std::max(high, at);
                            addTo(line[static_cast<std::size_t>(at)], around.weight(n2), *node);
                        }
                    }
                    for (int z = low; z <= high; ++z) {
                        float(&of)[8] = line[static_cast<std::size_t>(z)].of;
                        if (!hasPlaces)
                            continue;
                        of[4] = 0.5f * (of[4] + shift[0] * of[1] + shift[1] * of[2] + shift[2] * of[3]);
                        for (int axis = 0; axis < 3; ++axis)
                            of[5 + axis] = 0.5f * (of[5 + axis] + shift[axis] * of[0]);
                    }
                    for (int corner = 0; corner < 4; ++corner) {
                        int const atX = x.at[corner >> 1];
                        int const atY = y.at[corner & 1];
                        if (atX < 0 || atX >= edge || atY < 0 || atY >= edge)
                            continue;
                        float const weight = x.weight(corner >> 1) * y.weight(corner & 1);
                        Moments * const target = dense.data() + (atX * edge + atY) * edge;
                        for (int z = low; z <= high; ++z)
                            addTo(target[z], weight, line[static_cast<std::size_t>(z)]);
                    }
                }
            }
            return true;
        },
        team);
}

// Calls visit(place, node) for those of a brick that a filter lets through.
template <class Visit>
void MomentLattice::forNodes(int brick, Filter const & hasNode, Visit const & visit) const
{
    std::array<int, 3> const & place = m_places[static_cast<std::size_t>(brick)];
    Brick const & of = m_bricks[static_cast<std::size_t>(brick)];
    for (int row = 0; row < edge * edge; ++row) {
        Row const & from = of.rows[static_cast<std::size_t>(row)];
        for (int z = from.begin; z < from.end; ++z) {
            if (hasNode({edge * place[0] + row / edge, edge * place[1] + row % edge, edge * place[2] + z}))
                visit(static_cast<std::size_t>(row * edge + z), nodesOf(of)[from.start + (z - from.begin)]);
        }
    }
}

std::vector<MomentLattice::Block> MomentLattice::blocks(Filter const & isWanted, Filter const & hasNode) const
{
    std::vector<Block> result;
    for (int brick = 0; brick < bricksNumber(); ++brick) {
        if (!isWanted(m_places[static_cast<std::size_t>(brick)]))
            continue;
        Block block = {m_places[static_cast<std::size_t>(brick)], {}};
        bool isEmpty = true;
        forNodes(brick, hasNode, [&](std::size_t place, Moments const & node) {
            block.nodes[place] = node;
            isEmpty = false;
        });
        if (!isEmpty)
            result.push_back(block);
    }
    return result;
}

void MomentLattice::buildFromBlocks(MomentLattice const * first, Filter const & hasNode,
                                    std::vector<Block> const & blocks, Payload payload,
                                    QzBackend::LoopTeam & team)
{
    m_payload = payload;
    if (first != nullptr) {
        for (std::array<int, 3> const & place : first->m_places)
            findOrAdd(place);
    }
    std::vector<std::vector<Block const *>> byBrick(m_places.size());
    for (Block const & block : blocks) {
        std::size_t const brick = static_cast<std::size_t>(findOrAdd(block.place));
        byBrick.resize(m_places.size());
        byBrick[brick].push_back(&block);
    }
    fillBricks(
        [&](int brick, Dense & dense, FillState &) {
            if (first != nullptr && brick < first->bricksNumber())
                first->forNodes(brick, hasNode,
                                [&](std::size_t place, Moments const & node) { dense[place] = node; });
            for (Block const * const block : byBrick[static_cast<std::size_t>(brick)]) {
                for (std::size_t node = 0; node < dense.size(); ++node)
                    addTo(dense[node], 1.0f, block->nodes[node]);
            }
            return true;
        },
        team);
}

int MomentLattice::Cursor::brickAt(MomentLattice const & lattice, int n)
{
    int & index = m_around[static_cast<std::size_t>(n)];
    if (index == unknown)
        index = lattice.find({m_brick[0] + n / 9 - 1, m_brick[1] + n / 3 % 3 - 1, m_brick[2] + n % 3 - 1});
    return index;
}

// A window lies in one brick, or across the borders to those before or behind it.
template <class Visit>
void MomentLattice::Cursor::forBoxes(MomentLattice const & lattice, Window const & window,
                                     Visit const & visit)
{
    if (m_lattice != &lattice || m_brick != window.brick) {
        m_lattice = &lattice;
        m_brick = window.brick;
        m_around.fill(unknown);
    }
    struct Part
    {
        int offset;
        int low;
        int high;
    };
    Part parts[3][2];
    int number[3];
    for (std::size_t axis = 0; axis < 3; ++axis) {
        int const cell = window.cell[axis];
        number[axis] = cell == 0 || cell == edge - 1 ? 2 : 1;
        if (cell == 0) {
            parts[axis][0] = {-1, 0, 1};
            parts[axis][1] = {0, 1, 3};
        } else if (cell == edge - 1) {
            parts[axis][0] = {0, 0, 2};
            parts[axis][1] = {1, 2, 3};
        } else {
            parts[axis][0] = {0, 0, 3};
        }
    }
    for (int x = 0; x < number[0]; ++x) {
        for (int y = 0; y < number[1]; ++y) {
            for (int z = 0; z < number[2]; ++z) {
                Part const * const at[3] = {&parts[0][x], &parts[1][y], &parts[2][z]};
                int const brick =
                    brickAt(lattice, 9 * (at[0]->offset + 1) + 3 * (at[1]->offset + 1) + at[2]->offset + 1);
                if (brick < 0)
                    continue;
                Box box{lattice, brick, {}, {}, {}, {}};
                for (std::size_t axis = 0; axis < 3; ++axis) {
                    box.offset[axis] = at[axis]->offset;
                    box.first[axis] = window.cell[axis] - 1 - edge * at[axis]->offset;
                    box.low[axis] = at[axis]->low;
                    box.high[axis] = at[axis]->high;
                }
                visit(box);
            }
        }
    }
}

void MomentLattice::Cursor::sum(MomentLattice const & lattice, Window const & window, Moments & out)
{
    Moments total;
    forBoxes(lattice, window, [&](Box const & box) {
        Float4 low = {};
        Float4 high = {};
        for (int x = box.low[0]; x < box.high[0]; ++x) {
            for (int y = box.low[1]; y < box.high[1]; ++y) {
                float const weightXY = window.weights[0][x] * window.weights[1][y];
                int begin = box.low[2];
                int end = box.high[2];
                Moments const * const nodes = box.rowNodes(x, y, begin, end);
                for (int z = begin; z < end; ++z) {
                    float const weight = weightXY * window.weights[2][z];
                    low += weight * load(nodes[z - begin].of);
                    high += weight * load(nodes[z - begin].of + 4);
                }
            }
        }
        Moments sum;
        store(sum.of, low);
        store(sum.of + 4, high);
        if (lattice.m_payload == Payload::surface)
            rebase(sum, box.offset);
        addTo(total, 1.0f, sum);
    });
    out = total;
}

void MomentLattice::Cursor::nodes(MomentLattice const & lattice, Window const & window,
                                  Moments const * (&out)[27])
{
    std::fill(std::begin(out), std::end(out), nullptr);
    forBoxes(lattice, window, [&](Box const & box) {
        for (int x = box.low[0]; x < box.high[0]; ++x) {
            for (int y = box.low[1]; y < box.high[1]; ++y) {
                int begin = box.low[2];
                int end = box.high[2];
                Moments const * const row = box.rowNodes(x, y, begin, end);
                for (int z = begin; z < end; ++z)
                    out[9 * x + 3 * y + z] = row + (z - begin);
            }
        }
    });
}

Moments MomentLattice::nodeAt(std::array<int, 3> const & cell) const
{
    int const index = find({cell[0] >> 3, cell[1] >> 3, cell[2] >> 3});
    if (index < 0)
        return Moments();
    Brick const & brick = m_bricks[static_cast<std::size_t>(index)];
    Row const & row = brick.rows[static_cast<std::size_t>(edge * (cell[0] & 7) + (cell[1] & 7))];
    int const z = cell[2] & 7;
    if (z < row.begin || z >= row.end)
        return Moments();
    return nodesOf(brick)[row.start + (z - row.begin)];
}

} // namespace VolTr
