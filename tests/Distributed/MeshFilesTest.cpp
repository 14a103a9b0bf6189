// SPDX-License-Identifier: Apache-2.0
#include <Distributed/RankFolder.h>
#include <QZmath/Distributed/MeshFiles.h>
#include <QZmath/Files/MeshReader.h>
#include <QZmath/Files/MeshWriter.h>
#include <QZmath/Foundation/TriangleMesh.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include <signal.h>
#include <sys/resource.h>

namespace
{

using namespace QZmath;
using namespace QZmath::Distributed;
using testing::ElementsAre;
using testing::HasSubstr;

// A grid of so many squares along each side, with what was asked for.
TriangleMesh grid(int side, bool hasAttributes, double origin)
{
    TriangleMesh mesh;
    mesh.origin = {origin, 0.0, 0.0};
    for (int i = 0; i <= side; ++i) {
        for (int j = 0; j <= side; ++j) {
            auto const height = static_cast<float>(std::sin(0.1 * i) * std::cos(0.2 * j));
            mesh.positions.insert(mesh.positions.end(),
                                  {static_cast<float>(i), static_cast<float>(j), height});
            if (hasAttributes) {
                mesh.normals.insert(mesh.normals.end(), {0.0F, height, 1.0F});
                for (int channel = 0; channel < 3; ++channel)
                    mesh.colors.push_back(static_cast<std::uint8_t>((i + 5 * j + channel) % 256));
            }
        }
    }
    for (int i = 0; i < side; ++i) {
        for (int j = 0; j < side; ++j) {
            int const corner = i * (side + 1) + j;
            mesh.triangles.insert(mesh.triangles.end(), {corner, corner + side + 1, corner + 1});
            mesh.triangles.insert(mesh.triangles.end(), {corner + 1, corner + side + 1, corner + side + 2});
        }
    }
    return mesh;
}

// What a rank has of a mesh; the second rank of several has nothing.
MeshPart partOf(Communicator const & ranks, TriangleMesh const & mesh)
{
    int const sharing = ranks.size() > 1 ? ranks.size() - 1 : 1;
    int const place = ranks.rank() == 0 ? 0 : ranks.rank() - 1;
    bool const hasNone = ranks.rank() == 1;
    auto const range = [&](std::size_t count) {
        std::size_t const begin = count * static_cast<std::size_t>(place) / static_cast<std::size_t>(sharing);
        std::size_t const end =
            count * static_cast<std::size_t>(place + 1) / static_cast<std::size_t>(sharing);
        return std::array<std::size_t, 2>{hasNone ? end : begin, end};
    };
    // The second rank's numbers follow those of the first, whose range it would have had.
    auto const vertices =
        hasNone ? std::array<std::size_t, 2>{range(mesh.vertexCount())[1], range(mesh.vertexCount())[1]}
                : range(mesh.vertexCount());
    auto const triangles =
        hasNone ? std::array<std::size_t, 2>{range(mesh.triangleCount())[1], range(mesh.triangleCount())[1]}
                : range(mesh.triangleCount());
    auto const cut = [](auto const & values, std::array<std::size_t, 2> const & bounds) {
        using Values = std::decay_t<decltype(values)>;
        return values.empty() ? Values()
                              : Values(values.begin() + static_cast<std::ptrdiff_t>(3 * bounds[0]),
                                       values.begin() + static_cast<std::ptrdiff_t>(3 * bounds[1]));
    };
    MeshPart part;
    part.origin = mesh.origin;
    part.positions = cut(mesh.positions, vertices);
    part.normals = cut(mesh.normals, vertices);
    part.colors = cut(mesh.colors, vertices);
    std::vector<std::int32_t> const own = cut(mesh.triangles, triangles);
    part.triangles.assign(own.begin(), own.end());
    part.firstVertex = static_cast<std::int64_t>(vertices[0]);
    part.firstTriangle = static_cast<std::int64_t>(triangles[0]);
    part.vertices = static_cast<std::int64_t>(mesh.vertexCount());
    part.triangleCount = static_cast<std::int64_t>(mesh.triangleCount());
    return part;
}

std::string complaintOf(Communicator const & ranks, MeshPart const & part, std::string const & path)
{
    try {
        writeMesh(ranks, part, path);
    } catch (RankError const & error) {
        EXPECT_EQ(error.kind(), RankError::Kind::output);
        return error.cause();
    }
    return "";
}

// Corner by corner, the places of the triangles.
std::vector<std::array<float, 9>> trianglesOf(TriangleMesh const & mesh)
{
    std::vector<std::array<float, 9>> all;
    for (std::size_t i = 0; i < mesh.triangles.size(); i += 3) {
        std::array<float, 9> places;
        for (std::size_t n = 0; n < 9; ++n)
            places[n] = mesh.positions[3 * static_cast<std::size_t>(mesh.triangles[i + n / 3]) + n % 3];
        all.push_back(places);
    }
    return all;
}

} // namespace

TEST(MeshFiles, OneFileHasTheBytesOfOneProcess)
{
    Communicator const ranks(MPI_COMM_WORLD);
    qz_test::RankFolder const folder(ranks);
    for (bool const hasAttributes : {false, true}) {
        for (double const origin : {0.0, 1e6}) {
            // The second mesh takes several rounds.
            TriangleMesh const mesh = grid(hasAttributes ? 40 : 1300, hasAttributes, origin);
            writeMesh(ranks, partOf(ranks, mesh), folder.path("mesh.ply"));
            if (folder.onFirst() == nullptr)
                continue;
            std::ostringstream expected;
            QZmath::writeMesh(mesh, expected, MeshFormat::ply);
            EXPECT_TRUE(folder.onFirst()->contents("mesh.ply") == expected.str());
            EXPECT_THAT(folder.onFirst()->files(), ElementsAre("mesh.ply"));
        }
    }
}

TEST(MeshFiles, PartsAreMeshesOfTheirOwn)
{
    Communicator const ranks(MPI_COMM_WORLD);
    qz_test::RankFolder const folder(ranks);
    TriangleMesh const mesh = grid(50, true, 0.0);
    writeMesh(ranks, partOf(ranks, mesh), folder.path("parts/"));
    MPI_Barrier(ranks.get());
    std::vector<std::array<float, 9>> all;
    for (int rank = 0; rank < ranks.size(); ++rank) {
        if (ranks.size() > 1 && rank == 1) // has nothing
            continue;
        TriangleMesh const part = readMesh(folder.path("parts/part-0000" + std::to_string(rank) + ".ply"));
        std::vector<std::array<float, 9>> const own = trianglesOf(part);
        all.insert(all.end(), own.begin(), own.end());
        // Attributes have come along with the vertices of others.
        for (std::size_t vertex = 0; vertex < part.vertexCount(); ++vertex) {
            ASSERT_EQ(part.normals[3 * vertex + 1], part.positions[3 * vertex + 2]);
            ASSERT_EQ(part.colors[3 * vertex],
                      static_cast<int>(part.positions[3 * vertex] + 5 * part.positions[3 * vertex + 1]) %
                          256);
        }
    }
    EXPECT_EQ(all, trianglesOf(mesh));
    MPI_Barrier(ranks.get());
    // A stale part of a larger run would be taken for one of this mesh.
    folder.write("parts/part-00099.ply", "old");
    EXPECT_THAT(complaintOf(ranks, partOf(ranks, mesh), folder.path("parts/")), HasSubstr("part-00099.ply"));
    EXPECT_THAT(complaintOf(ranks, partOf(ranks, mesh), folder.path("missing/parts/")),
                HasSubstr("no folder"));
}

TEST(MeshFiles, NothingIsLeftOfWhatFails)
{
    Communicator const ranks(MPI_COMM_WORLD);
    qz_test::RankFolder const folder(ranks);
    folder.write("old.ply", "old");
    TriangleMesh const mesh = grid(300, false, 0.0);
    MeshPart part = partOf(ranks, mesh);

    // No byte fits behind the limit: as on a disk that is full.
    signal(SIGXFSZ, SIG_IGN);
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    rlimit const limited{10000, before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limited);
    EXPECT_THAT(complaintOf(ranks, part, folder.path("old.ply")),
                AllOf(HasSubstr("cannot write"), HasSubstr("old.ply")));
    EXPECT_THAT(complaintOf(ranks, part, folder.path("new/")), HasSubstr("cannot write"));
    setrlimit(RLIMIT_FSIZE, &before);

    EXPECT_THAT(complaintOf(ranks, part, "/dev/null"), HasSubstr("regular file"));
    if (ranks.rank() == ranks.size() - 1)
        part.triangles[4] = part.vertices;
    EXPECT_THAT(complaintOf(ranks, part, folder.path("old.ply")), HasSubstr("a vertex that there is not"));
    MeshPart many;
    many.vertices = std::int64_t{1} << 33;
    EXPECT_THAT(complaintOf(ranks, many, folder.path("old.ply")), HasSubstr("do not fit"));
    MPI_Barrier(ranks.get());
    if (folder.onFirst() != nullptr) {
        EXPECT_THAT(folder.onFirst()->files(), ElementsAre("old.ply"));
        EXPECT_EQ(folder.onFirst()->contents("old.ply"), "old");
    }
}
