// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Files/Errors.h>
#include <QZmath/Files/MeshWriter.h>

#include <assimp/Importer.hpp>
#include <assimp/postprocess.h>
#include <assimp/scene.h>
#include <gtest/gtest.h>
#include <support/TestFolder.h>

#include <cmath>
#include <filesystem>
#include <string>

using namespace QZmath;
namespace fs = std::filesystem;

namespace
{

// A torus of `around` times `across` quads, closed and oriented.
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
                mesh.positions.push_back(static_cast<float>(coord));
            if (withNormals)
                for (double coord : {std::cos(b) * std::cos(a), std::cos(b) * std::sin(a), std::sin(b)})
                    mesh.normals.push_back(static_cast<float>(coord));
            unsigned const i1 = (i + 1) % around;
            unsigned const j1 = (j + 1) % across;
            for (unsigned corner : {i * across + j, i1 * across + j, i1 * across + j1, i * across + j,
                                    i1 * across + j1, i * across + j1})
                mesh.triangles.push_back(static_cast<std::int32_t>(corner));
        }
    return mesh;
}

class MeshWriter : public testing::Test, protected qz_test::TestFolder
{};

} // namespace

TEST_F(MeshWriter, everyFormatCarriesTheMeshInTheSameBytes)
{
    for (bool withNormals : {false, true}) {
        TriangleMesh const mesh = torus(40, 25, withNormals);
        for (char const * ending : {"ply", "obj", "stl", "gltf", "glb"}) {
            SCOPED_TRACE(ending);
            std::string const name = std::string(withNormals ? "smooth." : "plain.") + ending;
            std::string const file = path(name);
            PendingFiles pending;
            writeMesh(mesh, file, meshFormatOf(file), pending);
            EXPECT_FALSE(fs::exists(file)) << "visible before the commit";
            writeMesh(mesh, file + "." + ending, meshFormatOf(file), pending);
            pending.commit();
            // A .gltf names the file of its numbers.
            EXPECT_TRUE(std::string(ending) == "gltf" || contents(name) == contents(name + "." + ending));
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
                    float const * const expected =
                        &mesh.positions[3 * static_cast<std::size_t>(mesh.triangles[3 * face + corner])];
                    aiVector3D const vertex(expected[0], expected[1], expected[2]);
                    ASSERT_TRUE(read.mVertices[read.mFaces[face].mIndices[corner]].Equal(vertex, 1e-6f));
                }
        }
    }
    EXPECT_EQ(files().size(), 24u) << "four times five meshes and the .bin of each .gltf";
}

TEST_F(MeshWriter, nothingIsLeftOfAFailure)
{
    TriangleMesh const mesh = torus(12, 8, false);
    {
        PendingFiles dropped;
        writeMesh(mesh, path("dropped.gltf"), MeshFormat::gltf, dropped);
        EXPECT_EQ(files().size(), 2u);
    }
    EXPECT_EQ(files().size(), 0u);
    PendingFiles pending;
    EXPECT_THROW(writeMesh(mesh, path("no/such/folder.ply"), MeshFormat::ply, pending), OutputError);
    fs::create_directory(path("taken.ply"));
    EXPECT_THROW(writeMesh(mesh, path("taken.ply"), MeshFormat::ply, pending), OutputError);
    PendingFiles::removeAllFromSignalHandler();
    EXPECT_EQ(files().size(), 1u);
    EXPECT_THROW(meshFormatOf("x.off"), InputError);
}
