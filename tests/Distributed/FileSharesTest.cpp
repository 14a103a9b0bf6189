// SPDX-License-Identifier: Apache-2.0
#include <Distributed/RankFolder.h>
#include <Files/CloudFiles.h>
#include <QZmath/Distributed/FileShares.h>
#include <QZmath/Files/PointReader.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace
{

using namespace QZmath;
using namespace QZmath::Distributed;
using testing::ElementsAre;
using testing::HasSubstr;

std::vector<double> placesOf(PointCloud const & cloud)
{
    return cloud.positions.empty() ? cloud.positions64
                                   : std::vector<double>(cloud.positions.begin(), cloud.positions.end());
}

std::string complaintOf(Communicator const & ranks, std::vector<std::string> const & paths)
{
    try {
        readFileShares(ranks, paths, {});
    } catch (RankError const & error) {
        EXPECT_EQ(error.kind(), RankError::Kind::input);
        return error.cause();
    }
    return "";
}

} // namespace

TEST(FileShares, AreTheFilesBehindEachOther)
{
    Communicator const ranks(MPI_COMM_WORLD);
    qz_test::RankFolder const folder(ranks);
    std::vector<std::string> paths;
    std::vector<double> places;
    std::vector<float> normals;
    for (unsigned file = 0; file < 5; ++file) {
        // Of very different sizes, some in a form that one rank reads as a whole; only some have colours.
        PointCloud const cloud =
            qz_test::randomCloud(file == 1 ? 3 : 400 * file + 50, {false, true, file != 2, false}, file);
        paths.push_back(folder.write("tile" + std::to_string(file) + (file % 2 == 0 ? ".ply" : ".xyz"),
                                     file % 2 == 0 ? qz_test::plyFile(cloud, "binary_big_endian", file)
                                                   : qz_test::textFile(cloud, " ")));
        PointCloud const whole = readPoints(paths.back());
        std::vector<double> const more = placesOf(whole);
        places.insert(places.end(), more.begin(), more.end());
        normals.insert(normals.end(), whole.normals.begin(), whole.normals.end());
    }
    FileShares const shares = readFileShares(ranks, paths, {});
    EXPECT_EQ(ranks.gatherToAll(placesOf(shares.cloud)), places);
    EXPECT_EQ(ranks.gatherToAll(shares.cloud.normals), normals);
    EXPECT_EQ(shares.points, static_cast<std::int64_t>(places.size() / 3));
    EXPECT_EQ(shares.firstNumber, ranks.sumBefore(static_cast<std::int64_t>(shares.cloud.size())));
    EXPECT_TRUE(shares.cloud.colors.empty());
    EXPECT_THAT(shares.notes, ElementsAre("only some of the files have colours, so the mesh gets none"));
    FileShares const colored = readFileShares(ranks, {paths[0], paths[1]}, {});
    EXPECT_EQ(colored.cloud.colors.size(), 3 * colored.cloud.size());
    EXPECT_TRUE(colored.notes.empty());
}

TEST(FileShares, NameTheFileThatCannotBeUsed)
{
    Communicator const ranks(MPI_COMM_WORLD);
    qz_test::RankFolder const folder(ranks);
    PointCloud const cloud = qz_test::randomCloud(1000, {false, true, false, false}, 1);
    std::string const text = qz_test::textFile(cloud, " ");
    std::string const good = folder.write("good.xyz", text);
    auto const complaint = [&](std::string const & name, std::string const & bytes) {
        return complaintOf(ranks, {good, folder.write(name, bytes), good});
    };
    EXPECT_THAT(
        complaint("promised.xyz", "1001\n" + text.substr(text.find("\n\n") + 2)),
        AllOf(HasSubstr("promised.xyz: the input is truncated: 1001 points are promised and 1000 are")));
    EXPECT_THAT(complaint("bare.xyz",
                          qz_test::textFile(qz_test::randomCloud(50, {false, false, false, false}, 2), " ")),
                HasSubstr("bare.xyz: the input has no normals"));
    EXPECT_THAT(complaint("none.xyz", "# x y z\n"), HasSubstr("none.xyz: the input has no points"));
    EXPECT_THAT(complaint("empty.ply", ""), HasSubstr("empty.ply: the input is not a PLY file"));
    EXPECT_THAT(complaintOf(ranks, {good, folder.path("missing.ply")}),
                AllOf(HasSubstr("cannot open"), HasSubstr("missing.ply")));
}
