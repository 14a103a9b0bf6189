// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Files/Files.h>

#include <gtest/gtest.h>
#include <support/MeasureMemory.h>
#include <support/TestFolder.h>

#include <sstream>
#include <string>

using namespace QZmath;

namespace
{

// A stream, whose size nobody knows, of some bytes and nothing behind them.
long peakOfReading(std::string const & bytes)
{
    std::istringstream stream(bytes);
    return qz_test::peakBytesOf([&] { EXPECT_THROW(readPoints(stream), InputError); });
}

} // namespace

TEST(FilesMemory, writersNeedLittleBesideTheMesh)
{
    if (!qz_test::isMemoryMeasured)
        GTEST_SKIP() << "sanitizers count themselves";
    TriangleMesh mesh;
    std::int32_t const vertices = 1000000;
    for (std::int32_t i = 0; i < vertices; ++i) {
        for (int axis = 0; axis < 3; ++axis) {
            mesh.positions.push_back(static_cast<float>((i * (axis + 7)) % 1000) / 10);
            mesh.normals.push_back(0.5f);
            mesh.colors.push_back(static_cast<std::uint8_t>(i));
        }
        mesh.triangles.insert(mesh.triangles.end(), {i, (i + 1) % vertices, (i + 2) % vertices});
    }
    qz_test::TestFolder const folder;
    for (char const * name : {"m.ply", "m.obj", "m.stl", "m.gltf", "m.glb"})
        EXPECT_LT(qz_test::peakBytesOf([&] { writeMesh(mesh, folder.path(name)); }), 16e6) << name;
}

TEST(FilesMemory, absurdPromisesTakeNone)
{
    if (!qz_test::isMemoryMeasured)
        GTEST_SKIP() << "sanitizers count themselves";
    std::string const ply =
        "ply\nformat binary_little_endian 1.0\nelement vertex 2000000000\nproperty float x\n"
        "property float y\nproperty float z\nend_header\n";
    std::string const pcd =
        "VERSION .7\nFIELDS x y z\nSIZE 4 4 4\nTYPE F F F\nCOUNT 1 1 1\nWIDTH 300000000\nHEIGHT "
        "1\nDATA ";
    std::string las(227, '\0');
    las.replace(0, 4, "LASF");
    las[24] = 1;
    las[96] = static_cast<char>(227);
    las[105] = 20;
    las[110] = 0x7f; // points
    las.replace(131, 48, "aaaaaaa?aaaaaaa?aaaaaaa?aaaaaaa?aaaaaaa?aaaaaaa?");
    for (std::string const & bytes :
         {ply, pcd + "binary\n", pcd + "ascii\n",
          pcd + std::string("binary_compressed\n\xff\xff\xff\x7f\0\xa4\x93\xd6", 26), las,
          std::string("2000000000\n")})
        EXPECT_LT(peakOfReading(bytes), 4e6) << bytes.substr(0, 100);
}
