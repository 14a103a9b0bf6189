// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/Foundation/Point3D.h>

#include <vector>

namespace REmath
{

/// Read-only view of a numbered set of points, for functions that should not care how the points are stored.
class QZMATH_API ICoord3DRefs
{
public:
    /// Coordinates of a point.
    static constexpr int DIM = 3;

    virtual ~ICoord3DRefs();
    virtual int getPointsNumber() const = 0;
    /// Pointer to the `DIM` coordinates of point `index`, which counts from 0. How long it stays valid is the
    /// matter of the class behind the view.
    virtual float const * getPointCoords(int index) const = 0;

protected:
    ICoord3DRefs() = default;
    ICoord3DRefs(ICoord3DRefs const &) = default;
    ICoord3DRefs & operator=(ICoord3DRefs const &) = default;
};

/// View of a vector of points that it refers to and does not own: the vector must outlive it. Exists for
/// `std::vector<Point3D>`. Coordinate pointers stay valid as the vector's elements do.
template <class Container>
class QZMATH_API CPtVecAdapder : public ICoord3DRefs
{
public:
    explicit CPtVecAdapder(Container const & points);
    ~CPtVecAdapder() override;
    int getPointsNumber() const override;
    /// The range of `index` is not checked.
    float const * getPointCoords(int index) const override;

private:
    Container const * m_points;
};

extern template class CPtVecAdapder<std::vector<Point3D>>;

} // namespace REmath
