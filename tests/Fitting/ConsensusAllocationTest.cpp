// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Fitting/ConsensusFitting.h>

#include <support/Allocations.h>
#include <support/Frames.h>

#include <gtest/gtest.h>

#include <vector>

namespace
{

template <class Find>
int allocationsOf(Find find)
{
    int const before = qz_test::allocations;
    find();
    return qz_test::allocations - before;
}

TEST(ConsensusFitting, TrialsAllocateNothing)
{
    qz_sampling::Random random(1);
    std::vector<REmath::Point3D_d> points;
    for (int i = 0; i < 1000; ++i)
        points.push_back(qz_test::randomPoint(random, 10));
    for (double const distance : {0.0, 0.05}) {
        REmath::ConsensusOptions few;
        few.inlierDistance = distance;
        few.confidence = 1;
        few.mostTrials = 10;
        REmath::ConsensusOptions many = few;
        many.mostTrials = 3000;
        EXPECT_EQ(allocationsOf([&] { EXPECT_EQ(findLine(points, many).trials, 3000); }),
                  allocationsOf([&] { EXPECT_EQ(findLine(points, few).trials, 10); }));
        EXPECT_EQ(allocationsOf([&] { findPlane(points, many); }),
                  allocationsOf([&] { findPlane(points, few); }));
        EXPECT_EQ(allocationsOf([&] { findCircle(points, many); }),
                  allocationsOf([&] { findCircle(points, few); }));
    }
}

} // namespace
