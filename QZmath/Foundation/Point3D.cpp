// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Foundation/Point3D.h>

#include <cmath>
#include <limits>

namespace
{

template <class Source, class Result>
void convertTriple(Source const * source, Result * result)
{
    for (int axis = 0; axis < 3; ++axis)
        result[axis] = static_cast<Result>(source[axis]);
}

template <class Coord>
void normalizeTriple(Coord * vector)
{
    double const x = vector[0];
    double const y = vector[1];
    double const z = vector[2];
    double const length = std::sqrt(x * x + y * y + z * z);
    if (length == 0)
        return;
    double const inverse = 1 / length;
    vector[0] = static_cast<Coord>(x * inverse);
    vector[1] = static_cast<Coord>(y * inverse);
    vector[2] = static_cast<Coord>(z * inverse);
}

} // namespace

namespace REmath
{

void Point3D::toArray(float * coords) const { convertTriple(m_coords, coords); }
void Point3D::toArray(double * coords) const { convertTriple(m_coords, coords); }
void Point3D::fromArray(float const * coords) { convertTriple(coords, m_coords); }
void Point3D::fromArray(double const * coords) { convertTriple(coords, m_coords); }

Point3D & Point3D::normalize()
{
    float const squaredLength = x() * x() + y() * y() + z() * z();
    return *this *= 1 / std::sqrt(static_cast<double>(squaredLength));
}

Point3D Point3D::unitLength() const
{
    Point3D copy = *this;
    return copy.normalize();
}

void Point3D_d::toArray(float * coords) const { convertTriple(m_coords, coords); }
void Point3D_d::toArray(double * coords) const { convertTriple(m_coords, coords); }
void Point3D_d::fromArray(float const * coords) { convertTriple(coords, m_coords); }
void Point3D_d::fromArray(double const * coords) { convertTriple(coords, m_coords); }

Point3D_d & Point3D_d::normalize() { return *this *= 1 / length(); }

Point3D_d Point3D_d::unitLength() const
{
    Point3D_d copy = *this;
    return copy.normalize();
}

double Point3D_d::length() const { return std::sqrt(x() * x() + y() * y() + z() * z()); }

bool Point3D_d::isUnitLength() const
{
    double const ownLength = length();
    return std::abs(1 - ownLength) <= (std::abs(ownLength) + 1) * std::numeric_limits<double>::epsilon();
}

double Point3D_d::angleCos(Point3D_d const & other)
{
    double const product = x() * other.x() + y() * other.y() + z() * other.z();
    return product / (length() * other.length());
}

double HPoint3D::norm2() const
{
    return static_cast<double>(x() * x()) + static_cast<double>(y() * y()) + static_cast<double>(z() * z());
}

double HPoint3D::norm() const { return std::sqrt(norm2()); }

Point3D HPoint3D::projectW() { return {x(), y(), z()}; }

double HPoint3D_d::norm2() const { return x() * x() + y() * y() + z() * z(); }

double HPoint3D_d::norm() const { return std::sqrt(norm2()); }

Point3D_d HPoint3D_d::projectW() const { return {x(), y(), z()}; }

} // namespace REmath

void NormalizeVector(float * vector) { normalizeTriple(vector); }
void NormalizeVector(double * vector) { normalizeTriple(vector); }
void NormalizeVectorNoZeroCheck(float * vector) { normalizeTriple(vector); }
void NormalizeVectorNoZeroCheck(double * vector) { normalizeTriple(vector); }
