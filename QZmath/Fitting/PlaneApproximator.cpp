// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Fitting/PlaneApproximator.h>

#include <QZmath/Fitting/Samples/PointScatter.h>
#include <QZmath/Foundation/VectorProductsDetail.h>

#include <QZsys/Exceptions.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>

namespace REmath
{

namespace
{

double reciprocal(std::uint64_t count) { return count == 0 ? 0 : 1 / static_cast<double>(count); }

// Adds `sign` times the vectors, each product taken in `float`.
void addTo(Point3D_d & sum, ICoord3DRefs const & vectors, int sign)
{
    auto const factor = static_cast<float>(sign);
    int const count = vectors.getPointsNumber();
    for (int i = 0; i < count; ++i)
        sum += Detail::widen(Point3D(vectors.getPointCoords(i)) * factor);
}

// The scatter matrix moves with the mean when points come or go: with d from the old mean to the new one,
// the points that stay contribute n d d^T for their number n. Coming ones are taken about the new mean,
// going ones about the old (T. F. Chan, G. H. Golub, R. J. LeVeque, 1983).
class CPlaneAppoximatorCovMatrBase : public IPlaneAppoximator
{
public:
    void getPlane(CPlaneEquation & plane) override;
    void addPoints(ICoord3DRefs const * points, ICoord3DRefs const * normals) override
    {
        update(points, normals, 1);
    }
    void removePoints(ICoord3DRefs const * points, ICoord3DRefs const * normals) override
    {
        update(points, normals, -1);
    }
    void update(ICoord3DRefs const * points, ICoord3DRefs const * normals, int sign) override;

private:
    void addOuterProduct(Point3D_d const & v, double weight)
    {
        for (int row = 0; row < 3; ++row) {
            for (int col = 0; col < 3; ++col)
                m_scatter[row][col] += weight * v.asArray()[row] * v.asArray()[col];
        }
    }

    std::uint64_t m_count = 0;
    Point3D_d m_pointSum;
    Point3D_d m_normalSum;
    double m_scatter[3][3] = {};
};

class CPlaneAppoximatorFree : public CPlaneAppoximatorCovMatrBase
{};

void CPlaneAppoximatorCovMatrBase::update(ICoord3DRefs const * points, ICoord3DRefs const * normals, int sign)
{
    int const change = points == nullptr ? 0 : points->getPointsNumber();
    if (change <= 0)
        return;
    std::uint64_t const oldCount = m_count;
    Point3D_d const oldMean = m_pointSum * reciprocal(oldCount);
    // Unsigned arithmetic: wraps around when more points go than there are.
    m_count += static_cast<std::uint64_t>(static_cast<std::int64_t>(sign) * change);
    if (m_count == 0) {
        *this = CPlaneAppoximatorCovMatrBase();
        return;
    }
    addTo(m_pointSum, *points, sign);
    if (normals != nullptr)
        addTo(m_normalSum, *normals, sign);
    Point3D_d const newMean = m_pointSum * reciprocal(m_count);
    bool const isAdding = sign >= 1;
    Point3D_d const & mean = isAdding ? newMean : oldMean;
    for (int i = 0; i < change; ++i)
        addOuterProduct(Point3D_d(points->getPointCoords(i)) - mean, sign);
    if (oldCount != 0) {
        double const staying = static_cast<double>(isAdding ? oldCount : m_count);
        addOuterProduct(oldMean - newMean, isAdding ? staying : -staying);
    }
}

void CPlaneAppoximatorCovMatrBase::getPlane(CPlaneEquation & plane)
{
    plane.Clear();
    if (m_count < 3)
        return;
    std::array<double, 6> const elements = {m_scatter[0][0], m_scatter[1][0], m_scatter[1][1],
                                            m_scatter[2][0], m_scatter[2][1], m_scatter[2][2]};
    double column[3];
    if (!Detail::leastEigenvector(elements, std::numeric_limits<double>::infinity(), column))
        return;
    NormalizeVector(column);
    Point3D_d normal = column;
    if (Detail::dot(normal, m_normalSum) < 0)
        normal = -normal;
    double const freeTerm = -Detail::dot(normal, m_pointSum) * reciprocal(m_count);
    if (!std::isfinite(freeTerm))
        return;
    plane.SetNormalDir(normal.asArray());
    plane.SetFreeTerm(freeTerm);
}

} // namespace

IPlaneAppoximator::~IPlaneAppoximator() = default;

IPlaneAppoximator * IPlaneAppoximator::CreateByConstraint(PlaneFitConstraintType type)
{
    if (type != PlaneFitFree)
        throw CVescaTextException("bad allocation");
    return std::make_unique<CPlaneAppoximatorFree>().release();
}

} // namespace REmath
