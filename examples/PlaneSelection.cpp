// SPDX-License-Identifier: Apache-2.0

// A user brushes over a chamfer of a scanned part. The drawing says that it is inclined by 30 degrees against
// the vertical axis of the part, so the plane is recognised three times: free, at this angle, and through the
// line of an edge that was measured before. Each time with its error and the size of the selected piece.

#include <QZmath/QZmath.h>

#include <cmath>
#include <cstdio>
#include <random>
#include <vector>

using REmath::Point3D;
using REmath::Point3D_d;

namespace
{

struct RecognisedPlane
{
    Point3D_d center, normal, basisU, basisV;
    double maxError = 0;
    double meanError = 0;
    double limitsU[2] = {};
    double limitsV[2] = {};

    double sizeU() const { return limitsU[1] - limitsU[0]; }
    double sizeV() const { return limitsV[1] - limitsV[0]; }
    void print(char const * title) const
    {
        std::printf("%-14s normal %7.4f %7.4f %7.4f, mean error %.4f, greatest %.4f, %.2f x %.2f mm\n", title,
                    normal.x(), normal.y(), normal.z(), meanError, maxError, sizeU(), sizeV());
    }
};

double degreesBetween(Point3D_d a, Point3D_d const & b)
{
    return std::acos(a.angleCos(b)) * 180 / std::acos(-1.0);
}

} // namespace

int main()
{
    // The chamfer: 12 mm along the edge, 4 mm across, with 0.02 mm of noise, seen from above.
    double const inclination = std::acos(-1.0) / 6;
    Point3D_d const axis(0, 0, 1);
    Point3D_d const edgePoint(40, 25, 10);
    Point3D_d const along(0.6, 0.8, 0);
    Point3D_d const across(-0.8 * std::cos(inclination), 0.6 * std::cos(inclination), -std::sin(inclination));
    Point3D_d const trueNormal(-0.8 * std::sin(inclination), 0.6 * std::sin(inclination),
                               std::cos(inclination));
    Point3D const viewDir(0, 0, 1);
    std::mt19937 random(7);
    std::uniform_real_distribution<double> length(0, 12), width(0, 4);
    std::normal_distribution<double> noise(0, 0.02);
    std::vector<Point3D> selection;
    for (int i = 0; i < 5000; ++i) {
        Point3D_d const point =
            edgePoint + along * length(random) + across * width(random) + trueNormal * noise(random);
        selection.push_back(point.asArray());
    }

    auto const recognise = [&](PlaneFitConstraintType constraint, Point3D_d const & direction,
                               RecognisedPlane & plane) {
        return RecognizePlaneSelectionConstrained(
            selection, viewDir, constraint, 30, false, 0, edgePoint, direction, plane.center, plane.normal,
            plane.maxError, plane.meanError, plane.basisU, plane.basisV, plane.limitsU, plane.limitsV);
    };
    RecognisedPlane free, inclined, atEdge;
    if (!recognise(PlaneFitFree, axis, free) || !recognise(PlaneFitAngleToAxis, axis, inclined) ||
        !recognise(PlaneFitThroughLine, along, atEdge)) {
        std::puts("the selection is no plane");
        return 1;
    }
    free.print("free");
    inclined.print("at 30 degrees");
    atEdge.print("at the edge");

    bool isRight = std::fabs(degreesBetween(inclined.normal, axis) - 30) < 1e-9 &&
                   std::fabs(degreesBetween(atEdge.normal, along) - 90) < 1e-9;
    for (RecognisedPlane const & plane : {free, inclined, atEdge}) {
        // The mean of the absolute value of normal noise is 0.8 of its deviation.
        isRight = isRight && degreesBetween(plane.normal, trueNormal) < 0.1 &&
                  std::fabs(plane.meanError - 0.016) < 0.001 && plane.maxError < 0.1 &&
                  std::fabs(plane.sizeU() * plane.sizeV() - 48) < 2;
    }
    return isRight ? 0 : 1;
}
