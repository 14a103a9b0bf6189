// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Fitting/Circle/PlaneCircle.h>

#include <QZmath/Fitting/LevenbergMarquardt.h>

namespace REmath::Detail
{

bool circleThrough(Point3D_d const & p0, Point3D_d const & p1, Point3D_d const & p2, PlaneCircle & circle)
{
    Circumcircle const through(p1 - p0, p2 - p0);
    if (!(through.determinant > 0))
        return false;
    circle.center = p0 + through.offset;
    circle.radius = through.offset.length();
    return circle.isFinite();
}

std::pair<std::size_t, std::size_t> extremes(std::vector<Point3D_d> const & samples)
{
    double low[2] = {1e100, 1e100}, high[2] = {-1e100, -1e100};
    std::size_t lowest[2] = {}, highest[2] = {};
    for (std::size_t i = 0; i < samples.size(); ++i) {
        for (int axis = 0; axis < 2; ++axis) {
            double const coordinate = samples[i].asArray()[axis];
            if (coordinate < low[axis]) {
                low[axis] = coordinate;
                lowest[axis] = i;
            }
            if (coordinate > high[axis]) {
                high[axis] = coordinate;
                highest[axis] = i;
            }
        }
    }
    int const axis = high[1] - low[1] > high[0] - low[0] ? 1 : 0;
    return {lowest[axis], highest[axis]};
}

namespace
{

// The circle through three points far apart: the two extreme ones, and the one with the greatest sum of
// distances from them.
bool roughCircle(std::vector<Point3D_d> const & samples, PlaneCircle & circle)
{
    auto const [first, second] = extremes(samples);
    std::size_t third = first;
    double greatest = -1;
    for (std::size_t i = 0; i < samples.size(); ++i) {
        if (i == first || i == second)
            continue;
        double const sum =
            planeDistance(samples[i], samples[first]) + planeDistance(samples[i], samples[second]);
        if (sum > greatest) {
            greatest = sum;
            third = i;
        }
    }
    return circleThrough(samples[first], samples[second], samples[third], circle);
}

// The differences |p - c|² - r² of the samples in the variables (cx, cy, r).
class FitCircleFunctor : public REmath::Functor7<int, int, int, double const *, double *, double *, int, int>
{
public:
    explicit FitCircleFunctor(std::vector<Point3D_d> const & samples) : m_samples(&samples) {}

    int operator()(int m, int, double const * x, double * fvec, double * fjac, int ldfjac,
                   int iflag) const override
    {
        auto const count = static_cast<std::size_t>(m), stride = static_cast<std::size_t>(ldfjac);
        Point3D_d const * const samples = m_samples->data();
        if (iflag == 1) {
            for (std::size_t i = 0; i < count; ++i) {
                double const dx = samples[i].x() - x[0], dy = samples[i].y() - x[1];
                fvec[i] = dx * dx + dy * dy - x[2] * x[2];
            }
        } else if (iflag == 2) {
            for (std::size_t i = 0; i < count; ++i) {
                fjac[i] = 2 * (x[0] - samples[i].x());
                fjac[i + stride] = 2 * (x[1] - samples[i].y());
                fjac[i + 2 * stride] = -2 * x[2];
            }
        }
        return 1;
    }

private:
    std::vector<Point3D_d> const * m_samples;
};

} // namespace

bool fitPlainCircle(std::vector<Point3D_d> const & samples, PlaneCircle & circle)
{
    if (!roughCircle(samples, circle))
        return false;
    double x[3] = {circle.center.x(), circle.center.y(), circle.radius};
    std::vector<double> differences(samples.size());
    int const info = lmder1_adapter(FitCircleFunctor(samples), static_cast<int>(samples.size()), 3, x,
                                    differences.data(), 1e-12);
    circle = {{x[0], x[1], 0}, std::abs(x[2])};
    return info >= 1 && info <= 4 && circle.isFinite();
}

} // namespace REmath::Detail
