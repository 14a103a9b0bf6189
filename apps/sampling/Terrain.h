// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <apps/sampling/SampleShapes.h>

#include <array>
#include <cstdint>
#include <string>

namespace qz_sampling
{

/// An open landscape without end: a fractal height field over the plane, z = height(x, y), in metres. It is
/// the sum of gradient noise (Perlin, An image synthesizer, 1985) of wavelengths from 1024 down to 2, each
/// less high than the one before. What is random comes from hashes of lattice coordinates, so that any place
/// costs the same, nothing is stored, and a seed gives the same bits wherever numbers are those of IEEE.
class Terrain
{
public:
    explicit Terrain(std::uint64_t seed) : m_seed(seed) {}

    /// The surface above a place, with the unit normal there, which points up.
    SurfacePoint at(double x, double y) const;

private:
    std::uint64_t m_seed;
};

/// A scan of a landscape: a point in each cell of a square grid, at a random place of it.
class TerrainScan
{
public:
    static constexpr double spacing = 0.25; ///< side of a cell: 16 points a square metre

    /// \param sampling without a density ratio; its noise is relative to the longest side of the scan
    explicit TerrainScan(SamplingOptions const & sampling);

    std::uint64_t columns() const { return m_columns; }
    std::uint64_t rows() const { return m_rows; }
    /// Cells of a row that have a point: of all but the last row each one.
    std::uint64_t columnsIn(std::uint64_t row) const;
    /// The point of a cell: where it is, with noise, and the normal without.
    SurfacePoint pointOf(std::uint64_t column, std::uint64_t row) const;

private:
    Terrain m_terrain;
    std::uint64_t m_points, m_columns, m_rows, m_seed;
    double m_noise;
};

/// Part of a grid of cells.
struct TerrainTile
{
    std::uint64_t firstColumn, endColumn, firstRow, endRow;
};

/// Writes the points of a tile as binary PLY with normals, row by row; "-" is standard output. Takes some
/// megabytes, whatever the number of points. Returns how many there are. Throws `QZmath::OutputError`.
std::uint64_t writeTerrain(TerrainScan const & scan, TerrainTile const & tile, std::string const & path);

/// Cuts a scan into tiles, which are written to files "tile-X-Y.ply" of a folder; it is made where there is
/// none. The points are those of one file, whatever the number of tiles; tiles without points are left out.
/// \param tiles along x and y, at least 1
/// \param folder with "/" at its end
std::uint64_t writeTerrainTiles(TerrainScan const & scan, std::array<int, 2> const & tiles,
                                std::string const & folder);

} // namespace qz_sampling
