// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Files/Files.h>

#include <gtest/gtest.h>
#include <support/MeasureMemory.h>
#include <support/SphereMesh.h>
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
    TriangleMesh const mesh = qz_test::sphere(1000, 1000);
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
