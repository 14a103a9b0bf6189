// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Backend/Parallel.h>
#include <QZmath/VolTriang/Stages/SampleSurface.h>

#include <support/SampledClouds.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>

using namespace VolTr;

namespace
{

using Team = QzBackend::LoopTeam;

// Points of the sphere with radius 1, some noise and uneven weights; their feet are their places on the
// sphere.
struct NoisySphere : PointCloudSamples
{
    std::vector<std::array<float, 3>> feet;
    std::vector<float> weights;
    std::vector<int> order;

    explicit NoisySphere(std::size_t count, double noise)
        : PointCloudSamples(qz_test::sampledShape("sphere", count, noise)), order(count)
    {
        qz_sampling::Random random(7);
        for (std::array<float, 3> const & p : points) {
            float const radius = std::sqrt(p[0] * p[0] + p[1] * p[1] + p[2] * p[2]);
            feet.push_back({p[0] / radius - p[0], p[1] / radius - p[1], p[2] / radius - p[2]});
            weights.push_back(static_cast<float>(random.uniform(0.5, 1.5)));
        }
        std::iota(order.begin(), order.end(), 0);
    }

    void remove(std::size_t sample)
    {
        auto const cut = [&](auto & values) {
            values.erase(values.begin() + static_cast<std::ptrdiff_t>(sample));
        };
        cut(points);
        cut(normals);
        cut(weights);
        cut(feet);
        order.pop_back();
    }
};

// One lattice only when `depth` is 0: the cube's edge is then the cell.
SampleSurface makeSurface(NoisySphere const & sphere, double cubeEdge, int depth, double edge)
{
    SampleSurface::Input input;
    input.samples = &sphere;
    input.order = sphere.order.data();
    input.count = static_cast<int>(sphere.order.size());
    input.weights = &sphere.weights;
    input.feet = sphere.feet.data();
    input.origin = {-1.7, -1.6, -1.5};
    input.cubeEdge = cubeEdge;
    input.deepestCell = 0.2;
    input.edge = edge;
    input.samplesPerCell = 0.7;
    input.depth = depth;
    std::unique_ptr<SampleSurface> surface;
    Team::run(1, nullptr, [&](Team & team) { surface = std::make_unique<SampleSurface>(input, team); });
    return std::move(*surface);
}

double spline(double x)
{
    x = std::fabs(x);
    return x < 0.5 ? 0.75 - x * x : x < 1.5 ? 0.5 * (1.5 - x) * (1.5 - x) : 0.0;
}

// The move of a point onto the samples by the definition, over all nodes and samples.
std::array<double, 3> moveByDefinition(NoisySphere const & sphere, double const * v, double h, double k)
{
    double const origin[3] = {-1.7, -1.6, -1.5};
    double s0 = 0;
    double sn[3] = {0, 0, 0};
    double sp[3] = {0, 0, 0};
    double snp = 0;
    for (std::size_t n = 0; n < sphere.order.size(); ++n) {
        std::array<float, 3> const & p = sphere.points[n];
        std::array<float, 3> const & normal = sphere.normals[n];
        double kernel = sphere.weights[n]; // the sum over the nodes is a product over the axes
        for (std::size_t axis = 0; axis < 3; ++axis) {
            double const a = (v[axis] - origin[axis]) / h;
            double const b = (double(p[axis]) + sphere.feet[n][axis] - origin[axis]) / h;
            double sum = 0;
            for (int node = static_cast<int>(std::floor(a)) - 2; node <= std::floor(a) + 2; ++node)
                sum += spline(a - node - 0.5) * spline(b - node - 0.5);
            kernel *= sum;
        }
        s0 += kernel;
        for (std::size_t axis = 0; axis < 3; ++axis) {
            sn[axis] += kernel * normal[axis];
            sp[axis] += kernel * p[axis];
            snp += kernel * normal[axis] * p[axis];
        }
    }
    double const length = std::sqrt(sn[0] * sn[0] + sn[1] * sn[1] + sn[2] * sn[2]);
    double overPlanes = -snp / s0;
    double overCentre = 0;
    for (int axis = 0; axis < 3; ++axis) {
        overPlanes += v[axis] * sn[axis] / s0;
        overCentre += sn[axis] / length * (v[axis] - sp[axis] / s0);
    }
    double const height = (0.5 - k) * overPlanes + (0.5 + k) * overCentre;
    std::array<double, 3> move;
    for (std::size_t axis = 0; axis < 3; ++axis)
        move[axis] = -height * sn[axis] / length;
    return move;
}

TEST(SampleSurface, heightIsThatOfTheDefinition)
{
    NoisySphere const sphere(3000, 0.003);
    for (double const cell : {0.11, 0.23}) {
        double const edge = 0.06;
        SampleSurface const surface = makeSurface(sphere, cell, 0, edge);
        SampleSurface::Scratch scratch;
        double const k = -0.04 * std::min(4.0, edge * edge / (cell * cell));
        qz_sampling::Random random(3);
        for (int n = 0; n < 200; ++n) {
            double point[3];
            double length = 0;
            for (double & coord : point) {
                coord = random.uniform(-1, 1);
                length += coord * coord;
            }
            for (double & coord : point)
                coord *= random.uniform(0.99, 1.01) / std::sqrt(length);
            std::array<double, 3> const expected = moveByDefinition(sphere, point, cell, k);
            SampleSurface::Height const height = surface.heightOf(point, scratch);
            for (std::size_t axis = 0; axis < 3; ++axis)
                EXPECT_NEAR(height.move[axis], expected[axis], 3e-6 * cell); // of single precision
        }
    }
}

TEST(SampleSurface, leftOutErrorIsThatOfReallyLeavingOut)
{
    NoisySphere const sphere(400, 0.01);
    double const cell = 0.5;
    double const told = makeSurface(sphere, cell, 0, 0.0).widths().errors[0];
    double sum = 0;
    for (std::size_t sample = 0; sample < 400; ++sample) {
        NoisySphere rest = sphere;
        rest.remove(sample);
        SampleSurface const surface = makeSurface(rest, cell, 0, 0.0);
        std::array<float, 3> const & p = sphere.points[sample];
        std::array<float, 3> const & normal = sphere.normals[sample];
        double foot[3];
        for (std::size_t axis = 0; axis < 3; ++axis)
            foot[axis] = double(p[axis]) + sphere.feet[sample][axis];
        SampleSurface::Scratch scratch;
        SampleSurface::Height const height = surface.heightOf(foot, scratch);
        double error = 0;
        for (std::size_t axis = 0; axis < 3; ++axis)
            error += sphere.feet[sample][axis] * 0.5 * (normal[axis] + height.normal[axis]) +
                     height.move[axis] * height.normal[axis];
        sum += error * error;
    }
    EXPECT_NEAR(told, std::sqrt(sum / 400), 0.002 * told);
}

// The widths follow the cloud: noise asks for wide ones, clean points for narrow ones.
TEST(SampleSurface, noiseWidensTheChoice)
{
    auto const levelFor = [](double noise) {
        NoisySphere const sphere(20000, noise);
        SampleSurface::Widths const widths = makeSurface(sphere, 3.4, 6, 0.05).widths();
        return widths.cells[static_cast<std::size_t>(widths.level)];
    };
    EXPECT_GT(levelFor(0.005), 1.9 * levelFor(0.0));
}

// Samples with normals of no length, or of no number, say nothing; those far off move nothing here.
TEST(SampleSurface, sensesNothingFromSamplesWithoutNormals)
{
    NoisySphere sphere(2000, 0.0);
    for (std::size_t n = 0; n < sphere.order.size(); n += 2) {
        float const bad[] = {0.0f, NAN, INFINITY};
        sphere.normals[n].fill(bad[n / 2 % 3]);
    }
    NoisySphere rest = sphere;
    for (std::size_t n = sphere.order.size(); n-- > 0;) {
        if (n % 2 == 0)
            rest.remove(n);
    }
    SampleSurface const withBad = makeSurface(sphere, 0.3, 0, 0.0);
    SampleSurface const without = makeSurface(rest, 0.3, 0, 0.0);
    SampleSurface::Scratch scratch;
    SampleSurface::Scratch otherScratch;
    double const point[3] = {0.6, 0.0, 0.79};
    double const far[3] = {3.0, 3.0, 3.0};
    EXPECT_EQ(withBad.heightOf(point, scratch).move, without.heightOf(point, otherScratch).move);
    EXPECT_EQ(withBad.heightOf(far, scratch).move, (std::array<double, 3>{}));
}

} // namespace
