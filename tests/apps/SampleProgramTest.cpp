// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Files/PointReader.h>
#include <apps/sampling/SampleShapes.h>

#include <gtest/gtest.h>
#include <support/TestFolder.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <string>

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
