// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/VolTriang/InputSamples.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace qz_io
{

/// A point cloud in memory, oriented unless `normals` is empty.
struct PointCloud
{
    std::vector<float> coords;  ///< x y z of one point behind the other
    std::vector<float> normals; ///< in the order of `coords`: as many, or none
    std::vector<std::uint8_t>
        boundary; ///< empty, or one mark per point: 0, or 1 on the border of the surface

    std::size_t size() const { return coords.size() / 3; }
};

/// Throws `InputError` when a reconstruction cannot start from the cloud: no points, more than `int` can
/// count, coordinates or normals that are not finite (how many points, and the first of them), coordinates
/// beyond 1e30, or normals that are all zero, which a cloud without normals is not refused for. One pass.
void checkCloud(PointCloud const & cloud);

/// The cloud as the reconstruction reads it. Keeps a reference.
class CloudSamples : public VolTr::IInputSamples
{
public:
    explicit CloudSamples(PointCloud const & cloud) : m_cloud(cloud) {}

private:
    int onPointsNumber() const override { return static_cast<int>(m_cloud.size()); }
    float const * onGetSampleCoords3(int sample) const override
    {
        return m_cloud.coords.data() + 3 * static_cast<std::size_t>(sample);
    }
    float const * onGetSampleNormal3(int sample) const override
    {
        return m_cloud.normals.data() + 3 * static_cast<std::size_t>(sample);
    }
    bool onIsBoundaryVertex(int sample) const override
    {
        return !m_cloud.boundary.empty() && m_cloud.boundary[static_cast<std::size_t>(sample)] != 0;
    }

    PointCloud const & m_cloud;
};

} // namespace qz_io
