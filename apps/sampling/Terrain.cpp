// SPDX-License-Identifier: Apache-2.0
#include <apps/sampling/Terrain.h>

#include <QZmath/Files/Errors.h>
#include <QZmath/Files/PendingFiles.h>

#include <QZsys/ParallelTasks.h>
#include <QZsys/PendingFiles.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <utility>
#include <vector>

namespace qz_sampling
{

namespace
{

double const greatestWavelength = 1024.0;
double const greatestHeight = 120.0;
double const heightRatio = 0.46; // to the octave before; below a half, so that short waves are less steep
int const octaves = 10;

std::size_t const pointsPerBlock = std::size_t{1} << 16;
std::size_t const bytesPerPoint = 24;

std::uint64_t hashOf(std::uint64_t seed, std::uint64_t kind, std::int64_t x, std::int64_t y)
{
    std::uint64_t hash = seed;
    for (std::uint64_t const word : {kind, static_cast<std::uint64_t>(x), static_cast<std::uint64_t>(y)})
        hash = Random(hash ^ word * 0xD6E8FEB86659FD93U).next();
    return hash;
}

struct Wave
{
    double value, dx, dy;
};

// Gradient noise: at each point of the lattice it is 0 and has a random slope.
Wave waveAt(std::uint64_t seed, int octave, double x, double y)
{
    double const left = std::floor(x), low = std::floor(y);
    double const u = x - left, v = y - low;
    auto const fade = [](double t) { return t * t * t * (t * (6.0 * t - 15.0) + 10.0); };
    auto const slope = [](double t) { return 30.0 * t * t * (t - 1.0) * (t - 1.0); };
    double const share[2][2] = {{1.0 - fade(u), fade(u)}, {1.0 - fade(v), fade(v)}};
    double const change[2][2] = {{-slope(u), slope(u)}, {-slope(v), slope(v)}};
    Wave wave{0.0, 0.0, 0.0};
    for (int i = 0; i < 2; ++i) {
        for (int j = 0; j < 2; ++j) {
            std::uint64_t const hash =
                hashOf(seed, static_cast<std::uint64_t>(octave), static_cast<std::int64_t>(left) + i,
                       static_cast<std::int64_t>(low) + j);
            double const gx = static_cast<double>(hash >> 32) * 0x1p-31 - 1.0;
            double const gy = static_cast<double>(hash & 0xFFFFFFFFU) * 0x1p-31 - 1.0;
            double const ramp = gx * (u - i) + gy * (v - j);
            wave.value += share[0][i] * share[1][j] * ramp;
            wave.dx += change[0][i] * share[1][j] * ramp + share[0][i] * share[1][j] * gx;
            wave.dy += share[0][i] * change[1][j] * ramp + share[0][i] * share[1][j] * gy;
        }
    }
    return wave;
}

// The file of one tile, or standard output.
class Output
{
public:
    explicit Output(std::string const & path) : m_path(path)
    {
        bool const isStandard = path == "-";
        m_file = isStandard ? stdout : std::fopen(m_files.create(path).c_str(), "wb");
        if (m_file == nullptr)
            fail();
    }
    ~Output()
    {
        if (m_file != nullptr && m_file != stdout)
            std::fclose(m_file);
    }
    Output(Output const &) = delete;
    Output & operator=(Output const &) = delete;

    void write(void const * bytes, std::size_t size)
    {
        if (std::fwrite(bytes, 1, size, m_file) != size)
            fail();
    }
    void finish()
    {
        if (!VsUt::CPendingFiles::sync(m_file))
            fail();
        if (m_file != stdout && std::fclose(std::exchange(m_file, nullptr)) != 0)
            fail();
        m_files.commit();
    }

private:
    [[noreturn]] void fail() const
    {
        int const error = errno;
        throw QZmath::OutputError("cannot write " +
                                  (m_path == "-" ? "to standard output" : QZmath::quotable(m_path)) + ": " +
                                  VsUt::systemReason(error));
    }

    std::string m_path;
    QZmath::PendingFiles m_files;
    std::FILE * m_file = nullptr;
};

std::uint64_t pointsOf(TerrainScan const & scan, TerrainTile const & tile)
{
    std::uint64_t points = 0;
    for (std::uint64_t row = tile.firstRow; row < tile.endRow; ++row) {
        std::uint64_t const end = std::min(tile.endColumn, scan.columnsIn(row));
        points += end > tile.firstColumn ? end - tile.firstColumn : 0;
    }
    return points;
}

} // namespace

SurfacePoint Terrain::at(double x, double y) const
{
    double height = 0.0, dx = 0.0, dy = 0.0;
    double wavelength = greatestWavelength, amplitude = greatestHeight;
    for (int octave = 0; octave < octaves; ++octave) {
        Wave const wave = waveAt(m_seed, octave, x / wavelength, y / wavelength);
        height += amplitude * wave.value;
        dx += amplitude / wavelength * wave.dx;
        dy += amplitude / wavelength * wave.dy;
        wavelength *= 0.5;
        amplitude *= heightRatio;
    }
    double const scale = 1.0 / std::sqrt(dx * dx + dy * dy + 1.0);
    SurfacePoint point;
    point.position = REmath::Point3D_d(x, y, height);
    point.normal = REmath::Point3D_d(-dx * scale, -dy * scale, scale);
    return point;
}

TerrainScan::TerrainScan(SamplingOptions const & sampling)
    : m_terrain(sampling.seed), m_points(sampling.pointNumber), m_columns(1), m_seed(sampling.seed)
{
    m_columns = static_cast<std::uint64_t>(std::sqrt(static_cast<double>(m_points)));
    while (m_columns * m_columns < m_points)
        ++m_columns;
    m_rows = (m_points + m_columns - 1) / m_columns;
    m_noise = sampling.noise * static_cast<double>(m_columns) * spacing;
}

std::uint64_t TerrainScan::columnsIn(std::uint64_t row) const
{
    return std::min(m_columns, m_points - row * m_columns);
}

SurfacePoint TerrainScan::pointOf(std::uint64_t column, std::uint64_t row) const
{
    Random random(hashOf(m_seed, octaves, static_cast<std::int64_t>(column), static_cast<std::int64_t>(row)));
    double const x = (static_cast<double>(column) + random.uniform()) * spacing;
    double const y = (static_cast<double>(row) + random.uniform()) * spacing;
    SurfacePoint point = m_terrain.at(x, y);
    if (m_noise > 0.0) {
        double const moved[3] = {point.position.x() + m_noise * random.normal(),
                                 point.position.y() + m_noise * random.normal(),
                                 point.position.z() + m_noise * random.normal()};
        point.position = REmath::Point3D_d(moved[0], moved[1], moved[2]);
    }
    return point;
}

std::uint64_t writeTerrain(TerrainScan const & scan, TerrainTile const & tile, std::string const & path)
{
    std::uint64_t const points = pointsOf(scan, tile);
    Output output(path);
    std::string const header = "ply\nformat binary_little_endian 1.0\nelement vertex " +
                               std::to_string(points) +
                               "\nproperty float x\nproperty float y\nproperty float z\nproperty float nx\n"
                               "property float ny\nproperty float nz\nend_header\n";
    output.write(header.data(), header.size());
    struct Cell
    {
        std::uint64_t column, row;
    };
    std::vector<Cell> cells;
    std::vector<char> bytes;
    auto const flush = [&] {
        bytes.resize(cells.size() * bytesPerPoint);
        std::size_t const perTask = 1024;
        std::atomic<std::size_t> next{0};
        VsUt::callTogether(CVescaThreadingTasksHelper::getNumOfPhisicalThread(), [&](bool) {
            for (std::size_t begin; (begin = next.fetch_add(perTask)) < cells.size();) {
                for (std::size_t i = begin; i < std::min(begin + perTask, cells.size()); ++i) {
                    SurfacePoint const point = scan.pointOf(cells[i].column, cells[i].row);
                    float const numbers[6] = {
                        static_cast<float>(point.position.x()), static_cast<float>(point.position.y()),
                        static_cast<float>(point.position.z()), static_cast<float>(point.normal.x()),
                        static_cast<float>(point.normal.y()),   static_cast<float>(point.normal.z())};
                    std::memcpy(bytes.data() + i * bytesPerPoint, numbers, bytesPerPoint);
                }
            }
        });
        output.write(bytes.data(), bytes.size());
        cells.clear();
    };
    for (std::uint64_t row = tile.firstRow; row < tile.endRow; ++row) {
        for (std::uint64_t column = tile.firstColumn; column < std::min(tile.endColumn, scan.columnsIn(row));
             ++column) {
            cells.push_back({column, row});
            if (cells.size() == pointsPerBlock)
                flush();
        }
    }
    flush();
    output.finish();
    return points;
}

std::uint64_t writeTerrainTiles(TerrainScan const & scan, std::array<int, 2> const & tiles,
                                std::string const & folder)
{
    std::error_code error;
    std::filesystem::create_directory(folder, error);
    if (error)
        throw QZmath::OutputError("cannot write " + QZmath::quotable(folder) + ": " + error.message());
    std::uint64_t points = 0;
    auto const bound = [](std::uint64_t count, int at, int of) {
        return count * static_cast<std::uint64_t>(at) / static_cast<std::uint64_t>(of);
    };
    for (int y = 0; y < tiles[1]; ++y) {
        for (int x = 0; x < tiles[0]; ++x) {
            TerrainTile const tile = {bound(scan.columns(), x, tiles[0]),
                                      bound(scan.columns(), x + 1, tiles[0]), bound(scan.rows(), y, tiles[1]),
                                      bound(scan.rows(), y + 1, tiles[1])};
            if (pointsOf(scan, tile) > 0)
                points += writeTerrain(
                    scan, tile, folder + "tile-" + std::to_string(x) + "-" + std::to_string(y) + ".ply");
        }
    }
    return points;
}

} // namespace qz_sampling
