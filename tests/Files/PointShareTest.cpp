// SPDX-License-Identifier: Apache-2.0
#include <Files/CloudFiles.h>
#include <QZmath/Files/PointWriter.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <support/PointShares.h>
#include <support/TestFolder.h>

#include <algorithm>
#include <random>
#include <sstream>
#include <string>
#include <vector>

using namespace QZmath;
using namespace qz_test;
using testing::HasSubstr;

namespace
{

std::vector<double> placesOf(PointCloud const & cloud)
{
    return cloud.positions.empty() ? cloud.positions64
                                   : std::vector<double>(cloud.positions.begin(), cloud.positions.end());
}

std::string withoutLists(PointCloud const & cloud, bool isBinary, TestFolder const & folder)
{
    if (isBinary) {
        writePoints(cloud.view(), folder.path("plain.ply"));
        return folder.contents("plain.ply");
    }
    std::ostringstream text;
    text << "ply\nformat ascii 1.0\nelement vertex " << cloud.size()
         << "\nproperty float x\nproperty float y\nproperty float z\nproperty float nx\nproperty float ny\n"
            "property float nz\nproperty ushort red\nproperty ushort green\nproperty ushort "
            "blue\nend_header\n";
    for (std::size_t i = 0; i < cloud.size(); ++i) {
        for (std::size_t axis = 0; axis < 3; ++axis)
            text << placesOf(cloud)[3 * i + axis] << ' ';
        for (std::size_t axis = 0; axis < 3; ++axis)
            text << cloud.normals[3 * i + axis] << ' ';
        for (std::size_t axis = 0; axis < 3; ++axis)
            text << 257 * cloud.colors[3 * i + axis] << (axis < 2 ? " " : i % 5 == 0 ? "\r\n\r\n" : "\n");
    }
    return text.str();
}

} // namespace

// Whatever the ranges: between bytes of a row, inside the header, between the two bytes that end a line,
// without anything, beyond the end.
TEST(PointShare, GivesEachPointOnceInTheOrderOfTheFile)
{
    TestFolder const folder;
    PointCloud cloud = randomCloud(3000, {false, true, true, false}, 3);
    std::fill(cloud.colors.begin(), cloud.colors.begin() + 6000,
              std::uint8_t(0)); // dark for the first ranges
    PointCloud wide = randomCloud(3000, {true, false, true, false}, 3);
    wide.colors = cloud.colors;
    std::string const text = textFile(cloud, ";");
    std::string shares = "x,y,z,r,g,b\n"; // whole numbers for the first ranges, which are shares of 1 as well
    for (int i = 0; i < 3000; ++i)
        shares += std::to_string(i) + (i < 2990 ? ",0,0,1,0,1\n" : ",0,0,.5,0,1\n");
    std::vector<std::pair<std::string, std::string>> files = {
        {"whole.ply", plyFile(cloud, "ascii", 5)},
        {"lists.ply", plyFile(cloud, "binary_little_endian", 6)},
        {"rows.ply", withoutLists(cloud, true, folder)},
        {"alone.ply", withoutLists(cloud, false, folder)},
        {"more.ply", withoutLists(cloud, false, folder) + "1 2 3 4 5 6 7 8 9\n1 2 3 4 5 6 7 8 9\n"},
        {"cloud.pcd", pcdFile(cloud, "binary_compressed", 7)},
        {"columns.xyz", text},
        {"shares.csv", shares},
        {"counted.pts", "3000\n" + text.substr(text.find("\n\n") + 2)},
        {"old.las", lasFile(wide, 3)},
        {"new.las", lasFile(wide, 7)},
        {"bare.las", lasFile(wide, 0)},
    };
    std::mt19937 random(1);
    for (auto const & [name, bytes] : files) {
        std::string const path = folder.write(name, bytes);
        PointCloud const expected = readPoints(path);
        for (std::size_t parts = 1; parts < 20; parts += 3) {
            std::vector<std::uint64_t> bounds = {0, bytes.size() + 10};
            for (std::size_t i = 1; i < parts; ++i)
                bounds.push_back(random() % (parts % 2 == 0 ? 2000 : bytes.size()));
            std::sort(bounds.begin(), bounds.end());
            PointCloud const read = readInShares(path, bounds);
            EXPECT_EQ(placesOf(read), placesOf(expected)) << name;
            EXPECT_EQ(read.normals, expected.normals) << name;
            EXPECT_EQ(read.colors, expected.colors) << name;
        }
    }
}

TEST(PointShare, SaysOfBrokenFilesWhatTheWholeWouldSay)
{
    TestFolder const folder;
    PointCloud const cloud = randomCloud(2000, {false, true, true, false}, 4);
    std::string const ascii = withoutLists(cloud, false, folder), rows = withoutLists(cloud, true, folder);
    std::string const text = textFile(cloud, " ");
    std::string bad = text;
    bad.replace(text.size() * 3 / 4, 1, "x");
    std::vector<std::pair<std::string, std::string>> const files = {
        {"short.ply", rows.substr(0, rows.size() - 5000)},
        {"lines.ply", ascii.substr(0, ascii.rfind('\n', ascii.size() - 5000) + 1)},
        {"torn.ply", ascii.substr(0, ascii.rfind(' '))},
        {"short.las", lasFile(randomCloud(2000, {true, false, true, false}, 4), 3).substr(0, 20000)},
        {"bad.xyz", bad},
        {"promised.pts", "2001\n" + text.substr(text.find("\n\n") + 2)},
        {"empty.ply", ""},
        {"none.ply", "ply\nformat ascii 1.0\nelement vertex 0\nproperty float x\nproperty float y\n"
                     "property float z\nend_header\n"},
        {"none.xyz", "# nothing\n"},
    };
    for (auto const & [name, bytes] : files) {
        std::string const path = folder.write(name, bytes);
        std::string const expected = complaintOf([&] { readPoints(path); });
        EXPECT_THAT(expected, HasSubstr(name));
        std::uint64_t const size = bytes.size();
        EXPECT_EQ(complaintOf([&] { readInShares(path, {0, size / 3, size / 2, size}); }), expected);
    }
}
