// SPDX-License-Identifier: Apache-2.0
#include <QZmath/SurfaceAnalysis/NetSurface.h>

#include "TestPoints.h"

#include <support/Frames.h>

#include <gtest/gtest.h>

#include <algorithm>

using namespace qz_test;
using qz_sampling::Random;
using REmath::Point3D;
using REmath::Point3D_d;

namespace
{

using Net = REmath::Matrix<Point3D>;

template <class Surface>
Net makeNet(int rows, int cols, Surface const & surface)
{
    Net net(rows, cols);
    for (int row = 0; row < rows; ++row) {
        for (int col = 0; col < cols; ++col)
            net.elem(row, col) = Point3D(surface(col, row).asArray());
    }
    return net;
}

Point3D_d pointOnNet(double u, double v, Net const & net)
{
    float result[3];
    getPointOnNet(static_cast<float>(u), static_cast<float>(v), net, result);
    return {result};
}

} // namespace

TEST(NetSurface, ParallelogramsGoThereAndBack)
{
    Random random(2);
    for (int repetition = 0; repetition < 200; ++repetition) {
        Frame const frame = randomFrame(random, 1);
        double const skew = random.uniform(-0.4, 0.4), height = random.uniform(0.5, 1);
        int const rows = 2 + repetition % 5, cols = 2 + repetition / 5 % 5;
        auto const surface = [&](double u, double v) { return frame.toWorld({u + skew * v, height * v, 0}); };
        Net const net = makeNet(rows, cols, surface);
        for (int node = 0; node < 2 * rows * cols; ++node) {
            bool const sign = node % 2;
            Point3D normal;
            GetNetNormal(net, node / 2 % cols, node / 2 / cols, normal, sign);
            EXPECT_LE((Point3D_d(normal.asArray()) - frame.axes[2] * (sign ? 1 : -1)).length(), 1e-5);
        }
        for (int point = 0; point < 30; ++point) {
            // Beyond the border too, where the cells go on and the way back ends at the border.
            double const wantedU = random.uniform(-0.4, cols - 0.6);
            double const wantedV = random.uniform(-0.4, rows - 0.6);
            double const above = random.uniform(-0.3, 0.3);
            Point3D const p((surface(wantedU, wantedV) + frame.axes[2] * above).asArray());
            double u = -9, v = -9;
            ProjectPointToNet(p.asArray(), net, u, v);
            EXPECT_LT(std::hypot(u - wantedU, v - wantedV), 1e-5);
            Point3D_d const onNet = surface(std::clamp(u, 0.0, cols - 1.0), std::clamp(v, 0.0, rows - 1.0));
            EXPECT_LE((pointOnNet(u, v, net) - onNet).length(), 1e-4);
        }
    }
}

TEST(NetSurface, NearestKnotIsFoundOnAnyNet)
{
    Random random(1);
    for (int repetition = 0; repetition < 4000; ++repetition) {
        // Nets without an answer, with many, and empty ones; a hostile net has no projection to speak of.
        bool const hostile = repetition % 4 == 0;
        auto const number = [&] { return hostile ? hostileNumber(random) : latticePoint(random).x(); };
        auto const node = [&](int, int) {
            double const x = number(), y = number();
            return Point3D_d(x, y, number());
        };
        Net const net = makeNet(repetition / 4 % 5, repetition / 20 % 5, node);
        Point3D const p(node(0, 0).asArray());
        double nearest = 1e30, u = -9, v = -9;
        int wantedColumn = 0, wantedRow = 0, column = 7, row = 7;
        for (int r = 0; r < net.rows(); ++r) {
            for (int c = 0; c < net.cols(); ++c) {
                Point3D_d const offset = Point3D_d(p.asArray()) - Point3D_d(net.elem(r, c).asArray());
                double const squared = REmath::Detail::dot(offset, offset);
                wantedColumn = squared < nearest ? c : wantedColumn;
                wantedRow = squared < nearest ? r : wantedRow;
                nearest = squared < nearest ? squared : nearest;
            }
        }
        GetNearestNetKnot(p.asArray(), net, column, row);
        EXPECT_TRUE(column == wantedColumn && row == wantedRow);
        ProjectPointToNet(p.asArray(), net, u, v);
        EXPECT_TRUE(hostile || (std::isfinite(u) && std::isfinite(v)));
        pointOnNet(u, v, net);
        Point3D normal(7); // without an area there are only nodes
        if (net.rows() == 1 && net.cols() > 0)
            GetNetNormal(net, column, row, normal, true);
        EXPECT_TRUE(hostile || normal == Point3D(7) || (normal == Point3D(0) && u == column && v == row));
    }
    EXPECT_EQ(pointOnNet(0, 0, Net(0, 0)), Point3D_d(REmath::st_NoValueMark));
}
