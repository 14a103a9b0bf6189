// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/VolTriang/InputSamples.h>

#include <array>
#include <vector>

/// An oriented point cloud in memory.
class PointCloudSamples : public VolTr::IInputSamples
{
public:
    void add(std::array<float, 3> const & point, std::array<float, 3> const & normal, bool boundary = false)
    {
        points.push_back(point);
        normals.push_back(normal);
        boundaryMarks.push_back(boundary ? 1 : 0);
    }

    std::vector<std::array<float, 3>> points;
    std::vector<std::array<float, 3>> normals;
    std::vector<char> boundaryMarks;

private:
    int onPointsNumber() const override { return static_cast<int>(points.size()); }
    float const * onGetSampleCoords3(int sample) const override
    {
        return points[static_cast<std::size_t>(sample)].data();
    }
    float const * onGetSampleNormal3(int sample) const override
    {
        return normals[static_cast<std::size_t>(sample)].data();
    }
    bool onIsBoundaryVertex(int sample) const override
    {
        return boundaryMarks[static_cast<std::size_t>(sample)] != 0;
    }
};
