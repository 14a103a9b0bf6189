// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Distributed/Surface/SampleSpacing.h>

#include <QZmath/Distributed/Cloud/RankCloud.h>
#include <QZmath/Distributed/Communicator.h>

#include <QZmath/Backend/Parallel.h>
#include <QZmath/VolTriang/Octree.h>
#include <QZmath/VolTriang/OctreeIterators.h>
#include <QZmath/VolTriang/Stages/StageContext.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

namespace QZmath::Distributed
{

namespace
{

double const wantedSamples = 4000.0;
std::size_t const neighbour = 8;

// As good as random, and the same wherever the sample is.
std::uint64_t hashOf(float const * position)
{
    std::uint64_t hash = UINT64_C(0x9e3779b97f4a7c15);
    for (int axis = 0; axis < 3; ++axis) {
        std::uint32_t bits = 0;
        std::memcpy(&bits, position + axis, sizeof bits);
        hash = (hash ^ bits) * UINT64_C(0xbf58476d1ce4e5b9);
        hash ^= hash >> 29;
    }
    hash *= UINT64_C(0x94d049bb133111eb);
    return hash ^ hash >> 32;
}

// Distance to the eighth nearest other place; below 0 where the margin has no more.
double neighbourDistance(VolTr::StageContext const & context, float const * position, int margin)
{
    std::vector<double> squares;
    for (double cells = 1.0; cells <= margin; cells *= 2.0) {
        double const radius = cells * context.octree.getUnit();
        VolTr::CParallelepiped box;
        for (int axis = 0; axis < 3; ++axis)
            box.setDimension(axis, VolTr::CInterval(position[axis] - radius, position[axis] + radius));
        squares.clear();
        for (VolTr::CSamplePointsIteratorInBox it(context.samples, context.octree, box, -1); !it.isFinished();
             it.next()) {
            double square = 0.0;
            for (int axis = 0; axis < 3; ++axis)
                square += ((*it)[axis] - position[axis]) * ((*it)[axis] - position[axis]);
            if (square > 0.0 && square <= radius * radius)
                squares.push_back(square);
        }
        if (squares.size() < neighbour)
            continue;
        auto const eighth = squares.begin() + (neighbour - 1);
        std::nth_element(squares.begin(), eighth, squares.end());
        return std::sqrt(*eighth);
    }
    return -1.0;
}

} // namespace

double measureSpacing(Communicator const & ranks, RankCloud const & cloud,
                      VolTr::StageContext const & context)
{
    std::vector<float> found;
    ranks.together([&] {
        double const share =
            std::min(1.0, wantedSamples / static_cast<double>(std::max<std::int64_t>(1, cloud.total)));
        std::uint64_t const bound = static_cast<std::uint64_t>(share * 0x1p63);
        std::vector<std::size_t> chosen;
        for (std::size_t sample = 0; sample < cloud.size(); ++sample) {
            if (cloud.isOwn[sample] != 0 && hashOf(cloud.positions.data() + 3 * sample) >> 1 < bound)
                chosen.push_back(sample);
        }
        found.resize(chosen.size());
        QzBackend::LoopTeam::run(context.threads, context.progress, [&](QzBackend::LoopTeam & team) {
            team.forEach(static_cast<int>(chosen.size()), [&](int n) {
                std::size_t const index = static_cast<std::size_t>(n);
                found[index] = static_cast<float>(neighbourDistance(
                    context, cloud.positions.data() + 3 * chosen[index], cloud.margins.samples));
            });
        });
    });
    found = ranks.gatherToAll(found);
    if (found.empty())
        return 0.0;
    // Those without an answer stand apart from all others: they are far, not near.
    for (float & distance : found)
        distance = distance < 0.0f ? HUGE_VALF : distance;
    auto const middle = found.begin() + static_cast<std::ptrdiff_t>(found.size() / 2);
    std::nth_element(found.begin(), middle, found.end());
    double const pi = 3.14159265358979323846;
    double const distance =
        std::min(static_cast<double>(*middle), cloud.margins.samples * context.octree.getUnit());
    return distance * std::sqrt(pi / neighbour);
}

} // namespace QZmath::Distributed
