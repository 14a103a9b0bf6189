// SPDX-License-Identifier: Apache-2.0
#include <apps/io/CloudReader.h>
#include <apps/sampling/SampleShapes.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

namespace
{

class SampleProgram : public testing::Test
{
protected:
    SampleProgram()
        : m_folder(std::filesystem::temp_directory_path() / ("qz-sample-program-" + std::to_string(getpid())))
    {
        std::filesystem::create_directories(m_folder);
    }
    ~SampleProgram() override { std::filesystem::remove_all(m_folder); }

    std::string path(std::string const & name) const { return (m_folder / name).string(); }

    // Exit code of the program; what it prints goes to the file "output".
    int run(std::string const & arguments) const
    {
        std::string const command =
            std::string("'") + QZ_SAMPLE_PROGRAM + "' " + arguments + " > '" + path("output") + "' 2>&1";
        int const status = std::system(command.c_str());
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    std::string content(std::string const & name) const
    {
        std::ifstream file(path(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }

    std::filesystem::path const m_folder;
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
        ASSERT_EQ(run("sheet -n 500 --seed 3 --noise 0.01 -o '" + path(name) + "'"), 0) << content("output");
        qz_io::PointCloud const read = qz_io::readCloud(path(name), nullptr);
        EXPECT_EQ(read.coords, cloud.positions) << name;
        EXPECT_EQ(read.normals, cloud.normals) << name;
        EXPECT_EQ(read.boundary.size(), name == "a.ply" ? 500U : 0U);
        EXPECT_TRUE(std::equal(read.boundary.begin(), read.boundary.end(), cloud.boundaryMarks.begin()));
    }
    ASSERT_EQ(run("sphere -n 7 -o '" + path("closed.ply") + "'"), 0);
    EXPECT_EQ(content("closed.ply").find("boundary"), std::string::npos);
}

TEST_F(SampleProgram, BadArgumentsAreNamedAndLeaveNoFile)
{
    std::string const output = " -o '" + path("x.ply") + "'";
    std::vector<std::pair<std::string, std::string>> const cases = {
        {"", "shape"},
        {"sphere", "output"},
        {"cube" + output, "cube"},
        {"sphere -n 0" + output, "points"},
        {"sphere -n many" + output, "many"},
        {"sphere --noise nan" + output, "nan"},
        {"sphere --noise -0.1" + output, "-0.1"},
        {"sphere --density-ratio inf" + output, "inf"},
        {"sphere -o '" + path("x.doc") + "'", "x.doc"},
    };
    for (auto const & [arguments, word] : cases) {
        EXPECT_EQ(run(arguments), 2) << arguments;
        EXPECT_NE(content("output").find(word), std::string::npos) << content("output");
    }
    EXPECT_EQ(run("sphere -n 5 -o '" + path("missing/x.ply") + "'"), 1);
    std::filesystem::create_directories(m_folder / "taken.ply" / "inside");
    EXPECT_EQ(run("sphere -n 5 -o '" + path("taken.ply") + "'"), 1);
    EXPECT_EQ(run("--help"), 0);
    EXPECT_NE(content("output").find("Example:"), std::string::npos);
    EXPECT_EQ(run("--version"), 0);

    std::size_t files = 0;
    for (auto const & entry : std::filesystem::directory_iterator(m_folder))
        files += entry.is_regular_file() ? 1 : 0;
    EXPECT_EQ(files, 1U);
}
