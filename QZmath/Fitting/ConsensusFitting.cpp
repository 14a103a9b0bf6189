// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Fitting/ConsensusFitting.h>

#include <QZmath/Fitting/Consensus/Search.h>

#include <algorithm>
#include <cmath>

namespace REmath
{

namespace
{

using namespace Detail;

// Points of any kind as points of space in `double`.
template <class Point>
class SpacePoints
{
public:
    explicit SpacePoints(std::vector<Point> const & points) : m_points(points) {}

    std::size_t size() const { return m_points.size(); }
    Point3D_d operator[](std::size_t i) const { return inSpace(m_points[i]); }

    bool areFinite() const
    {
        // What is not finite leaves NaN in its product with 0.
        Point3D_d sum;
        for (std::size_t i = 0; i < size(); ++i)
            sum += (*this)[i] * 0.0;
        return sum.x() + sum.y() + sum.z() == 0;
    }

private:
    static Point3D_d inSpace(Point3D_d const & point) { return point; }
    static Point3D_d inSpace(Point3D const & point) { return widen(point); }
    static Point3D_d inSpace(std::array<double, 2> const & point) { return {point[0], point[1], 0}; }

    std::vector<Point> const & m_points;
};

bool isValid(ConsensusOptions const & options)
{
    return options.inlierDistance >= 0 && std::isfinite(options.inlierDistance) && options.confidence >= 0 &&
           options.confidence <= 1 && options.mostTrials > 0;
}

double distanceBetween(Point3D_d const & p, Point3D_d const & q) { return (p - q).length(); }

// Inliers that lie together, within the inlier distance of one place, do not determine the object, and where
// it is a plane, those along one line do not. There must be others, as many as are no chance.
template <class Shape>
bool isDetermined(ConsensusSearch<Shape> & search, SampleSet const & samples, SampleRandom & random)
{
    std::vector<Point3D_d> inliers = search.collectInliers();
    double const distance = search.best().distance;
    PrincipalFrame frame;
    if (!frame.fit(inliers) || !(frame.spread[Shape::dimension - 1] > distance))
        return false;

    auto const middle = inliers.begin() + static_cast<std::ptrdiff_t>(inliers.size() / 2);
    Point3D_d median;
    for (int axis = 0; axis < 3; ++axis) {
        std::nth_element(inliers.begin(), middle, inliers.end(),
                         [axis](Point3D_d const & p, Point3D_d const & q) {
                             return p.asArray()[axis] < q.asArray()[axis];
                         });
        median += Point3D_d(axis == 0, axis == 1, axis == 2) * middle->asArray()[axis];
    }
    auto const isAway = [&](Point3D_d const & point) {
        return distanceBetween(point, median) > 2 * distance;
    };
    auto const away = std::count_if(inliers.begin(), inliers.end(), isAway);
    if (!search.isMeaningful(static_cast<std::size_t>(away)))
        return false;

    if constexpr (Shape::sampleSize > 2) {
        SampleSet inlierSamples;
        if (!inlierSamples.take(inliers, samples))
            return false;
        ConsensusSearch<ConsensusLine> lines(inlierSamples, random);
        lines.run(distance, 0.99, 100);
        std::size_t const along = lines.best().support;
        if (!search.isMeaningful(inliers.size() - along))
            return false;
    }
    return true;
}

// The inliers of an object among all points.
template <class Shape, class Points>
class InlierPass
{
public:
    InlierPass(Points const & points, SampleSet const & samples, double distance)
        : m_points(points), m_samples(samples), m_square(distance * distance)
    {}

    // Numbers and places in units. Gives the sum of their squared distances.
    double collect(Shape const & shape)
    {
        numbers.clear();
        places.clear();
        double sum = 0;
        for (std::size_t i = 0; i < m_points.size(); ++i) {
            Point3D_d const place = m_samples.toUnits(m_points[i]);
            double square;
            shape.squaredDistance(place.x(), place.y(), place.z(), square);
            if (square <= m_square) {
                numbers.push_back(i);
                places.push_back(place);
                sum += square;
            }
        }
        return sum;
    }

    std::vector<std::size_t> numbers;
    std::vector<Point3D_d> places;

private:
    Points const & m_points;
    SampleSet const & m_samples;
    double m_square;
};

// Fits the object to its inliers among all points until they stay the same.
template <class Shape, class Points>
bool finish(Points const & points, SampleSet const & samples, double distance, Shape & shape,
            ConsensusReport & report)
{
    constexpr int mostRounds = 6;
    InlierPass<Shape, Points> pass(points, samples, distance);
    double sum = pass.collect(shape);
    for (int round = 0; round < mostRounds; ++round) {
        if (pass.numbers.size() <= Shape::sampleSize || !shape.fit(pass.places))
            return false;
        report.inliers.swap(pass.numbers);
        sum = pass.collect(shape);
        if (pass.numbers == report.inliers)
            break;
    }
    report.inliers = std::move(pass.numbers);
    double const count = static_cast<double>(report.inliers.size());
    report.rms = std::sqrt(sum / count) / samples.scale();
    report.support = count / static_cast<double>(points.size());
    return report.inliers.size() > Shape::sampleSize && std::isfinite(report.rms);
}

template <class Shape, class Point>
bool findConsensus(std::vector<Point> const & pointVector, ConsensusOptions const & options,
                   SampleSet & samples, Shape & shape, ConsensusReport & report)
{
    SpacePoints<Point> const points(pointVector);
    SampleRandom random(options.seed);
    if (!isValid(options) || points.size() <= Shape::sampleSize || !points.areFinite() ||
        !samples.draw(points, random))
        return false;
    double const distance = options.inlierDistance > 0
                                ? std::max(options.inlierDistance * samples.scale(), samples.rounding())
                                : 0.0;
    ConsensusSearch<Shape> search(samples, random);
    search.run(distance, options.confidence, options.mostTrials);
    report.trials = search.trials();
    if (!search.isMeaningful() || !isDetermined(search, samples, random))
        return false;
    shape = search.best().shape;
    report.inlierDistance = search.best().distance / samples.scale();
    report.found = finish(points, samples, search.best().distance, shape, report);
    return report.found;
}

template <class Point>
LineConsensus lineOf(std::vector<Point> const & points, ConsensusOptions const & options)
{
    LineConsensus result;
    SampleSet samples;
    ConsensusLine line;
    if (findConsensus(points, options, samples, line, result)) {
        result.origin = samples.fromUnits(line.origin);
        result.direction = line.direction;
    }
    return result;
}

template <class Point>
PlaneConsensus planeOf(std::vector<Point> const & points, ConsensusOptions const & options)
{
    PlaneConsensus result;
    SampleSet samples;
    ConsensusPlane plane;
    if (findConsensus(points, options, samples, plane, result)) {
        result.origin = samples.fromUnits(plane.origin);
        result.normal = plane.normal;
    }
    return result;
}

template <class Point>
CircleConsensus circleOf(std::vector<Point> const & points, ConsensusOptions const & options)
{
    CircleConsensus result;
    SampleSet samples;
    ConsensusCircle circle;
    if (findConsensus(points, options, samples, circle, result)) {
        result.center = samples.fromUnits(circle.center);
        result.normal = circle.normal;
        result.radius = circle.radius / samples.scale();
    }
    return result;
}

} // namespace

LineConsensus findLine(std::vector<Point3D_d> const & points, ConsensusOptions const & options)
{
    return lineOf(points, options);
}

LineConsensus findLine(std::vector<Point3D> const & points, ConsensusOptions const & options)
{
    return lineOf(points, options);
}

PlanarLineConsensus findLine(std::vector<std::array<double, 2>> const & points,
                             ConsensusOptions const & options)
{
    LineConsensus const line = lineOf(points, options);
    return {line, {line.origin.x(), line.origin.y()}, {line.direction.x(), line.direction.y()}};
}

PlaneConsensus findPlane(std::vector<Point3D_d> const & points, ConsensusOptions const & options)
{
    return planeOf(points, options);
}

PlaneConsensus findPlane(std::vector<Point3D> const & points, ConsensusOptions const & options)
{
    return planeOf(points, options);
}

CircleConsensus findCircle(std::vector<Point3D_d> const & points, ConsensusOptions const & options)
{
    return circleOf(points, options);
}

CircleConsensus findCircle(std::vector<Point3D> const & points, ConsensusOptions const & options)
{
    return circleOf(points, options);
}

PlanarCircleConsensus findCircle(std::vector<std::array<double, 2>> const & points,
                                 ConsensusOptions const & options)
{
    CircleConsensus const circle = circleOf(points, options);
    return {circle, {circle.center.x(), circle.center.y()}, circle.radius};
}

} // namespace REmath
