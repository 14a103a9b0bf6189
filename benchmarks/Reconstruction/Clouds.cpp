// SPDX-License-Identifier: Apache-2.0
#include "Clouds.h"

#include <QZmath/Files/PointReader.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <stdexcept>

using qz_sampling::Cloud;
using qz_sampling::Random;

namespace
{

void add(Cloud & cloud, double x, double y, double z, double nx, double ny, double nz)
{
    double const length = std::max(std::sqrt(nx * nx + ny * ny + nz * nz), 1e-9);
    for (double const coordinate : {x, y, z})
        cloud.positions.push_back(static_cast<float>(coordinate));
    for (double const coordinate : {nx, ny, nz})
        cloud.normals.push_back(static_cast<float>(coordinate / length));
}

Cloud hostileCloud(std::string const & name, std::size_t points)
{
    Random random(1);
    Cloud cloud;
    cloud.positions.reserve(3 * points);
    cloud.normals.reserve(3 * points);
    auto const signedNumber = [&] { return random.uniform(-1, 1); };
    if (name == "one-cell")
        for (int corner = 0; corner < 8; ++corner) {
            double const x = corner & 1 ? 1 : -1, y = corner & 2 ? 1 : -1, z = corner & 4 ? 1 : -1;
            add(cloud, x, y, z, x, y, z);
        }
    while (cloud.size() < points) {
        double const x = signedNumber(), y = signedNumber(), z = signedNumber();
        if (name == "one-cell")
            add(cloud, 0.3 + 1e-6 * x, 0.3 + 1e-6 * y, 0.3 + 1e-6 * z, x, y, z);
        else if (name == "diagonal")
            add(cloud, x, x, x, 1, -1, 0);
        else if (name == "noise")
            add(cloud, x, y, z, signedNumber(), signedNumber(), signedNumber());
        else if (cloud.size() < 1000) {
            double const length = std::max(std::sqrt(x * x + y * y + z * z), 1e-9);
            add(cloud, x / length, y / length, z / length, x, y, z);
        } else {
            std::size_t const first = 3 * (cloud.size() % 1000);
            for (std::size_t axis = 0; axis < 3; ++axis) {
                cloud.positions.push_back(cloud.positions[first + axis]);
                cloud.normals.push_back(cloud.normals[first + axis]);
            }
        }
    }
    return cloud;
}

BenchmarkCloud cloudOfFile(std::string const & path)
{
    QZmath::PointCloud read = QZmath::readPoints(path);
    BenchmarkCloud result;
    if (read.positions.empty())
        read.positions.assign(read.positions64.begin(), read.positions64.end());
    result.cloud.positions = std::move(read.positions);
    result.cloud.normals = std::move(read.normals);
    result.cloud.boundaryMarks = std::move(read.boundary);
    result.isClosed = result.cloud.boundaryMarks.empty();
    return result;
}

} // namespace

std::vector<std::string> const & hostileNames()
{
    static std::vector<std::string> const names = {"one-cell", "diagonal", "noise", "duplicates"};
    return names;
}

BenchmarkCloud benchmarkCloud(std::string const & name, std::size_t points)
{
    std::vector<std::string> const & hostile = hostileNames();
    if (std::find(hostile.begin(), hostile.end(), name) != hostile.end())
        return {hostileCloud(name, points), true};
    if (auto const shape = qz_sampling::makeShape(name)) {
        qz_sampling::SamplingOptions options;
        options.pointNumber = points;
        return {sampleCloud(*shape, options), shape->isClosed()};
    }
    if (std::filesystem::exists(name))
        return cloudOfFile(name);
    throw std::runtime_error("no shape and no file: " + name);
}
