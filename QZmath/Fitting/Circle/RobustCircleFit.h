// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Fitting/Circle/PlaneCircle.h>
#include <QZmath/Fitting/Samples/WeightedFitTask.h>

#include <utility>
#include <vector>

namespace REmath::Detail
{

enum CircleMode
{
    CircleFree,
    CircleThroughPoint,
    CircleTangentAtPoint,
    CircleThroughTwoPoints
};

/// Circle for the robust solver: free, or under a constraint.
class RobustCircleFit : public WeightedFitTask
{
public:
    /// The mode needs one fixed point, or two of them, or one and a unit tangent.
    RobustCircleFit(std::vector<Point3D_d> const & samples, CircleMode mode,
                    std::vector<Point3D_d> fixedPoints = {}, Point3D_d const & tangent = {})
        : m_points(&samples), m_mode(mode), m_fixedPoints(std::move(fixedPoints)), m_tangentDir(tangent)
    {}

    int parameterCount() override { return 3; }
    unsigned int sampleCount() override { return static_cast<unsigned int>(m_points->size()); }

    void storeParameters(std::vector<double> & parameters) override;
    bool isConverged(std::vector<double> const & parameters) override;

    PlaneCircle const & circle() const { return m_circle; }

private:
    bool fit(std::vector<double> const & weights) override;
    void findResiduals(std::vector<double> & residuals) const override;

    bool fitAlgebraic(std::vector<double> const & weights);
    bool refine(std::vector<double> const & weights);
    template <class FixedRay, class Step>
    bool refineBySteps(std::vector<double> const & weights, FixedRay fixedRay, Step step);
    bool refineFree(std::vector<double> const & weights);
    bool refineThroughPoint(std::vector<double> const & weights);
    void refineTangent(std::vector<double> const & weights);
    void refineThroughTwoPoints();
    template <class Sum>
    void refineOnLine(Point3D_d const & base, Point3D_d const & along, Sum sum, bool keepsSide);
    double perSample() const { return 1 / static_cast<double>(m_points->size()); }

    std::vector<Point3D_d> const * m_points;
    PlaneCircle m_circle;
    double m_tolerance = 0.001; // of the radius
    CircleMode m_mode;
    std::vector<Point3D_d> m_fixedPoints;
    Point3D_d m_tangentDir;
};

} // namespace REmath::Detail
