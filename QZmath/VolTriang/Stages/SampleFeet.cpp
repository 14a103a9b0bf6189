// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Stages/SampleFeet.h>

#include <QZmath/Backend/Parallel.h>
#include <QZmath/VolTriang/Octree.h>
#include <QZmath/VolTriang/Stages/CloudPeers.h>
#include <QZmath/VolTriang/Stages/ImplicitFunction.h>
#include <QZmath/VolTriang/Stages/StageContext.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <utility>
#include <vector>

namespace VolTr
{

namespace
{

int const samplesPerTask = 256;

// The lowest 21 bits of a coordinate, two zeros between each.
std::uint64_t spread(std::uint64_t bits)
{
    bits &= 0x1fffff;
    bits = (bits | bits << 32) & 0x001f00000000ffff;
    bits = (bits | bits << 16) & 0x001f0000ff0000ff;
    bits = (bits | bits << 8) & 0x100f00f00f00f00f;
    bits = (bits | bits << 4) & 0x10c30c30c30c30c3;
    bits = (bits | bits << 2) & 0x1249249249249249;
    return bits;
}

// Leaf cells in the order of a Morton curve, in which neighbours stand close to each other.
class CellCurve
{
public:
    CellCurve(IInputSamples const & samples, COctree const & octree, CloudPeers * peers,
              QzBackend::LoopTeam & team)
        : m_samples(samples), m_octree(octree), m_peers(peers), m_team(team),
          m_droppedBits(std::max(0, octree.getLeafCellDepth() - 21)),
          m_cells(static_cast<std::size_t>(octree.getCellsNumberOnDeepestLevel()))
    {
        sort();
        findOwn();
    }

    // How many cells `up` depths above the leaves hold samples, of all holders of the cloud.
    double occupied(int up) const
    {
        int const shift = 3 * std::max(0, up - m_droppedBits);
        std::vector<int> numbers(static_cast<std::size_t>(pieces()), 0);
        forPieces([&](int piece, std::size_t begin, std::size_t end) {
            int number = 0;
            for (std::size_t n = std::max(begin, m_ownBegin); n < std::min(end, m_ownEnd); ++n)
                number += n == m_ownBegin || m_cells[n].key >> shift != m_cells[n - 1].key >> shift;
            numbers[static_cast<std::size_t>(piece)] = number;
        });
        double sum = 0.0;
        for (int const number : numbers)
            sum += number;
        return m_peers != nullptr ? joined(shift, sum) : sum;
    }

    // The samples of the cells that matter here.
    QzBackend::RawArray<int> samples() const
    {
        std::vector<std::size_t> places(static_cast<std::size_t>(pieces()) + 1, 0);
        forPieces([&](int piece, std::size_t begin, std::size_t end) {
            std::size_t number = 0;
            for (std::size_t n = begin; n < end; ++n)
                if (isNear(n))
                    number += static_cast<std::size_t>(m_octree.getSamplesEnd(m_cells[n].position) -
                                                       m_octree.getSamplesBegin(m_cells[n].position));
            places[static_cast<std::size_t>(piece) + 1] = number;
        });
        for (std::size_t piece = 1; piece < places.size(); ++piece)
            places[piece] += places[piece - 1];
        QzBackend::RawArray<int> order(places.back());
        forPieces([&](int piece, std::size_t begin, std::size_t end) {
            int * next = order.data() + places[static_cast<std::size_t>(piece)];
            for (std::size_t n = begin; n < end; ++n) {
                if (isNear(n))
                    next = std::copy(m_octree.getSamplesBegin(m_cells[n].position),
                                     m_octree.getSamplesEnd(m_cells[n].position), next);
            }
        });
        return order;
    }

private:
    struct Cell
    {
        std::uint64_t key;
        int position; // in the octree's cell index

        bool operator<(Cell const & other) const
        {
            return key != other.key ? key < other.key : position < other.position;
        }
    };

    bool isNear(std::size_t n) const
    {
        if (m_peers == nullptr || (n >= m_ownBegin && n < m_ownEnd))
            return true;
        int const sample = *m_octree.getSamplesBegin(m_cells[n].position);
        float const * const coords = m_samples.getSampleCoords3(sample);
        double const place[3] = {coords[0], coords[1], coords[2]};
        return m_peers->isNear(place, m_peers->reach() + m_octree.getUnit());
    }

    // The own cells of a holder follow each other on the curve.
    void findOwn()
    {
        m_ownEnd = m_cells.size();
        if (m_peers == nullptr)
            return;
        auto const isOwn = [&](std::size_t n) {
            return m_peers->isOwn(*m_octree.getSamplesBegin(m_cells[n].position));
        };
        while (m_ownBegin < m_ownEnd && !isOwn(m_ownBegin))
            ++m_ownBegin;
        while (m_ownEnd > m_ownBegin && !isOwn(m_ownEnd - 1))
            --m_ownEnd;
    }

    // The number of cells of all holders from that of each: the last of one may be the first of the next.
    double joined(int shift, double own) const
    {
        struct Part
        {
            double cells;
            std::uint64_t first, last;
        };
        Part part = {own, 0, 0};
        if (m_ownBegin < m_ownEnd) {
            part.first = m_cells[m_ownBegin].key >> shift;
            part.last = m_cells[m_ownEnd - 1].key >> shift;
        }
        std::vector<char> bytes(sizeof part);
        std::memcpy(bytes.data(), &part, sizeof part);
        bytes = m_peers->gather(bytes);
        double sum = 0.0;
        Part before = {0.0, 0, 0};
        for (std::size_t at = 0; at < bytes.size(); at += sizeof part) {
            std::memcpy(&part, bytes.data() + at, sizeof part);
            if (!(part.cells > 0.0))
                continue;
            sum += part.cells - (before.cells > 0.0 && before.last == part.first ? 1.0 : 0.0);
            before = part;
        }
        return sum;
    }

    static constexpr std::size_t mostPieces = 256;
    static constexpr std::size_t mostBuckets = 256;
    static constexpr std::size_t testsPerBucket = 16;

    std::size_t perPiece() const { return std::max<std::size_t>(4096, m_cells.size() / mostPieces + 1); }
    int pieces() const { return static_cast<int>((m_cells.size() + perPiece() - 1) / perPiece()); }

    template <class Body>
    void forPieces(Body const & body) const
    {
        m_team.forEach(pieces(), [&](int piece) {
            std::size_t const begin = static_cast<std::size_t>(piece) * perPiece();
            body(piece, begin, std::min(m_cells.size(), begin + perPiece()));
        });
    }

    Cell cellAt(std::size_t position) const
    {
        CInt3 const place =
            m_octree.getCellOffset(m_octree.getCellIndex().payload(static_cast<int>(position)));
        auto const bits = [&](int coord) {
            return spread(static_cast<std::uint64_t>(coord >> m_droppedBits));
        };
        return {bits(place.x()) << 2 | bits(place.y()) << 1 | bits(place.z()), static_cast<int>(position)};
    }

    // Into buckets, between whose bounds lie about as many cells each, then each bucket for itself. The order
    // is total, so it does not depend on how it is found.
    void sort()
    {
        std::size_t const tests = std::min(m_cells.size(), mostBuckets * testsPerBucket);
        std::vector<Cell> bounds(tests);
        for (std::size_t n = 0; n < tests; ++n)
            bounds[n] = cellAt(n * m_cells.size() / tests);
        std::sort(bounds.begin(), bounds.end());
        for (std::size_t n = 0; n < tests / testsPerBucket; ++n)
            bounds[n] = bounds[n * testsPerBucket];
        bounds.resize(tests / testsPerBucket);
        std::size_t const buckets = bounds.size() + 1;
        auto const bucketOf = [&](Cell const & cell) {
            return static_cast<std::size_t>(std::upper_bound(bounds.begin(), bounds.end(), cell) -
                                            bounds.begin());
        };
        // Of a piece and a bucket: how many, then where they go.
        std::vector<std::size_t> places(buckets * static_cast<std::size_t>(pieces()) + 1, 0);
        auto const placeOf = [&](std::size_t bucket, int piece) -> std::size_t & {
            return places[bucket * static_cast<std::size_t>(pieces()) + static_cast<std::size_t>(piece)];
        };
        forPieces([&](int piece, std::size_t begin, std::size_t end) {
            std::vector<std::size_t> numbers(buckets, 0);
            for (std::size_t n = begin; n < end; ++n)
                ++numbers[bucketOf(cellAt(n))];
            for (std::size_t bucket = 0; bucket < buckets; ++bucket)
                placeOf(bucket, piece) = numbers[bucket];
        });
        std::size_t sum = 0;
        std::vector<std::size_t> firstOf(1, 0);
        for (std::size_t bucket = 0; bucket < buckets; ++bucket) {
            for (int piece = 0; piece < pieces(); ++piece)
                sum += std::exchange(placeOf(bucket, piece), sum);
            firstOf.push_back(sum);
        }
        forPieces([&](int piece, std::size_t begin, std::size_t end) {
            std::vector<std::size_t> next(buckets);
            for (std::size_t bucket = 0; bucket < buckets; ++bucket)
                next[bucket] = placeOf(bucket, piece);
            for (std::size_t n = begin; n < end; ++n) {
                Cell const cell = cellAt(n);
                m_cells[next[bucketOf(cell)]++] = cell;
            }
        });
        m_team.forEach(static_cast<int>(buckets), [&](int bucket) {
            std::sort(m_cells.data() + firstOf[static_cast<std::size_t>(bucket)],
                      m_cells.data() + firstOf[static_cast<std::size_t>(bucket) + 1]);
        });
    }

    IInputSamples const & m_samples;
    COctree const & m_octree;
    CloudPeers * const m_peers;
    QzBackend::LoopTeam & m_team;
    int const m_droppedBits; // of each coordinate: the key holds 21
    QzBackend::RawArray<Cell> m_cells;
    std::size_t m_ownBegin = 0;
    std::size_t m_ownEnd = 0;
};

// From a sample to the level set below or above it, along the gradient; at most `limit`.
std::array<float, 3> footOffset(EvaluableFunction::Evaluator & evaluator, float const * coords,
                                double isoValue, double limit)
{
    double const point[3] = {coords[0], coords[1], coords[2]};
    double gradient[3];
    evaluator.gradient(point, gradient);
    double const slope2 = gradient[0] * gradient[0] + gradient[1] * gradient[1] + gradient[2] * gradient[2];
    double const height = (evaluator.value(point) - isoValue) / std::sqrt(slope2);
    double const step = std::clamp(height, -limit, limit) / std::sqrt(slope2);
    std::array<float, 3> offset{};
    if (std::isfinite(step)) {
        for (std::size_t axis = 0; axis < 3; ++axis)
            offset[axis] = static_cast<float>(-step * gradient[axis]);
    }
    return offset;
}

} // namespace

// Measured where cells hold several samples, since scans are more even than random.
double samplesPerSurfaceCell(std::function<double(int)> const & occupied, int leafDepth, double samplesNumber)
{
    int up = 0;
    double perOccupied = samplesNumber / occupied(up);
    while (perOccupied < 4.0 && up < leafDepth) {
        ++up;
        perOccupied = samplesNumber / occupied(up);
    }
    double mean = perOccupied;
    for (int step = 0; step < 100; ++step)
        mean = perOccupied * (1.0 - std::exp(-mean));
    return std::ldexp(mean, -2 * up);
}

SampleFeet::SampleFeet(StageContext const & context, EvaluableFunction const & function, double isoValue,
                       QzBackend::LoopTeam & team, double until, CloudPeers * peers)
{
    COctree const & octree = context.octree;
    {
        CellCurve const curve(context.samples, octree, peers, team);
        double const samplesNumber =
            static_cast<double>(peers != nullptr ? peers->samples() : context.samples.pointsNumber());
        samplesPerLeafCell = samplesPerSurfaceCell([&](int up) { return curve.occupied(up); },
                                                   octree.getLeafCellDepth(), samplesNumber);
        order = curve.samples();
    }
    offsets = QzBackend::RawArray<std::array<float, 3>>(order.size());
    double const limit = octree.getCellSize(octree.getNodeDepthEnd() - 1);
    std::vector<std::unique_ptr<EvaluableFunction::Evaluator>> evaluators(
        static_cast<std::size_t>(team.threads()));
    int const tasks = static_cast<int>((order.size() + samplesPerTask - 1) / samplesPerTask);
    team.forEachOnSlot(
        tasks,
        [&](int slot, int task) {
            auto & evaluator = evaluators[static_cast<std::size_t>(slot)];
            if (evaluator == nullptr)
                evaluator = function.makeEvaluator(4.0 * limit);
            std::size_t const begin = static_cast<std::size_t>(task) * samplesPerTask;
            for (std::size_t n = begin; n < std::min(order.size(), begin + samplesPerTask); ++n)
                offsets[n] =
                    footOffset(*evaluator, context.samples.getSampleCoords3(order[n]), isoValue, limit);
        },
        until);
}

} // namespace VolTr
