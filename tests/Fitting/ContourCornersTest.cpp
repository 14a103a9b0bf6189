// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Fitting/ContourCorners.h>
#include <QZmath/Foundation/VectorProductsDetail.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <random>
#include <vector>

namespace
{

using REmath::Point3D;
using REmath::Point3D_d;
using REmath::Detail::dot;
using Contour = std::vector<Point3D_d>;

double const pi = std::acos(-1.0);

// Boundary of a regular polygon of `sides` sides of 20 points and length 20, with corners rounded by
// `radius` and noise, in a tilted plane.
Contour polygon(int sides, double radius, double noise, unsigned seed)
{
    std::mt19937 random(seed);
    std::normal_distribution<double> error(0, noise);
    double const outer = 10 / std::sin(pi / sides);
    auto const place = [](double u, double v) {
        return Point3D_d(u, 0.6 * v, 0.8 * v) + Point3D_d(5, -3, 100);
    };
    auto const cornerAt = [&](int i) {
        return place(outer * std::cos(2 * pi * i / sides), outer * std::sin(2 * pi * i / sides));
    };
    Contour contour;
    for (int i = 0; i < 20 * sides; ++i) {
        int const position = i + 20 * sides - 7; // the first corner is at position 7
        Point3D_d const from = cornerAt(position / 20), to = cornerAt(position / 20 + 1);
        Point3D_d point = from + (to - from) * ((position % 20) / 20.0);
        for (Point3D_d const & corner : {from, to}) {
            double const distance = (point - corner).length();
            if (distance < radius)
                point += (place(0, 0) - corner).unitLength() * (0.3 * (radius - distance));
        }
        contour.push_back(point + place(error(random), error(random)) - place(0, 0));
    }
    return contour;
}

} // namespace

TEST(ContourCorners, FindsTheCornersOfNoisyRoundedPolygons)
{
    for (unsigned seed = 0; seed < 80; ++seed) {
        SCOPED_TRACE(seed);
        int const sides = 3 + static_cast<int>(seed % 4);
        Contour const contour = polygon(sides, 1.5, 0.15, seed);
        std::vector<int> marks;
        ASSERT_TRUE(GetContourCornerMarks(contour, 36, true, marks));
        ASSERT_EQ(std::count(marks.begin(), marks.end(), 1), sides);
        for (auto expected = marks.begin() + 7; expected < marks.end(); expected += 20)
            EXPECT_EQ(std::count(expected - 2, expected + 3, 1), 1);
        std::vector<Contour> pieces(1);
        int count = 0;
        ASSERT_TRUE(SplitContourByCorners(&pieces, contour, 36, true, &count));
        EXPECT_EQ(count, sides);
        ASSERT_EQ(pieces.size(), 1U + static_cast<unsigned>(sides));
        // Put together again, the pieces are the contour from its first corner on, and share their ends.
        auto position = static_cast<std::size_t>(std::find(marks.begin(), marks.end(), 1) - marks.begin());
        for (std::size_t piece = 1; piece < pieces.size(); ++piece, --position) {
            for (Point3D_d const & point : pieces[piece])
                ASSERT_EQ(point, contour[position++ % contour.size()]);
        }
    }
}

TEST(ContourCorners, KeepsItsPromisesOnRandomContours)
{
    std::mt19937 random(61);
    std::normal_distribution<double> normal;
    int failures = 0;
    for (int trial = 0; trial < 2000; ++trial) {
        SCOPED_TRACE(trial);
        bool const closed = trial % 2 == 0;
        // Small integers make equal cosines, coincident points and missing chords frequent.
        std::size_t const n = std::uniform_int_distribution<std::size_t>(1, 60)(random);
        std::vector<Point3D> contour;
        Point3D point;
        for (std::size_t i = 0; i < n; ++i) {
            point += trial % 3 == 0 ? Point3D(normal(random), normal(random), normal(random))
                                    : Point3D(1, std::round(normal(random)), 0);
            contour.push_back(point);
        }
        double const radius2 = trial % 5;
        std::vector<int> marks(3, 77);
        bool const isFound = GetContourCornerMarks(contour, radius2, closed, marks);
        bool const isTooSmall = std::any_of(contour.begin(), contour.end(), [&](Point3D const & from) {
            return std::none_of(contour.begin(), contour.end(), [&](Point3D const & to) {
                Point3D_d const chord((to - from).asArray());
                return dot(chord, chord) > radius2;
            });
        });
        ASSERT_EQ(isFound, !closed || !isTooSmall);
        std::vector<std::vector<Point3D>> pieces;
        int count = 77;
        ASSERT_EQ(SplitContourByCorners(&pieces, contour, radius2, closed, &count), isFound);
        if (!isFound) {
            ++failures;
            EXPECT_EQ(marks, std::vector<int>(3, 77));
            continue;
        }
        ASSERT_EQ(marks.size(), n);
        EXPECT_EQ(std::count(marks.begin(), marks.end(), 1), count);
        EXPECT_TRUE(closed || marks.front() == 1);
        for (std::size_t i = closed ? 0 : 1; n > 10 && i < n; ++i) {
            for (std::size_t j = i + 1; j <= i + 5 && (closed || j < n) && marks[i] == 1; ++j)
                EXPECT_EQ(marks[j % n], 0);
        }
        EXPECT_EQ(pieces.size(), static_cast<std::size_t>(closed ? std::max(count, 1) : count - 1));
        EXPECT_TRUE(!closed || count > 1 || pieces[0] == contour);
    }
    EXPECT_GT(failures, 10);
}

TEST(ContourCorners, AnswersTheSmallestContours)
{
    std::vector<int> marks;
    Contour const empty, single(1, Point3D_d(1, 2, 3));
    EXPECT_TRUE(GetContourCornerMarks(empty, 1, false, marks) && marks.empty());
    EXPECT_FALSE(GetContourCornerMarks(empty, 1, true, marks) ||
                 GetContourCornerMarks(single, 1, true, marks));
    EXPECT_TRUE(GetContourCornerMarks(single, 1, false, marks) && marks == std::vector<int>(1, 1));
    EXPECT_FALSE(SplitContourByCorners(nullptr, single, 1, false, nullptr));

    // A corner near the end takes the mark of the last point; what is behind it belongs to no piece.
    Contour hook;
    for (int i = 0; i < 20; ++i)
        hook.emplace_back(std::min(i, 16), std::max(i - 16, 0), 0);
    std::vector<std::vector<Point3D_d>> pieces = {hook};
    EXPECT_TRUE(SplitContourByCorners(&pieces, pieces.front(), 4, false, nullptr));
    ASSERT_EQ(pieces.size(), 2U);
    EXPECT_EQ(pieces.back(), Contour(hook.begin(), hook.begin() + 17));
    hook[5] = Point3D_d(std::nan(""), 0, 0);
    EXPECT_FALSE(GetContourCornerMarks(hook, 4, true, marks));
    EXPECT_TRUE(GetContourCornerMarks(hook, 4, false, marks));
}
