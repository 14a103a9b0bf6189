// SPDX-License-Identifier: Apache-2.0
#include <QZmath/SurfaceAnalysis/Contours.h>

#include "TestPoints.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

using namespace qz_test;
using qz_sampling::Random;

namespace
{

using Contour = std::vector<double>;

template <class Coordinate>
Contour closedContour(std::size_t points, Coordinate const & coordinate)
{
    Contour xy(2 * points);
    std::generate(xy.begin(), xy.end(), coordinate);
    xy.insert(xy.end(), {xy[0], xy[1]});
    return xy;
}

// How often the contour runs round the point, from the angles under which its segments are seen.
long windingNumber(double x, double y, Contour const & xy)
{
    double sum = 0;
    for (std::size_t i = 0; i + 3 < xy.size(); i += 2) {
        double const ax = xy[i] - x, ay = xy[i + 1] - y, bx = xy[i + 2] - x, by = xy[i + 3] - y;
        sum += std::atan2(ax * by - ay * bx, ax * bx + ay * by);
    }
    return std::lround(sum / (2 * std::acos(-1.0)));
}

// On integer coordinates, exactly: whether two segments that are no neighbours cross inside of both, or run
// along each other.
bool intersectsItself(Contour const & xy)
{
    auto const at = [&](std::size_t i) { return std::pair(xy[2 * i], xy[2 * i + 1]); };
    auto const side = [](auto const & a, auto const & b, auto const & c) {
        return (b.first - a.first) * (c.second - a.second) - (b.second - a.second) * (c.first - a.first);
    };
    std::size_t const segments = xy.size() / 2 - 1;
    for (std::size_t i = 0; i < segments; ++i) {
        for (std::size_t j = i + 2; j < segments - (i == 0); ++j) {
            auto const a = at(i), b = at(i + 1), c = at(j), d = at(j + 1);
            if (side(a, b, c) * side(a, b, d) < 0 && side(c, d, a) * side(c, d, b) < 0)
                return true;
            // In line the order of points is that along the line. A repeated point lies on an earlier
            // segment.
            if (side(a, b, c) == 0 && side(a, b, d) == 0 && std::min(a, b) < std::max(c, d) &&
                std::min(c, d) < std::max(a, b) && a != b)
                return true;
        }
    }
    return false;
}

} // namespace

TEST(ContourSelfIntersection, AgreesWithExactArithmetic)
{
    Random random(1);
    for (int repetition = 0; repetition < 40000; ++repetition) {
        unsigned const grid = repetition % 2 ? 4 : 12; // on the small one segments touch, repeat and vanish
        Contour const xy =
            closedContour(4 + random.next() % 4, [&] { return static_cast<double>(random.next() % grid); });
        ASSERT_EQ(Check2dContourSelfIntersections(xy), !intersectsItself(xy)) << testing::PrintToString(xy);
        Check2dContourSelfIntersections(closedContour(6, [&] { return double{hostileNumber(random)}; }));
    }
    EXPECT_TRUE(Check2dContourSelfIntersections({}));
    EXPECT_TRUE(Check2dContourSelfIntersections({0, 0, 2, 0, 1, 0, 0, 0, 5})); // runs back on itself
}

TEST(PointInContour, IsTheParityOfWindingAndOfAnyFan)
{
    Random random(3);
    for (int repetition = 0; repetition < 30000; ++repetition) {
        // On a lattice rays pass through vertices and points lie on the contour; far out the sidestep of
        // vertices is lost in rounding.
        int const kind = repetition % 4;
        auto const number = [&]() -> double {
            if (kind < 2)
                return kind * 1e7 + static_cast<double>(random.next() % 5);
            return kind == 2 ? random.uniform(0, 4) : hostileNumber(random);
        };
        Contour const xy = closedContour(2 + random.next() % 8, number);
        double const x = number(), y = number(), apexX = number(), apexY = number();
        bool const inside = isPointInContour(x, y, xy);
        bool insideFan = false, onContour = false;
        for (std::size_t i = 0; i + 3 < xy.size(); i += 2) {
            insideFan =
                insideFan !=
                isPointInContour(x, y, {apexX, apexY, xy[i], xy[i + 1], xy[i + 2], xy[i + 3], apexX, apexY});
            onContour = onContour || std::abs((xy[i + 2] - xy[i]) * (y - xy[i + 1]) -
                                              (xy[i + 3] - xy[i + 1]) * (x - xy[i])) < 1e-8;
        }
        // Also on the contour, since parts that share a segment agree on it.
        EXPECT_EQ(inside, insideFan);
        EXPECT_TRUE(onContour || kind == 3 || inside == (windingNumber(x, y, xy) % 2 != 0));
    }
    EXPECT_FALSE(isPointInContour(0, 0, {}) || isPointInContour(0, 0, {0, 0}));
    // Upper and right borders belong to a contour, lower and left ones do not.
    Contour const square = {0, 0, 1, 0, 1, 1, 0, 1, 0, 0};
    for (double const t : {0.25, 0.5, 1.0}) {
        EXPECT_TRUE(isPointInContour(t, 1, square) && isPointInContour(1, t, square));
        EXPECT_FALSE(isPointInContour(1 - t, 0, square) || isPointInContour(0, 1 - t, square));
    }
}
