// SPDX-License-Identifier: Apache-2.0
#include <apps/sampling/SampleShapes.h>

#include <apps/sampling/Genus3Level.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

using REmath::Point3D_d;

namespace qz_sampling
{

namespace
{

constexpr double pi = 3.14159265358979323846;

double dot(Point3D_d const & a, Point3D_d const & b) { return a.x() * b.x() + a.y() * b.y() + a.z() * b.z(); }

double length(double x, double y) { return std::sqrt(x * x + y * y); }

// Uniform on the unit circle and on the unit sphere, by rejection from the square and the cube.
void randomDirection(Random & random, double & x, double & y)
{
    double squaredLength = 0;
    do {
        x = random.uniform(-1, 1);
        y = random.uniform(-1, 1);
        squaredLength = x * x + y * y;
    } while (squaredLength > 1 || squaredLength < 1e-4);
    x /= std::sqrt(squaredLength);
    y /= std::sqrt(squaredLength);
}

Point3D_d randomDirection(Random & random)
{
    for (;;) {
        double const x = random.uniform(-1, 1);
        double const y = random.uniform(-1, 1);
        double const z = random.uniform(-1, 1);
        double const squaredLength = x * x + y * y + z * z;
        if (squaredLength <= 1 && squaredLength >= 1e-4)
            return Point3D_d(x, y, z) / std::sqrt(squaredLength);
    }
}

// The direction of a vector, or z for the zero vector: a point at the centre of a ball has no better answer.
Point3D_d directionOf(Point3D_d const & vector)
{
    double const ownLength = std::sqrt(dot(vector, vector));
    return ownLength > 0 ? vector / ownLength : Point3D_d(0, 0, 1);
}

class Sphere : public Shape
{
public:
    std::string name() const override { return "sphere"; }
    SurfacePoint sample(Random & random) const override
    {
        Point3D_d const direction = randomDirection(random);
        return {direction, direction};
    }
    double signedDistance(Point3D_d const & point) const override { return point.length() - 1; }
    Point3D_d normalNear(Point3D_d const & point) const override { return directionOf(point); }
    int eulerNumber() const override { return 2; }
    double area() const override { return 4 * pi; }
    Point3D_d halfExtent() const override { return Point3D_d(1); }
};

class Torus : public Shape
{
public:
    std::string name() const override { return "torus"; }
    SurfacePoint sample(Random & random) const override
    {
        double alongX = 0;
        double alongY = 0;
        randomDirection(random, alongX, alongY);
        double outward = 0;
        double upward = 0;
        do
            randomDirection(random, outward, upward);
        while (random.uniform() * (ring + tube) > ring + tube * outward);
        Point3D_d const normal(alongX * outward, alongY * outward, upward);
        return {Point3D_d(alongX * ring, alongY * ring, 0) + normal * tube, normal};
    }
    double signedDistance(Point3D_d const & point) const override
    {
        return length(length(point.x(), point.y()) - ring, point.z()) - tube;
    }
    Point3D_d normalNear(Point3D_d const & point) const override
    {
        Point3D_d const along = directionOf({point.x(), point.y(), 0});
        return directionOf(point - Point3D_d(along.x(), along.y(), 0) * ring);
    }
    int eulerNumber() const override { return 0; }
    double area() const override { return 4 * pi * pi * ring * tube; }
    Point3D_d halfExtent() const override { return {ring + tube, ring + tube, tube}; }

private:
    static constexpr double ring = 1;
    static constexpr double tube = 0.4;
};

// Parallel surface of a box: faces, quarter cylinders and eighths of a sphere.
class Plate : public Shape
{
public:
    // The box that the edges round off to, as half sides, and the radius that is added all around.
    Plate(char const * name, std::array<double, 3> const & coreHalf, double edgeRadius)
        : plateName(name), half(coreHalf), radius(edgeRadius)
    {}
    std::string name() const override { return plateName; }
    SurfacePoint sample(Random & random) const override
    {
        double choice = random.uniform() * area();
        for (int axis = 0; axis < 3; ++axis) {
            int const second = (axis + 1) % 3;
            int const third = (axis + 2) % 3;
            double core[3];
            double normal[3] = {0, 0, 0};
            choice -= 8 * half[std::size_t(second)] * half[std::size_t(third)];
            if (choice < 0) {
                normal[axis] = random.uniform() < 0.5 ? -1 : 1;
                core[axis] = normal[axis] * half[std::size_t(axis)];
                core[second] = random.uniform(-half[std::size_t(second)], half[std::size_t(second)]);
                core[third] = random.uniform(-half[std::size_t(third)], half[std::size_t(third)]);
                return offset(core, normal);
            }
            choice -= 4 * pi * radius * half[std::size_t(axis)];
            if (choice < 0) {
                randomDirection(random, normal[second], normal[third]);
                core[axis] = random.uniform(-half[std::size_t(axis)], half[std::size_t(axis)]);
                core[second] = std::copysign(half[std::size_t(second)], normal[second]);
                core[third] = std::copysign(half[std::size_t(third)], normal[third]);
                return offset(core, normal);
            }
        }
        Point3D_d const normal = randomDirection(random);
        double core[3];
        for (int axis = 0; axis < 3; ++axis)
            core[axis] = std::copysign(half[std::size_t(axis)], normal.asArray()[axis]);
        return offset(core, normal.asArray());
    }
    double signedDistance(Point3D_d const & point) const override
    {
        Point3D_d const outside = outsideOf(point);
        double inside = -std::numeric_limits<double>::infinity();
        for (int axis = 0; axis < 3; ++axis)
            inside = std::max(inside, std::abs(point.asArray()[axis]) - half[std::size_t(axis)]);
        return outside.length() + std::min(inside, 0.0) - radius;
    }
    Point3D_d normalNear(Point3D_d const & point) const override
    {
        Point3D_d const outside = outsideOf(point);
        if (outside != Point3D_d(0))
            return directionOf(outside);
        // Within the core box the nearest face decides.
        int nearest = 0;
        for (int axis = 1; axis < 3; ++axis) {
            if (std::abs(point.asArray()[axis]) - half[std::size_t(axis)] >
                std::abs(point.asArray()[nearest]) - half[std::size_t(nearest)])
                nearest = axis;
        }
        double normal[3] = {0, 0, 0};
        normal[nearest] = std::copysign(1.0, point.asArray()[nearest]);
        return normal;
    }
    int eulerNumber() const override { return 2; }
    double area() const override
    {
        return 8 * (half[0] * half[1] + half[1] * half[2] + half[2] * half[0]) +
               4 * pi * radius * (half[0] + half[1] + half[2]) + 4 * pi * radius * radius;
    }
    Point3D_d halfExtent() const override { return Point3D_d(half.data()) + Point3D_d(radius); }

private:
    SurfacePoint offset(double const * core, double const * normal) const
    {
        return {Point3D_d(core) + Point3D_d(normal) * radius, normal};
    }
    // What leads from the core box to the point; zero inside the box.
    Point3D_d outsideOf(Point3D_d const & point) const
    {
        double outside[3];
        for (int axis = 0; axis < 3; ++axis) {
            double const coord = point.asArray()[axis];
            outside[axis] = std::copysign(std::max(std::abs(coord) - half[std::size_t(axis)], 0.0), coord);
        }
        return outside;
    }

    char const * plateName;
    std::array<double, 3> half;
    double radius;
};

// Base of the shapes that are given by a function, positive outside, and its gradient.
class ImplicitShape : public Shape
{
public:
    double signedDistance(Point3D_d const & point) const override
    {
        double const distance = (point - foot(point)).length();
        return value(point) < 0 ? -distance : distance;
    }
    Point3D_d normalNear(Point3D_d const & point) const override
    {
        return directionOf(gradient(foot(point)));
    }

protected:
    virtual double value(Point3D_d const & point) const = 0;
    virtual Point3D_d gradient(Point3D_d const & point) const = 0;
    virtual Point3D_d foot(Point3D_d const & point) const { return project(point); }

    // Newton steps along the gradient. Converges for points nearer than the radius of curvature.
    Point3D_d project(Point3D_d point) const
    {
        for (int step = 0; step < 8; ++step) {
            double const level = value(point);
            Point3D_d const slope = gradient(point);
            double const squaredSlope = dot(slope, slope);
            if (std::abs(level) < 1e-14 || squaredSlope == 0)
                break;
            point -= slope * (level / squaredSlope);
        }
        return point;
    }
};

class Genus3 : public ImplicitShape
{
public:
    std::string name() const override { return "genus3"; }

    // By the Cauchy-Crofton formula, the crossings of uniformly distributed random lines with a surface are
    // uniformly distributed by area. A step along the line is at most what the bound of the slope allows, and
    // at least the least one: shorter chords are missed, which concerns about a thousandth of the area.
    SurfacePoint sample(Random & random) const override
    {
        for (;;) {
            Line line = randomLine(random);
            double level = genus3::levelAt(line.at(line.position));
            while (line.position < line.end) {
                double const next = genus3::nextPosition(line.position, level);
                double const nextLevel = genus3::levelAt(line.at(next));
                if ((level < 0) != (nextLevel < 0) && line.wanted-- == 0)
                    return pointAt(line, bisect(line, next, level < 0));
                line.position = next;
                level = nextLevel;
            }
        }
    }

    // Walks along one line of each generator at a time: the roots of the lanes are taken side by side.
    void sampleEach(Random * randoms, int count, PointTaker & taker) const override
    {
        for (int first = 0; first < count; first += lanes)
            sampleSome(randoms + first, std::min(lanes, count - first), first, taker);
    }
    int eulerNumber() const override { return -4; }
    double area() const override { return 11.075; }
    Point3D_d halfExtent() const override
    {
        return {genus3::discRadius, genus3::discRadius, genus3::slabHalfWidth};
    }

protected:
    double value(Point3D_d const & point) const override { return genus3::levelAt(point); }
    Point3D_d gradient(Point3D_d const & point) const override { return genus3::gradientAt(point); }

private:
    static constexpr int lanes = static_cast<int>(genus3::st_lanes);
    static constexpr double ballRadius = 1.25;
    static constexpr int maxCrossings = 6;

    static constexpr int bisections = 50;

    // A line and the part of it that is left.
    struct Line
    {
        // At most one crossing is taken, each with the same odds: the one of a number drawn before.
        int wanted;
        Point3D_d along, origin;
        double position, end;

        Point3D_d at(double place) const { return origin + along * place; }
    };

    static double bisect(Line const & line, double high, bool isLowInside)
    {
        double low = line.position;
        for (int step = 0; step < bisections; ++step) {
            double const middle = 0.5 * (low + high);
            ((genus3::levelAt(line.at(middle)) < 0) == isLowInside ? low : high) = middle;
        }
        return 0.5 * (low + high);
    }

    // The same bisection with fewer levels. Where the line is steep and not too curved, some steps of the
    // secant method lead to the crossing and show how far away from it the side is sure; there bisection goes
    // on without a level.
    class Crossing
    {
    public:
        Crossing() = default;
        Crossing(double low, double high, double lowLevel, double highLevel)
            : m_low(low), m_high(high), m_sureLow(low), m_sureHigh(high), m_isInside(lowLevel < 0),
              m_left(bisections)
        {
            double const chord = (highLevel - lowLevel) / (high - low);
            m_leastSlope = std::abs(chord) - genus3::curvatureBound * (high - low);
            m_guesses = m_leastSlope > 0.02 ? 4 : 0;
            m_lastPosition = low;
            m_lastLevel = lowLevel;
            m_guess = low - lowLevel / chord;
            skipSureOnes();
        }

        bool isKnown() const { return m_left == 0; }
        double position() const { return 0.5 * (m_low + m_high); }
        // Where the level is wanted next.
        double probe() const { return m_guesses > 0 ? m_guess : position(); }
        void take(double level)
        {
            if (m_guesses > 0)
                narrow(level);
            else
                halve((level < 0) == m_isInside);
            skipSureOnes();
        }

    private:
        void narrow(double level)
        {
            double const noise = 1e-15; // some times what rounding makes of a level
            double const away = (std::abs(level) + noise) / m_leastSlope;
            double const unsure = 2 * noise / m_leastSlope;
            bool const isBefore = (level < 0) == m_isInside;
            m_sureLow = std::max(m_sureLow, m_guess - unsure - (isBefore ? 0 : away));
            m_sureHigh = std::min(m_sureHigh, m_guess + unsure + (isBefore ? away : 0));
            double const better = m_guess - level * (m_guess - m_lastPosition) / (level - m_lastLevel);
            m_lastPosition = m_guess;
            m_lastLevel = level;
            m_guess = better;
            m_guesses = better > m_sureLow && better < m_sureHigh ? m_guesses - 1 : 0;
        }
        void halve(bool isLow)
        {
            (isLow ? m_low : m_high) = position();
            --m_left;
        }
        void skipSureOnes()
        {
            if (m_guesses > 0)
                return;
            double low = m_low, high = m_high, middle = position();
            int left = m_left;
            for (; left > 0 && (middle < m_sureLow || middle > m_sureHigh); --left) {
                (middle < m_sureLow ? low : high) = middle;
                middle = 0.5 * (low + high);
            }
            // Once the middle is an end, nothing changes any more.
            m_left = middle == low || middle == high ? 0 : left;
            m_low = low;
            m_high = high;
        }

        double m_low, m_high, m_sureLow, m_sureHigh;
        bool m_isInside; // at the low end
        int m_left = 0;
        double m_leastSlope, m_lastPosition, m_lastLevel, m_guess;
        int m_guesses;
    };

    // A line with the part of it that is both in the ball and in the slab which the surface lies in.
    static Line randomLine(Random & random)
    {
        for (;;) {
            Line line;
            line.wanted = static_cast<int>(random.uniform() * maxCrossings);
            line.along = randomDirection(random);
            // Uniform in the disk of the bounding ball that is perpendicular to the line.
            double u = 0;
            double v = 0;
            do {
                u = random.uniform(-1, 1);
                v = random.uniform(-1, 1);
            } while (u * u + v * v > 1);
            Point3D_d const & along = line.along;
            // The level of a steep line has a positive second derivative, and so at most two zeros.
            double const squaredSlant = along.z() * along.z();
            if (line.wanted >= 2 && 2 * squaredSlant + genus3::leastCurvatureAcross * (1 - squaredSlant) > 0)
                continue;
            Point3D_d const aside = std::abs(along.x()) < 0.6 ? Point3D_d(1, 0, 0) : Point3D_d(0, 1, 0);
            Point3D_d const first = directionOf(aside - along * dot(along, aside));
            Point3D_d const second(along.y() * first.z() - along.z() * first.y(),
                                   along.z() * first.x() - along.x() * first.z(),
                                   along.x() * first.y() - along.y() * first.x());
            line.origin = first * (u * ballRadius) + second * (v * ballRadius);
            double const reach = std::sqrt(ballRadius * ballRadius - dot(line.origin, line.origin));
            line.position = -reach;
            line.end = reach;
            if (along.z() != 0) {
                double const bottom = (-genus3::slabHalfWidth - line.origin.z()) / along.z();
                double const top = (genus3::slabHalfWidth - line.origin.z()) / along.z();
                line.position = std::max(line.position, std::min(bottom, top));
                line.end = std::min(line.end, std::max(bottom, top));
            } else if (std::abs(line.origin.z()) > genus3::slabHalfWidth)
                continue;
            if (line.position < line.end)
                return line;
        }
    }
    SurfacePoint pointAt(Line const & line, double position) const
    {
        Point3D_d const point = line.at(position);
        return {point, directionOf(gradient(point))};
    }

    void sampleSome(Random * randoms, int count, int firstSequence, PointTaker & taker) const
    {
        double const nowhere = -std::numeric_limits<double>::infinity();
        genus3::Walks walks = {};
        struct Lane
        {
            Line line;
            Crossing crossing; // known, before it is found
            bool hasBegun;
        } all[lanes] = {};
        auto const beginLine = [&](int i) {
            Line & line = all[i].line;
            line = randomLine(randoms[i]);
            for (int axis = 0; axis < 3; ++axis) {
                walks.origin[axis][i] = line.origin.asArray()[axis];
                walks.along[axis][i] = line.along.asArray()[axis];
            }
            walks.position[i] = line.position;
            walks.end[i] = nowhere;
            all[i].hasBegun = false;
        };
        for (int i = 0; i < count; ++i)
            beginLine(i);
        for (unsigned used = (1u << count) - 1; used != 0;) {
            for (unsigned stopped = genus3::walk(walks) & used; stopped != 0; stopped &= stopped - 1) {
                int const i = __builtin_ctz(stopped);
                Lane & lane = all[i];
                double & position = walks.position[i];
                double const level = walks.level[i];
                double const before = walks.before[i];
                if (!lane.crossing.isKnown()) {
                    lane.crossing.take(level);
                } else if (lane.hasBegun && (before < 0) != (level < 0) && lane.line.wanted-- == 0) {
                    lane.crossing = Crossing(walks.passed[i], position, before, level);
                    walks.end[i] = nowhere;
                } else {
                    lane.hasBegun = true;
                    walks.before[i] = level;
                    walks.passed[i] = position;
                    walks.end[i] = lane.line.end;
                    if (position < lane.line.end)
                        position = genus3::nextPosition(position, level);
                    else
                        beginLine(i);
                    continue;
                }
                position = lane.crossing.probe();
                if (lane.crossing.isKnown()) {
                    if (!taker.take(firstSequence + i, pointAt(lane.line, position)))
                        used &= ~(1u << i);
                    beginLine(i);
                }
            }
        }
    }
};

// Chebyshev polynomials of the first kind make bumps without a transcendental function.
double chebyshev3(double t) { return t * (4 * t * t - 3); }
double chebyshev4(double t) { return 8 * t * t * (t * t - 1) + 1; }
double chebyshev5(double t) { return t * (t * t * (16 * t * t - 20) + 5); }
double chebyshev3Slope(double t) { return 12 * t * t - 3; }
double chebyshev4Slope(double t) { return t * (32 * t * t - 16); }
double chebyshev5Slope(double t) { return t * t * (80 * t * t - 60) + 5; }

// Star-shaped: |p| = r(p / |p|).
class BumpySphere : public ImplicitShape
{
public:
    std::string name() const override { return "bumpy-sphere"; }
    SurfacePoint sample(Random & random) const override
    {
        for (;;) {
            Point3D_d const direction = randomDirection(random);
            double const radius = radiusAt(direction);
            Point3D_d const slope = gradient(direction * radius);
            // The surface element over the direction is r² / cos, the cosine between normal and direction
            // being 1 / |gradient|.
            if (random.uniform() * elementBound < radius * radius * slope.length())
                return {direction * radius, directionOf(slope)};
        }
    }
    int eulerNumber() const override { return 2; }
    double area() const override { return 14.099; }
    Point3D_d halfExtent() const override { return Point3D_d(1.13); }

protected:
    double value(Point3D_d const & point) const override
    {
        return point.length() - radiusAt(directionOf(point));
    }
    Point3D_d gradient(Point3D_d const & point) const override
    {
        Point3D_d const direction = directionOf(point);
        Point3D_d const bumps(chebyshev5Slope(direction.x()), chebyshev5Slope(direction.y()),
                              chebyshev5Slope(direction.z()));
        Point3D_d const acrossBumps = bumps - direction * dot(bumps, direction);
        return direction - acrossBumps * (height / std::max(point.length(), 1e-3));
    }

private:
    static double radiusAt(Point3D_d const & direction)
    {
        return 1 +
               height * (chebyshev5(direction.x()) + chebyshev5(direction.y()) + chebyshev5(direction.z()));
    }

    static constexpr double height = 0.08;
    static constexpr double elementBound = 1.55;
};

// z = g(x, y) over the square from -1 to 1.
class Sheet : public ImplicitShape
{
public:
    std::string name() const override { return "sheet"; }
    SurfacePoint sample(Random & random) const override
    {
        for (;;) {
            double const x = random.uniform(-1, 1);
            double const y = random.uniform(-1, 1);
            Point3D_d const slope = gradient({x, y, 0});
            if (random.uniform() * elementBound < slope.length())
                return {{x, y, heightAt(x, y)}, directionOf(slope)};
        }
    }
    double distanceToBorder(Point3D_d const & point) const override
    {
        return 1 - std::max(std::abs(point.x()), std::abs(point.y()));
    }
    int eulerNumber() const override { return 1; }
    bool isClosed() const override { return false; }
    double area() const override { return 4.1528; }
    Point3D_d halfExtent() const override { return {1, 1, height}; }

protected:
    double value(Point3D_d const & point) const override
    {
        return point.z() - heightAt(point.x(), point.y());
    }
    Point3D_d gradient(Point3D_d const & point) const override
    {
        double const x = stretch * point.x();
        double const y = stretch * point.y();
        return {-height * stretch * chebyshev4Slope(x) * chebyshev3(y),
                -height * stretch * chebyshev4(x) * chebyshev3Slope(y), 1};
    }
    // Beyond the border the nearest point is on it, up to the slope of the border.
    Point3D_d foot(Point3D_d const & point) const override
    {
        Point3D_d const projected = project(clampToSquare(point));
        Point3D_d const clamped = clampToSquare(projected);
        return {clamped.x(), clamped.y(), heightAt(clamped.x(), clamped.y())};
    }

private:
    static double heightAt(double x, double y)
    {
        return height * chebyshev4(stretch * x) * chebyshev3(stretch * y);
    }
    static Point3D_d clampToSquare(Point3D_d const & point)
    {
        return {std::clamp(point.x(), -1.0, 1.0), std::clamp(point.y(), -1.0, 1.0), point.z()};
    }

    static constexpr double height = 0.08;
    static constexpr double stretch = 0.95;
    static constexpr double elementBound = 1.4;
};

} // namespace

PointTaker::~PointTaker() = default;

Shape::~Shape() = default;

void Shape::sampleEach(Random * randoms, int count, PointTaker & taker) const
{
    for (int sequence = 0; sequence < count; ++sequence)
        while (taker.take(sequence, sample(randoms[sequence]))) {
        }
}

double Shape::distanceToBorder(Point3D_d const &) const { return std::numeric_limits<double>::infinity(); }

bool Shape::isClosed() const { return true; }

std::vector<std::string> const & shapeNames()
{
    static std::vector<std::string> const names = {"sphere",     "torus", "genus3",       "plate",
                                                   "thin-plate", "block", "bumpy-sphere", "sheet"};
    return names;
}

std::unique_ptr<Shape> makeShape(std::string const & name)
{
    if (name == "sphere")
        return std::make_unique<Sphere>();
    if (name == "torus")
        return std::make_unique<Torus>();
    if (name == "genus3")
        return std::make_unique<Genus3>();
    if (name == "plate")
        return std::make_unique<Plate>("plate", std::array<double, 3>{0.87, 0.57, 0.02}, 0.13);
    if (name == "thin-plate")
        return std::make_unique<Plate>("thin-plate", std::array<double, 3>{0.98, 0.68, 0.01}, 0.02);
    if (name == "block")
        return std::make_unique<Plate>("block", std::array<double, 3>{1.0, 0.7, 0.5}, 0.0);
    if (name == "bumpy-sphere")
        return std::make_unique<BumpySphere>();
    if (name == "sheet")
        return std::make_unique<Sheet>();
    return nullptr;
}

} // namespace qz_sampling
