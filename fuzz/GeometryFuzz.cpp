// SPDX-License-Identifier: Apache-2.0

// The small functions of geometry and dense numerics on any numbers: distances, intersections, nets,
// quadrics, frames, eigenvalues, dense systems, roundings. Codes and parameters stay in their ranges whatever
// the numbers are; results are checked against what was asked where the numbers are ordinary.

#include <QZmath/Foundation/BrentZero.h>
#include <QZmath/Foundation/CircumscribeCircle.h>
#include <QZmath/Foundation/EulerAngles.h>
#include <QZmath/Foundation/GaussJordan.h>
#include <QZmath/Foundation/GeneralizedEigen.h>
#include <QZmath/Foundation/Matrix.h>
#include <QZmath/Foundation/OrthoNormBasis.h>
#include <QZmath/Foundation/Quaternion.h>
#include <QZmath/Foundation/Rounding.h>
#include <QZmath/Foundation/SymmetricEigen.h>
#include <QZmath/Foundation/VectorGeometry.h>
#include <QZmath/SurfaceAnalysis/Distances.h>
#include <QZmath/SurfaceAnalysis/Intersections.h>
#include <QZmath/SurfaceAnalysis/NetSurface.h>
#include <QZmath/SurfaceAnalysis/ProjectorTriangle.h>
#include <QZmath/SurfaceAnalysis/QuadraticForm.h>

#include "Input.h"

namespace
{

using namespace qz_fuzz;
using REmath::Point3D;
using REmath::Point3D_d;

// All ordinary, or any.
struct Numbers
{
    explicit Numbers(Input & given) : input(given), isGentle(given.flag()) {}
    double next() { return isGentle ? input.ordinary() : input.number(); }
    Point3D_d point()
    {
        double const x = next(), y = next(), z = next();
        return {x, y, z};
    }
    Point3D single() { return inSinglePrecision({point()}).front(); }

    Input & input;
    bool isGentle;
};

double squaredDistance(float const * a, float const * b)
{
    double sum = 0;
    for (int axis = 0; axis < 3; ++axis)
        sum += (double(a[axis]) - double(b[axis])) * (double(a[axis]) - double(b[axis]));
    return sum;
}

void checkDistances(Numbers numbers)
{
    Point3D const p = numbers.single(), triangle[3] = {numbers.single(), numbers.single(), numbers.single()};
    float const *const a = triangle[0].asArray(), *const b = triangle[1].asArray();
    float t = -1, foot[3];
    int where = 99;
    float const toSegment = DistancePoint2Segment(p.asArray(), a, b, t);
    require(t >= 0 && t <= 1, "a parameter on a segment is from 0 to 1");
    DistancePoint2Segment(p.asArray(), a, b, foot, where);
    require(where >= segmentInterior && where <= segmentEnd, "a feature of a segment is one of three");
    DistancePoint2Segment2D(p.asArray(), a, b, t, &where, foot);
    require(t >= 0 && t <= 1 && where >= segmentInterior && where <= segmentEnd, "so it is in the plane");
    float const toLine = DistancePoint2Line(p.asArray(), a, b);
    float const * const vertices[3] = {a, b, triangle[2].asArray()};
    float const ** const pointers = const_cast<float const **>(vertices);
    float const toTriangle = distancePointTriangle2(p.asArray(), pointers, where, foot);
    require(where >= triangleInterior && where <= triangleEdge20, "a feature of a triangle is one of seven");
    REmath::CProjectorTriangle projector(triangle);
    double const once = projector.DistToTriangle2(p.asArray());
    projector.PreCalc();
    require(Bits(once) == Bits(projector.DistToTriangle2Precalced(p.asArray())),
            "the frame of a triangle changes nothing");
    if (!numbers.isGentle)
        return;
    require(toSegment >= 0 && toLine >= 0 && toTriangle >= 0, "a squared distance is not negative");
    double const slack = 1e-4;
    require(std::fabs(squaredDistance(p.asArray(), foot) - double(toTriangle)) < slack,
            "the foot on a triangle is as far as the triangle");
    require(toTriangle <= toSegment + slack && std::fabs(once - double(toTriangle)) < slack,
            "a triangle is as near as its nearest side");

    float hit[3], overshoot = -1, dist2 = -1;
    bool isInside = false;
    Point3D const direction = numbers.single();
    bool const meets = IntersectTriangLine(a, b, vertices[2], p.asArray(), direction.asArray(), hit);
    if (IntersectTriangLineFree(a, b, vertices[2], p.asArray(), direction.asArray(), hit, 0.25F, isInside,
                                &overshoot, &dist2))
        require((isInside == meets || overshoot < 1e-5F) && overshoot >= 0 && overshoot <= 0.25F &&
                    dist2 >= 0,
                "a hit is as near as its overshoot");
    float params[2];
    if (MakeMinDist2Lines(p.asArray(), direction.asArray(), a, b, params))
        require(std::isfinite(params[0]) && std::isfinite(params[1]), "nearest points of lines are finite");
}

void checkNet(Numbers numbers)
{
    REmath::Matrix<Point3D> net(numbers.input.upTo(4), numbers.input.upTo(4));
    for (int row = 0; row < net.rows() && net.cols() > 0; ++row)
        for (int col = 0; col < net.cols(); ++col)
            net(row, col) = numbers.isGentle ? Point3D(col, row, numbers.next() / 16) : numbers.single();
    Point3D const p = numbers.single();
    int column = -1, row = -1;
    GetNearestNetKnot(p.asArray(), net, column, row);
    require(column >= 0 && row >= 0 && column < std::max(1, net.cols()) && row < std::max(1, net.rows()),
            "the nearest node is one of the net");
    float point[3];
    getPointOnNet(float(numbers.next()), float(numbers.next()), net, point);
    if (net.cols() < 1 || net.rows() < 1)
        return;
    Point3D normal;
    GetNetNormal(net, column, row, normal, numbers.input.flag());
    double u = -99, v = -99;
    ProjectPointToNet(p.asArray(), net, u, v);
    if (numbers.isGentle)
        require(isFinite(normal) && std::isfinite(u) && std::isfinite(v), "a projection on a net is finite");
}

void checkQuadric(Numbers numbers)
{
    double coefficients[10];
    for (double & coefficient : coefficients)
        coefficient = numbers.next();
    CQuadraticForm const form = CQuadraticForm::buildFromCoeffArray(10, coefficients);
    CQuadFormRaw10<double> raw;
    form.ConvertToRawFormat(raw);
    for (int k = 0; k < 10; ++k)
        require(raw[k] == coefficients[k] || std::isnan(coefficients[k]) || !numbers.isGentle,
                "coefficients come back");
    double const x = numbers.next(), y = numbers.next();
    double z[2] = {0, 0};
    CQuadraticForm::CalcZResult const result = form.calculateZByXY(x, y, z[0], z[1]);
    require(result == CQuadraticForm::CalcZNone || result == CQuadraticForm::CalcZAny ||
                result == CQuadraticForm::CalcZOne || result == CQuadraticForm::CalcZTwo,
            "a quadric has none, any, one or two heights");
    int const roots = result == CQuadraticForm::CalcZTwo ? 2 : result == CQuadraticForm::CalcZOne ? 1 : 0;
    for (int k = 0; k < roots && numbers.isGentle; ++k) {
        double const value = form.eval({x, y, z[k]}), slope = form.evalGradient({x, y, z[k]}).z();
        require(std::fabs(value) <= 1e-7 * (1 + z[k] * z[k] + std::fabs(slope * z[k])) * 1e3,
                "a height solves the form");
    }
    COrthoNormBasis const basis =
        COrthoNormBasis::buildAnyRightHandByV2AndOrigin(numbers.point(), numbers.point());
    Point3D_d const p = numbers.point();
    if (basis.isOrthoNorm() && numbers.isGentle) {
        double const here = form.eval(basis.transformCoordsFromBasis(p));
        require(std::fabs(form.getTransformedToBasis(basis).eval(p) - here) < 1e-6 * (1 + std::fabs(here)),
                "a moved form takes the same values");
    }
}

void checkFrames(Numbers numbers)
{
    double const angles[3] = {numbers.next(), numbers.next(), numbers.next()};
    CRotationMatrix rotation, back;
    makeEulerMatrix(rotation, angles);
    double found[3];
    getEulerAnglesFromMatrix(rotation, found[0], found[1], found[2]);
    Quaternion quaternion;
    getQuaternionFromMatrix(rotation, quaternion);
    Quaternion const turned =
        Quaternion::slerp(quaternion, Quaternion(found[0], found[1], found[2]), numbers.next());
    turned.getRotationMatrix(back);
    if (numbers.isGentle) {
        require(found[1] >= 0 && found[1] <= 3.1415927, "the middle angle is from 0 to pi");
        makeEulerMatrix(back, found);
        for (int i = 0; i < 9; ++i)
            require(std::fabs(back.m[i / 3][i % 3] - rotation.m[i / 3][i % 3]) < 2e-5, "angles come back");
        require(std::fabs(quaternion.length() - 1) < 1e-9, "the quaternion of a rotation has length 1");
    }
    Point3D_d const a = numbers.point(), b = numbers.point(), origin = numbers.point();
    COrthoNormBasis const frames[] = {COrthoNormBasis::buildByOrthsAndOrigin(a, b, origin, a),
                                      COrthoNormBasis::buildRightHandByV0V1AndOrigin(a, b, origin),
                                      COrthoNormBasis::buildRightHandByV2V0AndOrigin(a, b, origin)};
    for (COrthoNormBasis const & frame : frames)
        if (frame.isOrthoNormRightHand() && numbers.isGentle) {
            Point3D_d const d = frame.transformCoordsFromBasis(frame.transformCoordsToBasis(b)) - b;
            require(dot(d, d) < 1e-8, "forth and back is where it began");
        }
    Point3D_d const corners[3] = {a, b, origin};
    Point3D_d centre;
    double radius2 = -1;
    if (CircumscribeCircle(corners, centre, radius2))
        require(radius2 >= 0 || !numbers.isGentle, "a squared radius is not negative");
    float const cosine = cos_ABC(inSinglePrecision({a})[0], inSinglePrecision({b})[0], numbers.single());
    require(!numbers.isGentle || cosine == REmath::st_NoValueMark || std::fabs(cosine) < 1.001F,
            "a cosine is from -1 to 1");
}

void checkDense(Numbers numbers)
{
    constexpr int most = 5;
    int const n = 1 + numbers.input.upTo(most - 1);
    double elements[most][most] = {}, matrix[most][most], inverse[most][most], second[most][most];
    double *rows[most], *inverseRows[most], *secondRows[most];
    double d[most], e[most], vectors[most][most], *vectorRows[most];
    for (int i = 0; i < most; ++i) {
        rows[i] = matrix[i];
        inverseRows[i] = inverse[i];
        secondRows[i] = second[i];
        vectorRows[i] = vectors[i];
    }
    for (int i = 0; i < n; ++i)
        for (int j = 0; j <= i; ++j)
            elements[i][j] = elements[j][i] = numbers.next();
    std::memcpy(matrix, elements, sizeof(elements));
    std::memcpy(inverse, elements, sizeof(elements));
    tred2_d(rows, n, d, e);
    int const isFound = tqli_d(d, e, n, rows);
    require(isFound == 1 || !numbers.isGentle, "ordinary matrices have eigenvalues");

    require(std::abs(gaussj(inverseRows, n, nullptr, 0)) <= 1,
            "an elimination ends well, badly or not at all");
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j)
            second[i][j] = numbers.next();
    int count = -1;
    std::memcpy(matrix, elements, sizeof(elements));
    double values[most];
    bool const isSolved = gen_right_eigen(n, rows, secondRows, count, vectorRows, values);
    require(count >= 0 && count <= n && (isSolved || count == 0), "eigenvalues are counted");
    for (int k = 0; k < count; ++k)
        require(!std::isnan(values[k]), "a generalised eigenvalue is a number");

    REmath::Matrix<double> a(n, n), b(n, 1), x, factors;
    for (int i = 0; i < n; ++i) {
        b(i, 0) = numbers.next();
        for (int j = 0; j < n; ++j)
            a(i, j) = second[i][j];
    }
    factors = a;
    solveMat(factors, b, x);
    inverseMat(a, x);
}

struct Cubic
{
    double a, b, c;
    int calls;
};

double cubicAt(double x, void * context)
{
    Cubic & cubic = *static_cast<Cubic *>(context);
    ++cubic.calls;
    return ((x + cubic.a) * x + cubic.b) * x + cubic.c;
}

void checkScalars(Numbers numbers)
{
    double x = numbers.next(), top = 0, step = 0, root = 0;
    int exponent = 0, subdivisions = 0, iterations = std::min(numbers.input.integer(), 200), status = 99;
    int const limit = iterations;
    rndtoni(x);
    double const mantissa = getScale(x, exponent);
    require(!(x > 0 && std::isfinite(x)) || (mantissa > 0.99 && mantissa < 10.01),
            "a mantissa is from 1 to 10");
    roundBoundary(x, top, step, subdivisions, exponent);
    fRound2(x);
    fRound4(x);
    fRoundN(x, numbers.input.integer());
    Cubic cubic{numbers.next(), numbers.next(), numbers.next(), 0};
    double const tolerance = numbers.input.flag() ? 1e-12 : numbers.next();
    double const from = numbers.next(), to = numbers.next();
    BrentZeroFun(cubicAt, from, to, tolerance, numbers.input.integer(), iterations, root, status, &cubic);
    require(status >= -1 && status <= 1 && cubic.calls <= std::max(limit, 0) + 3,
            "a search for a zero is bounded");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size)
{
    Input input(data, size);
    void (*const checks[])(Numbers) = {checkDistances, checkNet,   checkQuadric,
                                       checkFrames,    checkDense, checkScalars};
    checks[input.upTo(5)](Numbers(input));
    return 0;
}
