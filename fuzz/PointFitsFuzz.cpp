// SPDX-License-Identifier: Apache-2.0

// Lines, circles and planes through any points. A fit that succeeds gives finite numbers and unit directions,
// the same in a second call; where the points are no riddle for rounding, the fits of least squares are not
// beaten by others, and what a consensus says of its inliers is true.

#include <QZmath/Fitting/CircleFitting.h>
#include <QZmath/Fitting/ConsensusFitting.h>
#include <QZmath/Fitting/LineFitting.h>
#include <QZmath/Fitting/PlaneApproximator.h>
#include <QZmath/Fitting/PlaneFitting.h>
#include <QZmath/Fitting/PlaneLimits.h>
#include <QZmath/Fitting/PlaneSelection.h>
#include <QZmath/Fitting/RobustRegression.h>

#include "Input.h"

#include <memory>

namespace
{

using namespace qz_fuzz;
using REmath::Point3D;
using REmath::Point3D_d;
using Points = std::vector<Point3D_d>;
using SinglePoints = std::vector<Point3D>;

Point3D_d wide(Point3D_d const & p) { return p; }
Point3D_d wide(Point3D const & p) { return {double(p.x()), double(p.y()), double(p.z())}; }

// Of magnitudes that squares and sums of them bear, and whose differences have digits.
template <class Point>
bool isGentle(std::vector<Point> const & points)
{
    double greatest = 0, extent = 0;
    for (Point const & point : points) {
        Point3D_d const p = wide(point), d = p - wide(points.front());
        if (!isFinite(p))
            return false;
        greatest = std::max(greatest, dot(p, p));
        extent = std::max(extent, dot(d, d));
    }
    return greatest < 1e40 && extent > 1e-40 && extent > 1e-6 * greatest;
}

template <class Point>
double squaredFromLine(std::vector<Point> const & points, Point3D_d const & origin,
                       Point3D_d const & direction)
{
    double sum = 0;
    for (Point const & point : points) {
        Point3D_d const d = wide(point) - origin;
        double const along = dot(d, direction);
        sum += std::max(0.0, dot(d, d) - along * along);
    }
    return sum;
}

template <class Point>
double squaredFromPlane(std::vector<Point> const & points, Point3D_d const & origin, Point3D_d const & normal)
{
    double sum = 0;
    for (Point const & point : points) {
        double const off = dot(wide(point) - origin, normal);
        sum += off * off;
    }
    return sum;
}

template <class Point>
double squaredExtent(std::vector<Point> const & points, Point3D_d const & origin)
{
    return squaredFromLine(points, origin, Point3D_d());
}

Point3D_d const otherDirections[] = {{1.0, 0.0, 0.0}, {0.0, 1.0, 0.0},  {0.0, 0.0, 1.0},
                                     {0.6, 0.8, 0.0}, {0.0, -0.6, 0.8}, {0.48, 0.6, 0.64}};

template <class Point>
void checkLines(std::vector<Point> const & points)
{
    Point3D_d origin, direction, again, directionAgain;
    if (FitLineToPointSet(points, origin, direction)) {
        require(isFinite(origin) && isUnit(direction), "a line is finite");
        FitLineToPointSet(points, again, directionAgain);
        require(Bits(origin, direction) == Bits(again, directionAgain), "a line has the same bits again");
        if (isGentle(points) && points.size() > 2) {
            double const slack = 1e-9 * squaredExtent(points, origin);
            for (Point3D_d const & other : otherDirections)
                require(squaredFromLine(points, origin, direction) <=
                            squaredFromLine(points, origin, other) + slack,
                        "no line is nearer");
        }
    }
    if (FitLineToPointSetRobust(points, origin, direction)) {
        require(isFinite(origin) && isUnit(direction), "a robust line is finite");
        FitLineToPointSetRobust(points, again, directionAgain);
        require(Bits(origin, direction) == Bits(again, directionAgain), "a robust line has the same bits");
    }
}

void checkCircle(bool isFound, Point3D_d const & center, Point3D_d const & normal, double radius)
{
    if (isFound)
        require(isFinite(center) && isUnit(normal) && std::isfinite(radius) && radius >= 0,
                "a circle is finite");
}

void checkCircles(Points const & points, Input & input)
{
    Point3D_d center, normal;
    double radius = 0;
    if (points.size() >= 3) {
        bool const isFound = makeCircleByThreePoints(points.data(), center, normal, radius);
        checkCircle(isFound, center, normal, radius);
        Points const three(points.begin(), points.begin() + 3);
        if (isFound && isGentle(three)) {
            Point3D_d const a = points[1] - points[0], b = points[2] - points[0];
            double const sine2 = 1 - dot(a, b) * dot(a, b) / (dot(a, a) * dot(b, b));
            for (Point3D_d const & p : three)
                require(sine2 < 1e-3 || dot(a, a) < 1e-3 * dot(b, b) || dot(b, b) < 1e-3 * dot(a, a) ||
                            std::fabs(std::sqrt(dot(p - center, p - center)) - radius) <
                                1e-6 * (radius + std::sqrt(dot(p, p))),
                        "a circle passes through its points");
        }
    }
    checkCircle(FitCircleToPointSet(points, center, normal, radius), center, normal, radius);
    bool const isRobust = FitCircleToPointSetRobust(points, center, normal, radius);
    checkCircle(isRobust, center, normal, radius);
    Point3D_d centerAgain, normalAgain;
    double radiusAgain = 0;
    if (isRobust && FitCircleToPointSetRobust(points, centerAgain, normalAgain, radiusAgain))
        require(Bits(center, normal, radius) == Bits(centerAgain, normalAgain, radiusAgain),
                "a circle has the same bits again");

    Points fixed, directions;
    for (int k = input.upTo(4); k > 0; --k)
        fixed.push_back(points.empty() || input.flag() ? input.point() : points[points.size() / 2]);
    for (int k = input.upTo(3); k > 0; --k)
        directions.push_back(input.point());
    checkCircle(FitCircleToPointSetWithFixedPointsRobust(points, fixed, center, normal, radius), center,
                normal, radius);
    checkCircle(FitCircleByPointsWithDirs(points, fixed, directions, center, normal, radius), center, normal,
                radius);
}

template <class Point>
void checkPlane(std::vector<Point> const & points)
{
    double plane[4], centroid[3];
    if (!FitPlaneToPointSet(points, plane, centroid))
        return;
    Point3D_d const normal(plane), center(centroid);
    require(isUnit(normal) && isFinite(center) && std::isfinite(plane[3]), "a plane is finite");
    if (isGentle(points)) {
        double const slack = 1e-9 * squaredExtent(points, center);
        for (Point3D_d const & other : otherDirections)
            require(squaredFromPlane(points, center, normal) <=
                        squaredFromPlane(points, center, other) + slack,
                    "no plane is nearer");
    }
}

void checkSelection(SinglePoints const & points, Input & input)
{
    Point3D_d const viewDir = input.point(), fixedPoint = input.point();
    Point3D_d fixedDir = input.point();
    double const length = std::sqrt(dot(fixedDir, fixedDir));
    if (input.flag() && std::isfinite(length) && length > 0)
        fixedDir /= length;
    int const constraint = input.upTo(7) - 1;
    double const angle = input.number(), distance = input.number();
    Point3D const view(viewDir.x(), viewDir.y(), viewDir.z());
    Point3D_d center, normal, basisU, basisV;
    double maxError = 0, meanError = 0, limitsU[2], limitsV[2];
    if (RecognizePlaneSelectionFree(points, view, center, normal))
        require(isFinite(center) && isUnit(normal), "a recognised plane is finite");
    if (RecognizePlaneSelectionConstrained(points, view, constraint, angle, input.flag(), distance,
                                           fixedPoint, fixedDir, center, normal, maxError, meanError, basisU,
                                           basisV, limitsU, limitsV)) {
        require(isFinite(center) && isFinite(normal) && isFinite(basisU) && isFinite(basisV) &&
                    std::isfinite(maxError) && std::isfinite(meanError),
                "a constrained plane is finite");
        require(limitsU[0] <= limitsU[1] && limitsV[0] <= limitsV[1], "limits are in order");
        require(meanError <= maxError * (1 + 1e-9), "the mean error is below the greatest");
    }
}

void checkApproximator(SinglePoints const & points, Input & input)
{
    std::unique_ptr<REmath::IPlaneAppoximator> const approximator(
        REmath::IPlaneAppoximator::CreateByConstraint(PlaneFitFree));
    std::size_t const half = points.size() / 2;
    SinglePoints const first(points.begin(), points.begin() + std::ptrdiff_t(half)),
        second(points.begin() + std::ptrdiff_t(half), points.end());
    REmath::CPtVecAdapder<SinglePoints> const firstRefs(first), secondRefs(second);
    bool const withNormals = input.flag();
    REmath::ICoord3DRefs const * const normals = withNormals ? &firstRefs : nullptr;
    approximator->addPoints(&firstRefs, normals);
    approximator->addPoints(&secondRefs, nullptr);
    REmath::CPlaneEquation plane;
    approximator->getPlane(plane);
    if (plane.IsValid()) {
        require(isUnit(Point3D_d(plane.NormalDir()), 1e-6) && std::isfinite(plane.FreeTerm()),
                "an approximated plane is finite");
        REmath::CPlaneLimits limits;
        limits.DefineAuto(firstRefs, plane);
        for (int i = 0; i < 2; ++i)
            require(isFinite(Point3D_d(limits.GetBasisVector(i))) &&
                        limits.GetLimitsInDir(i)[0] <= limits.GetLimitsInDir(i)[1],
                    "limits are in order");
    }
    approximator->removePoints(&firstRefs, normals);
    approximator->update(&secondRefs, nullptr, -1);
    approximator->getPlane(plane);
    require(!plane.IsValid(), "no plane is left without points");
}

void checkReport(REmath::ConsensusReport const & report, std::size_t points)
{
    if (!report.found)
        return;
    std::vector<std::size_t> const & inliers = report.inliers;
    require(std::is_sorted(inliers.begin(), inliers.end()) &&
                std::adjacent_find(inliers.begin(), inliers.end()) == inliers.end() && !inliers.empty() &&
                inliers.back() < points,
            "inliers are points, ascending");
    require(report.inlierDistance > 0 && std::isfinite(report.inlierDistance) &&
                report.rms <= report.inlierDistance * (1 + 1e-6) &&
                report.support == double(inliers.size()) / double(points) && report.trials > 0,
            "a consensus tells the truth");
}

template <class Point>
void checkConsensus(std::vector<Point> const & points, REmath::ConsensusOptions const & options)
{
    REmath::LineConsensus const line = findLine(points, options), again = findLine(points, options);
    checkReport(line, points.size());
    require(line.found == again.found && line.trials == again.trials, "a consensus is found again");
    if (line.found) {
        require(isFinite(line.origin) && isUnit(line.direction), "a line by consensus is finite");
        require(Bits(line.origin, line.direction) == Bits(again.origin, again.direction),
                "a consensus has the same bits again");
        if (isGentle(points))
            for (std::size_t k : line.inliers)
                require(
                    std::sqrt(squaredFromLine(std::vector<Point>{points[k]}, line.origin, line.direction)) <=
                        line.inlierDistance * (1 + 1e-6) +
                            1e-7 * std::sqrt(squaredExtent(points, line.origin)),
                    "an inlier is near the line");
    }
    REmath::PlaneConsensus const plane = findPlane(points, options);
    checkReport(plane, points.size());
    if (plane.found)
        require(isFinite(plane.origin) && isUnit(plane.normal), "a plane by consensus is finite");
    REmath::CircleConsensus const circle = findCircle(points, options);
    checkReport(circle, points.size());
    if (circle.found) {
        checkCircle(true, circle.center, circle.normal, circle.radius);
        require(circle.radius > circle.inlierDistance, "a circle is larger than its width");
    }
}

void checkPlanarConsensus(Points const & points, REmath::ConsensusOptions const & options)
{
    std::vector<std::array<double, 2>> planar;
    for (Point3D_d const & p : points)
        planar.push_back({p.x(), p.y()});
    REmath::PlanarLineConsensus const line = findLine(planar, options);
    checkReport(line, planar.size());
    if (line.found)
        require(isUnit({line.direction[0], line.direction[1], 0.0}), "a line in the plane is finite");
    REmath::PlanarCircleConsensus const circle = findCircle(planar, options);
    checkReport(circle, planar.size());
    if (circle.found)
        require(std::isfinite(circle.center[0] + circle.center[1]) && circle.radius > circle.inlierDistance,
                "a circle in the plane is finite");
}

// Hands over whatever residuals the input has.
class AnyTask : public IRegressionAnalysisTask
{
public:
    explicit AnyTask(Input & input, unsigned count) : m_input(input), m_count(count) {}
    int fits = 0;

private:
    int parameterCount() override { return 1; }
    unsigned sampleCount() override { return m_count; }
    int fitInitial(std::vector<double> & residuals) override { return fit(residuals); }
    int fitWeighted(std::vector<double> const & weights, std::vector<double> & residuals) override
    {
        for (double weight : weights)
            require(weight >= 0 && weight <= 1, "a weight is from 0 to 1");
        return fit(residuals);
    }
    void storeParameters(std::vector<double> & parameters) override { parameters.assign(1, fits); }
    bool isConverged(std::vector<double> const &) override { return m_input.byte() > 250; }
    int fit(std::vector<double> & residuals)
    {
        require(residuals.size() == m_count, "there is a place for each residual");
        ++fits;
        for (double & residual : residuals)
            residual = std::fabs(m_input.number());
        return m_input.byte() == 255 ? 7 : 0;
    }

    Input & m_input;
    unsigned m_count;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size)
{
    Input input(data, size);
    int const kind = input.byte();
    Points const points = input.points(120);
    SinglePoints const singles = inSinglePrecision(points);
    switch (kind % 6) {
    case 0:
        checkLines(points);
        checkLines(singles);
        break;
    case 1:
        checkCircles(points, input);
        break;
    case 2:
        checkPlane(points);
        checkPlane(singles);
        checkApproximator(singles, input);
        break;
    case 3:
        checkSelection(singles, input);
        break;
    case 4: {
        REmath::ConsensusOptions options;
        if (input.flag())
            options.inlierDistance = input.number();
        if (input.flag())
            options.confidence = input.number();
        options.mostTrials = input.flag() ? std::min(input.integer(), 40) : 40;
        options.seed = std::uint64_t(input.byte());
        checkConsensus(points, options);
        checkConsensus(singles, options);
        checkPlanarConsensus(points, options);
        break;
    }
    default: {
        AnyTask task(input, unsigned(input.upTo(9)));
        CRobustRegressionSolver solver(task);
        solver.solveRegression();
        require(task.fits <= 50, "a regression ends");
    }
    }
    return 0;
}
