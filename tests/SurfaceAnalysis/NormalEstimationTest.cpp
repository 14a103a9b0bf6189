// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Foundation/VectorGeometry.h>
#include <QZmath/SurfaceAnalysis/NormalEstimation.h>

#include <SurfaceAnalysis/Patches.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

using namespace qz_test;
using qz_sampling::Random;
using REmath::Matrix;
using REmath::Point3D;
using REmath::Point3D_d;

namespace
{

struct Rows
{
    double memory[3][3] = {};
    double * rows[3] = {memory[0], memory[1], memory[2]};
};

// Eigenvalues of a tensor, in order, without the one of the normal, which must be 0.
std::array<double, 2> principalCurvatures(Matrix<double> const & tensor, Point3D_d const & normal)
{
    double u[3], v[3];
    BuildUCSbyVector(normal.asArray(), u, v);
    auto const form = [&](double const * a, double const * b) {
        double sum = 0;
        for (int i = 0; i < 9; ++i)
            sum += a[i / 3] * tensor(i / 3, i % 3) * b[i % 3];
        return sum;
    };
    double const mean = (form(u, u) + form(v, v)) / 2,
                 off = std::hypot((form(u, u) - form(v, v)) / 2, form(u, v));
    for (auto const & direction : {Point3D_d(u), Point3D_d(v), normal})
        EXPECT_NEAR(form(direction.asArray(), normal.asArray()), 0, 1e-9 * (std::abs(mean) + off));
    return {mean - off, mean + off};
}

Point3D_d relativeTo(Point3D const & origin, Point3D const & point)
{
    return Point3D_d(point.asArray()) - Point3D_d(origin.asArray());
}

class OnPatches : public testing::TestWithParam<Patch>
{};

} // namespace

TEST_P(OnPatches, NormalsAndCurvaturesMeetTheAnalyticOnes)
{
    Random random(1);
    for (double noise : {0.0, 0.003}) { // of the patch's radius
        int const repetitions = 200;
        double squaredPlane = 0, squaredQuadric = 0, squaredCurvature = 0;
        for (int repetition = 0; repetition < repetitions; ++repetition) {
            double const size = std::pow(10.0, random.uniform(-3, 3));
            Neighbourhood const patch = makeNeighbourhood(GetParam(), random, 60, 0.4, noise, size);
            Rows matrix;
            double normal[3], scale = 0;
            float dist[60];
            CQuadraticForm form;
            ASSERT_EQ(GetNormal(60, patch.points.data(), matrix.rows, normal), 1);
            squaredPlane += std::pow(degreesBetweenLines(normal, patch.normal), 2);
            ASSERT_TRUE(GetNormal2(60, patch.points.data(), nullptr, &form, normal, dist, &scale));
            squaredQuadric += std::pow(degreesBetweenLines(normal, patch.normal), 2);
            for (std::size_t i = 1; i < 60; ++i) {
                Point3D_d const p = relativeTo(patch.points[0], patch.points[i]) / scale;
                Point3D_d const step = form.GetLinearTerm() * double(dist[i]);
                double const off = std::min(std::abs(form.eval(p + step)), std::abs(form.eval(p - step)));
                EXPECT_TRUE(off < 1e-6 || dist[i] > 1e19F); // the line misses the quadric
            }

            Matrix<double> tensor(1, 5);
            double upwards[3];
            (patch.normal * 3).toArray(upwards);
            ASSERT_TRUE(EstimateCurvature(patch.points, false, upwards, tensor));
            auto const curvatures = principalCurvatures(tensor, patch.normal);
            for (std::size_t i = 0; i < 2; ++i)
                squaredCurvature += std::pow(curvatures[i] * size - GetParam().curvatures[i], 2) / 2;
            if (noise > 0)
                continue;
            // Its own normal decides the signs by itself; magnitudes have none.
            ASSERT_TRUE(EstimateCurvature(patch.points, true, normal, tensor));
            bool const isUp = dot(Point3D_d(normal), patch.normal) > 0;
            EXPECT_NEAR(principalCurvatures(tensor, Point3D_d(normal))[0] * size,
                        (isUp ? curvatures[0] : -curvatures[1]) * size, 1e-3);
            std::vector<Point3D> copy = patch.points;
            float low = 0, high = 0;
            ASSERT_TRUE(GetMinMaxCurvaturesForPoints(copy, low, high));
            auto const magnitudes = std::minmax({std::abs(curvatures[0]), std::abs(curvatures[1])});
            EXPECT_LT(std::hypot(std::abs(low) - magnitudes.first, std::abs(high) - magnitudes.second) * size,
                      1e-3);
        }
        EXPECT_LT(std::sqrt(squaredPlane / repetitions), 2.5);
        EXPECT_LT(std::sqrt(squaredQuadric / repetitions), noise == 0 ? 0.02 : 0.25);
        EXPECT_LT(std::sqrt(squaredCurvature / repetitions), noise == 0 ? 0.02 : 0.09);
    }
}

INSTANTIATE_TEST_SUITE_P(NormalEstimation, OnPatches, testing::ValuesIn(curvedPatches()),
                         [](auto const & test) { return std::string(test.param.name); });

TEST(NormalEstimation, SpheresAndPlanesAreUmbilic)
{
    Random random(2);
    for (int repetition = 0; repetition < 400; ++repetition) {
        double const expected = repetition % 2, noise = repetition % 4 < 2 ? 0 : 0.003;
        double const size = std::pow(10.0, random.uniform(-3, 3));
        Patch const surface{"", {expected, expected}};
        Neighbourhood const patch = makeNeighbourhood(surface, random, 40, 0.5, noise, size);
        double normal[3], curvature = -1;
        ASSERT_TRUE(EstimateUmbilicCurvature(40, patch.points.data(), normal, curvature));
        EXPECT_LT(degreesBetweenLines(normal, patch.normal), noise == 0 ? 1e-3 : 0.5);
        EXPECT_NEAR(curvature * size, expected, noise == 0 ? 1e-4 : 0.03);
        EXPECT_TRUE(expected == 0 || dot(Point3D_d(normal), patch.normal) > 0); // to the centre
    }
    // Exact symmetry leaves the quadric without directions; a flat neighbourhood needs none.
    std::vector<Point3D> grid = {Point3D()};
    for (int i = 0; i < 24; ++i)
        grid.emplace_back(i % 5 - 2, i / 5 - 2, 0);
    CGetNormal2Prms prms;
    CQuadraticForm form;
    double normal[3];
    std::vector<float> dist(grid.size(), 5);
    EXPECT_TRUE(GetNormal2(25, grid.data(), &prms, &form, normal, dist.data(), nullptr));
    EXPECT_TRUE(form.evalGradient({1, 2, 3}) == Point3D_d(normal) && std::abs(normal[2]) == 1);
    EXPECT_EQ(dist, std::vector<float>(25, 0));
    prms.Force2() = true;
    EXPECT_FALSE(GetNormal2(25, grid.data(), &prms, &form, normal, dist.data(), nullptr));
    // Points all over a sphere lie on two sheets of any quadric through one of them.
    std::vector<Point3D> ball(60);
    for (Point3D & point : ball)
        point = Point3D(random.normal(), random.normal(), 1.2 * random.normal()).unitLength();
    EXPECT_FALSE(GetNormal2(60, ball.data(), &prms, &form, normal, nullptr, nullptr));
}

TEST(NormalEstimation, ScalingByPowersOfTwoKeepsTheBits)
{
    Random random(3);
    for (Patch const & surface : curvedPatches()) {
        Neighbourhood const patch = makeNeighbourhood(surface, random, 30, 0.4, 0.002, 1);
        double normal[2][3];
        float low[2], high[2];
        for (float factor : {0x1p-40F, 0x1p40F}) {
            std::vector<Point3D> clouds[2] = {patch.points, patch.points};
            for (Point3D & point : clouds[1])
                point *= factor;
            for (int i : {0, 1})
                ASSERT_TRUE(GetMinMaxCurvaturesForPoints(clouds[i], low[i], high[i]) &&
                            EstimateNormal(clouds[i], normal[i]));
            EXPECT_TRUE(low[0] == low[1] * factor && high[0] == high[1] * factor);
            EXPECT_EQ(Point3D_d(normal[0]), Point3D_d(normal[1]));
            CQuadraticForm form;
            ASSERT_TRUE(GetNormalAndQuadricApprShiftedNonScaled(30, clouds[1].data(), form, normal[1]));
            for (Point3D const & point : clouds[1]) {
                Point3D_d const p = relativeTo(clouds[1][0], point);
                EXPECT_NEAR(form.eval(p) / form.evalGradient(p).length(), 0, 0.01 * double(factor));
            }
        }
    }
}

TEST(NormalEstimation, FormsOfKnownCurvatureGiveIt)
{
    Random random(4);
    for (int repetition = 0; repetition < 500; ++repetition) {
        double const k1 = random.uniform(-2, 2), k2 = random.uniform(-2, 2), slope = random.uniform(0.1, 10);
        // z = (k1 x² + k2 y²) / 2, in a frame through the origin, times the slope.
        qz_test::Frame const frame = randomFrame(random, 0);
        CQuadraticForm const form = CQuadraticForm::buildFromCoefficients(
                                        -0.5 * k1 * slope, -0.5 * k2 * slope, 0, 0, 0, 0, 0, 0, slope, 0)
                                        .getTransformedToBasis(COrthoNormBasis::buildByOrthsAndOrigin(
                                            frame.axes[0], frame.axes[1], frame.axes[2], Point3D_d()));
        CQuadFormRaw9<double> raw;
        form.ConvertToRawFormat(raw);
        double curvatures[2], normal[3];
        Matrix<double> tensor;
        GetCurvatures(raw, curvatures, &tensor, normal);
        auto const expected = std::minmax({std::abs(k1), std::abs(k2)});
        std::sort(curvatures, curvatures + 2);
        auto const ofTensor = principalCurvatures(tensor, Point3D_d(normal));
        for (std::array<double, 2> const & found : {std::array{curvatures[0], curvatures[1]}, ofTensor})
            EXPECT_LT(std::hypot(found[0] - expected.first, found[1] - expected.second), 1e-9);
        EXPECT_NEAR(MaxCurvature(form), expected.second, 1e-9);
    }
    EXPECT_EQ(MaxCurvature(CQuadraticForm()), 20);
    EXPECT_EQ(MaxCurvature(CQuadraticForm::buildFromCoefficients(1, 1, 1, 0, 0, 0, 0, 0, 1, 0)), 20);
}

TEST(NormalEstimation, BadNeighbourhoodsFail)
{
    std::vector<Point3D> good = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0.1}, {-1, 0, 0.1}, {0, -1, 0}, {1, 1, 0.3}};
    std::vector<std::vector<Point3D>> bad = {{}, {{1, 2, 3}}, std::vector<Point3D>(7, Point3D(4, 5, 6))};
    for (float value : {NAN, INFINITY, -INFINITY}) {
        for (std::size_t at : {0U, 2U}) {
            bad.push_back(good);
            bad.back()[at].y() = value;
        }
    }
    CGetNormal2Prms prms;
    Matrix<double> tensor;
    for (std::vector<Point3D> & points : bad) {
        int const n = static_cast<int>(points.size());
        double normal[3], curvature = 0;
        float floatNormal[3], low = 0, high = 0;
        std::vector<float> dist(points.size());
        CQuadraticForm form;
        for (bool force : {false, true}) {
            prms.Force2() = force;
            EXPECT_FALSE(GetNormal2(n, points.data(), &prms, &form, floatNormal, dist.data(), nullptr));
        }
        EXPECT_FALSE(GetNormalAndQuadricApprShiftedNonScaled(n, points.data(), form, floatNormal) ||
                     EstimateCurvature(points, true, normal, tensor) ||
                     GetMinMaxCurvaturesForPoints(points, low, high) ||
                     EstimateUmbilicCurvature(n, points.data(), normal, curvature));
        EXPECT_EQ(form.eval({1, 2, 2}), 9);
        Rows matrix;
        bool const hasScatter =
            n > 0 && std::isfinite(points[0].y()) && (n < 3 || std::isfinite(points[2].y()));
        float anisotropy = 0;
        EXPECT_EQ(GetNormal(n, points.data(), matrix.rows, floatNormal), hasScatter);
        EXPECT_EQ(GetAnisotropy(n, points.data(), matrix.rows, anisotropy), hasScatter);
        EXPECT_EQ(anisotropy, hasScatter ? 0.33333334F : 0);
    }
    // As does a good one with a normal that is none.
    double normal[3] = {0, NAN, 1}, curvature = 0;
    EXPECT_TRUE(EstimateCurvature(good, false, nullptr, tensor) &&
                !EstimateCurvature(good, false, normal, tensor));
    // Spheres through a circle are many.
    Point3D const square[] = {{1, 1, 0}, {-1, 1, 0}, {-1, -1, 0}, {1, -1, 0}};
    EXPECT_FALSE(EstimateUmbilicCurvature(4, square, normal, curvature));
}

TEST(NormalEstimation, ContourTurnsAboutItsNormal)
{
    Random random(6);
    qz_test::Frame const frame = randomFrame(random, 3);
    std::vector<Point3D> contour; // a concave star
    for (int i = 0; i < 10; ++i) {
        double const angle = 0.6283185307179586 * i, radius = i % 2 ? 0.3 : 2;
        contour.emplace_back(
            frame.toWorld({radius * std::cos(angle), radius * std::sin(angle), 0}).asArray());
    }
    float normal[3];
    for (double const side : {1, -1}) {
        ASSERT_TRUE(DetectContourNormal(contour, normal));
        EXPECT_LT((Point3D_d(normal) - frame.axes[2] * side).length(), 1e-5);
        std::reverse(contour.begin(), contour.end());
    }
    EXPECT_FALSE(DetectContourNormal(contour, nullptr) || DetectContourNormal({}, normal) ||
                 DetectContourNormal({{1, 2, 3}, {1, 2, 3}}, normal));
}
