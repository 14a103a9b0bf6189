// SPDX-License-Identifier: Apache-2.0
#include <QZmath/SurfaceAnalysis/NormalEstimation.h>

#include <SurfaceAnalysis/Patches.h>

#include <support/Allocations.h>

#include <gtest/gtest.h>

TEST(Allocation, NeighbourhoodsNeedNone)
{
    qz_sampling::Random random(5);
    qz_test::Neighbourhood const patch =
        qz_test::makeNeighbourhood(qz_test::curvedPatches()[2], random, 20, 0.4, 0.002, 1);
    double normal[3], curvature = 0;
    float dist[20], anisotropy = 0;
    double memory[3][3];
    double * rows[3] = {memory[0], memory[1], memory[2]};
    REmath::Matrix<double> tensor(3, 3);
    CQuadraticForm form;
    // The first call in a process has BLAS map its memory.
    ASSERT_TRUE(EstimateCurvature(patch.points, true, normal, tensor));
    int const before = qz_test::allocations;
    EXPECT_EQ(GetNormal(20, patch.points.data(), rows, normal), 1);
    EXPECT_EQ(GetAnisotropy(20, patch.points.data(), rows, anisotropy), 1);
    EXPECT_TRUE(GetNormal2(20, patch.points.data(), nullptr, &form, normal, dist, nullptr));
    EXPECT_TRUE(EstimateCurvature(patch.points, true, normal, tensor));
    EXPECT_TRUE(EstimateUmbilicCurvature(20, patch.points.data(), normal, curvature));
    EXPECT_EQ(qz_test::allocations, before);
}
