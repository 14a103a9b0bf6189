// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Foundation/GaussJordan.h>
#include <QZmath/Foundation/OrthoNormBasis.h>
#include <QZmath/Foundation/Quaternion.h>
#include <QZmath/Foundation/RotationMatrix.h>
#include <QZmath/Foundation/VectorRotation.h>

#include <support/Allocations.h>

#include <gtest/gtest.h>

TEST(Allocation, RoutinesOfThreeDimensionsNeedNone)
{
    double const elements[3][3] = {{4, 1, 0.5}, {1, 3, 0.2}, {0.5, 0.2, 2}};
    CRotationMatrix matrix(elements), inverse;
    REmath::Point3D_d vectors[3];
    double values[3];
    REmath::Matrix<double> rotation(3, 3);
    double memory[9];
    double * columns[3];
    REmath::Matrix<double> rotationOfCaller(memory, columns, 3, 3);
    double * rows[3] = {matrix.m[0], matrix.m[1], matrix.m[2]};

    int const before = qz_test::allocations;
    GetEigenVectorsSA(matrix, vectors, values, true);
    EXPECT_TRUE(invertMatrix(matrix, inverse));
    COrthoNormBasis const basis =
        COrthoNormBasis::buildByOrthsAndOrigin(vectors[0], vectors[1] * 2, vectors[2], 1);
    Quaternion const quaternion(0.1, 0.2, 0.3);
    quaternion.getRotationMatrix(inverse);
    MakeRotationMatrix(rotation, vectors[0].asArray(), 1);
    MakeRotationMatrix(rotationOfCaller, vectors[0].asArray(), 1);
    EXPECT_EQ(gaussj(rows, 3, nullptr, 0), 1);
    EXPECT_EQ(qz_test::allocations, before);

    EXPECT_EQ(rotationOfCaller[0], memory);
    EXPECT_TRUE(rotationOfCaller == rotation);
    RElinearTransform const map(elements, REmath::Point3D_d(0).asArray());
    for (int i = 0; i < 3; ++i)
        EXPECT_LT((map.apply(vectors[i]) - vectors[i] * values[i]).length(), 1e-14);
    EXPECT_FALSE(basis.isOrthoNorm());
}
