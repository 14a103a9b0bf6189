// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Fitting/Consensus/SampleSet.h>

#include <algorithm>
#include <functional>

namespace REmath::Detail
{

namespace
{

double medianOf(std::vector<Point3D_d> const & samples, std::size_t count, int axis)
{
    double coordinates[SampleSet::extentSamples] = {};
    for (std::size_t i = 0; i < count; ++i)
        coordinates[i] = samples[i].asArray()[axis];
    std::nth_element(coordinates, coordinates + count / 2, coordinates + count);
    return coordinates[count / 2];
}

// The distance along the farthest axis; infinite for what is too far.
double greatestCoordinate(Point3D_d const & point)
{
    return std::max({std::abs(point.x()), std::abs(point.y()), std::abs(point.z())});
}

// Four fifths, but as many as a plane needs.
std::size_t nearCount(std::size_t count)
{
    return std::max(count - count / 5, std::min<std::size_t>(count, 3));
}

} // namespace

bool SampleSet::place(std::vector<Point3D_d> & samples)
{
    std::size_t const count = std::min(samples.size(), extentSamples);
    m_reference = {medianOf(samples, count, 0), medianOf(samples, count, 1), medianOf(samples, count, 2)};
    double distances[extentSamples] = {};
    for (std::size_t i = 0; i < count; ++i)
        distances[i] = greatestCoordinate(samples[i] - m_reference);
    std::size_t const last = nearCount(count) - 1;
    std::nth_element(distances, distances + last, distances + count);
    double const reach = distances[last];
    if (!(reach > 1e-290 && reach < 1e290))
        return false;
    m_scale = std::ldexp(1.0, -std::ilogb(reach));
    m_rounding = 16 * std::numeric_limits<double>::epsilon() *
                 (greatestCoordinate(m_reference) * m_scale + reach * m_scale);

    for (Point3D_d & sample : samples)
        sample = toUnits(sample);
    hold(samples);
    return measureExtents();
}

bool SampleSet::take(std::vector<Point3D_d> const & some, SampleSet const & from)
{
    m_reference = from.m_reference;
    m_scale = from.m_scale;
    m_rounding = from.m_rounding;
    hold(some);
    return measureExtents();
}

void SampleSet::hold(std::vector<Point3D_d> const & samples)
{
    m_size = samples.size();
    std::size_t const padded = (m_size + 3) / 4 * 4;
    for (std::vector<double> * coordinates : {&m_x, &m_y, &m_z})
        coordinates->assign(padded, std::numeric_limits<double>::quiet_NaN());
    for (std::size_t i = 0; i < m_size; ++i) {
        m_x[i] = samples[i].x();
        m_y[i] = samples[i].y();
        m_z[i] = samples[i].z();
    }
}

// Of the nearer points alone, so that a few that are far off do not make the background look thin.
bool SampleSet::measureExtents()
{
    std::vector<Point3D_d> preview;
    for (std::size_t i = 0; i < std::min(m_size, extentSamples); ++i)
        preview.push_back(sample(i));
    auto const last = preview.begin() + static_cast<std::ptrdiff_t>(nearCount(preview.size()) - 1);
    std::nth_element(preview.begin(), last, preview.end(), [](Point3D_d const & p, Point3D_d const & q) {
        return greatestCoordinate(p) < greatestCoordinate(q);
    });
    preview.erase(last + 1, preview.end());
    PrincipalFrame frame;
    if (!frame.fit(preview))
        return false;
    for (std::size_t axis = 0; axis < 3; ++axis) {
        double low = 0, high = 0;
        for (Point3D_d const & point : preview) {
            double const along = dot(point - frame.centroid, frame.axes[axis]);
            low = std::min(low, along);
            high = std::max(high, along);
        }
        m_extents[axis] = high - low;
    }
    std::sort(m_extents.begin(), m_extents.end(), std::greater<>());
    return true;
}

} // namespace REmath::Detail
