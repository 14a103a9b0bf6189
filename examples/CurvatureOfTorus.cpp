// SPDX-License-Identifier: Apache-2.0

// A torus as a bare cloud of points: its normals, its principal curvatures, and a cloud coloured by their
// product, the Gaussian curvature, from blue (saddle, inside) over white (flat, on top) to red (outside).
//
//     example_CurvatureOfTorus [CLOUD.ply [PICTURE.svg]]
//
// Without arguments the cloud goes to the folder for temporary files.

#include <QZmath/QZmath.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

using REmath::Point3D;

namespace
{

constexpr double ringRadius = 1, tubeRadius = 0.4;

struct TorusCloud
{
    std::vector<Point3D> points;
    std::vector<double> gaussian; // the true curvature
};

// Random points, evenly by area: the share of a tube angle grows with the distance from the axis.
TorusCloud sampleTorus(std::size_t count)
{
    std::mt19937 random(1);
    std::uniform_real_distribution<double> angle(0, 2 * std::acos(-1.0)), share(0, ringRadius + tubeRadius);
    TorusCloud cloud;
    while (cloud.points.size() < count) {
        double const around = angle(random), tube = angle(random);
        double const fromAxis = ringRadius + tubeRadius * std::cos(tube);
        if (share(random) > fromAxis)
            continue;
        cloud.points.emplace_back(fromAxis * std::cos(around), fromAxis * std::sin(around),
                                  tubeRadius * std::sin(tube));
        cloud.gaussian.push_back(std::cos(tube) / (tubeRadius * fromAxis));
    }
    return cloud;
}

// Blue for -1 and below, white for 0, red for 1 and above.
std::array<int, 3> colourOf(double value)
{
    double const red = std::clamp(1 + value, 0.0, 1.0), blue = std::clamp(1 - value, 0.0, 1.0);
    return {int(55 + 200 * red), int(55 + 200 * std::min(red, blue)), int(55 + 200 * blue)};
}

bool writeCloud(std::string const & path, std::vector<Point3D> const & points,
                std::vector<Point3D> const & normals, std::vector<std::array<int, 3>> const & colours)
{
    std::ofstream file(path);
    file << "ply\nformat ascii 1.0\nelement vertex " << points.size() << '\n';
    for (char const * name : {"x", "y", "z", "nx", "ny", "nz"})
        file << "property float " << name << '\n';
    for (char const * name : {"red", "green", "blue"})
        file << "property uchar " << name << '\n';
    file << "end_header\n";
    for (std::size_t i = 0; i < points.size(); ++i) {
        for (Point3D const & vector : {points[i], normals[i]})
            file << vector.x() << ' ' << vector.y() << ' ' << vector.z() << ' ';
        file << colours[i][0] << ' ' << colours[i][1] << ' ' << colours[i][2] << '\n';
    }
    return file.flush().good();
}

// Every fifth of the points that face a viewer who looks down at 35 degrees, the farthest first.
bool writePicture(std::string const & path, std::vector<Point3D> const & points,
                  std::vector<Point3D> const & normals, std::vector<std::array<int, 3>> const & colours)
{
    double const sine = std::sin(0.6), cosine = std::cos(0.6);
    auto const depth = [&](Point3D const & p) { return double(p.y()) * cosine - double(p.z()) * sine; };
    std::vector<std::size_t> visible;
    for (std::size_t i = 0; i < points.size(); i += 5) {
        if (depth(normals[i]) < 0)
            visible.push_back(i);
    }
    std::sort(visible.begin(), visible.end(),
              [&](std::size_t a, std::size_t b) { return depth(points[a]) > depth(points[b]); });
    std::ofstream file(path);
    file << "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 600 420\" width=\"600\" "
            "height=\"420\">\n";
    for (std::size_t i : visible) {
        double const up = double(points[i].z()) * cosine + double(points[i].y()) * sine;
        double const light = 0.55 - 0.45 * depth(normals[i]);
        char line[100];
        std::snprintf(line, sizeof(line),
                      "<circle cx=\"%.0f\" cy=\"%.0f\" r=\"12\" fill=\"#%02x%02x%02x\"/>\n",
                      300 + 200 * double(points[i].x()), 210 - 200 * up, int(light * colours[i][0]),
                      int(light * colours[i][1]), int(light * colours[i][2]));
        file << line;
    }
    file << "</svg>\n";
    return file.flush().good();
}

} // namespace

int main(int argc, char ** argv)
{
    TorusCloud const cloud = sampleTorus(20000);
    int const size = int(cloud.points.size());
    std::vector<Point3D> normals(cloud.points.size());
    std::vector<CPointCurvatures> curvatures(cloud.points.size());
    int const withNormal = EstimateNormals(size, cloud.points.data(), {}, normals.data());
    int const withCurvature =
        EstimateCurvatures(size, cloud.points.data(), {30, 0}, normals.data(), curvatures.data());

    std::vector<double> errors; // relative to the largest curvature, on the inside
    std::vector<std::array<int, 3>> colours;
    double const largest = 1 / (tubeRadius * (ringRadius - tubeRadius));
    for (std::size_t i = 0; i < curvatures.size(); ++i) {
        double const gaussian = double(curvatures[i].minCurvature) * double(curvatures[i].maxCurvature);
        errors.push_back(std::fabs(gaussian - cloud.gaussian[i]) / largest);
        colours.push_back(colourOf(gaussian / 3));
        normals[i] = curvatures[i].normal;
    }
    std::sort(errors.begin(), errors.end());
    double const median = errors[errors.size() / 2], nearlyAll = errors[errors.size() * 99 / 100];

    std::string const path =
        argc > 1 ? argv[1] : (std::filesystem::temp_directory_path() / "curvature-of-torus.ply").string();
    bool isWritten = writeCloud(path, cloud.points, normals, colours);
    if (argc > 2)
        isWritten = writePicture(argv[2], cloud.points, normals, colours) && isWritten;
    std::printf(
        "%d points, %d with normal, %d with curvature; error of the Gaussian curvature: median %.2f %%, "
        "99 %% below %.1f %%; %s\n",
        size, withNormal, withCurvature, 100 * median, 100 * nearlyAll, path.c_str());
    return isWritten && withNormal == size && withCurvature == size && median < 0.02 && nearlyAll < 0.1 ? 0
                                                                                                        : 1;
}
