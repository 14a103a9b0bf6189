// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Files/PointReader.h>
#include <apps/sampling/SampleShapes.h>
#include <apps/sampling/Terrain.h>

#include <gtest/gtest.h>
#include <support/TestFolder.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include <sys/wait.h>

namespace
{

class SampleProgram : public testing::Test, protected qz_test::TestFolder
{
protected:
    // Exit code of the program; what it prints goes to the file "output".
    int run(std::string const & arguments) const
    {
        std::string const command =
            std::string("'") + QZ_SAMPLE_PROGRAM + "' " + arguments + " > '" + path("output") + "' 2>&1";
        int const status = std::system(command.c_str());
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
};

} // namespace

TEST_F(SampleProgram, AllFormatsHoldTheSameCloud)
{
    qz_sampling::SamplingOptions options;
    options.pointNumber = 500;
    options.seed = 3;
    options.noise = 0.01;
    qz_sampling::Cloud const cloud = sampleCloud(*qz_sampling::makeShape("sheet"), options);
    for (std::string const name : {"a.ply", "a.obj", "a.XYZ"}) {
        ASSERT_EQ(run("sheet -n 500 --seed 3 --noise 0.01 -o '" + path(name) + "'"), 0) << contents("output");
        QZmath::PointCloud const read = QZmath::readPoints(path(name));
        EXPECT_EQ(read.positions, cloud.positions) << name;
        EXPECT_EQ(read.normals, cloud.normals) << name;
        EXPECT_EQ(read.boundary.size(), name == "a.ply" ? 500U : 0U);
        EXPECT_TRUE(std::equal(read.boundary.begin(), read.boundary.end(), cloud.boundaryMarks.begin()));
    }
    ASSERT_EQ(run("sphere -n 7 -o '" + path("closed.ply") + "'"), 0);
    EXPECT_EQ(contents("closed.ply").find("boundary"), std::string::npos);
}

// Each point has a place, a height and a normal that depend on nothing but where it is: so tiles join, and
// any tiling has the same points.
TEST_F(SampleProgram, TilesOfATerrainAreOneLandscape)
{
    auto const sorted = [](std::vector<QZmath::PointCloud> const & clouds) {
        std::vector<std::array<float, 6>> points;
        for (QZmath::PointCloud const & cloud : clouds) {
            for (std::size_t i = 0; i < cloud.positions.size(); i += 3)
                points.push_back({cloud.positions[i], cloud.positions[i + 1], cloud.positions[i + 2],
                                  cloud.normals[i], cloud.normals[i + 1], cloud.normals[i + 2]});
        }
        std::sort(points.begin(), points.end());
        return points;
    };
    ASSERT_EQ(run("terrain -n 5001 -o '" + path("all.ply") + "'"), 0) << contents("output");
    QZmath::PointCloud const all = QZmath::readPoints(path("all.ply"));
    EXPECT_EQ(all.size(), 5001U);
    for (std::string const tiles : {"1,1", "3,2", "1,80"}) {
        std::string const folder = path("tiles" + tiles);
        ASSERT_EQ(run("terrain -n 5001 --tiles " + tiles + " -o '" + folder + "/'"), 0) << contents("output");
        std::vector<QZmath::PointCloud> clouds;
        for (auto const & entry : std::filesystem::directory_iterator(folder))
            clouds.push_back(QZmath::readPoints(entry.path()));
        EXPECT_GT(clouds.size(), tiles == "1,80" ? 70U : 0U);
        EXPECT_EQ(sorted(clouds), sorted({all})) << tiles;
    }
}

TEST(Terrain, IsASmoothLandscapeOfAnyExtent)
{
    qz_sampling::Terrain const terrain(7);
    qz_sampling::Random random(1);
    double least = 1e9, most = -1e9;
    for (int i = 0; i < 3000; ++i) {
        // Out to thousands of kilometres, to either side of 0, and on the lines of the lattice.
        double const scale = i % 3 == 0 ? 4e6 : 3000.0;
        double const x = i % 10 == 0 ? 2.0 * i : random.uniform(-scale, scale),
                     y = random.uniform(-scale, scale);
        qz_sampling::SurfacePoint const point = terrain.at(x, y);
        least = std::min(least, point.position.z());
        most = std::max(most, point.position.z());
        double const step = 1e-4;
        double const dx =
            (terrain.at(x + step, y).position.z() - terrain.at(x - step, y).position.z()) / (2 * step);
        double const dy =
            (terrain.at(x, y + step).position.z() - terrain.at(x, y - step).position.z()) / (2 * step);
        ASSERT_NEAR(-point.normal.x() / point.normal.z(), dx, 1e-4);
        ASSERT_NEAR(-point.normal.y() / point.normal.z(), dy, 1e-4);
        ASSERT_NEAR(point.normal.x() * point.normal.x() + point.normal.y() * point.normal.y() +
                        point.normal.z() * point.normal.z(),
                    1.0, 1e-12);
        ASSERT_GT(point.normal.z(), 0.3);
    }
    EXPECT_GT(most - least, 50.0);
    EXPECT_NE(terrain.at(10.3, 20.2).position.z(), qz_sampling::Terrain(8).at(10.3, 20.2).position.z());
}

TEST_F(SampleProgram, BadArgumentsAreNamedAndLeaveNoFile)
{
    std::string const output = " -o '" + path("x.ply") + "'";
    std::filesystem::create_directory(path("taken.ply"));
    struct Case
    {
        int code;
        std::string arguments, word;
    };
    Case const cases[] = {
        {2, "", "shape"},
        {2, "sphere", "output"},
        {2, "cube" + output, "cube"},
        {2, "sphere -n 0" + output, "points"},
        {2, "sphere -n many" + output, "many"},
        {2, "sphere --noise nan" + output, "nan"},
        {2, "sphere --noise -0.1" + output, "-0.1"},
        {2, "sphere --density-ratio inf" + output, "inf"},
        {2, "sphere -o '" + path("x.doc") + "'", "x.doc"},
        {2, "sphere --tiles 2,2 -o '" + path("x/") + "'", "terrain only"},
        {2, "terrain --tiles 2,2" + output, "folder"},
        {2, "terrain --tiles 2 -o '" + path("x/") + "'", "tiles"},
        {2, "terrain -o '" + path("x.xyz") + "'", ".ply"},
        {2, "terrain --density-ratio 3" + output, "evenly"},
        {2, "sphere -n 2000000000" + output, "terrain only"},
        {1, "terrain --tiles 2,2 -o '" + path("missing/x/") + "'", "missing"},
        {1, "sphere -n 5 -o '" + path("missing/x.ply") + "'", "missing"},
        {1, "sphere -n 5 -o '" + path("taken.ply") + "'", "taken"},
        {0, "--help", "Example:"},
        {0, "--version", " 1."},
    };
    for (auto const & [code, arguments, word] : cases) {
        EXPECT_EQ(run(arguments), code) << arguments;
        EXPECT_NE(contents("output").find(word), std::string::npos) << contents("output");
    }
    EXPECT_EQ(files(), (std::set<std::string>{"output", "taken.ply"}));
}
