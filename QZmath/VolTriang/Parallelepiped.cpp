// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Parallelepiped.h>

#include <cmath>
#include <limits>

namespace VolTr
{

namespace
{

double const greatest = std::numeric_limits<double>::max();

}

CInterval CInterval::all() { return CInterval(-greatest, greatest); }
CInterval CInterval::lessX(double x) { return CInterval(-greatest, x); }
CInterval CInterval::greaterX(double x) { return CInterval(x, greatest); }

CParallelepiped::CParallelepiped(CInterval const & x, CInterval const & y, CInterval const & z)
    : m_min{x.getLeft(), y.getLeft(), z.getLeft()}, m_max{x.getRight(), y.getRight(), z.getRight()}
{}

void CParallelepiped::setDimension(int axis, CInterval const & extent)
{
    m_min[axis] = extent.getLeft();
    m_max[axis] = extent.getRight();
}

bool CParallelepiped::isBoundaryPoint(double const * point, double tolerance) const
{
    bool onFace = false;
    for (int axis = 0; axis < DIM; ++axis) {
        if (!(point[axis] >= m_min[axis] - tolerance && point[axis] <= m_max[axis] + tolerance))
            return false;
        onFace = onFace || std::fabs(point[axis] - m_min[axis]) <= tolerance ||
                 std::fabs(point[axis] - m_max[axis]) <= tolerance;
    }
    return onFace;
}

} // namespace VolTr
