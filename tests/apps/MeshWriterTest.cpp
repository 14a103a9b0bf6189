// SPDX-License-Identifier: Apache-2.0
#include <apps/io/InputError.h>
#include <apps/io/MeshWriter.h>

#include <assimp/Importer.hpp>
#include <assimp/postprocess.h>
#include <assimp/scene.h>
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include <unistd.h>

using namespace qz_io;
namespace fs = std::filesystem;

namespace
{

/// A torus of `around` times `across` quads, closed and oriented.
TriangleMesh torus(unsigned around, unsigned across, bool withNormals)
{
    TriangleMesh mesh;
    double const turn = 2 * std::acos(-1.0);
    for (unsigned i = 0; i < around; ++i)
        for (unsigned j = 0; j < across; ++j) {
            double const a = turn * i / around;
            double const b = turn * j / across;
            for (double coord :
                 {(3 + std::cos(b)) * std::cos(a), (3 + std::cos(b)) * std::sin(a), std::sin(b)})
                mesh.coords.push_back(static_cast<float>(coord));
            if (withNormals)
                for (double coord : {std::cos(b) * std::cos(a), std::cos(b) * std::sin(a), std::sin(b)})
                    mesh.normals.push_back(static_cast<float>(coord));
            unsigned const i1 = (i + 1) % around;
            unsigned const j1 = (j + 1) % across;
            for (unsigned corner : {i * across + j, i1 * across + j, i1 * across + j1, i * across + j,
                                    i1 * across + j1, i * across + j1})
                mesh.triangles.push_back(corner);
        }
    return mesh;
}

/// A folder of its own for each test, removed with it.
class MeshWriter : public testing::Test
{
protected:
    MeshWriter()
        : m_folder(fs::path(testing::TempDir()) /
                   ("mesh-writer-test-" + std::to_string(getpid()) + "-" +
                    testing::UnitTest::GetInstance()->current_test_info()->name()))
    {
        fs::create_directories(m_folder);
    }
    ~MeshWriter() override { fs::remove_all(m_folder); }

    std::string path(std::string const & name) const { return (m_folder / name).string(); }
    std::size_t filesInFolder() const
    {
        return static_cast<std::size_t>(
            std::distance(fs::directory_iterator(m_folder), fs::directory_iterator()));
    }

private:
    fs::path m_folder;
};

std::string contents(std::string const & path)
{
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

} // namespace

TEST_F(MeshWriter, everyFormatCarriesTheMeshInTheSameBytes)
{
    for (bool withNormals : {false, true}) {
        TriangleMesh const mesh = torus(40, 25, withNormals);
        for (char const * ending : {"ply", "obj", "stl", "gltf", "glb"}) {
            SCOPED_TRACE(ending);
            std::string const file = path(std::string(withNormals ? "smooth." : "plain.") + ending);
            {
                PendingFiles files;
                writeMesh(mesh, file, meshFormatOf(file), files);
                EXPECT_FALSE(fs::exists(file)) << "visible before the commit";
                writeMesh(mesh, file + "." + ending, meshFormatOf(file), files);
                files.commit();
            }
            if (std::string(ending) != "gltf") { // which names the file of its numbers
                EXPECT_TRUE(contents(file) == contents(file + "." + ending));
            }
            Assimp::Importer importer;
            aiScene const * const scene = importer.ReadFile(file, 0);
            ASSERT_TRUE(scene) << importer.GetErrorString();
            ASSERT_EQ(scene->mNumMeshes, 1u);
            aiMesh const & read = *scene->mMeshes[0];
            ASSERT_EQ(read.mNumFaces, mesh.triangleCount());
            bool const indexed = std::string(ending) != "stl" && std::string(ending) != "obj";
            if (indexed) {
                EXPECT_EQ(read.mNumVertices, mesh.vertexCount());
                EXPECT_EQ(read.HasNormals(), withNormals);
            }
            // The same triangles, in the same order and orientation.
            for (unsigned face = 0; face < read.mNumFaces; ++face)
                for (unsigned corner = 0; corner < 3; ++corner) {
                    aiVector3D const & vertex = read.mVertices[read.mFaces[face].mIndices[corner]];
                    float const * const expected = &mesh.coords[3 * mesh.triangles[3 * face + corner]];
                    ASSERT_FLOAT_EQ(vertex.x, expected[0]);
                    ASSERT_FLOAT_EQ(vertex.y, expected[1]);
                    ASSERT_FLOAT_EQ(vertex.z, expected[2]);
                }
        }
    }
    EXPECT_EQ(filesInFolder(), 24u) << "four times five meshes and the .bin of each .gltf";
}

TEST_F(MeshWriter, nothingIsLeftOfAFailure)
{
    TriangleMesh const mesh = torus(12, 8, false);
    {
        PendingFiles files;
        writeMesh(mesh, path("dropped.gltf"), MeshFormat::gltf, files);
        EXPECT_EQ(filesInFolder(), 2u);
    }
    EXPECT_EQ(filesInFolder(), 0u);
    PendingFiles files;
    EXPECT_THROW(writeMesh(mesh, path("no/such/folder.ply"), MeshFormat::ply, files), OutputError);
    fs::create_directory(path("taken.ply"));
    writeMesh(mesh, path("taken.ply"), MeshFormat::ply, files);
    EXPECT_THROW(files.commit(), OutputError);
    PendingFiles::removeAllFromSignalHandler();
    EXPECT_EQ(filesInFolder(), 1u);
    EXPECT_THROW(meshFormatOf("x.off"), InputError);
}

TEST(TriangleMesh, closedMeansTwoOppositeTrianglesAtEachEdge)
{
    TriangleMesh mesh = torus(7, 5, false);
    EXPECT_TRUE(isClosed(mesh));
    TriangleMesh holed = mesh;
    holed.triangles.resize(holed.triangles.size() - 3);
    EXPECT_FALSE(isClosed(holed));
    TriangleMesh flipped = mesh;
    std::swap(flipped.triangles[0], flipped.triangles[1]);
    EXPECT_FALSE(isClosed(flipped));
    TriangleMesh doubled = mesh;
    doubled.triangles.insert(doubled.triangles.end(), mesh.triangles.begin(), mesh.triangles.end());
    EXPECT_FALSE(isClosed(doubled));
    EXPECT_FALSE(isClosed(TriangleMesh()));
}
