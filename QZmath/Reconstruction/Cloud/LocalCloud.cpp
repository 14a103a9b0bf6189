// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Reconstruction/Cloud/LocalCloud.h>

#include <QZmath/Reconstruction/Reconstruction.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <type_traits>

namespace QZmath
{

namespace
{

// Sums of squares of coordinates stay finite up to here.
double const greatestCoordinate = 1e30;

// Smaller clouds leave the vertices no precision.
double const leastCloud = 1e-30;

// A cloud farther out than so many of its extents is moved.
double const farOut = 16.0;

// Extents that need no scaling, by far not reaching where squares or reciprocals leave the range of `float`.
double const leastExtent = 1e-3;
double const greatestExtent = 1e6;

[[noreturn]] void refuse(std::string const & sentence)
{
    throw ReconstructionError(ReconstructionError::Kind::input, sentence);
}

// Points with some flaw: how many, and the first.
class Flaw
{
public:
    void add(std::size_t point)
    {
        if (m_count++ == 0)
            m_first = point;
    }
    void refuseIfAny(char const * what) const
    {
        if (m_count > 0)
            refuse(std::string(what) + " at " + std::to_string(m_count) +
                   (m_count == 1 ? " point" : " points") + ", the first at index " + std::to_string(m_first) +
                   ", counted from 0");
    }

private:
    std::size_t m_count = 0;
    std::size_t m_first = 0;
};

template <class Number, class Predicate>
bool anyOf3(Number const * triple, Predicate predicate)
{
    return predicate(triple[0]) || predicate(triple[1]) || predicate(triple[2]);
}

struct Box
{
    std::array<double, 3> low, high;

    double extent() const
    {
        double longest = 0.0;
        for (std::size_t axis = 0; axis < 3; ++axis)
            longest = std::max(longest, high[axis] - low[axis]);
        return longest;
    }
};

template <class Number>
Box boxOf(Number const * positions, std::size_t size)
{
    Box box;
    box.low.fill(std::numeric_limits<double>::infinity());
    box.high.fill(-std::numeric_limits<double>::infinity());
    Flaw notFinite, tooLarge;
    for (std::size_t i = 0; i < size; ++i) {
        Number const * const point = positions + 3 * i;
        if (anyOf3(point, [](Number value) { return !std::isfinite(value); })) {
            notFinite.add(i);
            continue;
        }
        if (anyOf3(point,
                   [](Number value) { return std::abs(static_cast<double>(value)) > greatestCoordinate; }))
            tooLarge.add(i);
        for (std::size_t axis = 0; axis < 3; ++axis) {
            box.low[axis] = std::min(box.low[axis], static_cast<double>(point[axis]));
            box.high[axis] = std::max(box.high[axis], static_cast<double>(point[axis]));
        }
    }
    notFinite.refuseIfAny("the cloud has coordinates that are not finite");
    tooLarge.refuseIfAny("the cloud has coordinates beyond 1e30");
    return box;
}

LocalFrame frameOf(Box const & box)
{
    LocalFrame frame;
    double const extent = box.extent();
    if (!(extent > 0.0))
        return frame;
    double farthest = 0.0;
    for (std::size_t axis = 0; axis < 3; ++axis)
        farthest = std::max({farthest, std::abs(box.low[axis]), std::abs(box.high[axis])});
    if (farthest > farOut * extent) {
        double const step = std::ldexp(1.0, std::ilogb(extent) + 1);
        for (std::size_t axis = 0; axis < 3; ++axis)
            frame.origin[axis] = std::round((box.low[axis] + box.high[axis]) / 2.0 / step) * step;
    }
    if (extent < leastExtent || extent > greatestExtent)
        frame.scale = std::ldexp(1.0, -std::ilogb(extent));
    return frame;
}

template <class Number>
std::vector<float> toLocal(Number const * positions, std::size_t size, LocalFrame const & frame)
{
    std::vector<float> local(3 * size);
    for (std::size_t i = 0; i < local.size(); ++i)
        local[i] =
            static_cast<float>((static_cast<double>(positions[i]) - frame.origin[i % 3]) * frame.scale);
    return local;
}

// The rows of an array that have no mark.
template <class T>
std::vector<T> withoutMarked(T const * values, std::size_t width, std::vector<std::uint8_t> const & marks)
{
    std::vector<T> rest;
    if (values == nullptr)
        return rest;
    rest.reserve(width * marks.size());
    for (std::size_t i = 0; i < marks.size(); ++i) {
        if (marks[i] == 0)
            rest.insert(rest.end(), values + width * i, values + width * (i + 1));
    }
    return rest;
}

// An array of points is an array of their coordinates, and the other way round.
REmath::Point3D const * asPoints(float const * coords)
{
    static_assert(sizeof(REmath::Point3D) == 3 * sizeof(float) &&
                  std::is_standard_layout<REmath::Point3D>::value);
    return reinterpret_cast<REmath::Point3D const *>(coords);
}

} // namespace

LocalCloud::LocalCloud(PointCloudView const & cloud) : m_colors(cloud.colors), m_boundary(cloud.boundary)
{
    if (cloud.size == 0)
        refuse("the cloud has no points");
    if ((cloud.positions != nullptr) == (cloud.positions64 != nullptr))
        throw ReconstructionError(ReconstructionError::Kind::options,
                                  "the cloud has to have positions in exactly one of the two precisions");
    if (cloud.size > static_cast<std::size_t>(std::numeric_limits<int>::max()))
        refuse("the cloud has " + std::to_string(cloud.size) + " points, more than 2147483647");
    m_size = static_cast<int>(cloud.size);
    takePositions(cloud);
    if (cloud.normals != nullptr)
        takeNormals(cloud);
}

void LocalCloud::takePositions(PointCloudView const & cloud)
{
    Box const box = cloud.positions != nullptr ? boxOf(cloud.positions, cloud.size)
                                               : boxOf(cloud.positions64, cloud.size);
    if (box.extent() > 0.0 && box.extent() < leastCloud)
        refuse("the cloud is smaller than 1e-30 along its longest side");
    m_frame = frameOf(box);
    m_extent = box.extent() * m_frame.scale;
    if (cloud.positions64 != nullptr) {
        m_ownPositions = toLocal(cloud.positions64, cloud.size, m_frame);
    } else if (m_frame.scale != 1.0 || m_frame.origin != std::array<double, 3>{}) {
        m_ownPositions = toLocal(cloud.positions, cloud.size, m_frame);
    } else {
        m_positions = cloud.positions;
        return;
    }
    m_positions = m_ownPositions.data();
}

void LocalCloud::takeNormals(PointCloudView const & cloud)
{
    Flaw notFinite;
    bool areUnits = true;
    bool areZero = true;
    auto const squaredLength = [&](std::size_t i) {
        double sum = 0.0;
        for (std::size_t axis = 0; axis < 3; ++axis)
            sum += std::pow(static_cast<double>(cloud.normals[3 * i + axis]), 2);
        return sum;
    };
    for (std::size_t i = 0; i < cloud.size; ++i) {
        double const square = squaredLength(i);
        if (!std::isfinite(square))
            notFinite.add(i);
        areUnits = areUnits && (std::abs(square - 1.0) < 1e-4 || square == 0.0);
        areZero = areZero && square == 0.0;
    }
    notFinite.refuseIfAny("the cloud has normals that are not finite");
    if (areZero)
        return;
    if (areUnits) {
        m_normals = cloud.normals;
        return;
    }
    m_ownNormals.resize(3 * cloud.size);
    for (std::size_t i = 0; i < cloud.size; ++i) {
        double const length = std::sqrt(squaredLength(i));
        for (std::size_t axis = 0; axis < 3 && length > 0.0; ++axis)
            m_ownNormals[3 * i + axis] =
                static_cast<float>(static_cast<double>(cloud.normals[3 * i + axis]) / length);
    }
    m_normals = m_ownNormals.data();
}

REmath::Point3D const * LocalCloud::points() const { return asPoints(m_positions); }

REmath::Point3D const * LocalCloud::normalVectors() const
{
    return m_normals != nullptr ? asPoints(m_normals) : nullptr;
}

std::size_t LocalCloud::originalIndex(int point) const
{
    auto const index = static_cast<std::size_t>(point);
    return m_original.empty() ? index : m_original[index];
}

void LocalCloud::setNormals(std::vector<REmath::Point3D> const & normals)
{
    m_ownNormals.clear();
    m_ownNormals.reserve(3 * normals.size());
    for (REmath::Point3D const & normal : normals)
        m_ownNormals.insert(m_ownNormals.end(), normal.asArray(), normal.asArray() + 3);
    m_normals = m_ownNormals.data();
}

void LocalCloud::remove(std::vector<std::uint8_t> const & marks)
{
    std::vector<std::uint32_t> original;
    for (int i = 0; i < m_size; ++i) {
        if (marks[static_cast<std::size_t>(i)] == 0)
            original.push_back(static_cast<std::uint32_t>(originalIndex(i)));
    }
    if (original.size() == marks.size())
        return;
    auto const keep = [&marks](auto & own, auto const *& values, std::size_t width) {
        own = withoutMarked(values, width, marks);
        values = values != nullptr ? own.data() : nullptr;
    };
    keep(m_ownPositions, m_positions, 3);
    keep(m_ownNormals, m_normals, 3);
    keep(m_ownColors, m_colors, 3);
    keep(m_ownBoundary, m_boundary, 1);
    m_original = std::move(original);
    m_size = static_cast<int>(m_original.size());
    if (m_size > 0) // they are finite
        m_extent = boxOf(m_positions, m_original.size()).extent();
}

} // namespace QZmath
