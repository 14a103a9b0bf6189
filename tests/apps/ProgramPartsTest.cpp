// SPDX-License-Identifier: Apache-2.0
#include <apps/qzrecon/CloudSamples.h>
#include <apps/qzrecon/Options.h>
#include <apps/qzrecon/ProgramMemory.h>
#include <apps/qzrecon/UnreachedParts.h>

#include <QZmath/Files/Errors.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <iterator>
#include <limits>
#include <random>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

using namespace qz_recon;

namespace
{

// Even points on a sphere.
void addSphere(QZmath::PointCloud & cloud, std::size_t count, float const (&centre)[3], float radius,
               unsigned seed)
{
    std::mt19937 engine(seed);
    std::normal_distribution<float> normal;
    for (std::size_t i = 0; i < count; ++i) {
        float const direction[3] = {normal(engine), normal(engine), normal(engine)};
        float const length = std::hypot(direction[0], direction[1], direction[2]);
        for (int axis = 0; axis < 3; ++axis) {
            cloud.positions.push_back(centre[axis] + radius * direction[axis] / length);
            cloud.normals.push_back(direction[axis] / length);
        }
    }
}

std::optional<Options> parse(std::vector<char const *> arguments)
{
    arguments.insert(arguments.begin(), "qzrecon");
    return parseOptions(static_cast<int>(arguments.size()), arguments.data());
}

} // namespace

TEST(ProgramMemory, IsAskedFromTheSystem)
{
    EXPECT_GT(availableMemory(), 1e6);
    EXPECT_LT(availableMemory(), 1e15);
    EXPECT_GT(peakMemory(), 1e6);
}

TEST(Cloud, valuesThatNoReconstructionCanStartFromAreNamed)
{
    float const nan = std::nanf(""), infinity = std::numeric_limits<float>::infinity();
    auto const complaintOf = [](std::vector<float> positions, std::vector<float> normals) {
        QZmath::PointCloud cloud;
        cloud.positions = std::move(positions);
        cloud.normals = std::move(normals);
        try {
            checkCloud(cloud);
        } catch (QZmath::InputError const & error) {
            return std::string(error.what());
        }
        return std::string();
    };
    using testing::HasSubstr;
    EXPECT_THAT(complaintOf({}, {}), HasSubstr("no points"));
    EXPECT_THAT(complaintOf({1, 2, 3, 1, 2, nan, 1, infinity, 2}, {}),
                HasSubstr("at 2 points, the first at index 1,"));
    EXPECT_THAT(complaintOf({1, 2, 3}, {0, -infinity, 1}),
                HasSubstr("normals that are not finite at 1 point"));
    EXPECT_THAT(complaintOf({1, 2, 3e35f}, {0, 0, 1}), HasSubstr("beyond 1e30"));
    EXPECT_THAT(complaintOf({1, 2, 3}, {0, 0, 0}), HasSubstr("all normals of the input are zero"));
    EXPECT_EQ(complaintOf({1, 2, 3}, {}), "");
}

TEST(UnreachedParts, farGroupsAreFoundAndStrayPointsAreNot)
{
    QZmath::PointCloud cloud;
    addSphere(cloud, 3000, {0.0f, 0.0f, 0.0f}, 1.0f, 3);
    QZmath::TriangleMesh mesh;
    mesh.positions = cloud.positions;
    EXPECT_TRUE(findUnreachedParts(cloud, mesh, 0.1).empty());
    addSphere(cloud, 200, {5.0f, 0.0f, 0.0f}, 0.2f, 4);
    addSphere(cloud, 500, {0.0f, -4.0f, 0.0f}, 0.2f, 5);
    addSphere(cloud, 9, {0.0f, 0.0f, 9.0f}, 0.01f, 6);
    std::vector<UnreachedPart> const parts = findUnreachedParts(cloud, mesh, 0.1);
    ASSERT_EQ(parts.size(), 2u);
    EXPECT_EQ(parts[0].samples, 500u);
    EXPECT_EQ(parts[1].samples, 200u);
    EXPECT_NEAR(parts[0].firstSample[1], -4.0f, 0.21f);
    EXPECT_EQ(findUnreachedParts(cloud, QZmath::TriangleMesh(), 0.1).size(), 3u)
        << "an empty mesh reaches nothing";
    EXPECT_TRUE(findUnreachedParts(cloud, mesh, 100.0).empty());
    EXPECT_LE(findUnreachedParts(cloud, mesh, 1e-300).size(), cloud.size() / 10)
        << "the lattice stays countable";
}

TEST(Options, defaultsAreThoseOfTheLibraryAndEveryFieldCanBeSet)
{
    // Depth and acceleration apart, whose defaults are the program's.
    auto const fields = [](VolTr::CVolTriangulationParams const & p) {
        return std::make_tuple(p.getReconstructFactor(), p.getClosed(), p.getEstimateResultNormals(),
                               p.getUseCenter(), p.getKernelScaleFactor(), p.getVariableDensity(),
                               p.getDensityEstimationDepthDelta(), p.getDetalizationLevel(),
                               int(p.getPrefferedSolver()), p.getSolverTolerance());
    };
    Options const plain = parse({"in.ply", "-o", "out.ply"}).value();
    EXPECT_EQ(fields(plain.params), fields(VolTr::CVolTriangulationParams()));
    EXPECT_EQ(plain.params.getOctreeDepth(), 8);
    EXPECT_TRUE(plain.params.getAccelerated());

    std::istringstream line("-o out.ply in.ply --depth 5 --subdivision 2 --open --normals --corner "
                            "--kernel-scale -1 --uniform-density --density-delta 3 --levels 4 --exact "
                            "--tolerance 0.01 --solver iterative --threads 2 --log l.txt -q "
                            "--max-memory 1.5 --no-phase-names");
    std::vector<std::string> const words{std::istream_iterator<std::string>(line), {}};
    std::vector<char const *> arguments;
    for (std::string const & word : words)
        arguments.push_back(word.c_str());
    Options const set = parse(arguments).value();
    EXPECT_EQ(fields(set.params), std::make_tuple(2, 0, 1, 0, -1, 0, 3, 4, 3, 0.01));
    EXPECT_EQ(set.params.getOctreeDepth(), 5);
    EXPECT_FALSE(set.params.getAccelerated() || set.params.getPhaseNameShown());
    EXPECT_EQ(set.threads, 2);
    EXPECT_EQ(set.logFile, "l.txt");
    EXPECT_TRUE(set.quiet);
    EXPECT_EQ(set.memoryLimit, 1.5e9);
}

TEST(Options, senselessOnesAreRefused)
{
    using Words = std::vector<char const *>;
    for (Words const & files : {Words{}, {"in.ply"}, {"-o", "out.ply"}, {"in.ply", "b.ply", "-o", "out.ply"}})
        EXPECT_THROW(parse(files), UsageError) << files.size();
    std::istringstream pairs(
        "--depth 1 --depth 30 --depth -1 --depth eight --depth 99999999999 --solver 7 --subdivision 0 "
        "--subdivision nan --kernel-scale inf --tolerance 0 --threads -1 --max-memory nan --unknown --open");
    for (std::string name, value; pairs >> name >> value;)
        EXPECT_THROW(parse({"in.ply", "-o", "out.ply", name.c_str(), value.c_str()}), UsageError)
            << name << ' ' << value;
    EXPECT_THROW(parse({"in.ply", "-o", "out.ply", "--depth", "0", "--corner"}), UsageError);
    EXPECT_EQ(parse({"in.ply", "-o", "out.ply", "--depth", "1", "--corner"})->params.getOctreeDepth(), 1);
}
