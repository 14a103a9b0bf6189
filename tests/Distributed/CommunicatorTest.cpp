// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Distributed/Communicator.h>
#include <QZmath/Reconstruction/Reconstruction.h>

#include <QZsys/Exceptions.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <new>
#include <string>
#include <vector>

namespace
{

using QZmath::Distributed::Communicator;
using QZmath::Distributed::RankError;

std::int64_t elementOf(int from, int to, std::size_t index)
{
    return (from * 100 + to) * std::int64_t{1000000007} + static_cast<std::int64_t>(index);
}

} // namespace

// Pieces of very different lengths, some of which take several rounds and some of which are empty.
TEST(Communicator, MovesPiecesOfAnyLength)
{
    Communicator const ranks(MPI_COMM_WORLD);
    auto const lengthOf = [&](int from, int to) {
        return (from + to) % 3 == 0 ? std::size_t{0}
                                    : static_cast<std::size_t>(from * 7 + to * 5000000 / 2 + 1);
    };
    std::vector<std::vector<std::int64_t>> toRanks(static_cast<std::size_t>(ranks.size()));
    for (int to = 0; to < ranks.size(); ++to) {
        for (std::size_t n = 0; n < lengthOf(ranks.rank(), to); ++n)
            toRanks[static_cast<std::size_t>(to)].push_back(elementOf(ranks.rank(), to, n));
    }
    std::vector<std::size_t> counts;
    std::vector<std::int64_t> const arrived = ranks.exchange(toRanks, &counts);
    std::size_t next = 0;
    for (int from = 0; from < ranks.size(); ++from) {
        ASSERT_EQ(counts[static_cast<std::size_t>(from)], lengthOf(from, ranks.rank()));
        bool isRight = true;
        for (std::size_t n = 0; n < lengthOf(from, ranks.rank()); ++n)
            isRight = isRight && arrived[next++] == elementOf(from, ranks.rank(), n);
        EXPECT_TRUE(isRight) << from;
    }
    EXPECT_EQ(next, arrived.size());

    std::vector<int> const own(static_cast<std::size_t>(ranks.rank()), ranks.rank());
    std::vector<int> const all = ranks.gatherToAll(own);
    std::size_t expected = 0;
    for (int rank = 0; rank < ranks.size(); ++rank) {
        for (int n = 0; n < rank; ++n)
            EXPECT_EQ(all.at(expected++), rank);
    }
    EXPECT_EQ(expected, all.size());
    EXPECT_EQ(ranks.sumBefore(ranks.rank() + 1), ranks.rank() * (ranks.rank() + 1) / 2);
}

TEST(Communicator, TellsAllRanksOfTheLowestOneThatFailed)
{
    Communicator const ranks(MPI_COMM_WORLD);
    int const last = ranks.size() - 1;
    EXPECT_NO_THROW(ranks.together([] {}));
    try {
        ranks.together([&] {
            if (ranks.rank() == last)
                throw QZmath::ReconstructionError(QZmath::ReconstructionError::Kind::input, "no points");
        });
        FAIL();
    } catch (RankError const & error) {
        EXPECT_EQ(error.rank(), last);
        EXPECT_EQ(error.kind(), RankError::Kind::input);
        EXPECT_EQ(error.what(), "rank " + std::to_string(last) + ": no points");
    }
    try {
        ranks.together([&] { throw std::bad_alloc(); });
        FAIL();
    } catch (RankError const & error) {
        EXPECT_EQ(error.rank(), 0);
        EXPECT_EQ(error.kind(), RankError::Kind::memory);
    }
    EXPECT_THROW(ranks.together([&] {
        if (ranks.rank() == last)
            throw CUserIntrException("stop");
        throw std::bad_alloc();
    }),
                 CUserIntrException);
}
