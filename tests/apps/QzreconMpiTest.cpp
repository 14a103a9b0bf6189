// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Files/MeshReader.h>
#include <QZmath/Files/PointWriter.h>
#include <QZmath/Foundation/TriangleMesh.h>
#include <apps/ChildProcess.h>
#include <apps/qzrecon-mpi/Plan.h>
#include <apps/sampling/SampleShapes.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <signal.h>
#include <stdlib.h>

using qz_test::ChildProcess;
using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;
namespace fs = std::filesystem;

namespace
{

using Arguments = std::vector<std::string>;

// Runs the program on ranks of this machine, in a folder with the points of a sphere in three tiles.
class QzreconMpi : public testing::Test, protected qz_test::TestFolder
{
protected:
    QzreconMpi() { writeTiles(30000); }

    void writeTiles(std::size_t points)
    {
        qz_sampling::SamplingOptions sampling;
        sampling.pointNumber = points;
        m_cloud = qz_sampling::sampleCloud(*qz_sampling::makeShape("sphere"), sampling);
        tiles.clear();
        for (std::size_t tile = 0; tile < 3; ++tile) {
            std::size_t const begin = points * tile / 3, end = points * (tile + 1) / 3;
            QZmath::PointCloudView view;
            view.size = end - begin;
            view.positions = m_cloud.positions.data() + 3 * begin;
            view.normals = m_cloud.normals.data() + 3 * begin;
            tiles.push_back(path("tile" + std::to_string(tile) + ".ply"));
            QZmath::writePoints(view, tiles.back());
        }
    }
    Arguments commandLine(int ranks, Arguments const & arguments) const
    {
        Arguments all = {QZ_MPIEXEC, "--oversubscribe",     "--bind-to",         "none",
                         "-n",       std::to_string(ranks), QZ_RECON_MPI_PROGRAM};
        all.insert(all.end(), arguments.begin(), arguments.end());
        return all;
    }
    Arguments withTiles(Arguments arguments) const
    {
        arguments.insert(arguments.begin(), tiles.begin(), tiles.end());
        return arguments;
    }
    static void prepareRanks()
    {
        setenv("OMPI_ALLOW_RUN_AS_ROOT", "1", 1);
        setenv("OMPI_ALLOW_RUN_AS_ROOT_CONFIRM", "1", 1);
        setenv("OMPI_MCA_mpi_yield_when_idle", "1", 1);
        setenv("ASAN_OPTIONS", "detect_leaks=0", 1); // MPI keeps some memory to the end
    }
    int run(int ranks, Arguments const & arguments)
    {
        ChildProcess process(commandLine(ranks, arguments), prepareRanks);
        int const code = process.wait();
        output = process.output();
        errors = process.errors();
        return code;
    }
    // Expects an exit code, one sentence of the program, and no file beyond those of before.
    void expectComplaint(int code, Arguments const & arguments, std::string const & sentence)
    {
        SCOPED_TRACE(sentence);
        std::set<std::string> const before = files();
        EXPECT_EQ(run(3, arguments), code);
        EXPECT_THAT(errors, HasSubstr("qzrecon-mpi: " + sentence));
        std::size_t count = 0;
        for (std::size_t at = errors.find("qzrecon-mpi: "); at != std::string::npos;
             at = errors.find("qzrecon-mpi: ", at + 1))
            ++count;
        EXPECT_EQ(count, 1U) << errors;
        EXPECT_EQ(output, "");
        EXPECT_EQ(files(), before);
    }
    static void expectSphere(QZmath::TriangleMesh const & mesh)
    {
        for (std::size_t i = 0; i < mesh.positions.size(); i += 3)
            ASSERT_NEAR(std::hypot(mesh.positions[i], mesh.positions[i + 1], mesh.positions[i + 2]), 1.0,
                        0.02);
    }

    std::vector<std::string> tiles;
    std::string output, errors;

private:
    qz_sampling::Cloud m_cloud;
};

} // namespace

TEST_F(QzreconMpi, WritesOneMeshOfManyTiles)
{
    ASSERT_EQ(run(3, withTiles({"-o", path("mesh.ply"), "--depth", "6", "--normals"})), 0) << errors;
    QZmath::TriangleMesh const mesh = QZmath::readMesh(path("mesh.ply"));
    expectSphere(mesh);
    EXPECT_EQ(mesh.normals.size(), mesh.positions.size());
    EXPECT_EQ(2 * mesh.vertexCount(), mesh.triangleCount() + 4); // closed, without a hole
    EXPECT_THAT(output, AllOf(StartsWith(path("mesh.ply") + ": " + std::to_string(mesh.vertexCount()) +
                                         " vertices, " + std::to_string(mesh.triangleCount()) +
                                         " triangles, closed; "),
                              HasSubstr("30000 points on 3 ranks"), HasSubstr("; depth 6, cells of 0.0")));
    EXPECT_EQ(std::count(output.begin(), output.end(), '\n'), 1);

    // The same in a file each, of a cell size.
    ASSERT_EQ(run(2, withTiles({"-o", path("parts/"), "--cell-size", "0.04", "-q"})), 0) << errors;
    EXPECT_EQ(output + errors, "");
    std::size_t triangles = 0;
    for (char const * name : {"parts/part-00000.ply", "parts/part-00001.ply"}) {
        QZmath::TriangleMesh const part = QZmath::readMesh(path(name));
        expectSphere(part);
        triangles += part.triangleCount();
    }
    EXPECT_EQ(triangles, mesh.triangleCount());
    EXPECT_EQ(files(), (std::set<std::string>{"mesh.ply", "parts", "tile0.ply", "tile1.ply", "tile2.ply"}));
}

TEST_F(QzreconMpi, GoesOnFromACheckpointOnOtherRanks)
{
    ASSERT_EQ(
        run(3, withTiles({"-o", path("first.ply"), "--depth", "6", "-q", "--checkpoint", path("state")})), 0)
        << errors;
    ASSERT_EQ(run(2, {"--resume", path("state"), "-o", path("second.ply"), "--depth", "6", "-q"}), 0)
        << errors;
    EXPECT_EQ(QZmath::readMesh(path("first.ply")).triangleCount(),
              QZmath::readMesh(path("second.ply")).triangleCount());
}

TEST_F(QzreconMpi, SaysOnceWhatIsWrongAndLeavesNothing)
{
    Arguments const usual = {"-o", path("mesh.ply"), "--depth", "6"};
    auto const with = [&](std::string const & tile) {
        Arguments all = withTiles(usual);
        all.insert(all.begin() + 1, tile);
        return all;
    };
    std::string const bytes = contents("tile0.ply");
    expectComplaint(2, with(path("missing.ply")), "rank ");
    EXPECT_THAT(errors, AllOf(HasSubstr("cannot open "), HasSubstr("missing.ply: No such file")));
    expectComplaint(2, with(write("torn.ply", bytes.substr(0, bytes.size() / 2))), "rank ");
    EXPECT_THAT(errors, AllOf(HasSubstr("torn.ply: the input is truncated")));
    expectComplaint(2, with(write("empty.ply", "")), "rank ");
    EXPECT_THAT(errors, HasSubstr("empty.ply: the input is not a PLY file"));
    expectComplaint(2, with(write("bare.xyz", "0 0 1\n0 1 0\n")), "rank ");
    EXPECT_THAT(errors, HasSubstr("bare.xyz: the input has no normals"));
    expectComplaint(2, withTiles({"-o", tiles[0], "--depth", "6"}),
                    "rank 0: the output would replace the input");
    expectComplaint(2, withTiles({"-o", path("mesh.obj"), "--depth", "6"}), "several ranks write .ply only");
    expectComplaint(2, withTiles({"-o", path("mesh.ply")}), "the size of the cells is needed");
    expectComplaint(2, withTiles({"-o", path("mesh.ply"), "--depth", "22"}), "depth 22 is out of range");
    expectComplaint(2, {"-o", path("mesh.ply"), "--depth", "6"}, "INPUT is required");
    expectComplaint(3, withTiles({"-o", path("none/mesh.ply"), "--depth", "6"}), "rank 0: cannot write ");
}

// Whoever is told to end, the launcher or a rank, and be it killed: nobody hangs, and no pending file stays.
TEST_F(QzreconMpi, EndsOnAllRanks)
{
    writeTiles(600000);
    std::set<std::string> const before = files();
    for (int const number : {SIGTERM, SIGINT, SIGKILL}) {
        ChildProcess process(commandLine(3, withTiles({"-o", path("mesh.ply"), "--depth", "10"})),
                             prepareRanks);
        auto const isAt = [&] { return files() != before; }; // the pending file is there from the beginning
        for (int i = 0; i < 2000 && !isAt(); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        ASSERT_TRUE(isAt());
        std::this_thread::sleep_for(std::chrono::milliseconds(700));
        auto const begin = std::chrono::steady_clock::now();
        if (number != SIGKILL) {
            process.send(number);
        } else { // one of the ranks; the name of the file has the number of the first one's process
            for (std::string const & name : files()) {
                if (before.count(name) == 0)
                    kill(std::stoi(name.substr(name.find("ply.") + 4)) + 1, SIGKILL);
            }
        }
        EXPECT_NE(process.wait(), 0);
        EXPECT_LT(std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count(), 10.0);
        EXPECT_EQ(process.output(), "");
        for (int i = 0; i < 400 && files() != before; ++i) // the ranks may outlive the launcher a little
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        EXPECT_EQ(files(), before);
    }
}

// The model against a run, and what must be true of any model.
TEST_F(QzreconMpi, PlansWhatARunNeeds)
{
    // 1054691 leaf cells on 8 ranks took 261 MB, sent 713292 bytes an iteration.
    qz_recon_mpi::Plan const measured = qz_recon_mpi::planRun(1054691, 8);
    EXPECT_NEAR(measured.memory, 261e6, 0.15 * 261e6);
    EXPECT_NEAR(measured.bytesPerIteration, 713292, 0.15 * 713292);
    for (double const cells : {1.0, 1e6, 1e11}) {
        qz_recon_mpi::Plan before = qz_recon_mpi::planRun(cells, 1);
        EXPECT_EQ(before.bytesPerIteration + before.copies + before.samplesSent, 0.0);
        double const alone = before.memory;
        for (double ranks = 2; ranks <= 4096; ranks *= 2) {
            qz_recon_mpi::Plan const plan = qz_recon_mpi::planRun(cells, ranks);
            EXPECT_GT(plan.memory * ranks, alone);
            EXPECT_LE(plan.copies, 1120.0 * cells);
            if (cells > 1e10) {
                EXPECT_LT(plan.memory, before.memory);
                EXPECT_LT(plan.seconds, before.seconds);
            }
            before = plan;
        }
    }
    ASSERT_EQ(run(1, {"--plan", "1e10,512"}), 0) << errors;
    EXPECT_EQ(output, qz_recon_mpi::planRun(1e10, 512).text);
    EXPECT_THAT(output, AllOf(HasSubstr("1e+10 leaf cells on 512 ranks"), HasSubstr("surface: "),
                              HasSubstr("in all ")));
    expectComplaint(2, {"--plan", "1e10,0"}, "--plan");
}

TEST_F(QzreconMpi, IsAloneInNeedingMpi)
{
    for (char const * file : {QZ_LIBRARY, QZ_FILES_LIBRARY, QZ_RECON_PROGRAM}) {
        ChildProcess process({"/usr/bin/env", "ldd", file});
        ASSERT_EQ(process.wait(), 0);
        EXPECT_THAT(process.output(),
                    AllOf(HasSubstr("libc.so"), Not(HasSubstr("libmpi")), Not(HasSubstr("petsc"))));
    }
}
