// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Fitting/Arc2D.h>

#include <apps/sampling/Random.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstring>
#include <limits>
#include <vector>

namespace
{

// Vectors of the plane as complex numbers: `std::polar`, `std::abs` and `std::norm` do the geometry.
using Vec = std::complex<double>;

double cross(Vec a, Vec b) { return a.real() * b.imag() - a.imag() * b.real(); }
Vec startOf(CArc2D const & arc) { return {arc.m_startX, arc.m_startY}; }
Vec endOf(CArc2D const & arc) { return {arc.m_endX, arc.m_endY}; }
Vec centerOf(CArc2D const & arc) { return {arc.m_centerX, arc.m_centerY}; }

float narrow(double value) { return static_cast<float>(value); }
CArc2D segment(Vec start, Vec end)
{
    return {0, 0, narrow(start.real()), narrow(start.imag()), narrow(end.real()), narrow(end.imag()), 0, 1};
}
CArc2D circle(Vec center, double radius)
{
    return {narrow(center.real()), narrow(center.imag()), 0, 0, 0, 0, narrow(radius), 0};
}

// Signed: positive on the left of a segment's line and outside of a circle.
double height(CArc2D const & element, Vec point)
{
    if (element.m_straight == 0)
        return std::abs(point - centerOf(element)) - static_cast<double>(element.m_radius);
    Vec const along = endOf(element) - startOf(element);
    return cross(along, point - startOf(element)) / std::abs(along);
}

Vec randomPoint(qz_sampling::Random & random, double range)
{
    return {random.uniform(-range, range), random.uniform(-range, range)};
}

CArc2D randomElement(qz_sampling::Random & random)
{
    if (random.uniform() < 0.5)
        return segment(randomPoint(random, 3), randomPoint(random, 3));
    return circle(randomPoint(random, 3), random.uniform(0.1, 3));
}

// Touches both elements on the side of `through`, which it passes, and starts and ends there. A negative
// radius is that of a circle that encloses both.
void expectFillet(CArc2D const & fillet, CArc2D const * arcs, Vec through, double tolerance)
{
    double const r = fillet.m_radius;
    EXPECT_NEAR(std::abs(centerOf(fillet) - through), std::abs(r), tolerance);
    for (int i = 0; i < 2; ++i) {
        Vec const touch = i == 0 ? startOf(fillet) : endOf(fillet);
        double const side = height(arcs[i], through) > 0 ? 1 : -1, size = arcs[i].m_radius;
        EXPECT_NEAR(height(arcs[i], centerOf(fillet)), r < 0 ? -r - 2 * size : side * r, tolerance);
        EXPECT_NEAR(height(arcs[i], touch), 0, tolerance);
        EXPECT_NEAR(std::abs(touch - centerOf(fillet)), std::abs(r), tolerance);
        EXPECT_TRUE(r > 0 || (side > 0 && arcs[i].m_straight == 0));
    }
}

bool isSame(CArc2D const & a, CArc2D const & b) { return std::memcmp(&a, &b, sizeof(a)) == 0; }

} // namespace

TEST(Arc2D, IntersectionLiesOnBothAndNearestToTheOrigin)
{
    qz_sampling::Random random(1);
    int found = 0, missed = 0;
    for (int trial = 0; trial < 4000; ++trial) {
        CArc2D const arcs[2] = {randomElement(random), randomElement(random)};
        CArc2D const swapped[2] = {arcs[1], arcs[0]};
        float xy[2] = {7, 7}, other[2] = {7, 7};
        bool const isFound = Get2ArcsIntersect(arcs, xy);
        ASSERT_EQ(Get2ArcsIntersect(swapped, other), isFound);
        Vec const point(xy[0], xy[1]);
        double const size = std::abs(point) + 1;
        EXPECT_NEAR(std::abs(point - Vec(other[0], other[1])), 0, 1e-5 * size * size);
        // The axis of symmetry: the perpendicular from the centre to the line, or the line of the centres.
        Vec axis = 0;
        double gap = -1;
        int const straight = arcs[0].m_straight + 2 * arcs[1].m_straight;
        if (straight == 1 || straight == 2) {
            CArc2D const & line = arcs[straight - 1];
            axis = (endOf(line) - startOf(line)) * Vec(0, 1);
            gap = std::abs(height(line, centerOf(arcs[2 - straight]))) -
                  static_cast<double>(arcs[2 - straight].m_radius);
        } else if (straight == 0) {
            double const r0 = arcs[0].m_radius, r1 = arcs[1].m_radius;
            axis = centerOf(arcs[1]) - centerOf(arcs[0]);
            gap = std::max(std::abs(axis) - r0 - r1, std::abs(r0 - r1) - std::abs(axis));
        }
        EXPECT_EQ(isFound, gap < 0) << gap;
        ++(isFound ? found : missed);
        if (!isFound) {
            EXPECT_EQ(xy[0], 7);
            continue;
        }
        EXPECT_NEAR(height(arcs[0], point), 0, 1e-6 * size);
        EXPECT_NEAR(height(arcs[1], point), 0, 1e-6 * size);
        if (straight != 3) {
            Vec const through = centerOf(arcs[straight == 1 ? 1 : 0]);
            axis /= std::abs(axis);
            Vec const mirrored = through + axis * std::conj((point - through) / axis);
            EXPECT_LE(std::abs(point), std::abs(mirrored) + 1e-6);
        }
    }
    EXPECT_GT(found, 1000);
    EXPECT_GT(missed, 300);
}

// Built backwards: a circle, two elements that touch it, and a point on the shorter arc between the touch
// points. Where each element has the other on the side of the fillet, the same circle must come back, or one
// that is larger, which circles can have in another corner. Anything else is refused without a trace, or
// touches both on the side of the point too.
TEST(Arc2D, FilletTouchesAndIsFoundBack)
{
    qz_sampling::Random random(2);
    int found[3][3] = {}, back = 0, enclosing = 0;
    for (int trial = 0; trial < 60000; ++trial) {
        Vec const center = randomPoint(random, 5);
        double const radius = random.uniform(0.2, 3);
        double const angle = random.uniform(0, 6.3),
                     opening = random.uniform(0.4, 2.6) * (trial % 2 == 0 ? 1 : -1);
        // Every tenth point lies anywhere.
        Vec const through = trial % 10 == 0
                                ? randomPoint(random, 6)
                                : center + std::polar(radius, angle + random.uniform(0.15, 0.85) * opening);
        CArc2D arcs[2];
        Vec touch[2];
        int kinds[2];
        for (int i = 0; i < 2; ++i) {
            Vec const outwards = std::polar(1.0, angle + i * opening);
            touch[i] = center + radius * outwards;
            kinds[i] = static_cast<int>(random.uniform(0, 3)); // segment, circle from outside, from inside
            double const before = random.uniform(0.1, 4), after = random.uniform(0.1, 4);
            Vec const along = outwards * Vec(0, random.uniform() < 0.5 ? 1 : -1);
            double const size = random.uniform(0.2, 5);
            arcs[i] = kinds[i] == 0   ? segment(touch[i] - before * along, touch[i] + after * along)
                      : kinds[i] == 1 ? circle(touch[i] + size * outwards, size)
                                      : circle(touch[i] - (radius + size) * outwards, radius + size);
        }
        // Of a segment the far end counts, whatever side the near one is on.
        bool isOnSide = trial % 10 != 0;
        for (int i = 0; i < 2; ++i) {
            CArc2D const & other = arcs[1 - i];
            double const side = height(arcs[i], center) > 0 ? 1 : -1;
            double const atStart = side * height(arcs[i], startOf(other));
            double const atEnd = side * height(arcs[i], endOf(other));
            isOnSide &= other.m_straight == 0
                            ? side * height(arcs[i], centerOf(other)) > 1e-3
                            : std::max(atStart, atEnd) > 1e-3 - std::min({atStart, atEnd, 0.0});
        }
        float const point[2] = {narrow(through.real()), narrow(through.imag())};
        CArc2D fillet = circle({1, 2}, 3);
        fillet.m_straight = 5;
        CArc2D const before = fillet;
        bool const isMade = fillet.Make2ArcsFillet(arcs, point);
        EXPECT_EQ(fillet.m_straight, 5);
        if (!isMade) {
            EXPECT_TRUE(isSame(fillet, before) && !isOnSide) << trial;
        } else if (std::abs(fillet.m_radius) < 30) {
            expectFillet(fillet, arcs, through, 1e-3);
        }
        if (!isMade || !isOnSide)
            continue;
        ++found[kinds[0]][kinds[1]];
        bool const isBack = std::abs(centerOf(fillet) - center) < 2e-3, isEnclosing = fillet.m_radius < 0;
        EXPECT_TRUE(isEnclosing || static_cast<double>(fillet.m_radius) > radius - 1e-3) << trial;
        EXPECT_TRUE(isBack || kinds[0] + kinds[1] > 0) << trial;
        back += isBack ? 1 : -3;
        enclosing += isEnclosing;
        // A point on the other side of one of them.
        Vec const wrong = touch[0] + (touch[0] - center) * (0.02 / radius);
        float const wrongPoint[2] = {narrow(wrong.real()), narrow(wrong.imag())};
        EXPECT_FALSE(fillet.Make2ArcsFillet(arcs, wrongPoint));
    }
    for (auto const & row : found)
        EXPECT_GT(*std::min_element(row, row + 3), 100);
    EXPECT_GT(back, 0); // three of four
    EXPECT_GT(enclosing, 10);
}

TEST(Arc2D, RefusesWhatGivesNoFiniteResult)
{
    qz_sampling::Random random(3);
    using Limits = std::numeric_limits<float>;
    float const hostile[] = {
        0, -1, Limits::quiet_NaN(), Limits::infinity(), Limits::max(), Limits::denorm_min()};
    for (int trial = 0; trial < 5000; ++trial) {
        CArc2D arcs[2] = {randomElement(random), randomElement(random)};
        float point[2] = {narrow(random.uniform(-3, 3)), narrow(random.uniform(-3, 3))}, crossing[2] = {};
        float * const fields[] = {&arcs[0].m_centerX, &arcs[0].m_startY, &arcs[1].m_radius,
                                  &arcs[1].m_endX,    &arcs[0].m_radius, &point[0]};
        *fields[random.next() % 6] = hostile[random.next() % 6];
        *fields[random.next() % 6] = hostile[random.next() % 6];
        CArc2D fillet = circle({1, 2}, 3);
        fillet.Make2ArcsFillet(arcs, point);
        Get2ArcsIntersect(arcs, crossing);
        EXPECT_TRUE(std::isfinite(std::abs(centerOf(fillet)) + std::abs(startOf(fillet) + endOf(fillet)) +
                                  std::abs(Vec(fillet.m_radius, crossing[0])) + std::abs(crossing[1])));
    }
    CArc2D const pairs[][2] = {{segment({0, 0}, {1, 3}), segment({5, 0}, {7, 6})},
                               {circle({1, 1}, 1), circle({1, 1}, 2)}};
    float const between[2] = {2, 2};
    float crossing[2];
    for (auto const & pair : pairs)
        EXPECT_FALSE(CArc2D().Make2ArcsFillet(pair, between) || Get2ArcsIntersect(pair, crossing));
}

TEST(Arc2D, FromThreePointsAndErrorOfAFourth)
{
    qz_sampling::Random random(4);
    for (int trial = 0; trial < 500; ++trial) {
        Vec const center = randomPoint(random, 10);
        double const radius = std::pow(10, random.uniform(-1, 2));
        double const off = random.uniform(-0.3, 0.3) * radius, turn = random.uniform(0, 6.3);
        float xs[4], ys[4];
        for (int i = 0; i < 4; ++i) {
            Vec const p = center + std::polar(i == 2 ? radius + off : radius, turn + 1.1 * i);
            xs[i] = static_cast<float>(p.real());
            ys[i] = static_cast<float>(p.imag());
        }
        EXPECT_NEAR(static_cast<double>(Arc4pointsError(xs, ys)), off, 1e-5 * (10 + radius));
        xs[2] = xs[3];
        ys[2] = ys[3];
        CArc2D arc = circle({1, 2}, 3);
        arc.MakeBy3Points(xs, ys);
        EXPECT_TRUE(arc.m_straight == 1 && arc.m_radius == 3);
        CArc2D::m_bArcApprox = true;
        arc.MakeBy3Points(xs, ys);
        EXPECT_TRUE(arc.m_straight == 0 && startOf(arc) == Vec(xs[0], ys[0]) &&
                    endOf(arc) == Vec(xs[2], ys[2]));
        EXPECT_NEAR(std::abs(centerOf(arc) - center), 0, 1e-5 * (10 + radius));
        EXPECT_NEAR(static_cast<double>(arc.m_radius), radius, 1e-5 * (10 + radius));
        // On a line, far from the origin.
        float const x = std::floor(xs[0] * 1000), y = std::floor(ys[0] * 1000);
        float const lineX[4] = {x, x + 3, x + 9, x + 6}, lineY[4] = {y, y - 4, y + 13, y - 8};
        arc.MakeBy3Points(lineX, std::vector<float>{y, y - 4, y - 12}.data());
        EXPECT_EQ(arc.m_straight, 1);
        EXPECT_FLOAT_EQ(Arc4pointsError(lineX, lineY), (9 * 4 + 13 * 3) / 5.F);
        CArc2D::m_bArcApprox = false;
    }
    float const same[4] = {1, 1, 4, 1};
    EXPECT_FLOAT_EQ(Arc4pointsError(same, same), 3 * std::sqrt(2.F));
}
