// SPDX-License-Identifier: Apache-2.0

// The drawing of a bent sheet from one section of its scan: noisy points in a tilted plane, cut into pieces,
// become lines and arcs that meet without a corner. The points and the curves go into a picture, whose path
// can be given as argument.

#include <QZmath/QZmath.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

using REmath::Point3D_d;
using Points = std::vector<Point3D_d>;

namespace
{

struct Bend
{
    double length; // mm
    double radius; // signed by the sense of turn; 0 for a straight piece
};

std::vector<Bend> const drawing = {{30, 0}, {12, 8}, {18, 0}, {20, -15}, {10, 0}, {9, 5}, {25, 0}};
constexpr double noise = 0.02; // mm

// Uniform in [-1, 1].
double nextNoise()
{
    static unsigned state = 1;
    state = state * 1664525U + 1013904223U;
    return static_cast<double>(state >> 8) / 8388608.0 - 1;
}

// Points every 0.1 mm along the drawing. The cuts between the pieces lie one point behind the true ones:
// curves meet about where the polyline is cut, so bad cuts cost accuracy.
std::vector<Points> scanSection(COrthoNormBasis const & plane)
{
    std::vector<Points> pieces(1);
    double x = 0, y = 0, heading = 0;
    for (std::size_t bend = 0; bend < drawing.size(); ++bend) {
        double const curvature = drawing[bend].radius != 0 ? 1 / drawing[bend].radius : 0;
        int const steps = static_cast<int>(drawing[bend].length / 0.1);
        for (int step = 0; step < steps; ++step) {
            if (bend > 0 && step == 1)
                pieces.emplace_back(1, pieces.back().back());
            heading += 0.05 * curvature;
            x += 0.1 * std::cos(heading);
            y += 0.1 * std::sin(heading);
            heading += 0.05 * curvature;
            pieces.back().push_back(plane.transformCoordsFromBasis(
                {x + noise * nextNoise(), y + noise * nextNoise(), 2 * noise * nextNoise()}));
        }
    }
    return pieces;
}

// An SVG path through points of the plane; y points upwards.
std::string pathThrough(Points const & points)
{
    std::string path;
    char text[64];
    for (Point3D_d const & point : points) {
        std::snprintf(text, sizeof text, "%c%.4f %.4f", path.empty() ? 'M' : 'L', point.x(), -point.y());
        path += text;
    }
    return path;
}

// Points of an arc between two ends near it; it turns by less than half round.
Points arcBetween(Point3D_d const & from, Point3D_d const & to, Point3D_d const & centre)
{
    double const radius = (from - centre).length();
    double const start = std::atan2(from.y() - centre.y(), from.x() - centre.x());
    double const end = std::atan2(to.y() - centre.y(), to.x() - centre.x());
    double const turn = std::remainder(end - start, 2 * std::acos(-1.0));
    Points points;
    for (int i = 0; i <= 32; ++i) {
        double const angle = start + turn * i / 32;
        points.emplace_back(centre.x() + radius * std::cos(angle), centre.y() + radius * std::sin(angle),
                            0.0);
    }
    return points;
}

} // namespace

int main(int argc, char ** argv)
{
    std::string const picture =
        argc > 1 ? argv[1] : (std::filesystem::temp_directory_path() / "ProfileFromSection.svg").string();
    COrthoNormBasis const section = COrthoNormBasis::buildAnyRightHandByV2AndOrigin(
        Point3D_d(0.3, -0.5, 0.8).unitLength(), Point3D_d(210, -35, 640));
    std::vector<Points> const pieces = scanSection(section);

    CPolylineFitCurve profile;
    profile.setFitTolerance(2 * noise);
    std::vector<double> curves, joints;
    profile.fitPolyline(pieces, curves, joints);

    bool isRight = true;
    std::size_t const count = pieces.size();
    std::ofstream svg(picture);
    svg << "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"-4 -75 74 79\" fill=\"none\" "
           "stroke-width=\"0.3\" stroke-linecap=\"round\">\n";
    for (std::size_t k = 0; k < count; ++k) {
        double const * const curve = &curves[7 * k];
        bool const isArc = profile.getCurveType(static_cast<int>(k)) == PolylineCurveArc;
        double const radius = std::fabs(curve[6]), drawn = std::fabs(drawing[k].radius);
        isRight = isRight && isArc == (drawn != 0) && (!isArc || std::fabs(radius - drawn) < 0.01 * drawn);
        if (isArc)
            std::printf("arc, radius %.3f (drawn %g)\n", radius, drawn);
        else
            std::printf("line along (%.4f, %.4f, %.4f)\n", curve[3], curve[4], curve[5]);
        // The chain has free ends: there the curves are shown up to the last measured point.
        auto const inPlane = [&](Point3D_d const & p) { return section.transformCoordsToBasis(p); };
        Point3D_d const from = inPlane(k == 0 ? pieces[0].front() : Point3D_d(&joints[6 * k]));
        Point3D_d const to = inPlane(k + 1 == count ? pieces[k].back() : Point3D_d(&joints[6 * (k + 1)]));
        Points measured;
        std::transform(pieces[k].begin(), pieces[k].end(), std::back_inserter(measured), inPlane);
        Points const fitted = isArc ? arcBetween(from, to, inPlane(curve)) : Points{from, to};
        svg << "<path stroke=\"" << (isArc ? "#c33" : "#36c") << "\" d=\"" << pathThrough(fitted) << "\"/>\n"
            << "<path stroke=\"#000\" stroke-width=\"0.05\" d=\"" << pathThrough(measured) << "\"/>\n";
        if (k > 0)
            isRight = isRight &&
                      profile.getBndCondType(static_cast<int>(k)) == BndCondPointDir; // no corner anywhere
    }
    svg << "</svg>\n";
    svg.close();
    std::printf("%s\n", picture.c_str());
    return isRight && svg ? 0 : 1;
}
