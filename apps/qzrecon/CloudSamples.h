// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Files/PointCloud.h>
#include <QZmath/VolTriang/InputSamples.h>

#include <cstddef>

namespace qz_recon
{

/// Rounds positions in `double` to `float`.
void toSinglePrecision(QZmath::PointCloud & cloud);

/// Throws `InputError` when a reconstruction cannot start from the cloud, which is in single precision: no
/// points, more than `int` can count, coordinates or normals that are not finite (how many points, and the
/// first of them), coordinates beyond 1e30, or normals that are all zero, which a cloud without normals is
/// not refused for. One pass.
void checkCloud(QZmath::PointCloud const & cloud);

/// The cloud, in single precision, as the reconstruction reads it. Keeps a reference.
class CloudSamples : public VolTr::IInputSamples
{
public:
    explicit CloudSamples(QZmath::PointCloud const & cloud) : m_cloud(cloud) {}

private:
    int onPointsNumber() const override { return static_cast<int>(m_cloud.size()); }
    float const * onGetSampleCoords3(int sample) const override
    {
        return m_cloud.positions.data() + 3 * static_cast<std::size_t>(sample);
    }
    float const * onGetSampleNormal3(int sample) const override
    {
        return m_cloud.normals.data() + 3 * static_cast<std::size_t>(sample);
    }
    bool onIsBoundaryVertex(int sample) const override
    {
        return !m_cloud.boundary.empty() && m_cloud.boundary[static_cast<std::size_t>(sample)] != 0;
    }

    QZmath::PointCloud const & m_cloud;
};

} // namespace qz_recon
