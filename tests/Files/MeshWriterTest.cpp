// SPDX-License-Identifier: Apache-2.0
#include <Files/CloudFiles.h>
#include <QZmath/Files/Files.h>
#include <QZsys/Exceptions.h>
#include <QZsys/ParallelTasks.h>
#include <QZsys/Progress.h>

#include <assimp/Importer.hpp>
#include <assimp/scene.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <support/SphereMesh.h>
#include <support/TestFolder.h>

#include <cmath>
#include <filesystem>
#include <sstream>
#include <string>
#include <thread>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace QZmath;
using testing::HasSubstr;
namespace fs = std::filesystem;

namespace
{

char const * const st_endings[] = {"ply", "obj", "stl", "gltf", "glb"};

// Where a corner of a triangle is.
double place(TriangleMesh const & mesh, std::size_t corner, std::size_t axis)
{
    return mesh.origin[axis] +
           static_cast<double>(mesh.positions[3 * static_cast<std::size_t>(mesh.triangles[corner]) + axis]);
}

// The mode of a file without its type.
unsigned modeOf(std::string const & path)
{
    struct stat status;
    return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777u : 0u;
}

class MeshWriter : public testing::Test, protected qz_test::TestFolder
{};

} // namespace

TEST_F(MeshWriter, threadsWriteTheBytesOfOneThread)
{
    for (unsigned has = 0; has < 4; ++has) {
        TriangleMesh mesh = qz_test::sphere(200, 120); // many blocks
        if (has & 1)
            mesh.normals.clear();
        if (has & 2)
            mesh.colors.clear();
        if (has == 3)
            mesh.density.clear();
        if (has & 2)
            mesh.origin = {500000.3, 5400000.7, 300.1};
        PointCloudView cloud;
        cloud.size = mesh.vertexCount();
        cloud.positions = mesh.positions.data();
        cloud.normals = mesh.normals.empty() ? nullptr : mesh.normals.data();
        cloud.colors = mesh.colors.empty() ? nullptr : mesh.colors.data();
        std::string expected[8];
        for (int const threads : {1, 2, 5}) {
            CThreadNumberScope const scope(threads);
            std::string * bytes = expected;
            auto const compare = [&](std::string const & name) {
                if (threads == 1)
                    *bytes = contents(name);
                else
                    EXPECT_TRUE(*bytes == contents(name)) << name << ' ' << has << ' ' << threads;
                ++bytes;
            };
            for (std::string const ending : st_endings) {
                writeMesh(mesh, path("mesh." + ending));
                compare(ending == "gltf" ? "mesh.bin" : "mesh." + ending);
            }
            for (std::string const name : {"cloud.ply", "cloud.obj", "cloud.csv"}) {
                writePoints(cloud, path(name));
                compare(name);
            }
        }
    }
}

TEST_F(MeshWriter, everyFormatGivesTheMeshBack)
{
    for (unsigned has = 0; has < 16; ++has) {
        TriangleMesh mesh = qz_test::sphere(40, 25);
        if (has & 1)
            mesh.normals.clear();
        if (has & 2)
            mesh.colors.clear();
        if (has & 4)
            mesh.density.clear();
        if (has & 8)
            mesh.origin = {500000.3, 5400000.7, 300.1};
        for (std::string const ending : st_endings) {
            SCOPED_TRACE(ending + " " + std::to_string(has));
            std::string const file = path("a mesh%." + ending);
            CProgressCounter counter;
            writeMesh(mesh, file, &counter);
            EXPECT_EQ(counter.getPosFloat(), 1.0);
            TriangleMesh const read = readMesh(file);
            ASSERT_EQ(read.triangleCount(), mesh.triangleCount());
            ASSERT_EQ(read.vertexCount(), mesh.vertexCount());
            // The same triangles, in the same order and orientation; binary STL has no place for an origin.
            TriangleMesh expected = mesh;
            if (ending == "stl")
                expected.origin = {};
            for (std::size_t corner = 0; corner < mesh.triangles.size(); ++corner)
                for (std::size_t axis = 0; axis < 3; ++axis)
                    ASSERT_NEAR(place(read, corner, axis), place(expected, corner, axis), has & 8 ? 2e-6 : 0);
            if (ending == "stl")
                continue;
            EXPECT_EQ(read.triangles, mesh.triangles);
            EXPECT_EQ(read.colors, mesh.colors);
            ASSERT_EQ(read.normals.size(), mesh.normals.size());
            for (std::size_t i = 0; i < mesh.normals.size(); ++i)
                ASSERT_NEAR(read.normals[i], mesh.normals[i], ending[0] == 'g' ? 1e-6 : 0);
            if (ending == "ply") {
                EXPECT_EQ(read.density, mesh.density);
            }
        }
    }
}

TEST_F(MeshWriter, othersReadWhatIsWritten)
{
    TriangleMesh const mesh = qz_test::sphere(40, 25);
    for (std::string const ending : st_endings) {
        SCOPED_TRACE(ending);
        writeMesh(mesh, path("mesh." + ending));
        Assimp::Importer importer;
        aiScene const * const scene = importer.ReadFile(path("mesh." + ending), 0);
        ASSERT_TRUE(scene) << importer.GetErrorString();
        ASSERT_EQ(scene->mNumMeshes, 1u);
        aiMesh const & read = *scene->mMeshes[0];
        ASSERT_EQ(read.mNumFaces, mesh.triangleCount());
        EXPECT_TRUE(read.HasNormals());
        EXPECT_EQ(read.HasVertexColors(0), ending != "stl");
        for (unsigned face = 0; face < read.mNumFaces; ++face)
            for (unsigned corner = 0; corner < 3; ++corner) {
                auto const vertex = static_cast<std::size_t>(mesh.triangles[3 * face + corner]);
                float const * const expected = &mesh.positions[3 * vertex];
                unsigned const at = read.mFaces[face].mIndices[corner];
                ASSERT_TRUE(read.mVertices[at].Equal({expected[0], expected[1], expected[2]}, 1e-6f));
                if (ending == "ply" || ending == "obj") {
                    ASSERT_NEAR(255 * read.mColors[0][at].g, mesh.colors[3 * vertex + 1], 0.02);
                }
            }
    }
}

TEST_F(MeshWriter, streamsGetTheSameBytesAsFiles)
{
    TriangleMesh const mesh = qz_test::sphere(30, 20);
    for (auto const & [ending, format] :
         {std::pair("ply", MeshFormat::ply), std::pair("obj", MeshFormat::obj),
          std::pair("stl", MeshFormat::stl), std::pair("glb", MeshFormat::glb)}) {
        std::string const name = std::string("mesh.") + ending;
        writeMesh(mesh, path(name));
        std::ostringstream stream;
        writeMesh(mesh, stream, format);
        EXPECT_TRUE(stream.str() == contents(name)) << ending;
    }
    int const kept = dup(STDOUT_FILENO);
    std::FILE * const output = std::fopen(path("out").c_str(), "w");
    dup2(fileno(output), STDOUT_FILENO);
    writeMesh(mesh, "-");
    dup2(kept, STDOUT_FILENO);
    std::fclose(output);
    EXPECT_TRUE(contents("out") == contents("mesh.ply"));
    int const full = open("/dev/full", O_WRONLY);
    dup2(full, STDOUT_FILENO);
    EXPECT_THROW(writeMesh(mesh, "-"), OutputError);
    dup2(kept, STDOUT_FILENO);
    close(full);
    close(kept);
    std::ostringstream broken;
    broken.setstate(std::ios::badbit);
    EXPECT_THROW(writeMesh(mesh, broken, MeshFormat::ply), OutputError);
    EXPECT_THROW(writeMesh(mesh, broken, MeshFormat::gltf), OutputError);
}

TEST_F(MeshWriter, nothingIsLeftOfAFailure)
{
    TriangleMesh const mesh = qz_test::sphere(12, 8);
    {
        PendingFiles dropped;
        writeMesh(mesh, path("dropped.gltf"), MeshFormat::gltf, dropped);
        EXPECT_EQ(files().size(), 2u);
        EXPECT_FALSE(fs::exists(path("dropped.gltf"))) << "visible before the commit";
    }
    CProgressCounter counter;
    counter.interrupt();
    EXPECT_THROW(writeMesh(mesh, path("x.ply"), &counter), CUserIntrException);
    EXPECT_EQ(files().size(), 0u);
    EXPECT_THROW(writeMesh(mesh, path("no/such/folder.ply")), OutputError);
    fs::create_directory(path("taken.ply"));
    EXPECT_THROW(writeMesh(mesh, path("taken.ply")), OutputError);
    PendingFiles pending;
    writeMesh(mesh, path("left.ply"), MeshFormat::ply, pending);
    PendingFiles::removeAllFromSignalHandler();
    EXPECT_EQ(files().size(), 1u);
    EXPECT_THROW(pending.commit(), OutputError);
    EXPECT_THROW(meshFormatOf("x.off"), InputError);
    rlimit before;
    getrlimit(RLIMIT_NOFILE, &before);
    rlimit const few{0, before.rlim_max};
    std::string refusal; // judged when there are descriptors again, which the judge may need
    setrlimit(RLIMIT_NOFILE, &few);
    try {
        writeMesh(mesh, path("x.gltf"));
    } catch (OutputError const & error) {
        refusal = error.what();
    }
    setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_THAT(refusal, HasSubstr("Too many open files"));

    TriangleMesh bad = mesh;
    bad.triangles[5] = static_cast<std::int32_t>(mesh.vertexCount());
    EXPECT_THROW(writeMesh(bad, path("x.ply")), OutputError);
    bad = mesh;
    bad.colors.pop_back();
    EXPECT_THROW(writeMesh(bad, path("x.ply")), OutputError);
    bad = mesh;
    bad.positions[7] = std::nanf("");
    EXPECT_THROW(writeMesh(bad, path("x.glb")), OutputError);
    EXPECT_THROW(writeMesh(TriangleMesh(), path("x.glb")), OutputError);
    EXPECT_NO_THROW(writeMesh(TriangleMesh(), path("x.ply")));
}

TEST_F(MeshWriter, aReplacedFileKeepsItsModeAndLinksAreFollowed)
{
    TriangleMesh const mesh = qz_test::sphere(12, 8);
    writeMesh(mesh, path("new.ply"));
    EXPECT_EQ(modeOf(path("new.ply")) & 0600, 0600u);
    chmod(path("new.ply").c_str(), 0440); // also one that could not be opened to write
    fs::create_directory(path("inner"));
    fs::create_symlink("../new.ply", path("inner/link.ply"));
    fs::create_symlink("inner/link.ply", path("link.ply"));
    fs::create_symlink("nothing.ply", path("dangling.ply"));
    TriangleMesh const other = qz_test::sphere(5, 4);
    writeMesh(other, path("link.ply"));
    writeMesh(other, path("dangling.ply"));
    EXPECT_TRUE(fs::is_symlink(path("link.ply")) && fs::is_symlink(path("inner/link.ply")));
    EXPECT_FALSE(fs::is_symlink(path("nothing.ply")));
    EXPECT_EQ(modeOf(path("new.ply")), 0440u);
    EXPECT_EQ(readMesh(path("new.ply")).vertexCount(), 22u);
    EXPECT_EQ(readMesh(path("nothing.ply")).vertexCount(), 22u);
    EXPECT_EQ(files().size(), 5u);
    // A pipe has no place beside it.
    ASSERT_EQ(mkfifo(path("pipe.ply").c_str(), 0600), 0);
    std::size_t vertices = 0;
    std::thread reader([&] { vertices = readMesh(path("pipe.ply")).vertexCount(); });
    writeMesh(mesh, path("pipe.ply"));
    reader.join();
    EXPECT_EQ(vertices, 98u);
    EXPECT_TRUE(fs::is_fifo(path("pipe.ply")));
}

TEST_F(MeshWriter, cloudsComeBackFromEveryFormat)
{
    for (unsigned has = 0; has < 16; ++has)
        for (std::string const name : {"c.ply", "c.obj", "c.xyz", "c.txt", "c.csv", "c.ASC"}) {
            SCOPED_TRACE(name + " " + std::to_string(has));
            PointCloud cloud = qz_test::randomCloud(
                3000, {(has & 1) != 0, (has & 2) != 0, (has & 4) != 0, (has & 8) != 0}, has);
            writePoints(cloud.view(), path(name));
            if (name == "c.obj")
                cloud.boundary.clear();
            PointCloud const read = readPoints(path(name));
            EXPECT_EQ(read.positions, cloud.positions);
            EXPECT_EQ(read.positions64, cloud.positions64);
            EXPECT_EQ(read.normals, cloud.normals);
            EXPECT_EQ(read.colors, cloud.colors);
            EXPECT_EQ(read.boundary, cloud.boundary);
            EXPECT_TRUE(read.notes.empty());
        }
    EXPECT_EQ(files().size(), 6u);
    EXPECT_THROW(writePoints(PointCloudView(), path("c.las")), OutputError);
    PointCloudView lacking;
    lacking.size = 1;
    EXPECT_THROW(writePoints(lacking, path("c.ply")), OutputError);
}

TEST(MeshReader, polygonsAndSharedCornersBecomeTriangles)
{
    auto const read = [](std::string const & bytes, MeshFormat format) {
        return readMeshFromMemory(bytes.data(), bytes.size(), format);
    };
    using testing::ElementsAre;
    EXPECT_THAT(read("v 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0\nf 1 2 3 4\nf 1/1 -2\n", MeshFormat::obj).triangles,
                ElementsAre(0, 1, 2, 0, 2, 3));
    std::string const ply =
        "ply\nformat ascii 1.0\nelement face 1\nproperty list uchar int vertex_index\nelement "
        "vertex 4\nproperty int x\nproperty int y\nproperty int z\nend_header\n";
    std::string const square = "0 0 0\n1 0 0\n1 1 0\n0 1 0\n";
    EXPECT_THAT(read(ply + "4 3 2 1 0\n" + square, MeshFormat::ply).triangles, ElementsAre(3, 2, 1, 3, 1, 0));
    EXPECT_THROW(read(ply + "3 3 2 4\n" + square, MeshFormat::ply), InputError);
    EXPECT_THROW(read(ply + "3 3 2 -1\n" + square, MeshFormat::ply), InputError);
    std::string const facet = "facet normal 0 0 1\nouter loop\nvertex 0 0 0\nvertex 1 0 0\nvertex 0 1e0 0\n"
                              "endloop\nendfacet\n";
    std::string const solid = "solid two\n" + facet + facet;
    TriangleMesh const twice = read(solid + "endsolid two\n", MeshFormat::stl);
    EXPECT_THAT(twice.triangles, ElementsAre(0, 1, 2, 0, 1, 2));
    EXPECT_EQ(twice.vertexCount(), 3u);
    EXPECT_THROW(read(solid, MeshFormat::stl), InputError);
    EXPECT_THROW(read(solid + "vertex 1 1 1\nendfacet\n", MeshFormat::stl), InputError);
    EXPECT_THROW(read(std::string(84, '\xff'), MeshFormat::stl), InputError);
    EXPECT_THROW(read("{}", MeshFormat::gltf), InputError);
    EXPECT_THROW(read("glTF", MeshFormat::glb), InputError);
}

TEST(MeshReader, gltfScenesAreTakenAsTheyStand)
{
    // Three positions and three shorts, in base64.
    std::string const numbers = "AAAAAAAAAAAAAAAAAACAPwAAAAAAAAAAAAAAAAAAgD8AAAAAAAABAAIA";
    auto const scene = [&](std::string const & nodes, std::string const & further,
                           std::string const & count) {
        return R"({"asset":{"version":"2.0"},"scenes":[{"nodes":[0]}],"nodes":)" + nodes +
               R"(,"meshes":[{"primitives":[{"attributes":{"POSITION":0},"indices":1)" + further +
               R"(}]}],"buffers":[{"byteLength":42,"uri":"data:;base64,)" + numbers +
               R"("}],"bufferViews":[{"buffer":0,"byteLength":36},{"buffer":0,"byteOffset":36,"byteLength":6}],)" +
               R"("accessors":[{"bufferView":0,"componentType":5126,"count":3,"type":"VEC3"},)" +
               R"({"bufferView":1,"componentType":5123,"count":)" + count + R"(,"type":"SCALAR"}]})";
    };
    auto const read = [](std::string const & bytes) {
        return readMeshFromMemory(bytes.data(), bytes.size(), MeshFormat::gltf);
    };
    auto const complaintOf = [&](std::string const & bytes) {
        return qz_test::complaintOf([&] { read(bytes); });
    };
    // A quarter turn about z of a mesh that is twice as large, moved, and the same mesh at its own place.
    TriangleMesh const placed = read(scene(
        R"([{"children":[1,2]},{"mesh":0,"translation":[1,2,3],"rotation":[0,0,0.70710678118654757,0.70710678118654757],)"
        R"("scale":[2,2,2]},{"mesh":0}])",
        "", "3"));
    std::vector<float> const expected = {1, 2, 3, 1, 4, 3, -1, 2, 3, 0, 0, 0, 1, 0, 0, 0, 1, 0};
    ASSERT_EQ(placed.positions.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i)
        EXPECT_NEAR(placed.origin[i % 3] + static_cast<double>(placed.positions[i]), expected[i], 1e-6);
    EXPECT_THAT(placed.triangles, testing::ElementsAre(0, 1, 2, 3, 4, 5));
    std::string const one = R"([{"mesh":0}])";
    EXPECT_THAT(read(scene(one, R"(,"mode":5)", "3")).triangles, testing::ElementsAre(0, 1, 2));
    EXPECT_THAT(complaintOf(scene(one, "", "4")), HasSubstr("outside of their buffer"));
    EXPECT_THAT(complaintOf(scene(one, "", "9007199254740993")), HasSubstr("outside of their buffer"));
    EXPECT_THAT(complaintOf(scene(one, "", "-1")), HasSubstr("no whole number"));
    EXPECT_THAT(complaintOf(scene(one, R"(,"mode":1)", "3")), HasSubstr("no vertices"));
    EXPECT_THAT(complaintOf(scene(R"([{"children":[0]}])", "", "3")), HasSubstr("no tree"));
    EXPECT_THAT(complaintOf(scene(R"([{"mesh":1}])", "", "3")), HasSubstr("that there is not"));
    EXPECT_THAT(complaintOf(R"({"buffers":[{"uri":"%2e./secret.bin","byteLength":1}]})"),
                HasSubstr("not beside"));
    EXPECT_THAT(complaintOf(R"({"extensionsRequired":["KHR_draco_mesh_compression"]})"),
                HasSubstr("needs the extension \"KHR_draco_mesh_compression\""));
    std::string many = "[{\"children\":[1";
    std::string children;
    for (int i = 2; i < 2000; ++i)
        many += "," + std::to_string(i);
    for (int i = 1; i < 2000; ++i)
        children += ",{\"mesh\":0}";
    EXPECT_EQ(read(scene(many + "]}" + children + "]", "", "3")).triangleCount(), 1999u);
}
