// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/Foundation/Point3D.h>
#include <QZmath/Foundation/PointCloudView.h>
#include <QZmath/VolTriang/InputSamples.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

class CProgressCounter;

namespace QZmath
{

/// How local coordinates come about: local = (place - origin) * scale.
struct LocalFrame
{
    std::array<double, 3> origin{};
    double scale = 1.0; ///< a power of 2, so that it changes no bit of what a cloud looks like

    double toCloud(double length) const { return length / scale; }
    float toLocal(double coord, std::size_t axis) const
    {
        return static_cast<float>((coord - origin[axis]) * scale);
    }
};

/// Bounds of the points of a cloud, in its own units; of none, without an inside.
struct CloudBox
{
    std::array<double, 3> low, high;

    QZMATH_SISTER_API CloudBox();
    QZMATH_SISTER_API double extent() const; ///< along the longest side; 0 of no points
};

// What a `LocalCloud` is made by, for clouds of which a process has a part only. `firstIndex` is that of the
// part's first point in the whole, for messages.

/// \throws ReconstructionError unless there are positions in one precision, of at most 2147483647 points
QZMATH_SISTER_API void checkPositionArrays(PointCloudView const & cloud);
/// \throws ReconstructionError that names the first point that is not finite or too far out
QZMATH_SISTER_API CloudBox boxOf(PointCloudView const & cloud, std::int64_t firstIndex = 0,
                                 CProgressCounter * progress = nullptr);
/// \throws ReconstructionError for a cloud that is too small
QZMATH_SISTER_API LocalFrame frameOf(CloudBox const & box);

/// What decides how the normals of a whole cloud are taken: as they are, made unit vectors, or not at all.
struct NormalsState
{
    bool areUnits = true;
    bool areZero = true;
};
/// \throws ReconstructionError that names the first normal that is not finite
QZMATH_SISTER_API NormalsState checkNormals(PointCloudView const & cloud, std::int64_t firstIndex = 0,
                                            CProgressCounter * progress = nullptr);
/// The direction of a normal, in length 1; zero stays.
QZMATH_SISTER_API void makeUnit(float const * normal, float * unit);

/// Whether points span an area: sums over them in two rounds, the second of which needs the mean of the
/// first. Sums of parts add up to those of the whole.
struct CloudScatter
{
    double sum[3] = {0.0, 0.0, 0.0}; ///< of places by their number: the mean
    double scatter[3][3] = {};

    CloudScatter(std::int64_t points, double extent)
        : m_points(points), m_extent(extent), m_perPoint(1.0 / static_cast<double>(points)),
          m_unit(1.0 / extent)
    {}
    void addToMean(float const * place)
    {
        for (int axis = 0; axis < 3; ++axis)
            sum[axis] += static_cast<double>(place[axis]) * m_perPoint;
    }
    void addAroundMean(float const * place)
    {
        double apart[3];
        for (int axis = 0; axis < 3; ++axis)
            apart[axis] = (static_cast<double>(place[axis]) - sum[axis]) * m_unit;
        for (int row = 0; row < 3; ++row)
            for (int col = 0; col < 3; ++col)
                scatter[row][col] += apart[row] * apart[col] * m_perPoint;
    }
    /// Both rounds over all points.
    void addAll(REmath::Point3D const * places, CProgressCounter * progress);
    /// \throws ReconstructionError when they are all in one place, which can be asked before the sums
    QZMATH_SISTER_API void refuseWithoutExtent() const;
    /// \throws ReconstructionError when they lie on a line but for rounding
    QZMATH_SISTER_API void refuseLine() const;

private:
    std::string count() const;

    std::int64_t m_points;
    double m_extent, m_perPoint, m_unit;
};

/// A cloud as the stages take it: in `float`, near zero, of an extent that is far from the limits of `float`.
/// Arrays of the caller that are so already are not copied.
///
/// The origin is a multiple of a power of 2 that is at least the extent, and 0 for clouds that are not
/// farther out than sixteen times their extent. So a cloud and the same one far out have the same local
/// coordinates as nearly as the input's own rounding allows, when the way between them is such a multiple.
class QZMATH_SISTER_API LocalCloud
{
public:
    /// Checks the cloud. \throws ReconstructionError that names the first point that cannot be used, and what
    /// the progress counter, which may be null, throws
    explicit LocalCloud(PointCloudView const & cloud, CProgressCounter * progress = nullptr);

    int size() const { return m_size; }
    /// Of the arrays that are not the caller's.
    std::size_t ownBytes() const
    {
        return sizeof(float) * (m_ownPositions.size() + m_ownNormals.size()) + m_ownColors.size() +
               m_ownBoundary.size() + sizeof(std::uint32_t) * m_original.size();
    }
    LocalFrame const & frame() const { return m_frame; }
    double extent() const { return m_extent; } ///< along the longest side

    float const * positions() const { return m_positions; }
    REmath::Point3D const * points() const;
    /// Unit vectors, or zero for unknown; null when there are none.
    float const * normals() const { return m_normals; }
    REmath::Point3D const * normalVectors() const;
    std::uint8_t const * colors() const { return m_colors; }
    std::uint8_t const * boundary() const { return m_boundary; }
    /// Index in the caller's arrays.
    std::size_t originalIndex(int point) const;

    /// Replaces the normals.
    void setNormals(std::vector<REmath::Point3D> const & normals);
    /// Takes out the points with a mark.
    void remove(std::vector<std::uint8_t> const & marks);

private:
    void takePositions(PointCloudView const & cloud, CProgressCounter * progress);
    void takeNormals(PointCloudView const & cloud, CProgressCounter * progress);

    int m_size = 0;
    LocalFrame m_frame;
    double m_extent = 0.0;
    float const * m_positions = nullptr;
    float const * m_normals = nullptr;
    std::uint8_t const * m_colors = nullptr;
    std::uint8_t const * m_boundary = nullptr;
    std::vector<float> m_ownPositions, m_ownNormals;
    std::vector<std::uint8_t> m_ownColors, m_ownBoundary;
    std::vector<std::uint32_t> m_original; // empty when nothing was removed
};

/// A local cloud as the core reads it. Keeps a reference.
class LocalSamples final : public VolTr::IInputSamples
{
public:
    explicit LocalSamples(LocalCloud const & cloud)
        : m_size(cloud.size()), m_positions(cloud.positions()), m_normals(cloud.normals())
    {}

private:
    int onPointsNumber() const override { return m_size; }
    float const * onGetSampleCoords3(int sample) const override
    {
        return m_positions + 3 * std::size_t(sample);
    }
    float const * onGetSampleNormal3(int sample) const override
    {
        return m_normals + 3 * std::size_t(sample);
    }
    bool onIsBoundaryVertex(int) const override { return false; }

    int m_size;
    float const * m_positions;
    float const * m_normals;
};

} // namespace QZmath
