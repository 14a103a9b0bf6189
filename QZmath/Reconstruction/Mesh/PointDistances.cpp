// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Reconstruction/Mesh/PointDistances.h>

#include <QZmath/Reconstruction/Mesh/MeshTopology.h>
#include <QZmath/Reconstruction/Mesh/Ranges.h>
#include <QZmath/Reconstruction/Mesh/SampleIndex.h>

#include <algorithm>
#include <atomic>

namespace QZmath::Stages
{

std::vector<std::uint8_t> farPoints(std::vector<float> const & positions, TriangleMesh const & mesh,
                                    double distance, QzBackend::LoopTeam & team, double until)
{
    SampleIndex const points(positions.data(), positions.size() / 3, team);
    std::vector<std::atomic<std::uint8_t>> isNear(points.size());
    for (std::atomic<std::uint8_t> & mark : isNear)
        mark.store(0, std::memory_order_relaxed);
    double const bound = distance * distance;
    double const reach = distance * (1 + 1e-9); // of what boxes are judged by
    forRanges(
        team, mesh.triangleCount(), 256,
        [&](std::size_t begin, std::size_t end) {
            for (std::size_t t = begin; t < end; ++t) {
                Triangle const triangle = triangleOf(mesh, t);
                Vec least, greatest;
                for (std::size_t axis = 0; axis < 3; ++axis) {
                    least[axis] = std::min({triangle.a[axis], triangle.b[axis], triangle.c[axis]}) - reach;
                    greatest[axis] = std::max({triangle.a[axis], triangle.b[axis], triangle.c[axis]}) + reach;
                }
                points.forEachInBoxes(
                    [&](Vec const & low, Vec const & high) {
                        for (std::size_t axis = 0; axis < 3; ++axis) {
                            if (low[axis] > greatest[axis] || high[axis] < least[axis])
                                return false;
                        }
                        // Around a large triangle much lies in its box that is not near it.
                        double const most = reach + 0.5 * (high - low).length() * (1 + 1e-9);
                        return squaredDistance((low + high) * 0.5, triangle) <= most * most;
                    },
                    [&](std::int32_t point, Vec const & place) {
                        std::atomic<std::uint8_t> & mark = isNear[at(point)];
                        if (mark.load(std::memory_order_relaxed) == 0 &&
                            squaredDistance(place, triangle) <= bound)
                            mark.store(1, std::memory_order_relaxed);
                    });
            }
        },
        until);
    std::vector<std::uint8_t> isFar(points.size());
    for (std::size_t n = 0; n < isFar.size(); ++n)
        isFar[n] = isNear[n].load(std::memory_order_relaxed) == 0;
    return isFar;
}

std::size_t samplesFarFromMesh(SampleIndex const & samples, TriangleMesh const & mesh, double distance,
                               QzBackend::LoopTeam & team, double until)
{
    std::vector<std::uint8_t> isOpen(samples.size());
    {
        SampleIndex const vertices(mesh.positions.data(), mesh.vertexCount(), team);
        forRanges(
            team, isOpen.size(), 512,
            [&](std::size_t begin, std::size_t end) {
                std::int32_t hint = SampleIndex::none;
                for (std::size_t slot = begin; slot < end; ++slot) {
                    std::int32_t const found =
                        vertices.anyWithin(samples.positionOf(samples.sampleAt(slot)), distance, hint);
                    isOpen[slot] = found == SampleIndex::none;
                    hint = isOpen[slot] ? hint : found;
                }
            },
            until);
    }
    std::vector<float> open;
    for (std::size_t slot = 0; slot < isOpen.size(); ++slot) {
        if (isOpen[slot]) {
            open.resize(open.size() + 3);
            samples.positionOf(samples.sampleAt(slot)).store(&open[open.size() - 3]);
        }
    }
    if (open.empty())
        return 0;
    std::vector<std::uint8_t> const isFar = farPoints(open, mesh, distance, team);
    return static_cast<std::size_t>(std::count(isFar.begin(), isFar.end(), 1));
}

} // namespace QZmath::Stages
