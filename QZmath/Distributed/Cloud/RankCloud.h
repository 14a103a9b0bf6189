// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/VolTriang/InputSamples.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace QZmath::Distributed
{

/// What all ranks agree on of a cloud: its coordinates and its octree.
struct CloudFrame
{
    std::array<double, 3> origin{}; ///< of local coordinates, in units of the cloud
    double scale = 1.0;             ///< local = (place - origin) * scale; a power of 2
    std::array<double, 3> least{};  ///< local bounds of all samples
    std::array<double, 3> most{};
    int depth = 0; ///< of the leaf cells
};

/// How far around its territory a rank sees, in leaf cells along each axis.
struct Margins
{
    int samples; ///< copies of the samples of others
    int surface; ///< of these, those that the refinement looks at; the function is exact there
};

/// Of any cloud: for what asks for a number of samples around a place, and finds few.
constexpr Margins wideMargins = {32, 28};
/// Of one that fills its leaf cells: the density looks 20 around. The refinement sums lattices with cells of
/// up to 2 leaf cells from samples that are up to three cells away, by their feet.
constexpr Margins narrowMargins = {20, 12};

/// The samples that a rank has: those of its territory, and copies of others around it.
struct RankCloud
{
    std::vector<float> positions;     ///< 3 a sample, local
    std::vector<float> normals;       ///< 3 a sample, unit vectors or 0
    std::vector<std::uint8_t> colors; ///< 3 a sample, or empty on all ranks
    std::vector<std::uint8_t> isOwn;  ///< 1 a sample: in the territory of the rank?
    std::int64_t total = 0;           ///< own samples of all ranks
    Margins margins = wideMargins;    ///< the same on all ranks

    std::size_t size() const { return isOwn.size(); }
};

/// A rank's samples as the stages of the reconstruction read them. Keeps a reference.
class RankSamples final : public VolTr::IInputSamples
{
public:
    explicit RankSamples(RankCloud const & cloud) : m_cloud(cloud) {}

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
    bool onIsBoundaryVertex(int) const override { return false; }

    RankCloud const & m_cloud;
};

} // namespace QZmath::Distributed
