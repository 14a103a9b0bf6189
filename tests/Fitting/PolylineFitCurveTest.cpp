// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Fitting/PolylineFitCurve.h>
#include <QZmath/Foundation/IndexDetail.h>
#include <QZmath/Foundation/VectorProductsDetail.h>

#include <support/Frames.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstddef>
#include <vector>

namespace
{

using namespace std::complex_literals;
using qz_sampling::Random;
using qz_test::Frame;
using qz_test::randomFrame;
using REmath::Point3D_d;
using REmath::Detail::dot;
using REmath::Detail::index;

using Points = std::vector<Point3D_d>;
using Segments = std::vector<Points>;

// Length of the part of `v` perpendicular to the unit vector `axis`.
double across(Point3D_d const & v, Point3D_d const & axis) { return (v - axis * dot(v, axis)).length(); }

// A piece of a drawn chain: a line (curvature 0), an arc, or a wave about a line. It begins in the direction
// in which the piece before ends, turned by `corner`.
struct Piece
{
    double length;
    double curvature = 0;
    double corner = 0;
    double waveHeight = 0;
};

struct Sampling
{
    double spacing = 0.15;
    double noise = 0; // standard deviation, in the plane across the curve and out of the plane
};

// Points of a chain that begins at the origin of the frame. Pieces share the places of their ends, but not
// the noise there.
Segments drawChain(std::vector<Piece> const & pieces, Sampling const & sampling, Frame const & frame,
                   Random & random)
{
    Segments segments;
    std::complex<double> start, end;
    double heading = 0;
    for (Piece const & piece : pieces) {
        heading += piece.corner;
        int const steps = std::max(3, static_cast<int>(piece.length / sampling.spacing));
        double const c = piece.curvature;
        Points points;
        for (int step = 0; step <= steps; ++step) {
            // A chord of the arc, which leaves it under half the angle that it turns by.
            double const s = piece.length * step / steps, half = c * s / 2, angle = heading + 2 * half;
            double const chord = c == 0 ? s : 2 * std::sin(half) / c;
            end = start + chord * std::polar(1.0, heading + half);
            double const aside = sampling.noise * random.normal() + piece.waveHeight * std::sin(6 * s);
            std::complex<double> const place = end + aside * 1i * std::polar(1.0, angle);
            points.push_back(frame.toWorld({place.real(), place.imag(), sampling.noise * random.normal()}));
        }
        start = end;
        heading += c * piece.length;
        segments.push_back(points);
    }
    return segments;
}

// Two straight lines and two half circles, closed.
Segments drawStadium(double radius, double straight, Sampling const & sampling, Frame const & frame,
                     Random & random)
{
    double const half = std::acos(-1.0) * radius;
    Segments segments =
        drawChain({{straight}, {half, 1 / radius}, {straight}, {half, 1 / radius}}, sampling, frame, random);
    segments.back().back() = segments.front().front();
    return segments;
}

// A fitted polyline with its results, and measures on these alone.
struct Fit
{
    explicit Fit(double tolerance) { chain.setFitTolerance(tolerance); }
    Fit(Segments const & segments, double tolerance) : Fit(tolerance)
    {
        EXPECT_EQ(chain.fitPolyline(segments, curves, boundaries), 0);
    }

    int refit() { return chain.fitPolyline(curves, boundaries); }
    Point3D_d at(int boundary) const { return &boundaries[index(6 * boundary)]; }
    Point3D_d directionAt(int boundary) const { return &boundaries[index(6 * boundary + 3)]; }
    double radius(int segment) const { return std::abs(curves[index(7 * segment + 6)]); }

    // Distance of a point from the whole line or circle of a segment.
    double distance(int segment, Point3D_d const & point) const
    {
        Point3D_d const offset = point - Point3D_d(&curves[index(7 * segment)]);
        return isLine(segment) ? across(offset, axis(segment)) : std::abs(offset.length() - radius(segment));
    }
    // Sine of the angle between the curve and the direction of a boundary.
    double turn(int segment, int boundary) const
    {
        Point3D_d const offset = at(boundary) - Point3D_d(&curves[index(7 * segment)]);
        return isLine(segment) ? across(directionAt(boundary), axis(segment))
                               : std::abs(dot(directionAt(boundary), offset)) / offset.length();
    }
    // How far the boundary is off a neighbour, the greater one of length and angle.
    double gap(int segment, int boundary) const
    {
        return std::max(distance(segment, at(boundary)), turn(segment, boundary));
    }
    bool isLine(int segment) const { return chain.getCurveType(segment) == PolylineCurveLine; }
    Point3D_d axis(int segment) const { return &curves[index(7 * segment + 3)]; }

    CPolylineFitCurve chain;
    std::vector<double> curves, boundaries;
};

// The arrays fit each other: so many segments and no more, the boundaries that belong to them, results for
// all.
void expectConsistent(Fit const & fit, int segments)
{
    int const boundaries = segments + (fit.chain.isPolylineClosed() ? 0 : 1);
    auto const isType = [](int type) { return type >= 0 && type <= 2; };
    for (int i = -2; i < boundaries + 3; ++i) {
        EXPECT_EQ(isType(fit.chain.getCurveType(i)), i >= 0 && i < segments);
        EXPECT_EQ(isType(fit.chain.getBndCondType(i)), i >= 0 && i < boundaries);
    }
    EXPECT_EQ(fit.curves.size(), index(7 * segments));
    EXPECT_EQ(fit.boundaries.size(), index(6 * boundaries));
}

void expectFinite(Fit const & fit)
{
    for (auto const * values : {&fit.curves, &fit.boundaries})
        EXPECT_TRUE(std::all_of(values->begin(), values->end(), [](double v) { return std::isfinite(v); }));
}

class PolylineNoise : public testing::TestWithParam<double>
{};

INSTANTIATE_TEST_SUITE_P(PolylineFitCurve, PolylineNoise, testing::Values(0.001, 0.01, 0.05));

} // namespace

// Open chains with a line at both ends, and closed ones, whose last segment is tied to the first one less.
TEST_P(PolylineNoise, TiesNeighboursInPointAndDirection)
{
    double const noise = GetParam();
    Random random(1);
    constexpr int cases = 125;
    for (bool isClosed : {false, true}) {
        int met = 0, accurate = 0;
        for (int round = 0; round < cases; ++round) {
            Frame const frame = randomFrame(random, 30);
            double const radius = random.uniform(5, 15);
            Segments const segments =
                isClosed ? drawStadium(radius, random.uniform(10, 30), {0.15, noise}, frame, random)
                         : drawChain({{20}, {radius * random.uniform(0.7, 2.4), 1 / radius}, {25}},
                                     {0.15, noise}, frame, random);
            Fit const fit(segments, 0.06);
            int const count = isClosed ? 4 : 3;
            ASSERT_EQ(fit.chain.isPolylineClosed(), isClosed);
            expectConsistent(fit, count);
            double gap = 0, squares = 0, points = 0, off = 0;
            for (int k = 0; k < count; ++k) {
                ASSERT_EQ(fit.chain.getCurveType(k), k % 2 == 1 ? PolylineCurveArc : PolylineCurveLine);
                ASSERT_EQ(fit.chain.getBndCondType(k), k > 0 || isClosed ? BndCondPointDir : BndCondFree);
                EXPECT_LT(k > 0 || isClosed ? (fit.at(k) - segments[index(k)].front()).length() : 0,
                          10 * noise);
                if (k > 0)
                    gap = std::max({gap, fit.gap(k, k), fit.gap(k - 1, k)});
                if (k % 2 == 1) {
                    off = std::max(off, std::abs(fit.radius(k) - radius));
                    EXPECT_LT(across(frame.axes[2], fit.axis(k)), 0.1 * noise);
                }
                for (Point3D_d const & point : segments[index(k)]) {
                    Point3D_d const inPlane = frame.toLocal(point);
                    squares += std::pow(fit.distance(k, frame.toWorld({inPlane.x(), inPlane.y(), 0.0})), 2);
                    ++points;
                }
            }
            EXPECT_LT(gap, 5 * noise); // what the first approximations leave, at worst
            EXPECT_LT(isClosed ? fit.gap(3, 0) : 0, 3 * noise); // not tied, but no farther than its own noise
            EXPECT_TRUE(isClosed || fit.chain.getBndCondType(3) == BndCondFree);
            met += gap < 0.001 * noise; // far below the tenth that would do
            accurate += std::sqrt(squares / points) < 1.1 * noise && off < 3 * noise;
        }
        EXPECT_GE(met, cases * 3 / 4);
        EXPECT_GE(accurate, cases * 3 / 4);
    }
}

TEST(PolylineFitCurve, KeepsCornersAndDecidesByTolerance)
{
    Random random(3);
    double const twoThirds = 2 / std::acos(-1.0); // mean of |sin|
    for (int round = 0; round < 30; ++round) {
        Frame const frame = randomFrame(random, 30);
        double const corner = random.uniform(0.3, 2), height = random.uniform(0.02, 0.1);
        Segments const polygon =
            drawChain({{12}, {15, 0, corner}, {9, 0.1, -corner}}, {0.15, 0.002}, frame, random);
        Fit const fit(polygon, 0.02);
        for (int boundary : {1, 2}) {
            EXPECT_EQ(fit.chain.getBndCondType(boundary), BndCondPoint);
            for (int k : {boundary - 1, boundary})
                EXPECT_LT(fit.distance(k, fit.at(boundary)), 1e-3);
            EXPECT_LT((fit.at(boundary) - polygon[index(boundary)].front()).length(), 0.05);
        }
        // The mean distance of a wave from its line is that of the sine.
        Segments const wave = drawChain({{40, 0, 0, height}, {20, 0.2, 1}}, {0.05, 0}, frame, random);
        EXPECT_EQ(Fit(wave, 1.03 * twoThirds * height).chain.getCurveType(0), PolylineCurveLine);
        EXPECT_EQ(Fit(wave, 0.97 * twoThirds * height).chain.getCurveType(0), PolylineCurveNurbs);
    }
}

TEST(PolylineFitCurve, PutsJointsWithFreeCurvesOnTheOtherCurve)
{
    Random random(4);
    for (double const spacing : {0.1, 0.4}) { // chords below 0.316 have no direction in the plane
        Segments const segments = drawChain({{20}, {16, 0, 0, 0.3}, {16, 0, 0, 0.4}, {20, 0.1}}, {spacing, 0},
                                            randomFrame(random, 30), random);
        Fit fit(0.01);
        fit.curves.assign(28, 77.0);
        ASSERT_EQ(fit.chain.fitPolyline(segments, fit.curves, fit.boundaries), 0);
        expectConsistent(fit, 4);
        int const types[] = {PolylineCurveLine, PolylineCurveNurbs, PolylineCurveNurbs, PolylineCurveArc};
        for (int k = 0; k < 4; ++k)
            EXPECT_EQ(fit.chain.getCurveType(k), types[k]);
        EXPECT_EQ(std::count(fit.curves.begin(), fit.curves.end(), 77.0), 14);
        EXPECT_LT(fit.distance(0, fit.at(1)) + fit.distance(3, fit.at(3)), 1e-6);
        EXPECT_LT((fit.at(2) - segments[1].back()).length(), 1e-9);
        EXPECT_NEAR(fit.radius(3), 10, 1e-3);
        // The free curve behind a line is judged by the chords of the line.
        EXPECT_EQ(fit.chain.getBndCondType(1), spacing > 0.316 ? BndCondPointDir : BndCondPoint);
        EXPECT_EQ(fit.chain.getBndCondType(3), BndCondPoint);

        for (int k = 0; k < 4; ++k)
            EXPECT_EQ(fit.chain.setCurveType(k, PolylineCurveNurbs), k % 3 == 0);
        std::vector<double> const before = fit.curves;
        EXPECT_TRUE(fit.refit() == 0 && fit.curves == before); // nothing to fit is no error
    }
}

TEST_P(PolylineNoise, HoldsTheEndsOfAnOpenPolyline)
{
    double const noise = GetParam();
    Random random(5);
    int held = 0;
    for (int round = 0; round < 40; ++round) {
        Frame const frame = randomFrame(random, 30);
        double const radius = random.uniform(8, 20);
        // One end is a line, the other one an arc.
        Segments const segments = drawChain({{20}, {radius * 1.5, 1 / radius}}, {0.15, noise}, frame, random);
        Fit fit(segments, 0.06);
        double const x = std::cos(1.5), y = std::sin(1.5);
        Point3D_d const places[] = {{0.0, noise * random.normal(), 0.0},
                                    {20 + radius * y, radius * (1 - x) + noise * random.normal(), 0.0}};
        Point3D_d const dirs[] = {Point3D_d(1, noise * 0.1 * random.normal(), 0).unitLength(), {x, y, 0}};
        for (int end : {0, 1}) {
            fit.chain.setBndCondType(2 * end, 1 + (round >> end) % 2);
            fit.chain.setBndCond(2 * end, frame.toWorld(places[end]), frame.directionToWorld(dirs[end]));
        }
        ASSERT_EQ(fit.refit(), 0);
        expectConsistent(fit, 2);
        for (int end : {0, 1}) {
            EXPECT_LT(across(fit.at(2 * end) - frame.toWorld(places[end]), frame.axes[2]), 0.01 * noise);
            double off = fit.distance(end, fit.at(2 * end));
            if ((round >> end) % 2 == 1) {
                Point3D_d const dir = frame.directionToWorld(dirs[end]);
                EXPECT_LT(across(fit.directionAt(2 * end), dir), 0.1 * noise);
                off = std::max(off, fit.turn(end, 2 * end));
            }
            EXPECT_LT(off, 0.5 * noise); // from an arc that does not start through its end it is one step
            held += off < 0.01 * noise;
        }
        EXPECT_NEAR(fit.radius(1), radius, noise * radius);
    }
    EXPECT_GE(held, 60); // of 80
}

TEST(PolylineFitCurve, RefitsToTheSameBits)
{
    Random random(6);
    for (int round = 0; round < 20; ++round) {
        Segments const segments =
            drawChain({{20}, {15, 0.1}, {20}}, {0.15, 0.01}, randomFrame(random, 30), random);
        Fit fit(segments, 0.06);
        std::vector<double> const first = fit.curves;
        ASSERT_EQ(fit.refit(), 0);
        EXPECT_NEAR(std::abs(first[13]), fit.radius(1), 0.02);
        std::vector<double> const curves = fit.curves, boundaries = fit.boundaries;
        ASSERT_EQ(fit.refit(), 0);
        EXPECT_TRUE(fit.curves == curves && fit.boundaries == boundaries);
        // Nothing of the past is left in a full fit.
        fit.chain.setBndCondType(0, BndCondPointDir);
        ASSERT_EQ(fit.chain.fitPolyline(segments, fit.curves, fit.boundaries), 0);
        EXPECT_EQ(fit.curves, first);
    }
}

namespace
{

// Cuts the first part off a segment; both keep the point of the cut.
Points takeHead(Points & segment, double share)
{
    auto const cut = segment.begin() + static_cast<int>(share * static_cast<double>(segment.size()));
    Points const head(segment.begin(), cut + 1);
    segment.erase(segment.begin(), cut);
    return head;
}

// Random edits, also at places that do not exist, on the object and on a plain list of segments.
void walk(bool isClosed, Random & random)
{
    Frame const frame = randomFrame(random, 30);
    Sampling const sampling{0.15, 0.005};
    Segments segments = isClosed ? drawStadium(10, 20, sampling, frame, random)
                                 : drawChain({{20}, {15, 0.1}, {20}, {15, -0.1}}, sampling, frame, random);
    Fit fit(segments, 0.05), built(segments, 0.05);
    auto const count = [&] { return static_cast<int>(segments.size()); };
    for (int step = 0; step < 60; ++step) {
        int const k = static_cast<int>(random.uniform(-2, count() + 3));
        bool const isSegment = k >= 0 && k < count();
        bool const isJoint = isSegment && (k > 0 || isClosed);
        Points * const before = isJoint ? &segments[index(k > 0 ? k - 1 : count() - 1)] : nullptr;
        switch (static_cast<int>(random.uniform(0, 5))) {
        case 0:
            if (isSegment)
                segments.insert(segments.begin() + k, takeHead(segments[index(k)], random.uniform(0.2, 0.8)));
            else if (isClosed && k == count())
                segments.push_back(takeHead(segments[0], 0.5));
            fit.chain.addSegment(segments, k, fit.curves, fit.boundaries);
            break;
        case 1:
            if (isJoint && count() > 1) {
                before->insert(before->end(), segments[index(k)].begin(), segments[index(k)].end());
                segments.erase(segments.begin() + k);
            }
            fit.chain.deleteSegment(k, fit.curves, fit.boundaries);
            break;
        case 2:
            if (isJoint && count() > 1) {
                Points const head = takeHead(segments[index(k)], 0.1);
                before->insert(before->end(), head.begin(), head.end());
            }
            EXPECT_EQ(fit.chain.moveBnd(segments, k), isJoint);
            break;
        case 3: // of an open chain it would tear the ends apart
            if (isClosed) {
                bool const isLast = k == count() - 1;
                EXPECT_EQ(fit.chain.moveSegmentsCyclically(k), k == 0 || isLast);
                if (k == 0 || isLast)
                    std::rotate(segments.begin(), k == 0 ? segments.begin() + 1 : segments.end() - 1,
                                segments.end());
                EXPECT_EQ(fit.refit(), 0);
            }
            break;
        default:
            fit.chain.setCurveType(k, k % 4);
            fit.chain.setBndCondType(k, k % 4);
            EXPECT_EQ(fit.refit(), 0);
        }
        expectConsistent(fit, count());
        expectFinite(fit);
    }
    if (count() == 1) {
        segments.insert(segments.begin(), takeHead(segments[0], 0.5));
        fit.chain.addSegment(segments, 0, fit.curves, fit.boundaries);
    }
    // The same segments built up one by one in the same plane give the same fit, whatever came before.
    while (built.chain.getCurveType(1) >= 0)
        built.chain.deleteSegment(1, built.curves, built.boundaries);
    for (int k = 0; k + 1 < count(); ++k)
        built.chain.addSegment(segments, k, built.curves, built.boundaries);
    for (int k = 0; k <= count(); ++k) {
        fit.chain.setCurveType(k, built.chain.getCurveType(k));
        fit.chain.setBndCondType(k, built.chain.getBndCondType(k));
    }
    for (Fit * const each : {&fit, &built}) {
        each->curves.clear();
        each->boundaries.clear();
        EXPECT_EQ(each->refit(), 0);
    }
    EXPECT_TRUE(fit.curves == built.curves && fit.boundaries == built.boundaries);
}

} // namespace

TEST(PolylineFitCurve, StaysConsistentUnderRandomEdits)
{
    Random random(7);
    for (int round = 0; round < 15; ++round) {
        walk(false, random);
        walk(true, random);
    }
}

TEST(PolylineFitCurve, ShowsEditsAtOnce)
{
    Random random(9);
    Sampling const sampling{0.1, 0.001};
    for (int round = 0; round < 18; ++round) {
        bool const isClosed = round % 2 == 0;
        Frame const frame = randomFrame(random, 30);
        Segments const original =
            isClosed ? drawStadium(10, 20, sampling, frame, random)
                     : drawChain({{20}, {15, 0.1}, {20}, {15, -0.1}}, sampling, frame, random);
        int const k = round / 2 % (isClosed ? 5 : 4); // of a closed one also behind the last
        Point3D_d centroid;
        double count = 0;
        for (Points const & segment : original) {
            for (Point3D_d const & point : segment)
                centroid += (point - centroid) / ++count;
        }
        Fit fit(original, 0.05), joined(original, 0.05), before(original, 0.05);
        Segments split = original;
        split.insert(split.begin() + k, takeHead(split[index(k % 4)], 0.4));
        fit.chain.addSegment(split, k, fit.curves, fit.boundaries);
        expectConsistent(fit, 5);
        for (int i = 0; i < 5; ++i) {
            bool const isLine = (i <= k ? i % 4 : i - 1) % 2 == 0, isNew = i == k || i == (k + 1) % 5;
            ASSERT_EQ(fit.isLine(i), isLine);
            if (i > 0 || isClosed) {
                EXPECT_EQ(fit.chain.getBndCondType(i), BndCondPointDir);
                EXPECT_LT((fit.at(i) - split[index(i)].front()).length(), 0.02);
            }
            // Lines that are not new have lost their distance from the origin of the plane.
            EXPECT_LT(!isLine ? std::abs(fit.radius(i) - 10) / 10
                      : isNew ? fit.distance(i, split[index(i)][20])
                              : fit.distance(i, centroid) * 1e7,
                      0.01);
        }
        // The segment before is read too where the polyline is closed.
        split[4].insert(split[4].end(), split[1].begin(), split[1].end());
        before.chain.addSegment(split, 0, before.curves, before.boundaries);
        EXPECT_TRUE(k > 0 ||
                    before.chain.getCurveType(4) == (isClosed ? PolylineCurveNurbs : PolylineCurveArc));
        // Line and arc joined are neither.
        int const removed = isClosed ? k % 4 : std::max(k, 1);
        joined.chain.deleteSegment(removed, joined.curves, joined.boundaries);
        expectConsistent(joined, 3);
        for (int i = 0; i < 3; ++i) {
            int const from = i < removed ? i : i + 1;
            bool const isJoined = from == (removed + 3) % 4;
            EXPECT_EQ(joined.chain.getCurveType(i), isJoined ? PolylineCurveNurbs : from % 2);
            EXPECT_TRUE(i == 0 || (joined.at(i) - original[index(from)].front()).length() < 0.02);
        }
        if (isClosed) { // parameters move by the length of results: a normal comes to where a point was
            EXPECT_TRUE(fit.chain.moveSegmentsCyclically(0));
            fit.chain.deleteSegment(2, fit.curves, fit.boundaries);
            EXPECT_NEAR((fit.at(0) - centroid).length(), 1, 1e-6);
        }
    }
    // A circle that is one segment gets both its boundaries where it is cut.
    Segments circle = drawChain({{20 * std::acos(-1.0), 0.1}}, {0.1, 0}, randomFrame(random, 30), random);
    circle[0].back() = circle[0].front();
    Fit round(circle, 0.05);
    expectConsistent(round, 1);
    std::rotate(circle[0].begin(), circle[0].begin() + 100, circle[0].end());
    circle.insert(circle.begin(), takeHead(circle[0], 0.5));
    round.chain.addSegment(circle, 0, round.curves, round.boundaries);
    expectConsistent(round, 2);
    for (int boundary : {0, 1})
        EXPECT_LT((round.at(boundary) - circle[index(boundary)].front()).length(), 0.11);
}

TEST(PolylineFitCurve, SurvivesHostileInput)
{
    double const nan = NAN, inf = INFINITY;
    Random random(8);
    Segments const good = drawChain({{20}, {15, 0.1}, {20}}, {0.3, 0.01}, randomFrame(random, 30), random);
    Fit empty(0.01);
    EXPECT_EQ(empty.refit(), 9);
    EXPECT_EQ(empty.chain.fitPolyline({}, empty.curves, empty.boundaries), 9);
    empty.chain.addSegment({good[0]}, 0, empty.curves, empty.boundaries);
    empty.chain.deleteSegment(0, empty.curves, empty.boundaries);
    EXPECT_FALSE(empty.chain.moveBnd(good, 0) || empty.chain.moveSegmentsCyclically(0));
    EXPECT_TRUE(empty.curves.empty() && empty.boundaries.empty());
    Points const same(20, Point3D_d(1, 2, 3));
    Points scaled = good[1], spoiled = good[1], straight;
    spoiled[3].y() = nan;
    for (Point3D_d & point : scaled) {
        straight.push_back(Point3D_d(1, 2, -1) * static_cast<double>(straight.size()));
        point *= 1e200;
    }
    Points const point = {{1, 2, 3}}, none;
    // Short steps along the axes of the plane have no perpendicular within it.
    Segments stairs(4);
    Point3D_d place;
    for (std::size_t i = 0; i < 40; ++i) {
        stairs[i / 10].push_back(place);
        (i % 3 == 0 ? place.x() : place.y()) += 0.125;
        stairs[i / 10].push_back(place);
    }
    std::vector<Segments> const inputs = {{none},
                                          {none, none, none},
                                          {point, {{2, 2, 3}}, {{5, 5, 5}}},
                                          {same, same},
                                          {good[0], none, good[2]},
                                          {none, good[1], none},
                                          {good[0], point, good[1]},
                                          {good[0], spoiled, good[2]},
                                          {scaled, scaled},
                                          {good[0], {{inf, 0, 0}, {0, inf, -inf}}},
                                          {straight, same, good[1]},
                                          stairs};
    for (Segments const & input : inputs) {
        for (double const tolerance : {0.05, 1e300, 0.0, nan}) {
            Fit fit(input, tolerance);
            int const count = static_cast<int>(input.size());
            expectConsistent(fit, count);
            for (int type : {PolylineCurveLine, PolylineCurveArc}) {
                for (int i = 0; i <= count; ++i) {
                    fit.chain.setCurveType(i, type);
                    fit.chain.setBndCondType(i, 1 + type);
                    fit.chain.setBndCond(i, tolerance > 1 ? Point3D_d(nan) : Point3D_d(1e9, i, 1),
                                         {inf, 0, type});
                }
                EXPECT_EQ(fit.refit(), 0);
                expectConsistent(fit, count);
            }
            fit.chain.moveBnd(input, 1);
            fit.chain.moveSegmentsCyclically(0);
            fit.chain.deleteSegment(count - 1, fit.curves, fit.boundaries);
            fit.chain.addSegment(input, 0, fit.curves, fit.boundaries);
            EXPECT_EQ(fit.refit(), 0);
            // and recovers
            EXPECT_EQ(fit.chain.fitPolyline(good, fit.curves, fit.boundaries), 0);
            expectConsistent(fit, 3);
            expectFinite(fit);
        }
    }
}
