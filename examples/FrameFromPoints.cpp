// SPDX-License-Identifier: Apache-2.0

// A frame on a machined part from three measured points: one on its corner, one along its edge, one on its
// top face. Measured points go into the frame, where the drawing gives their places, and points of the
// drawing come out into the scanner's coordinates.

#include <QZmath/QZmath.h>

#include <cmath>
#include <cstdio>

using REmath::Point3D_d;

int main()
{
    Point3D_d const corner(120.4, -33.1, 810.7);
    Point3D_d const onEdge(168.4, 2.9, 810.7); // 60 mm along the edge
    Point3D_d const onTop(115.2, 10.5, 852.7); // anywhere on the face, off the edge

    COrthoNormBasis const part =
        COrthoNormBasis::buildRightHandByV0V1AndOrigin(onEdge - corner, onTop - corner, corner);
    if (!part.isOrthoNormRightHand()) {
        std::puts("the three points lie on a line");
        return 1;
    }
    Point3D_d const edgeEnd = part.transformCoordsToBasis(onEdge);
    Point3D_d const topPoint = part.transformCoordsToBasis(onTop);
    std::printf("on the edge: %8.3f %8.3f %8.3f\n", edgeEnd.x(), edgeEnd.y(), edgeEnd.z());
    std::printf("on the top:  %8.3f %8.3f %8.3f\n", topPoint.x(), topPoint.y(), topPoint.z());

    // A hole 25 mm along the edge, 10 mm inwards and 4 mm deep, as the scanner sees it, and back.
    Point3D_d const hole(25, 10, -4);
    Point3D_d const measured = part.transformCoordsFromBasis(hole);
    double const roundTrip = (part.transformCoordsToBasis(measured) - hole).length();
    // Straight up from its bottom lies its centre on the face.
    Point3D_d const onFace = part.projectPointToXYPlane(measured);
    double const depth = (measured - onFace).length();
    std::printf("the hole:    %8.3f %8.3f %8.3f, %.3f deep\n", measured.x(), measured.y(), measured.z(),
                depth);

    // The part turned by 30 degrees about its edge: the frame turns with it, the coordinates in it stay.
    double const angle = std::acos(-1.0) / 6;
    RElinearTransform turn;
    setAxisRotationTransform(turn, corner, part.getE0(), angle);
    COrthoNormBasis const turned = COrthoNormBasis::buildRightHandByV0V1AndOrigin(
        turn.apply(onEdge) - turn.apply(corner), turn.apply(onTop) - turn.apply(corner), turn.apply(corner));
    double const moved = (turned.transformCoordsToBasis(turn.apply(measured)) - hole).length();
    double const tilt = std::acos(turned.getE2().angleCos(part.getE2()));

    bool const isRight = std::fabs(edgeEnd.x() - 60) < 1e-12 && std::fabs(topPoint.z()) < 1e-12 &&
                         roundTrip < 1e-12 && std::fabs(depth - 4) < 1e-12 && moved < 1e-12 &&
                         std::fabs(tilt - angle) < 1e-12;
    return isRight ? 0 : 1;
}
