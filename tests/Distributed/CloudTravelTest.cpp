// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Distributed/Cloud/CloudTravel.h>
#include <QZmath/Reconstruction/Cloud/LocalCloud.h>

#include <apps/sampling/SampleShapes.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace
{

using namespace QZmath::Distributed;
using QZmath::PointCloudView;
using testing::HasSubstr;

// A cloud far from the origin, so that its local coordinates are others. Colours tell the points apart.
struct WholeCloud
{
    std::vector<double> positions;
    std::vector<float> normals;
    std::vector<std::uint8_t> colors;

    explicit WholeCloud(std::size_t points, double densityRatio = 1.0)
    {
        qz_sampling::SamplingOptions sampling;
        sampling.pointNumber = points;
        sampling.densityRatio = densityRatio;
        qz_sampling::Cloud const cloud =
            qz_sampling::sampleCloud(*qz_sampling::makeShape("genus3"), sampling);
        for (std::size_t i = 0; i < cloud.positions.size(); ++i) {
            positions.push_back(static_cast<double>(cloud.positions[i]) + (i % 3 == 0 ? 1000.0 : -30.0));
            normals.push_back(2.0F * cloud.normals[i]);
            colors.push_back(static_cast<std::uint8_t>(i % 251));
        }
    }
    std::size_t size() const { return positions.size() / 3; }
    PointCloudView part(std::size_t begin, std::size_t end) const
    {
        PointCloudView view;
        view.size = end - begin;
        view.positions64 = positions.data() + 3 * begin;
        view.normals = normals.data() + 3 * begin;
        view.colors = colors.data() + 3 * begin;
        return view;
    }
};

// Which range of the points a rank is given at first.
struct Shares
{
    std::vector<std::size_t> begins, ends;

    enum class Kind
    {
        inOrder,
        backwards,
        allOnLast,
        full // in order
    };
    Shares(Kind kind, std::size_t points, int ranks)
    {
        for (int rank = 0; rank < ranks; ++rank) {
            int const place = kind == Kind::backwards ? ranks - 1 - rank : rank;
            bool const isLast = rank == ranks - 1;
            auto const bound = [&](int at) {
                return points * static_cast<std::size_t>(at) / static_cast<std::size_t>(ranks);
            };
            begins.push_back(kind != Kind::allOnLast ? bound(place) : 0);
            ends.push_back(kind != Kind::allOnLast ? bound(place + 1) : isLast ? points : 0);
        }
    }
};

struct Gathered
{
    CloudFrame frame;
    std::optional<Partition> partition;
    DistributedReport report;
    RankCloud cloud;
};

Gathered gather(Communicator const & ranks, PointCloudView const & part, std::size_t first,
                DistributedOptions const & options)
{
    Gathered all;
    all.cloud = gatherCloud(ranks, part, static_cast<std::int64_t>(first), options, all.frame, all.partition,
                            all.report);
    return all;
}

DistributedOptions ofDepth(int depth)
{
    DistributedOptions options;
    options.depth = depth;
    return options;
}

// Whether a rank has a unit that a cell is not farther from than the margin, unit by unit.
bool isInReach(Partition const & partition, int depth, int margin, VolTr::CInt3 const & cell, int rank)
{
    int const units = 1 << partition.unitDepth(), side = 1 << (depth - partition.unitDepth());
    auto const distance = [&](int coord, int unit) {
        return std::max({0, unit * side - coord, coord - (unit * side + side - 1)});
    };
    for (int x = 0; x < units; ++x) {
        for (int y = 0; y < units && distance(cell.x(), x) <= margin; ++y) {
            for (int z = 0; z < units; ++z) {
                if (distance(cell.y(), y) <= margin && distance(cell.z(), z) <= margin &&
                    partition.ownerOfUnit({x, y, z}) == rank)
                    return true;
            }
        }
    }
    return false;
}

} // namespace

// Against the cloud as one process has it, point by point, whoever had the points at first; a sparse one, and
// one that fills its leaf cells.
TEST(CloudTravel, BringsEachRankWhatItsTerritoryNeeds)
{
    Communicator const ranks(MPI_COMM_WORLD);
    for (Shares::Kind const kind :
         {Shares::Kind::inOrder, Shares::Kind::backwards, Shares::Kind::allOnLast, Shares::Kind::full}) {
        bool const isFull = kind == Shares::Kind::full;
        WholeCloud const whole(isFull ? 16000 : 6000);
        QZmath::LocalCloud const local(whole.part(0, whole.size()));
        int const depth = isFull ? 6 : 8;
        Shares const shares(kind, whole.size(), ranks.size());
        std::size_t const begin = shares.begins[static_cast<std::size_t>(ranks.rank())];
        std::size_t const end = shares.ends[static_cast<std::size_t>(ranks.rank())];
        Gathered const all = gather(ranks, whole.part(begin, end), begin, ofDepth(depth));
        EXPECT_EQ(all.frame.origin, local.frame().origin);
        EXPECT_NE(all.frame.origin[0], 0.0);
        EXPECT_EQ(all.frame.scale, local.frame().scale);
        EXPECT_EQ(all.report.samples, static_cast<std::int64_t>(whole.size()));
        EXPECT_LE(all.report.sampleBalance, 1.1);
        EXPECT_LE(all.report.cellBalance, 1.1);

        Margins const & margins = isFull ? narrowMargins : wideMargins;
        EXPECT_EQ(all.cloud.margins.samples, margins.samples);
        EXPECT_EQ(all.cloud.margins.surface, margins.surface);

        VolTr::TreeCube const cube = treeCubeOf(all.frame);
        std::vector<float> ofOwners(all.cloud.size(), -1.0F), numbers; // in the whole cloud
        std::size_t next = 0;
        std::set<std::uint64_t> cells;
        for (std::size_t i = 0; i < whole.size(); ++i) {
            float const * const place = local.positions() + 3 * i;
            VolTr::CInt3 const cell = cube.cellOf(place);
            cells.insert(Partition(depth, {}).keyOf({cell.x(), cell.y(), cell.z()}));
            if (!isInReach(*all.partition, depth, all.cloud.margins.samples, cell, ranks.rank()))
                continue;
            ASSERT_LT(next, all.cloud.size());
            bool const isOwn =
                all.partition->ownerOfCell(depth, {cell.x(), cell.y(), cell.z()}) == ranks.rank();
            ASSERT_EQ(all.cloud.isOwn[next] != 0, isOwn);
            for (std::size_t axis = 0; axis < 3; ++axis) {
                ASSERT_EQ(all.cloud.positions[3 * next + axis], place[axis]);
                ASSERT_EQ(all.cloud.normals[3 * next + axis], local.normals()[3 * i + axis]);
                ASSERT_EQ(all.cloud.colors[3 * next + axis], whole.colors[3 * i + axis]);
            }
            numbers.push_back(static_cast<float>(i));
            ofOwners[next] = isOwn ? numbers.back() : -1.0F;
            ++next;
        }
        EXPECT_EQ(next, all.cloud.size());
        spreadToCopies(ranks, all.cloud, *all.partition, cube, depth, ofOwners);
        EXPECT_EQ(ofOwners, numbers);
        EXPECT_EQ(all.cloud.total, static_cast<std::int64_t>(whole.size()));
        EXPECT_EQ(all.report.leafCells, static_cast<std::int64_t>(cells.size()));
    }
}

// The partition is a matter of the cloud and the number of ranks. A dense end has many samples in few cells,
// so both balances pull apart.
TEST(CloudTravel, CutsUnevenCloudsTheSameWayWhoeverHadThem)
{
    Communicator const ranks(MPI_COMM_WORLD);
    WholeCloud const whole(30000, 50.0);
    std::optional<std::vector<std::uint64_t>> first;
    for (Shares::Kind const kind : {Shares::Kind::inOrder, Shares::Kind::allOnLast}) {
        Shares const shares(kind, whole.size(), ranks.size());
        std::size_t const begin = shares.begins[static_cast<std::size_t>(ranks.rank())];
        std::size_t const end = shares.ends[static_cast<std::size_t>(ranks.rank())];
        Gathered const all = gather(ranks, whole.part(begin, end), begin, ofDepth(7));
        EXPECT_LE(all.report.sampleBalance + all.report.cellBalance, 3.0);
        EXPECT_LE(all.report.unitDepth, 3);
        EXPECT_EQ(first.value_or(all.partition->firstKeys()), all.partition->firstKeys());
        first = all.partition->firstKeys();
    }
    // Too coarse for the ranks: one unit, and all but one rank have nothing.
    Gathered const coarse =
        gather(ranks, ranks.rank() == 0 ? whole.part(0, 100) : PointCloudView(), 0, ofDepth(3));
    EXPECT_EQ(coarse.report.unitDepth, 0);
    EXPECT_EQ(ranks.sum(static_cast<std::int64_t>(coarse.cloud.size())), 100);
}

TEST(CloudTravel, TakesTheDepthOfACellSize)
{
    Communicator const ranks(MPI_COMM_WORLD);
    WholeCloud const whole(1000);
    PointCloudView const part = ranks.rank() == 0 ? whole.part(0, 1000) : PointCloudView();
    DistributedOptions options;
    options.cellSize = 0.01;
    Gathered const all = gather(ranks, part, 0, options);
    EXPECT_LE(all.report.leafCell, 0.01);
    EXPECT_GT(all.report.leafCell, 0.005);
    options.cellSize = 1e-9;
    EXPECT_THROW(gather(ranks, part, 0, options), RankError);
}

TEST(CloudTravel, RefusesOnAllRanksWhatIsNoCloud)
{
    Communicator const ranks(MPI_COMM_WORLD);
    int const last = ranks.size() - 1;
    auto const complaint = [&](PointCloudView const & part, std::size_t first) -> std::string {
        try {
            gather(ranks, part, first, ofDepth(6));
        } catch (RankError const & error) {
            EXPECT_EQ(error.kind(), RankError::Kind::input);
            return error.what();
        }
        return "nothing";
    };
    WholeCloud whole(300);
    EXPECT_EQ(complaint(PointCloudView(), 0), "rank 0: the cloud has no points");

    std::size_t const first = 100 * static_cast<std::size_t>(ranks.rank());
    PointCloudView part = whole.part(0, 100);
    if (ranks.rank() == last)
        part.normals = nullptr;
    std::string const ofLast = "rank " + std::to_string(last) + ": ";
    EXPECT_THAT(complaint(part, first), HasSubstr(ofLast + (last > 0 ? "only some of the points have normals"
                                                                     : "the cloud has no normals")));

    if (ranks.rank() == last)
        whole.positions[3 * 7] = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(complaint(whole.part(0, 100), first),
              ofLast + "the cloud has coordinates that are not finite at 1 point, the first at index " +
                  std::to_string(100 * last + 7) + ", counted from 0");

    // On a line over all ranks.
    for (std::size_t i = 0; i < 100; ++i) {
        for (std::size_t axis = 0; axis < 3; ++axis)
            whole.positions[3 * i + axis] = static_cast<double>(first + i);
    }
    EXPECT_THAT(complaint(whole.part(0, 100), first), HasSubstr("lie on a line"));
    std::fill(whole.normals.begin(), whole.normals.end(), 0.0F);
    EXPECT_THAT(complaint(whole.part(0, 100), first), HasSubstr("all are zero"));
}
