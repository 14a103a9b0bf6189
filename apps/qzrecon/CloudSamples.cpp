// SPDX-License-Identifier: Apache-2.0
#include <apps/qzrecon/CloudSamples.h>

#include <QZmath/Files/Errors.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>

namespace qz_recon
{

namespace
{

// Extents of single precision clouds are differences and products of coordinates; beyond this they overflow.
float const st_greatestCoordinate = 1e30f;

struct Finding
{
    std::size_t count = 0;
    std::size_t first = 0;

    void add(std::size_t point)
    {
        if (count++ == 0)
            first = point;
    }

    void report(char const * what) const
    {
        if (count > 0)
            throw QZmath::InputError(std::string(what) + " at " + std::to_string(count) +
                                     (count == 1 ? " point" : " points") + ", the first at index " +
                                     std::to_string(first) + ", counted from 0");
    }
};

template <class TPredicate>
bool anyOf3(float const * triple, TPredicate predicate)
{
    return predicate(triple[0]) || predicate(triple[1]) || predicate(triple[2]);
}

} // namespace

void toSinglePrecision(QZmath::PointCloud & cloud)
{
    cloud.positions.reserve(cloud.positions64.size());
    for (double const coordinate : cloud.positions64)
        cloud.positions.push_back(static_cast<float>(coordinate));
    std::vector<double>().swap(cloud.positions64);
}

void checkCloud(QZmath::PointCloud const & cloud)
{
    std::size_t const size = cloud.size();
    if (size == 0)
        throw QZmath::InputError("the input has no points");
    if (size > static_cast<std::size_t>(std::numeric_limits<int>::max()))
        throw QZmath::InputError("the input has " + std::to_string(size) + " points, more than 2147483647");

    auto const notFinite = [](float value) { return !std::isfinite(value); };
    auto const tooLarge = [](float value) { return std::fabs(value) > st_greatestCoordinate; };
    auto const notZero = [](float value) { return value != 0.0f; };

    Finding badCoords, badNormals, largeCoords;
    bool const hasNormals = !cloud.normals.empty();
    bool someNormal = !hasNormals;
    for (std::size_t i = 0; i < size; ++i) {
        float const * const coords = cloud.positions.data() + 3 * i;
        if (anyOf3(coords, notFinite))
            badCoords.add(i);
        else if (anyOf3(coords, tooLarge))
            largeCoords.add(i);
        if (!hasNormals)
            continue;
        float const * const normal = cloud.normals.data() + 3 * i;
        if (anyOf3(normal, notFinite))
            badNormals.add(i);
        someNormal = someNormal || anyOf3(normal, notZero);
    }
    badCoords.report("the input has coordinates that are not finite");
    badNormals.report("the input has normals that are not finite");
    largeCoords.report("the input has coordinates beyond 1e30");
    if (!someNormal)
        throw QZmath::InputError("all normals of the input are zero");
}

} // namespace qz_recon
