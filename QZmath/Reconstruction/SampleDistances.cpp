// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Reconstruction/SampleDistances.h>

#include <QZmath/Reconstruction/Mesh/Ranges.h>
#include <QZmath/Reconstruction/Mesh/SampleIndex.h>
#include <QZsys/ParallelTasks.h>

#include <cmath>
#include <limits>

namespace QZmath
{

namespace
{

std::vector<float> finitePoints(PointCloudView const & samples, std::array<double, 3> const & origin)
{
    std::vector<float> points;
    points.reserve(3 * samples.size);
    for (std::size_t i = 0; i < samples.size; ++i) {
        float place[3];
        bool isFinite = true;
        for (std::size_t k = 0; k < 3; ++k) {
            double const coord = samples.positions64 != nullptr ? samples.positions64[3 * i + k]
                                                                : double(samples.positions[3 * i + k]);
            place[k] = static_cast<float>(coord - origin[k]);
            isFinite = isFinite && std::isfinite(place[k]);
        }
        if (isFinite)
            points.insert(points.end(), place, place + 3);
    }
    return points;
}

} // namespace

std::vector<float> sampleDistances(TriangleMesh const & mesh, PointCloudView const & samples,
                                   CProgressCounter * progress)
{
    using namespace Stages;
    double const anywhere = std::numeric_limits<double>::infinity();
    std::vector<float> distances(mesh.vertexCount(), std::numeric_limits<float>::infinity());
    std::vector<float> const points = finitePoints(samples, mesh.origin);
    QzBackend::LoopTeam::run(
        CVescaThreadingTasksHelper::getNumOfPhisicalThread(), progress, [&](QzBackend::LoopTeam & team) {
            SampleIndex const index(points.data(), points.size() / 3, team);
            team.setPosition(0.4);
            forRanges(
                team, distances.size(), 4096,
                [&](std::size_t begin, std::size_t end) {
                    SampleIndex::Nearest near; // of the vertex before, which is mostly a neighbour
                    for (std::size_t v = begin; v < end; ++v) {
                        near = index.nearest(Vec::of(&mesh.positions[3 * v]), anywhere, near.sample);
                        distances[v] = static_cast<float>(std::sqrt(near.squaredDistance));
                    }
                },
                1.0);
        });
    return distances;
}

} // namespace QZmath
