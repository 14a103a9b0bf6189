// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Stages/SampleFeet.h>

#include <QZmath/Backend/Parallel.h>
#include <QZmath/VolTriang/Octree.h>
#include <QZmath/VolTriang/Stages/ImplicitFunction.h>
#include <QZmath/VolTriang/Stages/StageContext.h>

#include <algorithm>
#include <cmath>
#include <cstdint>

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
struct CellCurve
{
    struct Cell
    {
        std::uint64_t key;
        int position; // in the octree's cell index
    };
    std::vector<Cell> cells;
    int droppedBits; // of each coordinate: the key holds 21

    explicit CellCurve(COctree const & octree) : droppedBits(std::max(0, octree.getLeafCellDepth() - 21))
    {
        int const count = octree.getCellsNumberOnDeepestLevel();
        cells.reserve(static_cast<std::size_t>(count));
        for (int position = 0; position < count; ++position) {
            CInt3 const place = octree.getCellOffset(octree.getCellIndex().payload(position));
            auto const bits = [&](int coord) {
                return spread(static_cast<std::uint64_t>(coord >> droppedBits));
            };
            cells.push_back({bits(place.x()) << 2 | bits(place.y()) << 1 | bits(place.z()), position});
        }
        std::sort(cells.begin(), cells.end(), [](Cell const & a, Cell const & b) {
            return a.key != b.key ? a.key < b.key : a.position < b.position;
        });
    }

    // How many cells `up` depths above the leaves hold samples.
    double occupied(int up) const
    {
        int const shift = 3 * std::max(0, up - droppedBits);
        double number = 0.0;
        for (std::size_t n = 0; n < cells.size(); ++n) {
            if (n == 0 || cells[n].key >> shift != cells[n - 1].key >> shift)
                ++number;
        }
        return number;
    }
};

// Samples per leaf cell of the surface, occupied or not: of random points with a mean of rho a cell, the
// cells that have any hold rho / (1 - exp(-rho)). Measured where cells hold several, since scans are more
// even than random.
double samplesPerSurfaceCell(CellCurve const & curve, int leafDepth, double samplesNumber)
{
    int up = 0;
    double perOccupied = samplesNumber / curve.occupied(up);
    while (perOccupied < 4.0 && up < leafDepth) {
        ++up;
        perOccupied = samplesNumber / curve.occupied(up);
    }
    double mean = perOccupied;
    for (int step = 0; step < 100; ++step)
        mean = perOccupied * (1.0 - std::exp(-mean));
    return std::ldexp(mean, -2 * up);
}

// From a sample to the level set below or above it, along the gradient; at most `limit`.
std::array<float, 3> footOffset(ImplicitFunction::Evaluator & evaluator, float const * coords,
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

SampleFeet::SampleFeet(StageContext const & context, ImplicitFunction const & function, double isoValue,
                       QzBackend::LoopTeam & team, double until)
    : order(static_cast<std::size_t>(context.samples.pointsNumber())), offsets(order.size())
{
    COctree const & octree = context.octree;
    CellCurve const curve(octree);
    samplesPerLeafCell =
        samplesPerSurfaceCell(curve, octree.getLeafCellDepth(), static_cast<double>(order.size()));
    int * next = order.data();
    for (CellCurve::Cell const & cell : curve.cells)
        next = std::copy(octree.getSamplesBegin(cell.position), octree.getSamplesEnd(cell.position), next);
    double const limit = octree.getCellSize(octree.getNodeDepthEnd() - 1);
    std::vector<std::unique_ptr<ImplicitFunction::Evaluator>> evaluators(
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
