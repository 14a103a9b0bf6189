// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Foundation/OrthoNormBasis.h>

#include <QZmath/Foundation/LinearTransformDetail.h>
#include <QZmath/Foundation/VectorProductsDetail.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <utility>

using REmath::Point3D_d;
using REmath::Detail::cross;
using REmath::Detail::dot;

namespace
{

// Whether `forth` undoes `back` and its rows have unit length.
bool isOrthoNormPair(RElinearTransform const & forth, RElinearTransform const & back)
{
    return REmath::Detail::isNearIdentity(REmath::Detail::compose(forth, back)) &&
           std::all_of(std::begin(forth.matrix), std::end(forth.matrix),
                       [](double const(&axis)[3]) { return Point3D_d(axis).isUnitLength(); });
}

Point3D_d crossUnit(Point3D_d const & left, Point3D_d const & right)
{
    return cross(left, right).unitLength();
}

} // namespace

COrthoNormBasis const & COrthoNormBasis::Identity()
{
    static COrthoNormBasis const identity;
    return identity;
}

Point3D_d const & COrthoNormBasis::IdentityE0()
{
    static Point3D_d const axis(1, 0, 0);
    return axis;
}

Point3D_d const & COrthoNormBasis::IdentityE1()
{
    static Point3D_d const axis(0, 1, 0);
    return axis;
}

Point3D_d const & COrthoNormBasis::IdentityE2()
{
    static Point3D_d const axis(0, 0, 1);
    return axis;
}

COrthoNormBasis COrthoNormBasis::buildByOrthsAndOrigin(Point3D_d const & e0, Point3D_d const & e1,
                                                       Point3D_d const & e2, Point3D_d const & origin)
{
    COrthoNormBasis basis;
    basis.m_back = RElinearTransform(CRotationMatrix::buildFromColumns(e0, e1, e2), origin);
    RElinearTransform const transposed = basis.m_back.getInvertedOrtho();
    if (isOrthoNormPair(transposed, basis.m_back))
        basis.m_forth = transposed;
    else
        invertTransform(basis.m_back, basis.m_forth);
    return basis;
}

COrthoNormBasis COrthoNormBasis::buildRightHandByE0E1AndOrigin(Point3D_d const & e0, Point3D_d const & e1,
                                                               Point3D_d const & origin)
{
    return buildByOrthsAndOrigin(e0, e1, crossUnit(e0, e1), origin);
}

COrthoNormBasis COrthoNormBasis::buildRightHandByV0V1AndOrigin(Point3D_d const & V0, Point3D_d const & V1,
                                                               Point3D_d const & origin)
{
    Point3D_d const e0 = V0.unitLength();
    Point3D_d const e2 = crossUnit(e0, V1);
    return buildByOrthsAndOrigin(e0, crossUnit(e2, e0), e2, origin);
}

COrthoNormBasis COrthoNormBasis::buildRightHandByV2V0AndOrigin(Point3D_d const & V2, Point3D_d const & V0,
                                                               Point3D_d const & origin)
{
    Point3D_d const e2 = V2.unitLength();
    Point3D_d const e1 = crossUnit(e2, V0);
    return buildByOrthsAndOrigin(crossUnit(e1, e2), e1, e2, origin);
}

COrthoNormBasis COrthoNormBasis::buildAnyRightHandByV2AndOrigin(Point3D_d const & V2,
                                                                Point3D_d const & origin)
{
    Point3D_d const e2 = V2.unitLength();
    Point3D_d const aside = std::abs(dot(IdentityE0(), e2)) > 0.9 ? IdentityE1() : IdentityE0();
    Point3D_d const e0 = crossUnit(aside, e2);
    return buildByOrthsAndOrigin(e0, crossUnit(e2, e0), e2, origin);
}

void COrthoNormBasis::setOrigin(Point3D_d const & origin)
{
    origin.toArray(m_back.shift);
    std::copy_n(m_back.getInvertedOrtho().shift, 3, m_forth.shift);
}

COrthoNormBasis COrthoNormBasis::getMovedTo(Point3D_d const & origin) const
{
    COrthoNormBasis moved(*this);
    moved.setOrigin(origin);
    return moved;
}

bool COrthoNormBasis::isOrthoNorm() const { return isOrthoNormPair(m_forth, m_back); }

bool COrthoNormBasis::isOrthoNormRightHand() const
{
    return isOrthoNorm() && dot(getE0(), cross(getE1(), getE2())) > 0.0;
}

COrthoNormBasis COrthoNormBasis::getWorldBasisInLocalCoords() const
{
    COrthoNormBasis exchanged(*this);
    std::swap(exchanged.m_back, exchanged.m_forth);
    return exchanged;
}

Point3D_d COrthoNormBasis::transformCoordsToBasis(Point3D_d const & point) const
{
    return m_forth.apply(point);
}

Point3D_d COrthoNormBasis::transformCoordsFromBasis(Point3D_d const & point) const
{
    return m_back.apply(point);
}

Point3D_d COrthoNormBasis::projectPointToXYPlane(Point3D_d const & point) const
{
    Point3D_d local = m_forth.apply(point);
    local.z() = 0;
    return m_back.apply(local);
}
