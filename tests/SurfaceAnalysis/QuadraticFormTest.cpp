// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Foundation/VectorProductsDetail.h>
#include <QZmath/SurfaceAnalysis/QuadraticForm.h>

#include <support/Frames.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

using qz_sampling::Random;
using qz_test::randomPoint;
using REmath::Point3D_d;
using REmath::Detail::dot;

namespace
{

// With a matrix that is not symmetric.
CQuadraticForm randomForm(Random & random)
{
    double k[10];
    std::generate(std::begin(k), std::end(k), [&] { return random.uniform(-2, 2); });
    CQuadraticForm form = CQuadraticForm::buildFromCoeffArray(10, k);
    form.GetQuadaricTerm().m[0][2] += 0.7;
    form.GetQuadaricTerm().m[2][1] -= 0.4;
    return form;
}

} // namespace

TEST(QuadraticForm, ArraysOfEveryLengthGiveTheSumOfTheirMonomials)
{
    Random random(1);
    float coeffs[12];
    std::generate(std::begin(coeffs), std::end(coeffs), [&] { return float(random.uniform(-2, 2)); });
    for (int count : {-1, 0, 3, 6, 9, 10, 12}) {
        CQuadraticForm const form = CQuadraticForm::buildFromCoeffArray(count, coeffs);
        CQuadFormRaw10<float> back{};
        CQuadFormRaw9<double> back9{};
        form.ConvertToRawFormat(back);
        form.ConvertToRawFormat(back9);
        for (int i = 0; i < 10; ++i)
            EXPECT_TRUE(back[i] == (i < count ? coeffs[i] : 0) && back9[i % 9] == double(back[i % 9]));
        Point3D_d const p = randomPoint(random, 3), step = randomPoint(random, 1);
        // Exact for a quadratic function up to rounding.
        EXPECT_NEAR(dot(form.evalGradient(p), step), (form.eval(p + step) - form.eval(p - step)) / 2, 1e-12);
        double const x = p.x(), y = p.y(), z = p.z();
        double const monomials[10] = {x * x, x * y, x * z, y * y, y * z, z * z, x, y, z, 1};
        double sum = 0;
        for (int i = 0; i < std::min(count, 10); ++i)
            sum += double(coeffs[i]) * monomials[i];
        EXPECT_NEAR(form.eval(p), sum, 1e-13);
    }
    EXPECT_EQ(CQuadraticForm().eval({1, 2, 3}), 14);
}

TEST(QuadraticForm, RootsSolveTheFormInOrder)
{
    Random random(3);
    int seen[7] = {};
    for (int repetition = 0; repetition < 2000; ++repetition) {
        CQuadraticForm form = randomForm(random);
        if (repetition % 5 == 0)
            form.GetQuadaricTerm().m[2][2] = 0;
        double const x = random.uniform(-2, 2), y = random.uniform(-2, 2);
        Point3D_d const dir = randomPoint(random, 5);
        double z1 = 77, z2 = 78, g1 = 77, g2 = 78;
        CQuadraticForm::CalcZResult const result = form.calculateZByXY(x, y, z1, z2);
        ASSERT_EQ(form.calculateZByXYSortedByGrad(x, y, g1, g2, dir), result);
        ++seen[result];
        // Without a root the form keeps its sign on the line.
        EXPECT_TRUE(result == CQuadraticForm::CalcZNone
                        ? z1 == 77 && form.eval({x, y, -100}) * form.eval({x, y, 100}) > 0
                        : std::abs(form.eval({x, y, z1})) < 1e-10 * (1 + z1 * z1));
        if (result == CQuadraticForm::CalcZTwo) {
            EXPECT_NEAR(form.eval({x, y, z2}) / (1 + z2 * z2), 0, 1e-10);
            EXPECT_LE(std::abs(z1), std::abs(z2));
            EXPECT_EQ(std::minmax(g1, g2), std::minmax(z1, z2));
            auto const along = [&](double z) { return form.evalGradient({x, y, z}).angleCos(dir); };
            EXPECT_GE(along(g1) + 1e-12, along(g2));
        }
        EXPECT_TRUE(result == CQuadraticForm::CalcZTwo || z2 == 78);
    }
    EXPECT_GT(std::min({seen[0], seen[2], seen[6]}), 100);

    // Constants, and a double root.
    double z1 = 5, z2 = 6;
    auto const solve = [&](double zz, double z, double constant) {
        return CQuadraticForm::buildFromCoefficients(0, 0, zz, 0, 0, 0, 0, 0, z, constant)
            .calculateZByXY(1, 2, z1, z2);
    };
    EXPECT_TRUE(solve(0, 0, 0) == CQuadraticForm::CalcZAny && solve(0, 0, 1) == CQuadraticForm::CalcZNone);
    EXPECT_EQ(z1, 5);
    EXPECT_TRUE(solve(1, -4, 4) == CQuadraticForm::CalcZTwo && z1 == 2 && z2 == 2);
}

TEST(QuadraticForm, KeepsItsValuesInEveryBasis)
{
    Random random(4);
    for (int repetition = 0; repetition < 200; ++repetition) {
        CQuadraticForm const form = randomForm(random);
        qz_test::Frame const frame = qz_test::randomFrame(random, 2);
        Point3D_d const skew = frame.axes[2] + 0.5 * frame.axes[0];
        COrthoNormBasis const basis =
            COrthoNormBasis::buildByOrthsAndOrigin(frame.axes[0], 3 * frame.axes[1], skew, frame.origin);
        CQuadraticForm const moved = form.getTransformedToBasis(basis);
        Point3D_d const local = randomPoint(random, 2);
        EXPECT_NEAR(moved.eval(local), form.eval(basis.transformCoordsFromBasis(local)), 1e-11);
        CRotationMatrix const & q = moved.GetQuadaricTerm();
        for (int i = 0; i < 3; ++i)
            EXPECT_EQ(q.m[i][(i + 1) % 3], q.m[(i + 1) % 3][i]);
    }
}
