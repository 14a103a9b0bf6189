// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Foundation/LinearTransform.h>

#include <QZmath/Foundation/LinearTransformDetail.h>
#include <QZmath/Foundation/VectorProductsDetail.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

using REmath::Point3D_d;

namespace
{

bool isNear(double value, double wanted)
{
    constexpr double epsilon = std::numeric_limits<float>::epsilon();
    return std::abs(value - wanted) <= std::max(std::abs(value) + std::abs(wanted), 1.0) * epsilon;
}

// The coordinate `row` of -(matrix * vector).
double negatedProduct(double const (&row)[3], double const (&vector)[3])
{
    return 0.0 - row[0] * vector[0] - row[1] * vector[1] - row[2] * vector[2];
}

} // namespace

namespace REmath::Detail
{

RElinearTransform compose(RElinearTransform const & outer, RElinearTransform const & inner)
{
    RElinearTransform composed;
    for (int row = 0; row < 3; ++row) {
        double const(&left)[3] = outer.matrix[row];
        for (int col = 0; col < 3; ++col) {
            composed.matrix[row][col] = left[0] * inner.matrix[0][col] + left[1] * inner.matrix[1][col] +
                                        left[2] * inner.matrix[2][col];
        }
        composed.shift[row] =
            left[0] * inner.shift[0] + left[1] * inner.shift[1] + left[2] * inner.shift[2] + outer.shift[row];
    }
    return composed;
}

bool isNearIdentity(RElinearTransform const & transform)
{
    for (int row = 0; row < 3; ++row) {
        for (int col = 0; col < 3; ++col) {
            if (!isNear(transform.matrix[row][col], row == col))
                return false;
        }
        if (!isNear(transform.shift[row], 0))
            return false;
    }
    return true;
}

} // namespace REmath::Detail

RElinearTransform::RElinearTransform(double const (&elements)[3][3], double const * translation)
{
    std::copy_n(&elements[0][0], 9, &matrix[0][0]);
    std::copy_n(translation, 3, shift);
}

RElinearTransform::RElinearTransform(CRotationMatrix const & rotation, Point3D_d const & translation)
    : RElinearTransform(rotation.m, translation.asArray())
{}

RElinearTransform const & RElinearTransform::Identity()
{
    static RElinearTransform const identity;
    return identity;
}

RElinearTransform const & RElinearTransform::Zero()
{
    static RElinearTransform const zero(CRotationMatrix::Zero(), Point3D_d(0));
    return zero;
}

Point3D_d RElinearTransform::apply(Point3D_d const & point) const
{
    double image[3];
    for (int row = 0; row < 3; ++row) {
        image[row] =
            point.x() * matrix[row][0] + shift[row] + point.y() * matrix[row][1] + point.z() * matrix[row][2];
    }
    return {image};
}

bool RElinearTransform::isOrtho() const
{
    return REmath::Detail::isNearIdentity(REmath::Detail::compose(*this, getInvertedOrtho()));
}

void RElinearTransform::invertOrtho()
{
    std::swap(matrix[0][1], matrix[1][0]);
    std::swap(matrix[0][2], matrix[2][0]);
    std::swap(matrix[1][2], matrix[2][1]);
    double const inverseShift[3] = {negatedProduct(matrix[0], shift), negatedProduct(matrix[1], shift),
                                    negatedProduct(matrix[2], shift)};
    std::copy_n(inverseShift, 3, shift);
}

RElinearTransform RElinearTransform::getInvertedOrtho() const
{
    RElinearTransform inverse(*this);
    inverse.invertOrtho();
    return inverse;
}

bool invertTransform(RElinearTransform const & a, RElinearTransform & out)
{
    CRotationMatrix inverse;
    if (!invertMatrix(CRotationMatrix(a.matrix), inverse))
        return false;
    Point3D_d const shift(negatedProduct(inverse.m[0], a.shift), negatedProduct(inverse.m[1], a.shift),
                          negatedProduct(inverse.m[2], a.shift));
    out = RElinearTransform(inverse, shift);
    return true;
}

void setAxisRotationTransform(RElinearTransform & out, Point3D_d const & point, Point3D_d const & axis,
                              double angle)
{
    double const c = std::cos(angle);
    double const s = std::sin(angle);
    double const u = 1 - c;
    double const * const a = axis.asArray();
    double const * const p = point.asArray();
    double const d = REmath::Detail::dot(point, axis);
    double const matrix[3][3] = {
        {a[0] * a[0] * u + c, a[0] * a[1] * u - a[2] * s, a[0] * a[2] * u + a[1] * s},
        {a[1] * a[0] * u + a[2] * s, a[1] * a[1] * u + c, a[1] * a[2] * u - a[0] * s},
        {a[2] * a[0] * u - a[1] * s, a[2] * a[1] * u + a[0] * s, a[2] * a[2] * u + c}};
    double const shift[3] = {(p[0] - a[0] * d) * u - (p[2] * a[1] - p[1] * a[2]) * s,
                             (p[1] - a[1] * d) * u - (a[2] * p[0] - p[2] * a[0]) * s,
                             (p[2] - a[2] * d) * u - (p[1] * a[0] - p[0] * a[1]) * s};
    out = RElinearTransform(matrix, shift);
}
