// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Stages/SampleSurface.h>

#include <QZmath/Backend/Parallel.h>
#include <QZmath/VolTriang/InputSamples.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <numeric>
#include <type_traits>
#include <utility>

namespace VolTr
{

namespace
{

int const coarserLevels = 4;
int const greatestDepth = 26;
int const greatestTests = 40000; // samples that are left out
double const leastMass = 0.3;    // of the own share, below which the others say nothing
double const leastCoherence = 0.5;
double const sharpness = 0.02;     // of the choice between nearly equal errors
double const globalWeight = 100.0; // samples that the error of the whole cloud counts for
double const leastShare = 1e-3;    // of a level in the height of a point
int const testsPerTask = 256;
int const indicesPerTask = 1 << 13;
double const creaseCoherence = 0.98; // below which the normals around a point are those of a crease
int const leastCreaseTests = 30;

// The indices up to `count` of which isWanted(index, cursor) is true, ascending.
template <class IsWanted>
std::vector<int> select(int count, QzBackend::LoopTeam & team, IsWanted const & isWanted)
{
    std::vector<std::vector<int>> parts(
        static_cast<std::size_t>((count + indicesPerTask - 1) / indicesPerTask));
    team.forEach(static_cast<int>(parts.size()), [&](int part) {
        MomentLattice::Cursor cursor;
        int const begin = part * indicesPerTask;
        for (int index = begin; index < begin + std::min(indicesPerTask, count - begin); ++index) {
            if (isWanted(index, cursor))
                parts[static_cast<std::size_t>(part)].push_back(index);
        }
    });
    std::vector<int> all;
    for (std::vector<int> const & part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

std::int64_t samplesOfAll(SampleSurface::Input const & input)
{
    return input.peers != nullptr ? input.peers->samples() : input.count;
}

bool isOwn(SampleSurface::Input const & input, int index)
{
    return input.peers == nullptr || input.peers->isOwn(input.order[index]);
}

// Over all holders of the cloud.
void addUp(SampleSurface::Input const & input, double * values, std::size_t count)
{
    if (input.peers != nullptr)
        input.peers->sum(values, count);
}

template <class Value>
std::vector<char> bytesOf(std::vector<Value> const & values)
{
    static_assert(std::is_trivially_copyable_v<Value>, "bytes are sent as they are");
    std::vector<char> bytes(values.size() * sizeof(Value));
    if (!values.empty())
        std::memcpy(bytes.data(), values.data(), bytes.size());
    return bytes;
}

template <class Value>
std::vector<Value> fromBytes(std::vector<char> const & bytes)
{
    std::vector<Value> values(bytes.size() / sizeof(Value));
    if (!values.empty())
        std::memcpy(static_cast<void *>(values.data()), bytes.data(), bytes.size());
    return values;
}

std::vector<MomentLattice::Block> dealt(SampleSurface::Input const & input,
                                        std::vector<MomentLattice::Block> blocks,
                                        std::vector<CloudPeers::Box> const & boxes, bool isForItself)
{
    std::vector<char> bytes = bytesOf(blocks);
    blocks = {};
    bytes = input.peers->deal(std::move(bytes), sizeof(MomentLattice::Block), boxes, isForItself);
    return fromBytes<MomentLattice::Block>(bytes);
}

// Squared length of the normal of a sample: 0 for one that says nothing.
double squaredNormal(float const * normal)
{
    double const x = normal[0];
    double const y = normal[1];
    double const z = normal[2];
    double const square = x * x + y * y + z * z;
    return std::isfinite(square) ? square : 0.0;
}

void unitNormal(float const * normal, double * out3)
{
    double const factor = 1.0 / std::sqrt(squaredNormal(normal));
    for (int axis = 0; axis < 3; ++axis)
        out3[axis] = normal[axis] * factor;
}

// k, for triangles with edges of that length: moves vertices out by the mean distance of chords from the
// surface.
double curvatureTerm(double edge, double cell)
{
    double const ratio = edge / cell;
    return -0.04 * std::min(4.0, ratio * ratio);
}

} // namespace

SampleSurface::Scratch::Scratch() : m_cursors(static_cast<std::size_t>(greatestLevels) + 2) {}

void SampleSurface::goToSparseDepth(int & depth, double & perCell)
{
    while (perCell >= 1.2 && depth < greatestDepth) {
        perCell /= 4.0;
        ++depth;
    }
    while (perCell < 0.3 && depth > 0) {
        perCell *= 4.0;
        --depth;
    }
}

SampleSurface::SampleSurface(Input const & input, QzBackend::LoopTeam & team)
    : m_deepestCell(input.deepestCell)
{
    int depth = input.depth;
    double perCell = input.samplesPerCell;
    goToSparseDepth(depth, perCell);
    int const coarsest = std::max(0, depth - coarserLevels);
    int const finest = finestDepth(input, depth, coarsest, team);
    m_levels.push_back(isWithinReach(input, finest) ? makeLevel(input, finest, nullptr, team)
                                                    : makeJoinedLevel(input, finest, coarsest, team));
    while (static_cast<int>(m_levels.size()) <= finest - coarsest) {
        int const next = finest - static_cast<int>(m_levels.size());
        m_levels.push_back(makeCoarser(*m_levels.back(), team));
        if (!isWithinReach(input, next) && isWithinReach(input, next + 1))
            exchangeNodes(input, coarsest, *m_levels.back(), team);
    }
    chooseWidths(input, team);
    if (finest < depth && isWithinReach(input, finest + 1))
        refineCreases(input, finest + 1, team);
    for (std::unique_ptr<Level> & level : m_levels)
        level->curvatureTerm = curvatureTerm(input.edge, level->frame.cell);
}

// Is what the lattice of a depth says in this holder's territory right with the samples that are here? A sum
// rests on samples up to three cells away, and these stand at their feet.
bool SampleSurface::isWithinReach(Input const & input, int depth)
{
    return input.peers == nullptr ||
           3.0 * std::ldexp(input.cubeEdge, -depth) + 3.0 * input.deepestCell <= input.peers->reach();
}

std::unique_ptr<SampleSurface::Level> SampleSurface::makeCoarser(Level const & finer,
                                                                 QzBackend::LoopTeam & team)
{
    auto coarser = std::make_unique<Level>();
    coarser->frame = LatticeFrame(finer.frame.origin, 2.0 * finer.frame.cell);
    coarser->lattice.buildFromFiner(finer.lattice, team);
    return coarser;
}

// Where the nodes of a brick matter, up to the depth `coarsest`.
CloudPeers::Box SampleSurface::boxAround(Input const & input, int coarsest, Level const & level,
                                         std::array<int, 3> const & brick)
{
    double const around = 3.0 * (std::ldexp(input.cubeEdge, -coarsest) + input.deepestCell);
    double const edge = MomentLattice::edge * level.frame.cell;
    CloudPeers::Box box;
    for (std::size_t axis = 0; axis < 3; ++axis) {
        double const least = input.origin[axis] + brick[axis] * edge;
        box.low[axis] = least - around;
        box.high[axis] = least + edge + around;
    }
    return box;
}

// The lattice of the own samples of all holders, around the territory of this one, as far as it matters up to
// the depth `coarsest`. The sums of other numbers of holders differ in the last bits.
std::unique_ptr<SampleSurface::Level> SampleSurface::makeJoinedLevel(Input const & input, int depth,
                                                                     int coarsest, QzBackend::LoopTeam & team)
{
    std::vector<int> const own =
        select(input.count, team, [&](int index, MomentLattice::Cursor &) { return isOwn(input, index); });
    std::unique_ptr<Level> level = makeLevel(input, depth, &own, team);
    std::vector<MomentLattice::Block> blocks =
        level->lattice.blocks([](auto const &) { return true; }, [](auto const &) { return true; });
    level->lattice = MomentLattice();
    std::vector<CloudPeers::Box> boxes(blocks.size());
    for (std::size_t n = 0; n < blocks.size(); ++n)
        boxes[n] = boxAround(input, coarsest, *level, blocks[n].place);
    blocks = dealt(input, std::move(blocks), boxes, true);
    level->lattice.buildFromBlocks(nullptr, nullptr, blocks, MomentLattice::Payload::surface, team);
    return level;
}

// The nodes of a level that stand in this holder's territory are right: they rest on samples one cell and a
// half away. Those around it come from the holders in whose territories they stand.
void SampleSurface::exchangeNodes(Input const & input, int coarsest, Level & level,
                                  QzBackend::LoopTeam & team)
{
    auto const isOwnNode = [&](std::array<int, 3> const & node) {
        double place[3];
        for (std::size_t axis = 0; axis < 3; ++axis)
            place[axis] = level.frame.origin[axis] + (node[axis] + 0.5) * level.frame.cell;
        return input.peers->isOwnPlace(place);
    };
    std::vector<MomentLattice::Block> blocks = level.lattice.blocks(
        [&](std::array<int, 3> const & brick) {
            return input.peers->isForOthers(boxAround(input, coarsest, level, brick));
        },
        isOwnNode);
    std::vector<CloudPeers::Box> boxes(blocks.size());
    for (std::size_t n = 0; n < blocks.size(); ++n)
        boxes[n] = boxAround(input, coarsest, level, blocks[n].place);
    blocks = dealt(input, std::move(blocks), boxes, false);
    MomentLattice joined;
    joined.buildFromBlocks(&level.lattice, isOwnNode, blocks, MomentLattice::Payload::surface, team);
    level.lattice = std::move(joined);
}

// Of about `greatestTests` samples, evenly from the whole cloud, those that are own.
std::vector<int> SampleSurface::someOwn(Input const & input, QzBackend::LoopTeam & team)
{
    std::int64_t const stride = std::max<std::int64_t>(1, samplesOfAll(input) / greatestTests);
    std::vector<int> indices;
    if (input.peers == nullptr) {
        for (std::int64_t index = 0; index < input.count; index += stride)
            indices.push_back(static_cast<int>(index));
        return indices;
    }
    int const tasks = (input.count + indicesPerTask - 1) / indicesPerTask;
    std::vector<std::int64_t> places(static_cast<std::size_t>(tasks) + 1, 0); // of their first own ones
    std::vector<std::vector<int>> chosen(static_cast<std::size_t>(tasks));
    auto const forOwn = [&](auto const & visit) {
        team.forEach(tasks, [&](int task) {
            int const begin = task * indicesPerTask;
            for (int index = begin; index < begin + std::min(indicesPerTask, input.count - begin); ++index) {
                if (isOwn(input, index))
                    visit(static_cast<std::size_t>(task), index);
            }
        });
    };
    forOwn([&](std::size_t task, int) { ++places[task + 1]; });
    places[0] = input.peers->samplesBefore();
    std::partial_sum(places.begin(), places.end(), places.begin());
    forOwn([&](std::size_t task, int index) {
        if (places[task]++ % stride == 0)
            chosen[task].push_back(index);
    });
    for (std::vector<int> const & some : chosen)
        indices.insert(indices.end(), some.begin(), some.end());
    return indices;
}

double SampleSurface::coherenceAt(Level const & level, double const * point, MomentLattice::Cursor & cursor)
{
    double place[3];
    if (!level.frame.placeOf(point, place))
        return 1.0;
    Moments sums;
    cursor.sum(level.lattice, MomentLattice::Window(place), sums);
    float const(&of)[8] = sums.of;
    if (!(of[0] > 0.0f))
        return 1.0;
    return std::sqrt(double(of[1]) * of[1] + double(of[2]) * of[2] + double(of[3]) * of[3]) / of[0];
}

// A lattice finer than the ladder, of the samples around which the normals spread, if leaving out says that
// it serves them better than the finest of the ladder.
void SampleSurface::refineCreases(Input const & input, int depth, QzBackend::LoopTeam & team)
{
    if (m_levels.size() < 2)
        return;
    std::vector<int> tests;
    MomentLattice::Cursor finest;
    for (int const index : someOwn(input, team)) {
        double foot[3];
        footOf(input, index, foot);
        if (coherenceAt(*m_levels[0], foot, finest) < creaseCoherence)
            tests.push_back(index);
    }
    double number = static_cast<double>(tests.size());
    addUp(input, &number, 1);
    if (number < leastCreaseTests)
        return;
    std::vector<int> const around = select(input.count, team, [&](int index, MomentLattice::Cursor & wider) {
        double foot[3];
        footOf(input, index, foot);
        return coherenceAt(*m_levels[1], foot, wider) < creaseCoherence;
    });
    std::vector<std::unique_ptr<Level>> pair(2);
    pair[0] = makeLevel(input, depth, &around, team);
    pair[1] = std::move(m_levels[0]);
    std::vector<Test> const results = leaveOut(input, tests, pair, team);
    m_levels[0] = std::move(pair[1]);
    enum
    {
        finer,
        coarser,
        shares,
        good,
        count
    };
    double sums[count] = {};
    for (Test const & test : results) {
        if (!test.isGood)
            continue;
        sums[good] += 1.0;
        sums[shares] += test.ownShares[0];
        sums[finer] += test.errors[0];
        sums[coarser] += test.errors[1];
    }
    addUp(input, sums, count);
    if (sums[good] < leastCreaseTests || !(sums[finer] < sums[coarser]))
        return;
    m_creases = std::move(pair[0]);
    m_creases->meanOwnShare = sums[shares] / sums[good];
    m_creases->curvatureTerm = curvatureTerm(input.edge, m_creases->frame.cell);
}

// Finer lattices cost most, so a part of the cloud is asked first which is the finest that pays: that with
// the least left-out error, or the one before it if that is the one at `depth`.
int SampleSurface::finestDepth(Input const & input, int depth, int coarsest, QzBackend::LoopTeam & team) const
{
    if (depth <= coarsest)
        return depth;
    // Blocks of 32 cells of `depth`; the samples well inside them are left out, the others are their
    // neighbours.
    int const samplesNumber = input.count;
    double const block = 32.0;
    double const margin = 6.0;
    double const share = std::clamp(20000.0 / static_cast<double>(samplesOfAll(input)), 0.05, 1.0);
    LatticeFrame const blocks(input.origin, std::ldexp(input.cubeEdge, -depth) * block);
    auto const isProbed = [&](double const * point) {
        double place[3];
        if (!blocks.placeOf(point, place))
            return false;
        CInt3 const at(static_cast<int>(std::floor(place[0])), static_cast<int>(std::floor(place[1])),
                       static_cast<int>(std::floor(place[2])));
        return static_cast<double>(CLatticeHash::hashOf(at, depth) >> 40) < share * 0x1p24;
    };
    std::vector<int> const probed = select(samplesNumber, team, [&](int index, MomentLattice::Cursor &) {
        double foot[3];
        footOf(input, index, foot);
        return isProbed(foot);
    });
    std::vector<int> tests;
    std::copy_if(probed.begin(), probed.end(), std::back_inserter(tests), [&](int index) {
        double foot[3];
        footOf(input, index, foot);
        double place[3];
        bool isInside = isOwn(input, index) && blocks.placeOf(foot, place);
        for (double const coord : place) {
            double const inBlock = (coord - std::floor(coord)) * block;
            isInside = isInside && inBlock >= margin && inBlock < block - margin;
        }
        return isInside;
    });
    double number = static_cast<double>(tests.size());
    addUp(input, &number, 1);
    if (!(number > 0.0))
        return depth;
    std::vector<std::unique_ptr<Level>> pair(2);
    pair[1] = makeLevel(input, depth - 1, &probed, team);
    for (int tried = depth; tried < std::min(greatestDepth, coarsest + greatestLevels); ++tried) {
        pair[0] = makeLevel(input, tried, &probed, team);
        std::vector<Test> const results = leaveOut(input, tests, pair, team);
        double errors[2] = {0.0, 0.0};
        for (Test const & test : results) {
            for (int n = 0; n < 2 && test.isGood; ++n)
                errors[n] += test.errors[static_cast<std::size_t>(n)];
        }
        addUp(input, errors, 2);
        if (!(errors[0] < errors[1]))
            return tried - 1;
        pair[1] = std::move(pair[0]);
    }
    return std::min(greatestDepth, coarsest + greatestLevels) - 1;
}

void SampleSurface::footOf(Input const & input, int index, double * foot3)
{
    float const * const position = input.samples->getSampleCoords3(input.order[index]);
    for (std::size_t axis = 0; axis < 3; ++axis)
        foot3[axis] = double(position[axis]) + input.feet[index][axis];
}

std::unique_ptr<SampleSurface::Level> SampleSurface::makeLevel(Input const & input, int depth,
                                                               std::vector<int> const * indices,
                                                               QzBackend::LoopTeam & team)
{
    auto level = std::make_unique<Level>();
    level->frame = LatticeFrame(input.origin, std::ldexp(input.cubeEdge, -depth));
    LatticeFrame const & frame = level->frame;
    auto const weightOf = [&](int sample) {
        return input.weights != nullptr ? (*input.weights)[static_cast<std::size_t>(sample)] : 1.0f;
    };
    auto const indexOf = [indices](int n) {
        return indices != nullptr ? (*indices)[static_cast<std::size_t>(n)] : n;
    };
    level->lattice.build(
        indices != nullptr ? static_cast<int>(indices->size()) : input.count, MomentLattice::Payload::surface,
        [&](int n, double * place) {
            int const index = indexOf(n);
            int const sample = input.order[index];
            float const weight = weightOf(sample);
            if (!(squaredNormal(input.samples->getSampleNormal3(sample)) > 0.0) || !(weight > 0.0f) ||
                !std::isfinite(weight))
                return false;
            double foot[3];
            footOf(input, index, foot);
            return frame.placeOf(foot, place);
        },
        [&](MomentLattice::Entry const & entry, std::array<int, 3> const & brick, Moments & moments) {
            int const sample = input.order[indexOf(entry.point)];
            double normal[3];
            unitNormal(input.samples->getSampleNormal3(sample), normal);
            float const * const position = input.samples->getSampleCoords3(sample);
            double const weight = weightOf(sample);
            double place[3];
            double across = 0.0;
            for (std::size_t axis = 0; axis < 3; ++axis) {
                place[axis] = (position[axis] - frame.origin[axis]) * frame.perUnit -
                              static_cast<double>(brick[axis]) * MomentLattice::edge;
                across += normal[axis] * place[axis];
            }
            moments.of[0] = static_cast<float>(weight);
            for (int axis = 0; axis < 3; ++axis) {
                moments.of[1 + axis] = static_cast<float>(weight * normal[axis]);
                moments.of[5 + axis] = static_cast<float>(weight * place[axis]);
            }
            moments.of[4] = static_cast<float>(weight * across);
        },
        team);
    return level;
}

SampleSurface::Plane SampleSurface::planeOf(Moments const & sums, double const * local3, double cell)
{
    float const(&of)[8] = sums.of;
    Plane plane;
    plane.mass = of[0];
    double const length = std::sqrt(double(of[1]) * of[1] + double(of[2]) * of[2] + double(of[3]) * of[3]);
    if (!(plane.mass > 0.0) || !(length > 0.0))
        return plane;
    plane.coherence = length / plane.mass;
    double across = -double(of[4]);
    double overCentre = 0.0;
    for (int axis = 0; axis < 3; ++axis) {
        plane.normal[axis] = of[1 + axis] / length;
        across += local3[axis] * of[1 + axis];
        overCentre += plane.normal[axis] * (local3[axis] - of[5 + axis] / plane.mass);
    }
    plane.overPlanes = across / plane.mass * cell;
    plane.overCentre = overCentre * cell;
    return plane;
}

double SampleSurface::bestLevel(double const * errors, int levels)
{
    double const least = *std::min_element(errors, errors + levels);
    if (!(least > 0.0) || !std::isfinite(least)) // none has errors to compare, or all overflow
        return static_cast<double>(std::min_element(errors, errors + levels) - errors);
    double sum = 0.0;
    double weights = 0.0;
    for (int level = 0; level < levels; ++level) {
        double const weight = std::exp(-(errors[level] / least - 1.0) / sharpness);
        sum += weight * level;
        weights += weight;
    }
    return sum / weights;
}

// For each sample of a list, how far its height over the others lies from its own, squared, on each level.
std::vector<SampleSurface::Test> SampleSurface::leaveOut(Input const & input,
                                                         std::vector<int> const & indices,
                                                         std::vector<std::unique_ptr<Level>> const & ladder,
                                                         QzBackend::LoopTeam & team)
{
    int const tests = static_cast<int>(indices.size());
    int const levels = static_cast<int>(ladder.size());
    double const cell2 = input.deepestCell * input.deepestCell;
    std::vector<Test> results(static_cast<std::size_t>(tests));
    int const tasks = (tests + testsPerTask - 1) / testsPerTask;
    team.forEach(tasks, [&](int task) {
        std::vector<MomentLattice::Cursor> cursors(static_cast<std::size_t>(levels));
        for (int at = task * testsPerTask; at < std::min(tests, (task + 1) * testsPerTask); ++at) {
            Test & test = results[static_cast<std::size_t>(at)];
            int const index = indices[static_cast<std::size_t>(at)];
            int const sample = input.order[index];
            float const * const given = input.samples->getSampleNormal3(sample);
            float const weight =
                input.weights != nullptr ? (*input.weights)[static_cast<std::size_t>(sample)] : 1.0f;
            if (!(squaredNormal(given) > 0.0) || !(weight > 0.0f) || !std::isfinite(weight))
                continue;
            double normal[3];
            unitNormal(given, normal);
            std::array<float, 3> const & offset = input.feet[index];
            footOf(input, index, test.foot);
            double finest[3];
            if (!ladder[0]->frame.placeOf(test.foot, finest))
                continue;
            int finestGood = -1;
            for (int n = 0; n < levels; ++n) {
                std::size_t const slot = static_cast<std::size_t>(n);
                Level const & level = *ladder[slot];
                double place[3];
                level.frame.placeOf(test.foot, place);
                MomentLattice::Window const window(place);
                Moments sums;
                cursors[slot].sum(level.lattice, window, sums);
                float const share = weight * window.ownShare();
                double local[3];
                double own[3];
                double across = 0.0;
                for (std::size_t axis = 0; axis < 3; ++axis) {
                    local[axis] = place[axis] - static_cast<double>(window.brick[axis]) * MomentLattice::edge;
                    own[axis] = local[axis] - offset[axis] * level.frame.perUnit;
                    across += normal[axis] * own[axis];
                }
                sums.of[0] -= share;
                for (std::size_t axis = 0; axis < 3; ++axis) {
                    sums.of[1 + axis] -= static_cast<float>(share * normal[axis]);
                    sums.of[5 + axis] -= static_cast<float>(share * own[axis]);
                }
                sums.of[4] -= static_cast<float>(share * across);
                Plane const plane = planeOf(sums, local, level.frame.cell);
                test.ownShares[slot] = share;
                double error = -1.0;
                if (plane.mass >= leastMass * share && plane.coherence >= leastCoherence) {
                    double const height = 0.5 * (plane.overPlanes + plane.overCentre);
                    double ownHeight = 0.0;
                    for (int axis = 0; axis < 3; ++axis)
                        ownHeight += offset[static_cast<std::size_t>(axis)] * 0.5 *
                                     (normal[axis] + plane.normal[axis]);
                    error = std::min((ownHeight - height) * (ownHeight - height), cell2);
                    if (finestGood < 0)
                        finestGood = n;
                } else if (finestGood >= 0) {
                    error = std::max(4.0 * test.errors[slot - 1], 0.05 * cell2);
                }
                test.errors[slot] = static_cast<float>(error);
            }
            test.isGood = finestGood >= 0;
            for (int n = 0; n < finestGood; ++n)
                test.errors[static_cast<std::size_t>(n)] =
                    4.0f * test.errors[static_cast<std::size_t>(finestGood)];
        }
    });
    return results;
}

void SampleSurface::chooseWidths(Input const & input, QzBackend::LoopTeam & team)
{
    int const levels = static_cast<int>(m_levels.size());
    std::vector<Test> results = leaveOut(input, someOwn(input, team), m_levels, team);
    if (input.peers != nullptr)
        results = fromBytes<Test>(input.peers->gather(bytesOf(results)));
    std::array<double, greatestLevels> means{};
    std::array<double, greatestLevels> shares{};
    int good = 0;
    for (Test const & test : results) {
        if (!test.isGood)
            continue;
        ++good;
        for (std::size_t n = 0; n < static_cast<std::size_t>(levels); ++n) {
            means[n] += test.errors[n];
            shares[n] += test.ownShares[n];
        }
    }
    m_widths = Widths();
    m_widths.levels = levels;
    for (std::size_t n = 0; n < static_cast<std::size_t>(levels); ++n) {
        means[n] /= std::max(1, good);
        m_levels[n]->meanOwnShare = shares[n] / std::max(1, good);
        m_widths.cells[n] = m_levels[n]->frame.cell;
        m_widths.errors[n] = std::sqrt(means[n]);
    }
    m_widths.level = bestLevel(means.data(), levels);
    m_widths.noise = std::sqrt(*std::min_element(means.begin(), means.begin() + levels));

    m_choice = MomentLattice();
    m_choiceFrame = m_levels[static_cast<std::size_t>(std::min(coarserLevels, levels - 1))]->frame;
    if (good == 0)
        return;
    if (input.peers != nullptr) {
        double const reach = 3.0 * (m_choiceFrame.cell + input.deepestCell);
        results.erase(std::remove_if(results.begin(), results.end(),
                                     [&](Test const & test) {
                                         return !test.isGood || !input.peers->isNear(test.foot, reach);
                                     }),
                      results.end());
    }
    m_choice.build(
        static_cast<int>(results.size()), MomentLattice::Payload::plain,
        [&](int at, double * place) {
            m_choiceFrame.placeOf(results[static_cast<std::size_t>(at)].foot, place);
            return results[static_cast<std::size_t>(at)].isGood;
        },
        [&](MomentLattice::Entry const & entry, std::array<int, 3> const &, Moments & moments) {
            Test const & test = results[static_cast<std::size_t>(entry.point)];
            moments.of[0] = 1.0f;
            for (std::size_t n = 0; n < static_cast<std::size_t>(levels); ++n)
                moments.of[1 + n] = test.errors[n];
        },
        team);
    m_choice.changeNodes([&](Moments & node) {
        double errors[greatestLevels];
        for (int n = 0; n < levels; ++n) {
            std::size_t const slot = static_cast<std::size_t>(n);
            errors[n] = (node.of[1 + slot] + globalWeight * means[slot]) / (node.of[0] + globalWeight);
        }
        double const level = bestLevel(errors, levels);
        bool const isUsed = node.of[0] != 0.0f;
        node = Moments();
        node.of[0] = isUsed ? 1.0f : 0.0f;
        node.of[1] = isUsed ? static_cast<float>(level) : 0.0f;
    });
}

double SampleSurface::levelAt(double const * point, Scratch & scratch) const
{
    double place[3];
    if (m_choice.isEmpty() || !m_choiceFrame.placeOf(point, place))
        return m_widths.level;
    Moments sums;
    scratch.m_cursors[greatestLevels].sum(m_choice, MomentLattice::Window(place), sums);
    return sums.of[1] + (1.0 - sums.of[0]) * m_widths.level;
}

SampleSurface::Height SampleSurface::heightOf(double const * point, Scratch & scratch) const
{
    Sum sum;
    double finestPlace[3]; // where the others are, the coarser levels and the creases are as well
    if (!m_levels[0]->frame.placeOf(point, finestPlace))
        return Height();
    // Not a number where sums overflow.
    double const level = levelAt(point, scratch);
    double const best = level > 0.0 ? std::min(level, static_cast<double>(m_levels.size() - 1)) : 0.0;
    // A share that small is not worth the look at a level.
    std::size_t const first = static_cast<std::size_t>(best + leastShare);
    double const beyond = best - static_cast<double>(first);
    double const further = beyond > leastShare ? beyond : 0.0;
    if (m_creases != nullptr) {
        double const coherence = coherenceAt(*m_levels[0], point, scratch.m_cursors[0]);
        double const share = std::clamp((creaseCoherence - coherence) / 0.01, 0.0, 1.0);
        sum.open = share;
        if (share > 0.0)
            sum.add(*m_creases, point, scratch.m_cursors[greatestLevels + 1]);
        sum.next = (1.0 - share) * further;
        sum.open += (1.0 - share) * (1.0 - further);
    } else {
        sum.open = 1.0 - further;
        sum.next = further;
    }
    for (std::size_t n = first; n < m_levels.size() && sum.open + sum.next > leastShare; ++n) {
        sum.add(*m_levels[n], point, scratch.m_cursors[n]);
        sum.open += sum.next;
        sum.next = 0.0;
    }
    Height result;
    double const length =
        std::sqrt(sum.move[0] * sum.move[0] + sum.move[1] * sum.move[1] + sum.move[2] * sum.move[2]);
    double const factor = length > m_deepestCell ? m_deepestCell / length : 1.0;
    double const normalLength = std::sqrt(sum.normal[0] * sum.normal[0] + sum.normal[1] * sum.normal[1] +
                                          sum.normal[2] * sum.normal[2]);
    for (std::size_t axis = 0; axis < 3; ++axis) {
        result.move[axis] = std::isfinite(length) ? sum.move[axis] * factor : 0.0;
        result.normal[axis] = normalLength > 0.0 ? sum.normal[axis] / normalLength : 0.0;
    }
    return result;
}

// Takes of the open share what the samples around the point can carry.
void SampleSurface::Sum::add(Level const & level, double const * point, MomentLattice::Cursor & cursor)
{
    double place[3];
    level.frame.placeOf(point, place);
    MomentLattice::Window const window(place);
    Moments sums;
    cursor.sum(level.lattice, window, sums);
    double local[3];
    for (std::size_t axis = 0; axis < 3; ++axis)
        local[axis] = place[axis] - static_cast<double>(window.brick[axis]) * MomentLattice::edge;
    Plane const plane = planeOf(sums, local, level.frame.cell);
    double const share = open * std::min(1.0, plane.mass / level.meanOwnShare);
    if (!(share > 0.0))
        return;
    double const k = level.curvatureTerm;
    double const height = (0.5 - k) * plane.overPlanes + (0.5 + k) * plane.overCentre;
    double const fade = std::clamp((plane.coherence - 0.5) / 0.3, 0.0, 1.0);
    for (int axis = 0; axis < 3; ++axis) {
        move[axis] -= share * fade * height * plane.normal[axis];
        normal[axis] += share * fade * plane.normal[axis];
    }
    open -= share;
}

} // namespace VolTr
