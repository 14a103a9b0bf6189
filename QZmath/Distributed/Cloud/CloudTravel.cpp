// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Distributed/Cloud/CloudTravel.h>

#include <QZmath/Backend/Parallel.h>
#include <QZmath/Reconstruction/Cloud/DepthChoice.h>
#include <QZmath/Reconstruction/Cloud/LocalCloud.h>
#include <QZmath/Reconstruction/Reconstruction.h>
#include <QZmath/SurfaceAnalysis/CloudNormals.h>

#include <QZsys/ParallelTasks.h>

#include <algorithm>
#include <limits>
#include <map>
#include <numeric>
#include <string>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

namespace QZmath::Distributed
{

namespace
{

using Kind = ReconstructionError::Kind;
using Keys = std::vector<std::uint64_t>;

// Deepest octree whose leaf cells have keys of 64 bits.
int const greatestDepth = 21;
// A rank has at most so many times its share of samples and of leaf cells, if units allow that.
double const wantedBalance = 1.1;
// Depths whose bricks are larger than a unit stand on every rank, and the finest of these has a quarter as
// many bricks as there are units, on a surface.
std::int64_t const mostUnits = std::int64_t{1} << 17;
// Leaf cells that a rank counts at most, nearly: of more cells it counts those of some hash values.
std::int64_t const mostCountedCells = std::int64_t{1} << 22;
// Samples that a rank sends in a round.
std::size_t const samplesPerRound = std::size_t{1} << 18;
int const samplesPerChunk = 1 << 15;
// Leaf cells with samples in one of the deepest units, of 16 along each axis, on average over those that have
// any, where a surface has samples in most of its leaf cells.
std::int64_t const cellsOfFullUnit = 96;

// A sample on its way.
struct Sample
{
    float position[3];
    float normal[3];
    std::uint8_t color[3];
    std::uint8_t isOwn;
};
static_assert(sizeof(Sample) == 28 && std::is_trivially_copyable_v<Sample>);

// Numbers that are as good as random, the same on all ranks.
std::uint64_t hashOf(std::uint64_t key)
{
    key = (key ^ key >> 30) * UINT64_C(0xbf58476d1ce4e5b9);
    key = (key ^ key >> 27) * UINT64_C(0x94d049bb133111eb);
    return key ^ key >> 31;
}

// Samples and leaf cells of a unit.
struct Unit
{
    std::uint64_t key;
    std::int64_t samples;
    std::int64_t cells;
};

// Units in ascending order, each once.
void mergeUnits(std::vector<Unit> & units)
{
    std::sort(units.begin(), units.end(), [](Unit const & a, Unit const & b) { return a.key < b.key; });
    std::size_t kept = 0;
    for (Unit const & unit : units) {
        if (kept > 0 && units[kept - 1].key == unit.key) {
            units[kept - 1].samples += unit.samples;
            units[kept - 1].cells += unit.cells;
        } else {
            units[kept++] = unit;
        }
    }
    units.resize(kept);
}

// The points that this rank was given, as all ranks agree to see them.
class LocalPoints
{
public:
    LocalPoints(Communicator const & communicator, PointCloudView const & points, std::int64_t firstNumber,
                DistributedOptions const & options, CloudFrame & frame, DistributedReport & report)
        : m_communicator(communicator), m_points(points)
    {
        checkArrays(firstNumber, options.hasViewpoint);
        settleFrame(firstNumber, frame);
        if (m_hasNormals)
            settleNormals(firstNumber);
        settleColors(options.vertexColors, report);
        refuseWithoutArea();
        settleBounds(frame);
        report.samples = m_total;
    }

    std::size_t size() const { return m_points.size; }
    std::int64_t total() const { return m_total; }
    LocalFrame const & frame() const { return m_frame; }
    double extent() const { return m_extent; } // local
    bool hasColors() const { return m_hasColors; }
    bool hasNormals() const { return m_hasNormals; } // else all are 0

    void placeOf(std::size_t point, float * place) const
    {
        for (std::size_t axis = 0; axis < 3; ++axis) {
            std::size_t const at = 3 * point + axis;
            place[axis] =
                m_frame.toLocal(m_points.positions != nullptr ? static_cast<double>(m_points.positions[at])
                                                              : m_points.positions64[at],
                                axis);
        }
    }
    Sample sampleOf(std::size_t point) const
    {
        Sample sample{};
        placeOf(point, sample.position);
        float const * const normal = m_points.normals + 3 * point;
        if (m_areNormalsUnits)
            std::copy(normal, normal + 3, sample.normal);
        else if (m_hasNormals)
            makeUnit(normal, sample.normal);
        if (m_hasColors)
            std::copy_n(m_points.colors + 3 * point, 3, sample.color);
        return sample;
    }

private:
    void checkArrays(std::int64_t firstNumber, bool mayLackNormals)
    {
        std::int64_t const with =
            m_communicator.sum(std::int64_t{m_points.size > 0 && m_points.normals != nullptr});
        m_hasNormals = with > 0 || !mayLackNormals;
        m_communicator.together([&] {
            if (m_points.size == 0)
                return;
            checkPositionArrays(m_points);
            if (firstNumber < 0)
                throw ReconstructionError(Kind::options, "the points have negative numbers");
            if (m_points.normals == nullptr && with > 0)
                throw ReconstructionError(Kind::input, "only some of the points have normals");
            if (m_points.normals == nullptr && !mayLackNormals)
                throw ReconstructionError(Kind::input,
                                          "the cloud has no normals, and no rank sees enough of it to make "
                                          "them without a viewpoint");
        });
        m_total = m_communicator.sum(static_cast<std::int64_t>(m_points.size));
        m_communicator.together([&] {
            if (m_total == 0)
                throw ReconstructionError(Kind::input, "the cloud has no points");
        });
    }

    void settleFrame(std::int64_t firstNumber, CloudFrame & frame)
    {
        CloudBox box;
        m_communicator.together([&] {
            if (m_points.size > 0)
                box = boxOf(m_points, firstNumber);
        });
        for (std::size_t axis = 0; axis < 3; ++axis) {
            box.low[axis] = m_communicator.least(box.low[axis]);
            box.high[axis] = m_communicator.greatest(box.high[axis]);
        }
        m_communicator.together([&] { m_frame = frameOf(box); });
        m_extent = box.extent() * m_frame.scale;
        frame.origin = m_frame.origin;
        frame.scale = m_frame.scale;
    }

    void settleNormals(std::int64_t firstNumber)
    {
        NormalsState state;
        m_communicator.together([&] {
            if (m_points.size > 0)
                state = checkNormals(m_points, firstNumber);
        });
        m_areNormalsUnits = m_communicator.least(std::int64_t{state.areUnits}) != 0;
        bool const areZero = m_communicator.least(std::int64_t{state.areZero}) != 0;
        m_communicator.together([&] {
            if (areZero)
                throw ReconstructionError(Kind::input, "the cloud has no normals: all are zero");
        });
    }

    void settleColors(bool areWanted, DistributedReport & report)
    {
        std::int64_t const with =
            m_communicator.sum(std::int64_t{m_points.size > 0 && m_points.colors != nullptr});
        std::int64_t const all = m_communicator.sum(std::int64_t{m_points.size > 0});
        m_hasColors = areWanted && with == all;
        if (areWanted && with > 0 && with < all)
            report.warnings.push_back("only some of the points have colours, so the mesh gets none");
    }

    void refuseWithoutArea()
    {
        CloudScatter scatter(m_total, m_extent);
        m_communicator.together([&] { scatter.refuseWithoutExtent(); });
        float place[3];
        for (std::size_t i = 0; i < size(); ++i) {
            placeOf(i, place);
            scatter.addToMean(place);
        }
        for (double & sum : scatter.sum)
            sum = m_communicator.sum(sum);
        for (std::size_t i = 0; i < size(); ++i) {
            placeOf(i, place);
            scatter.addAroundMean(place);
        }
        for (auto & row : scatter.scatter)
            for (double & sum : row)
                sum = m_communicator.sum(sum);
        m_communicator.together([&] { scatter.refuseLine(); });
    }

    void settleBounds(CloudFrame & frame) const
    {
        CloudBox box;
        float place[3];
        for (std::size_t i = 0; i < size(); ++i) {
            placeOf(i, place);
            for (std::size_t axis = 0; axis < 3; ++axis) {
                box.low[axis] = std::min(box.low[axis], static_cast<double>(place[axis]));
                box.high[axis] = std::max(box.high[axis], static_cast<double>(place[axis]));
            }
        }
        for (std::size_t axis = 0; axis < 3; ++axis) {
            frame.least[axis] = m_communicator.least(box.low[axis]);
            frame.most[axis] = m_communicator.greatest(box.high[axis]);
        }
    }

    Communicator const & m_communicator;
    PointCloudView const & m_points;
    std::int64_t m_total = 0;
    LocalFrame m_frame;
    double m_extent = 0.0;
    bool m_hasNormals = true;
    bool m_areNormalsUnits = false;
    bool m_hasColors = false;
};

int depthOf(LocalPoints const & points, DistributedOptions const & options)
{
    int const depth = options.depth > 0
                          ? options.depth
                          : depthOfCellSize(points.frame(), points.extent(), options.cellSize, greatestDepth);
    if (depth < 2 || depth > greatestDepth)
        throw ReconstructionError(Kind::options,
                                  "depth " + std::to_string(depth) + " is out of range: 2 to 21");
    return depth;
}

// Places of leaf cells on the curve; those of the units around them are their first bits.
class LeafKeys
{
public:
    explicit LeafKeys(CloudFrame const & frame) : m_cube(treeCubeOf(frame)), m_leaves(frame.depth, {}) {}

    std::array<int, 3> cellOf(float const * place) const
    {
        VolTr::CInt3 const cell = m_cube.cellOf(place);
        return {cell.x(), cell.y(), cell.z()};
    }
    std::uint64_t keyOf(float const * place) const { return m_leaves.keyOf(cellOf(place)); }

private:
    VolTr::TreeCube m_cube;
    Partition m_leaves;
};

// Calls body(i) for all numbers below `count` on the threads of the rank.
template <class Body>
void forAll(std::size_t count, Body const & body)
{
    auto const chunks = static_cast<int>((count + samplesPerChunk - 1) / samplesPerChunk);
    QzBackend::LoopTeam::run(
        CVescaThreadingTasksHelper::getNumOfPhisicalThread(), nullptr, [&](QzBackend::LoopTeam & team) {
            team.forEach(chunks, [&](int chunk) {
                std::size_t const begin = static_cast<std::size_t>(chunk) * samplesPerChunk;
                for (std::size_t i = begin; i < std::min(count, begin + samplesPerChunk); ++i)
                    body(i);
            });
        });
}

// Sends each thing to the rank that its key falls to, evenly for any cloud, and gives those of this rank.
template <class T, class KeyOf>
std::vector<T> scattered(Communicator const & communicator, std::vector<T> const & things,
                         KeyOf const & keyOf)
{
    std::vector<std::vector<T>> toRanks(static_cast<std::size_t>(communicator.size()));
    communicator.together([&] {
        for (T const & thing : things)
            toRanks[hashOf(keyOf(thing)) % toRanks.size()].push_back(thing);
    });
    return communicator.exchange(toRanks);
}

// Counts samples and leaf cells by cells of the depth of the deepest units. Each unit is on one rank.
std::vector<Unit> countUnits(Communicator const & communicator, Keys keys, std::int64_t total, int shift)
{
    // A cell counts once, whichever ranks have samples in it. Where there are too many to send, those of
    // some hash values stand for all.
    int hashBits = 0;
    while (total >> hashBits > mostCountedCells * communicator.size())
        ++hashBits;
    std::vector<Unit> units;
    Keys cells;
    communicator.together([&] {
        std::sort(keys.begin(), keys.end());
        for (std::uint64_t const key : keys) {
            if (units.empty() || units.back().key != key >> shift)
                units.push_back({key >> shift, 0, 0});
            ++units.back().samples;
        }
        keys.erase(std::unique(keys.begin(), keys.end()), keys.end());
        // The low bits choose the rank.
        std::copy_if(keys.begin(), keys.end(), std::back_inserter(cells),
                     [&](std::uint64_t key) { return hashBits == 0 || hashOf(key) >> (64 - hashBits) == 0; });
        keys = Keys();
    });
    cells = scattered(communicator, cells, [](std::uint64_t key) { return key; });
    communicator.together([&] {
        std::sort(cells.begin(), cells.end());
        cells.erase(std::unique(cells.begin(), cells.end()), cells.end());
        for (std::uint64_t const key : cells) {
            if (units.empty() || units.back().key != key >> shift)
                units.push_back({key >> shift, 0, 0});
            units.back().cells += std::int64_t{1} << hashBits;
        }
        mergeUnits(units);
    });
    units = scattered(communicator, units, [](Unit const & unit) { return unit.key; });
    communicator.together([&] { mergeUnits(units); });
    return units;
}

// The most of a rank over the mean.
double balanceOf(std::vector<std::int64_t> const & perRank)
{
    double const total =
        static_cast<double>(std::accumulate(perRank.begin(), perRank.end(), std::int64_t{0}));
    double const most = static_cast<double>(*std::max_element(perRank.begin(), perRank.end()));
    return total > 0.0 ? most * static_cast<double>(perRank.size()) / total : 1.0;
}

// Cuts the curve through units in ascending order; gives the larger one of both balances.
Partition cut(std::vector<Unit> const & units, int unitDepth, int ranks, double & balance)
{
    double samples = 0.0, cells = 0.0;
    for (Unit const & unit : units) {
        samples += static_cast<double>(unit.samples);
        cells += static_cast<double>(unit.cells);
    }
    Keys keys;
    std::vector<double> weights;
    for (Unit const & unit : units) {
        keys.push_back(unit.key);
        weights.push_back(static_cast<double>(unit.samples) / samples +
                          (cells > 0.0 ? static_cast<double>(unit.cells) / cells : 0.0));
    }
    Partition partition(unitDepth, Partition::split(keys, weights, ranks));
    std::vector<std::int64_t> samplesOf(static_cast<std::size_t>(ranks)), cellsOf(samplesOf);
    for (Unit const & unit : units) {
        auto const owner = static_cast<std::size_t>(partition.ownerOfKey(unit.key));
        samplesOf[owner] += unit.samples;
        cellsOf[owner] += unit.cells;
    }
    balance = std::max(balanceOf(samplesOf), balanceOf(cellsOf));
    return partition;
}

// The coarsest units that balance well, or else the coarsest that others balance hardly better than: samples
// and leaf cells may not be balanced at the same time.
Partition choosePartition(Communicator const & communicator, std::vector<Unit> const & deepest,
                          int deepestDepth)
{
    std::optional<Partition> best;
    double leastBalance = std::numeric_limits<double>::infinity();
    int inVain = 0;
    for (int depth = 0; depth <= deepestDepth; ++depth) {
        std::vector<Unit> units;
        communicator.together([&] {
            units = deepest;
            for (Unit & unit : units)
                unit.key >>= 3 * (deepestDepth - depth);
            mergeUnits(units);
        });
        units = scattered(communicator, units, [](Unit const & unit) { return unit.key; });
        communicator.together([&] { mergeUnits(units); });
        if (communicator.sum(static_cast<std::int64_t>(units.size())) > mostUnits)
            break;
        units = communicator.gatherToAll(units);
        communicator.together([&] {
            mergeUnits(units);
            double balance = 0.0;
            Partition partition = cut(units, depth, communicator.size(), balance);
            ++inVain;
            if (balance < 0.98 * leastBalance) {
                best.emplace(std::move(partition));
                leastBalance = balance;
                inVain = 0;
            }
        });
        if (leastBalance <= wantedBalance || (leastBalance < 1.5 && inVain >= 3))
            break;
    }
    return *best;
}

// By the deepest units of all ranks. Those of normals that are still to be estimated must have neighbours
// themselves.
Margins marginsFor(Communicator const & communicator, std::vector<Unit> const & units, int leafDepths,
                   LocalPoints const & points)
{
    std::int64_t const occupied = communicator.sum(static_cast<std::int64_t>(units.size()));
    std::int64_t const cells = communicator.sum(
        std::accumulate(units.begin(), units.end(), std::int64_t{0},
                        [](std::int64_t sum, Unit const & unit) { return sum + unit.cells; }));
    bool const isFull = leafDepths == unitsAboveLeaves && cells >= cellsOfFullUnit * occupied;
    return isFull && points.hasNormals() ? narrowMargins : wideMargins;
}

// Tells for each sample which ranks get it: lists of ranks, the owner first, of which there are few.
class Destinations
{
public:
    /// \param margin in leaf cells, at most that of `wideMargins`
    Destinations(Partition const & partition, int depth, int margin)
        : m_partition(partition), m_depth(depth), m_margin(margin), m_shift(depth - partition.unitDepth())
    {}

    std::vector<int> const & operator[](std::uint32_t list) const { return m_lists[list]; }

    std::uint32_t listOf(std::array<int, 3> const & cell)
    {
        // What is in reach of a cell depends on its unit, and for each axis on which neighbours are.
        std::array<int, 3> unit, low, high;
        std::uint64_t reach = 0;
        int const last = (1 << m_depth) - 1;
        for (std::size_t axis = 0; axis < 3; ++axis) {
            unit[axis] = cell[axis] >> m_shift;
            low[axis] = std::max(cell[axis] - m_margin, 0) >> m_shift;
            high[axis] = std::min(cell[axis] + m_margin, last) >> m_shift;
            reach = 9 * reach +
                    static_cast<std::uint64_t>(3 * (unit[axis] - low[axis]) + high[axis] - unit[axis]);
        }
        static_assert(wideMargins.samples >> unitsAboveLeaves <= 2, "0 to 2 units to either side");
        std::uint64_t const key = m_partition.keyOf(unit) << 10 | reach;
        if (key == m_lastKey)
            return m_lastList;
        auto const [place, isNew] = m_listOf.try_emplace(key, 0U);
        if (isNew)
            place->second = makeList(unit, low, high);
        m_lastKey = key;
        return m_lastList = place->second;
    }

private:
    std::uint32_t makeList(std::array<int, 3> const & unit, std::array<int, 3> const & low,
                           std::array<int, 3> const & high)
    {
        std::vector<int> ranks;
        int const owner = m_partition.ownerOfUnit(unit);
        for (int x = low[0]; x <= high[0]; ++x)
            for (int y = low[1]; y <= high[1]; ++y)
                for (int z = low[2]; z <= high[2]; ++z)
                    ranks.push_back(m_partition.ownerOfUnit({x, y, z}));
        std::sort(ranks.begin(), ranks.end());
        ranks.erase(std::unique(ranks.begin(), ranks.end()), ranks.end());
        std::rotate(ranks.begin(), std::find(ranks.begin(), ranks.end(), owner), ranks.end());
        auto const next = static_cast<std::uint32_t>(m_lists.size());
        auto const [place, isNew] = m_numbers.try_emplace(ranks, next);
        if (isNew)
            m_lists.push_back(std::move(ranks));
        return place->second;
    }

    Partition const & m_partition;
    int m_depth, m_margin, m_shift;
    std::unordered_map<std::uint64_t, std::uint32_t> m_listOf;
    std::map<std::vector<int>, std::uint32_t> m_numbers;
    std::vector<std::vector<int>> m_lists;
    std::uint64_t m_lastKey = ~std::uint64_t{0};
    std::uint32_t m_lastList = 0;
};

// The samples that arrive, each in its place.
class Arrivals
{
public:
    explicit Arrivals(RankCloud & cloud) : m_cloud(cloud) {}

    // `counts` and `firstNumbers` of what comes from each rank.
    void makeRoom(std::vector<std::int64_t> const & counts, std::vector<std::int64_t> const & firstNumbers,
                  bool hasColors)
    {
        m_next.resize(counts.size());
        std::vector<std::size_t> order(counts.size());
        std::iota(order.begin(), order.end(), std::size_t{0});
        std::stable_sort(order.begin(), order.end(),
                         [&](std::size_t a, std::size_t b) { return firstNumbers[a] < firstNumbers[b]; });
        std::int64_t total = 0;
        for (std::size_t const from : order) {
            m_next[from] = static_cast<std::size_t>(total);
            total += counts[from];
        }
        if (total > std::numeric_limits<int>::max())
            throw ReconstructionError(Kind::memory, "it would get " + std::to_string(total) +
                                                        " samples, more than 2147483647; run on more ranks");
        auto const size = static_cast<std::size_t>(total);
        m_cloud.positions.resize(3 * size);
        m_cloud.normals.resize(3 * size);
        m_cloud.colors.resize(hasColors ? 3 * size : 0);
        m_cloud.isOwn.resize(size);
    }

    void take(std::vector<Sample> const & samples, std::vector<std::size_t> const & counts)
    {
        std::size_t at = 0;
        for (std::size_t from = 0; from < counts.size(); ++from) {
            for (std::size_t n = 0; n < counts[from]; ++n)
                put(samples[at++], m_next[from]++);
        }
    }

private:
    void put(Sample const & sample, std::size_t place)
    {
        std::copy_n(sample.position, 3, m_cloud.positions.begin() + static_cast<std::ptrdiff_t>(3 * place));
        std::copy_n(sample.normal, 3, m_cloud.normals.begin() + static_cast<std::ptrdiff_t>(3 * place));
        if (!m_cloud.colors.empty())
            std::copy_n(sample.color, 3, m_cloud.colors.begin() + static_cast<std::ptrdiff_t>(3 * place));
        m_cloud.isOwn[place] = sample.isOwn;
    }

    RankCloud & m_cloud;
    std::vector<std::size_t> m_next; // place for the next sample of each rank
};

RankCloud travel(Communicator const & communicator, LocalPoints const & points, std::int64_t firstNumber,
                 LeafKeys const & leaves, Partition const & partition, int depth, Margins const & margins)
{
    Destinations destinations(partition, depth, margins.samples);
    std::vector<std::uint32_t> lists; // of each sample
    std::vector<std::vector<std::int64_t>> counts;
    std::vector<std::vector<Sample>> toRanks;
    communicator.together([&] {
        auto const ranks = static_cast<std::size_t>(communicator.size());
        counts.assign(ranks, {0});
        toRanks.resize(ranks);
        lists.resize(points.size());
        for (std::size_t i = 0; i < lists.size(); ++i) {
            float place[3];
            points.placeOf(i, place);
            lists[i] = destinations.listOf(leaves.cellOf(place));
            for (int const rank : destinations[lists[i]])
                ++counts[static_cast<std::size_t>(rank)][0];
        }
    });
    std::vector<std::int64_t> const arriving = communicator.exchange(counts);
    std::vector<std::int64_t> const firstNumbers = communicator.all(firstNumber);
    RankCloud cloud;
    Arrivals arrivals(cloud);
    communicator.together([&] { arrivals.makeRoom(arriving, firstNumbers, points.hasColors()); });
    cloud.total = points.total();
    cloud.margins = margins;

    auto const most =
        static_cast<std::size_t>(communicator.greatest(static_cast<std::int64_t>(points.size())));
    for (std::size_t begin = 0; begin < most; begin += samplesPerRound) {
        communicator.together([&] {
            for (auto & samples : toRanks)
                samples.clear();
            for (std::size_t i = begin; i < std::min(begin + samplesPerRound, points.size()); ++i) {
                Sample sample = points.sampleOf(i);
                sample.isOwn = 1; // at the first one of the list, the owner
                for (int const rank : destinations[lists[i]]) {
                    toRanks[static_cast<std::size_t>(rank)].push_back(sample);
                    sample.isOwn = 0;
                }
            }
        });
        std::vector<std::size_t> came;
        std::vector<Sample> const samples = communicator.exchange(toRanks, &came);
        arrivals.take(samples, came);
    }
    return cloud;
}

void reportBalance(Communicator const & communicator, RankCloud const & cloud, LeafKeys const & leaves,
                   DistributedReport & report)
{
    Keys keys;
    communicator.together([&] {
        for (std::size_t i = 0; i < cloud.size(); ++i) {
            if (cloud.isOwn[i] != 0)
                keys.push_back(leaves.keyOf(cloud.positions.data() + 3 * i));
        }
    });
    report.sampleBalance = balanceOf(communicator.all(static_cast<std::int64_t>(keys.size())));
    std::sort(keys.begin(), keys.end());
    std::int64_t const cells = std::unique(keys.begin(), keys.end()) - keys.begin();
    report.leafCells = communicator.sum(cells);
    report.cellBalance = balanceOf(communicator.all(cells));
}

} // namespace

VolTr::TreeCube treeCubeOf(CloudFrame const & frame)
{
    // Two opposite corners of the bounds, which have the same cube as all samples.
    class Corners final : public VolTr::IInputSamples
    {
    public:
        explicit Corners(CloudFrame const & bounds)
        {
            for (std::size_t axis = 0; axis < 3; ++axis) {
                m_places[axis] = static_cast<float>(bounds.least[axis]);
                m_places[3 + axis] = static_cast<float>(bounds.most[axis]);
            }
        }

    private:
        int onPointsNumber() const override { return 2; }
        float const * onGetSampleCoords3(int sample) const override { return m_places + 3 * sample; }
        float const * onGetSampleNormal3(int) const override { return nullptr; }
        bool onIsBoundaryVertex(int) const override { return false; }

        float m_places[6];
    };
    auto const policy = VolTr::makeTreePolicy(frame.depth, true, -1);
    VolTr::TreeCube cube;
    QzBackend::LoopTeam::run(1, nullptr, [&](QzBackend::LoopTeam & team) {
        cube = VolTr::makeTreeCube(Corners(frame), *policy, team);
    });
    return cube;
}

namespace
{

// Those of the margin too: its samples have neighbours enough where anybody looks at them.
void estimateNormals(Communicator const & communicator, LocalFrame const & frame,
                     DistributedOptions const & options, RankCloud & cloud)
{
    using REmath::Point3D;
    static_assert(sizeof(Point3D) == 3 * sizeof(float), "places are taken for points");
    CEstimateNormalsPrms prms;
    prms.neighbourhood.count = options.normalNeighbours;
    prms.orientation = NormalOrientation::viewpoint;
    double viewpoint[3];
    for (std::size_t axis = 0; axis < 3; ++axis)
        viewpoint[axis] = (options.viewpoint[axis] - frame.origin[axis]) * frame.scale;
    prms.viewpoint = Point3D(viewpoint);
    std::int64_t made = 0;
    communicator.together([&] {
        made = EstimateNormals(static_cast<int>(cloud.size()),
                               reinterpret_cast<Point3D const *>(cloud.positions.data()), prms,
                               reinterpret_cast<Point3D *>(cloud.normals.data()));
    });
    made = communicator.sum(made);
    communicator.together([&] {
        if (made == 0)
            throw ReconstructionError(Kind::input,
                                      "no normals can be estimated: there is no point whose nearest ones "
                                      "span a plane");
    });
}

} // namespace

RankCloud gatherCloud(Communicator const & communicator, PointCloudView const & local,
                      std::int64_t firstNumber, DistributedOptions const & options, CloudFrame & frame,
                      std::optional<Partition> & partition, DistributedReport & report)
{
    LocalPoints const points(communicator, local, firstNumber, options, frame, report);
    communicator.together([&] { frame.depth = depthOf(points, options); });
    report.depth = frame.depth;
    report.leafCell = points.frame().toCloud(leafCellOf(points.extent(), frame.depth));

    LeafKeys const leaves(frame);
    int const deepestUnits = std::max(0, frame.depth - unitsAboveLeaves);
    Keys keys;
    communicator.together([&] {
        keys.resize(points.size());
        forAll(points.size(), [&](std::size_t i) {
            float place[3];
            points.placeOf(i, place);
            keys[i] = leaves.keyOf(place);
        });
    });
    std::vector<Unit> const units =
        countUnits(communicator, std::move(keys), points.total(), 3 * (frame.depth - deepestUnits));
    partition = choosePartition(communicator, units, deepestUnits);
    report.unitDepth = partition->unitDepth();

    RankCloud cloud = travel(communicator, points, firstNumber, leaves, *partition, frame.depth,
                             marginsFor(communicator, units, frame.depth - deepestUnits, points));
    if (!points.hasNormals())
        estimateNormals(communicator, points.frame(), options, cloud);
    reportBalance(communicator, cloud, leaves, report);
    return cloud;
}

void spreadToCopies(Communicator const & communicator, RankCloud const & cloud, Partition const & partition,
                    VolTr::TreeCube const & cube, int depth, std::vector<float> & values)
{
    if (communicator.size() == 1)
        return;
    // Owner and holder have the samples in the same order.
    Destinations destinations(partition, depth, cloud.margins.samples);
    auto const destinationsOf = [&](std::size_t sample) -> std::vector<int> const & {
        VolTr::CInt3 const cell = cube.cellOf(cloud.positions.data() + 3 * sample);
        return destinations[destinations.listOf({cell.x(), cell.y(), cell.z()})];
    };
    std::vector<std::vector<float>> toRanks(static_cast<std::size_t>(communicator.size()));
    communicator.together([&] {
        for (std::size_t sample = 0; sample < cloud.size(); ++sample) {
            if (cloud.isOwn[sample] == 0)
                continue;
            for (int const rank : destinationsOf(sample)) {
                if (rank != communicator.rank())
                    toRanks[static_cast<std::size_t>(rank)].push_back(values[sample]);
            }
        }
    });
    std::vector<std::size_t> counts;
    std::vector<float> const arrived = communicator.exchange(toRanks, &counts);
    communicator.together([&] {
        std::vector<std::size_t> next(counts.size(), 0);
        for (std::size_t rank = 1; rank < next.size(); ++rank)
            next[rank] = next[rank - 1] + counts[rank - 1];
        for (std::size_t sample = 0; sample < cloud.size(); ++sample) {
            if (cloud.isOwn[sample] == 0)
                values[sample] = arrived.at(next[static_cast<std::size_t>(destinationsOf(sample).front())]++);
        }
    });
}

} // namespace QZmath::Distributed
