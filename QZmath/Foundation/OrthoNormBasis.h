// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/Foundation/LinearTransform.h>
#include <QZmath/Foundation/Point3D.h>

/// Frame of three axes at an origin, held as the pair of maps between its coordinates and those of the world:
///
///     world = E local + o,            E = (e0 e1 e2) with the axes as columns    (back)
///     local = E^T world - E^T o,      the axes as rows                           (forth)
///
/// A frame that is not orthonormal can be held too: forth is then the true inverse of back, and its rows,
/// which `getE` reads, are the reciprocal axes.
///
/// A plain value. No function throws or allocates. Vectors that leave an axis undefined, such as zero or
/// parallel ones, give a frame of NaN, which fails `isOrthoNorm`.
class QZMATH_API COrthoNormBasis
{
public:
    /// The frame of the world.
    COrthoNormBasis() = default;

    /// Shared constants, made on first use: the frame of the world and its axes.
    static COrthoNormBasis const & Identity();
    static REmath::Point3D_d const & IdentityE0();
    static REmath::Point3D_d const & IdentityE1();
    static REmath::Point3D_d const & IdentityE2();

    /// The frame of the given axes. Axes that are not orthonormal within the bounds of `isOrthoNorm` are
    /// taken as they are, with forth by `invertTransform`, or the identity when they do not span the space.
    static COrthoNormBasis buildByOrthsAndOrigin(REmath::Point3D_d const & e0, REmath::Point3D_d const & e1,
                                                 REmath::Point3D_d const & e2,
                                                 REmath::Point3D_d const & origin);
    /// `e0` and `e1` as they are, and e2 = e0 x e1, normalised.
    static COrthoNormBasis buildRightHandByE0E1AndOrigin(REmath::Point3D_d const & e0,
                                                         REmath::Point3D_d const & e1,
                                                         REmath::Point3D_d const & origin);
    /// e0 along `V0`, e1 in the plane of both on the side of `V1`.
    static COrthoNormBasis buildRightHandByV0V1AndOrigin(REmath::Point3D_d const & V0,
                                                         REmath::Point3D_d const & V1,
                                                         REmath::Point3D_d const & origin);
    /// e2 along `V2`, e0 in the plane of both on the side of `V0`.
    static COrthoNormBasis buildRightHandByV2V0AndOrigin(REmath::Point3D_d const & V2,
                                                         REmath::Point3D_d const & V0,
                                                         REmath::Point3D_d const & origin);
    /// e2 along `V2`, and e0 perpendicular to it and to x, or to y when e2 is within about 26 degrees of the
    /// line of x (its x coordinate above 0.9 in magnitude).
    static COrthoNormBasis buildAnyRightHandByV2AndOrigin(REmath::Point3D_d const & V2,
                                                          REmath::Point3D_d const & origin);

    RElinearTransform const & getBackCoordTransform() const { return m_back; }
    RElinearTransform const & getForthCoordTransform() const { return m_forth; }
    REmath::Point3D_d getOrigin() const { return {m_back.shift}; }
    /// Row `index` of forth, 0 to 2, which is not checked.
    REmath::Point3D_d getE(int index) const { return {m_forth.matrix[index]}; }
    REmath::Point3D_d getE0() const { return getE(0); }
    REmath::Point3D_d getE1() const { return getE(1); }
    REmath::Point3D_d getE2() const { return getE(2); }

    /// Moves the frame, with its axes unchanged. Forth gets the shift -E^T o, which is right for orthonormal
    /// axes only: a skew frame has to be built anew.
    void setOrigin(REmath::Point3D_d const & origin);
    COrthoNormBasis getMovedTo(REmath::Point3D_d const & origin) const;

    /// Whether forth after back is the identity within the rounding of `float`, in the sense of
    /// `RElinearTransform::isOrtho`, and the axes have unit length within that of `double`.
    bool isOrthoNorm() const;
    /// Whether the axes are orthonormal as above and right-handed, e0 . (e1 x e2) > 0.
    bool isOrthoNormRightHand() const;

    /// The frame of the world as seen from this one: back and forth exchanged.
    COrthoNormBasis getWorldBasisInLocalCoords() const;

    /// Forth: local coordinates of a point of the world.
    REmath::Point3D_d transformCoordsToBasis(REmath::Point3D_d const & point) const;
    /// Back: the point of the world with these local coordinates.
    REmath::Point3D_d transformCoordsFromBasis(REmath::Point3D_d const & point) const;
    /// The foot, in the world, of the perpendicular from `point` on the plane through the origin with the
    /// directions e0 and e1.
    REmath::Point3D_d projectPointToXYPlane(REmath::Point3D_d const & point) const;

private:
    RElinearTransform m_back;
    RElinearTransform m_forth;
};
