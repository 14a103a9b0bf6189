// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>

#include <type_traits>

/// Points of three and four coordinates, in single and double precision. Each is its coordinates x, y, z(, w)
/// in memory and nothing more, so an array of points can be read as an array of numbers. Pointers are not
/// checked, nothing is thrown, and points can be used from any thread like numbers.
///
/// Wherever a number is wanted, any arithmetic type will do. Its type decides the precision in which a point
/// of `float` coordinates is scaled: a `float` scales in `float`, every other type in `double` with one
/// rounding of each result. Coordinates are divided one by one: a product with the inverse has other bits.
namespace REmath
{

/// Mark that the geometry functions return or store where they cannot give a result (`float` bits
/// 0x606710AF). Larger than any sensible coordinate, so it may be compared with `==` or be taken for a very
/// large value.
inline constexpr float st_NoValueMark = 6.66e19F;

/// Enables an overload for numbers only.
template <class... Number>
using IfNumbers = std::enable_if_t<(std::is_arithmetic_v<Number> && ...), int>;

/// The precision in which a point of `Coord` is scaled by a `Number`.
template <class Coord, class Number>
using ScalingPrecision =
    std::conditional_t<std::is_same_v<Coord, float> && std::is_same_v<Number, float>, float, double>;

/// Vector of three `float` coordinates.
class QZMATH_API Point3D
{
public:
    /// Zero vector.
    constexpr Point3D() = default;
    /// All three coordinates get `value`.
    template <class Number, IfNumbers<Number> = 0>
    constexpr Point3D(Number value) : Point3D(value, value, value)
    {}
    template <class X, class Y, class Z, IfNumbers<X, Y, Z> = 0>
    constexpr Point3D(X x, Y y, Z z)
        : m_coords{static_cast<float>(x), static_cast<float>(y), static_cast<float>(z)}
    {}
    /// Reads three values.
    constexpr Point3D(float const * coords) : Point3D(coords[0], coords[1], coords[2]) {}
    /// Reads three values and rounds them to `float`.
    constexpr Point3D(double const * coords) : Point3D(coords[0], coords[1], coords[2]) {}

    constexpr float x() const { return m_coords[0]; }
    constexpr float y() const { return m_coords[1]; }
    constexpr float z() const { return m_coords[2]; }
    constexpr float & x() { return m_coords[0]; }
    constexpr float & y() { return m_coords[1]; }
    constexpr float & z() { return m_coords[2]; }

    /// Address of x, behind which y and z follow.
    constexpr float const * asArray() const { return m_coords; }
    /// Copies the three coordinates out.
    void toArray(float * coords) const;
    void toArray(double * coords) const;
    /// Takes the three coordinates over, rounded to `float`.
    void fromArray(float const * coords);
    void fromArray(double const * coords);

    constexpr Point3D & operator+=(Point3D const & other)
    {
        for (int axis = 0; axis < 3; ++axis)
            m_coords[axis] += other.m_coords[axis];
        return *this;
    }
    constexpr Point3D & operator-=(Point3D const & other)
    {
        for (int axis = 0; axis < 3; ++axis)
            m_coords[axis] -= other.m_coords[axis];
        return *this;
    }
    template <class Number, IfNumbers<Number> = 0>
    constexpr Point3D & operator*=(Number factor)
    {
        using Precision = ScalingPrecision<float, Number>;
        for (float & coord : m_coords)
            coord = static_cast<float>(static_cast<Precision>(coord) * static_cast<Precision>(factor));
        return *this;
    }
    template <class Number, IfNumbers<Number> = 0>
    constexpr Point3D & operator/=(Number divisor)
    {
        using Precision = ScalingPrecision<float, Number>;
        for (float & coord : m_coords)
            coord = static_cast<float>(static_cast<Precision>(coord) / static_cast<Precision>(divisor));
        return *this;
    }

    /// Scales to unit length. The squares are summed in `float`, so that lengths outside about 1e-19 to 1e19
    /// are lost; there is no guard: a zero vector becomes NaN. `NormalizeVector` has neither weakness.
    Point3D & normalize();
    /// The normalised copy, under the conditions of `normalize`.
    Point3D unitLength() const;

private:
    float m_coords[3] = {0, 0, 0};
};

/// Vector of three `double` coordinates.
class QZMATH_API Point3D_d
{
public:
    /// Zero vector.
    constexpr Point3D_d() = default;
    /// All three coordinates get `value`.
    template <class Number, IfNumbers<Number> = 0>
    constexpr Point3D_d(Number value) : Point3D_d(value, value, value)
    {}
    template <class X, class Y, class Z, IfNumbers<X, Y, Z> = 0>
    constexpr Point3D_d(X x, Y y, Z z)
        : m_coords{static_cast<double>(x), static_cast<double>(y), static_cast<double>(z)}
    {}
    /// Reads three values.
    constexpr Point3D_d(float const * coords) : Point3D_d(coords[0], coords[1], coords[2]) {}
    constexpr Point3D_d(double const * coords) : Point3D_d(coords[0], coords[1], coords[2]) {}

    constexpr double x() const { return m_coords[0]; }
    constexpr double y() const { return m_coords[1]; }
    constexpr double z() const { return m_coords[2]; }
    constexpr double & x() { return m_coords[0]; }
    constexpr double & y() { return m_coords[1]; }
    constexpr double & z() { return m_coords[2]; }

    /// Address of x, behind which y and z follow.
    constexpr double const * asArray() const { return m_coords; }
    /// Copies the three coordinates out, rounded to the type of the array.
    void toArray(float * coords) const;
    void toArray(double * coords) const;
    /// Takes the three coordinates over.
    void fromArray(float const * coords);
    void fromArray(double const * coords);

    constexpr Point3D_d & operator+=(Point3D_d const & other)
    {
        for (int axis = 0; axis < 3; ++axis)
            m_coords[axis] += other.m_coords[axis];
        return *this;
    }
    constexpr Point3D_d & operator-=(Point3D_d const & other)
    {
        for (int axis = 0; axis < 3; ++axis)
            m_coords[axis] -= other.m_coords[axis];
        return *this;
    }
    template <class Number, IfNumbers<Number> = 0>
    constexpr Point3D_d & operator*=(Number factor)
    {
        for (double & coord : m_coords)
            coord *= static_cast<double>(factor);
        return *this;
    }
    template <class Number, IfNumbers<Number> = 0>
    constexpr Point3D_d & operator/=(Number divisor)
    {
        for (double & coord : m_coords)
            coord /= static_cast<double>(divisor);
        return *this;
    }

    /// Scales to unit length. A zero vector becomes NaN, against which `NormalizeVector` guards.
    Point3D_d & normalize();
    /// The normalised copy, under the conditions of `normalize`.
    Point3D_d unitLength() const;
    /// Euclidean length.
    double length() const;
    /// Whether the length is 1 within the rounding of `double`: at most epsilon * (1 + length) away.
    bool isUnitLength() const;
    /// Cosine of the angle to `other`: NaN if either vector is zero. Rounding may carry it past 1.
    double angleCos(Point3D_d const & other);

private:
    double m_coords[3] = {0, 0, 0};
};

/// Homogeneous point of four `float` coordinates.
///
/// `==` compares all four coordinates exactly, while the order `<`, `>`, `<=`, `>=` compares `norm2()` alone,
/// in which w has no part: two points can satisfy `a <= b`, `a >= b` and `a != b` at once.
class QZMATH_API HPoint3D
{
public:
    /// All four coordinates 0.
    constexpr HPoint3D() = default;
    /// All four coordinates get `value`, w too.
    template <class Number, IfNumbers<Number> = 0>
    constexpr HPoint3D(Number value) : HPoint3D(value, value, value, value)
    {}
    template <class X, class Y, class Z, class W, IfNumbers<X, Y, Z, W> = 0>
    constexpr HPoint3D(X x, Y y, Z z, W w)
        : m_coords{static_cast<float>(x), static_cast<float>(y), static_cast<float>(z), static_cast<float>(w)}
    {}
    /// Reads four values.
    constexpr HPoint3D(float const * coords) : HPoint3D(coords[0], coords[1], coords[2], coords[3]) {}
    /// The point with w = 1.
    constexpr HPoint3D(Point3D const & point) : HPoint3D(point.x(), point.y(), point.z(), 1) {}

    /// Takes over the point, with w = 1.
    constexpr HPoint3D & operator=(Point3D const & point) { return *this = HPoint3D(point); }
    /// All four coordinates get `value`.
    template <class Number, IfNumbers<Number> = 0>
    constexpr HPoint3D & operator=(Number value)
    {
        return *this = HPoint3D(value);
    }

    constexpr float x() const { return m_coords[0]; }
    constexpr float y() const { return m_coords[1]; }
    constexpr float z() const { return m_coords[2]; }
    constexpr float w() const { return m_coords[3]; }
    constexpr float & x() { return m_coords[0]; }
    constexpr float & y() { return m_coords[1]; }
    constexpr float & z() { return m_coords[2]; }
    constexpr float & w() { return m_coords[3]; }

    /// The operators work on all four coordinates, w included.
    constexpr HPoint3D & operator+=(HPoint3D const & other)
    {
        for (int axis = 0; axis < 4; ++axis)
            m_coords[axis] += other.m_coords[axis];
        return *this;
    }
    constexpr HPoint3D & operator-=(HPoint3D const & other)
    {
        for (int axis = 0; axis < 4; ++axis)
            m_coords[axis] -= other.m_coords[axis];
        return *this;
    }
    template <class Number, IfNumbers<Number> = 0>
    constexpr HPoint3D & operator*=(Number factor)
    {
        using Precision = ScalingPrecision<float, Number>;
        for (float & coord : m_coords)
            coord = static_cast<float>(static_cast<Precision>(coord) * static_cast<Precision>(factor));
        return *this;
    }
    template <class Number, IfNumbers<Number> = 0>
    constexpr HPoint3D & operator/=(Number divisor)
    {
        using Precision = ScalingPrecision<float, Number>;
        for (float & coord : m_coords)
            coord = static_cast<float>(static_cast<Precision>(coord) / static_cast<Precision>(divisor));
        return *this;
    }

    /// x² + y² + z², the squares in `float`, their sum in `double`.
    double norm2() const;
    /// Square root of `norm2`.
    double norm() const;
    /// The coordinates x, y, z as they stand: they are not divided by w.
    Point3D projectW();

private:
    float m_coords[4] = {0, 0, 0, 0};
};

/// Homogeneous point of four `double` coordinates; the remarks on equality and order of `HPoint3D` hold here
/// too.
class QZMATH_API HPoint3D_d
{
public:
    /// All four coordinates 0.
    constexpr HPoint3D_d() = default;
    /// All four coordinates get `value`, w too.
    template <class Number, IfNumbers<Number> = 0>
    constexpr HPoint3D_d(Number value) : HPoint3D_d(value, value, value, value)
    {}
    template <class X, class Y, class Z, class W, IfNumbers<X, Y, Z, W> = 0>
    constexpr HPoint3D_d(X x, Y y, Z z, W w)
        : m_coords{static_cast<double>(x), static_cast<double>(y), static_cast<double>(z),
                   static_cast<double>(w)}
    {}
    /// Reads four values.
    constexpr HPoint3D_d(float const * coords) : HPoint3D_d(coords[0], coords[1], coords[2], coords[3]) {}
    constexpr HPoint3D_d(double const * coords) : HPoint3D_d(coords[0], coords[1], coords[2], coords[3]) {}
    /// The point with w = 1.
    constexpr HPoint3D_d(Point3D_d const & point) : HPoint3D_d(point.x(), point.y(), point.z(), 1) {}

    /// Takes over the point, with w = 1.
    constexpr HPoint3D_d & operator=(Point3D_d const & point) { return *this = HPoint3D_d(point); }
    /// All four coordinates get `value`.
    template <class Number, IfNumbers<Number> = 0>
    constexpr HPoint3D_d & operator=(Number value)
    {
        return *this = HPoint3D_d(value);
    }

    constexpr double x() const { return m_coords[0]; }
    constexpr double y() const { return m_coords[1]; }
    constexpr double z() const { return m_coords[2]; }
    constexpr double w() const { return m_coords[3]; }
    constexpr double & x() { return m_coords[0]; }
    constexpr double & y() { return m_coords[1]; }
    constexpr double & z() { return m_coords[2]; }
    constexpr double & w() { return m_coords[3]; }

    /// The operators work on all four coordinates, w included.
    constexpr HPoint3D_d & operator+=(HPoint3D_d const & other)
    {
        for (int axis = 0; axis < 4; ++axis)
            m_coords[axis] += other.m_coords[axis];
        return *this;
    }
    constexpr HPoint3D_d & operator-=(HPoint3D_d const & other)
    {
        for (int axis = 0; axis < 4; ++axis)
            m_coords[axis] -= other.m_coords[axis];
        return *this;
    }
    template <class Number, IfNumbers<Number> = 0>
    constexpr HPoint3D_d & operator*=(Number factor)
    {
        for (double & coord : m_coords)
            coord *= static_cast<double>(factor);
        return *this;
    }
    template <class Number, IfNumbers<Number> = 0>
    constexpr HPoint3D_d & operator/=(Number divisor)
    {
        for (double & coord : m_coords)
            coord /= static_cast<double>(divisor);
        return *this;
    }

    /// x² + y² + z².
    double norm2() const;
    /// Square root of `norm2`.
    double norm() const;
    /// The coordinates x, y, z as they stand: they are not divided by w.
    Point3D_d projectW() const;

private:
    double m_coords[4] = {0, 0, 0, 0};
};

/// Whether `Point` is one of the four point types.
template <class Point>
inline constexpr bool isPoint = std::is_same_v<Point, Point3D> || std::is_same_v<Point, Point3D_d> ||
                                std::is_same_v<Point, HPoint3D> || std::is_same_v<Point, HPoint3D_d>;

template <class Point, std::enable_if_t<isPoint<Point>, int> = 0>
constexpr Point operator+(Point left, Point const & right)
{
    return left += right;
}

template <class Point, std::enable_if_t<isPoint<Point>, int> = 0>
constexpr Point operator-(Point left, Point const & right)
{
    return left -= right;
}

/// Multiplication by -1, so that a zero coordinate changes its sign too.
template <class Point, std::enable_if_t<isPoint<Point>, int> = 0>
constexpr Point operator-(Point point)
{
    return point *= -1;
}

template <class Point, class Number, std::enable_if_t<isPoint<Point>, int> = 0, IfNumbers<Number> = 0>
constexpr Point operator*(Point point, Number factor)
{
    return point *= factor;
}

template <class Number, class Point, std::enable_if_t<isPoint<Point>, int> = 0, IfNumbers<Number> = 0>
constexpr Point operator*(Number factor, Point point)
{
    return point *= factor;
}

template <class Point, class Number, std::enable_if_t<isPoint<Point>, int> = 0, IfNumbers<Number> = 0>
constexpr Point operator/(Point point, Number divisor)
{
    return point /= divisor;
}

/// Exact comparison of all coordinates; a NaN makes points different.
constexpr bool operator==(Point3D const & left, Point3D const & right)
{
    return left.x() == right.x() && left.y() == right.y() && left.z() == right.z();
}
constexpr bool operator==(Point3D_d const & left, Point3D_d const & right)
{
    return left.x() == right.x() && left.y() == right.y() && left.z() == right.z();
}
constexpr bool operator==(HPoint3D const & left, HPoint3D const & right)
{
    return left.x() == right.x() && left.y() == right.y() && left.z() == right.z() && left.w() == right.w();
}
constexpr bool operator==(HPoint3D_d const & left, HPoint3D_d const & right)
{
    return left.x() == right.x() && left.y() == right.y() && left.z() == right.z() && left.w() == right.w();
}

constexpr bool operator!=(Point3D const & left, Point3D const & right) { return !(left == right); }
constexpr bool operator!=(Point3D_d const & left, Point3D_d const & right) { return !(left == right); }
constexpr bool operator!=(HPoint3D const & left, HPoint3D const & right) { return !(left == right); }
constexpr bool operator!=(HPoint3D_d const & left, HPoint3D_d const & right) { return !(left == right); }

/// The order of homogeneous points is that of `norm2()`.
inline bool operator<(HPoint3D const & left, HPoint3D const & right) { return left.norm2() < right.norm2(); }
inline bool operator>(HPoint3D const & left, HPoint3D const & right) { return left.norm2() > right.norm2(); }
inline bool operator<=(HPoint3D const & left, HPoint3D const & right)
{
    return left.norm2() <= right.norm2();
}
inline bool operator>=(HPoint3D const & left, HPoint3D const & right)
{
    return left.norm2() >= right.norm2();
}
inline bool operator<(HPoint3D_d const & left, HPoint3D_d const & right)
{
    return left.norm2() < right.norm2();
}
inline bool operator>(HPoint3D_d const & left, HPoint3D_d const & right)
{
    return left.norm2() > right.norm2();
}
inline bool operator<=(HPoint3D_d const & left, HPoint3D_d const & right)
{
    return left.norm2() <= right.norm2();
}
inline bool operator>=(HPoint3D_d const & left, HPoint3D_d const & right)
{
    return left.norm2() >= right.norm2();
}

} // namespace REmath

/// Scales the triple `vector` in place to unit length; a vector of length 0 stays as it is. The `float` form
/// computes in `double`, so every non-zero `float` vector can be normalised; in the `double` form a vector
/// whose squares underflow (below about 1e-162) counts as zero, and one whose squares overflow becomes zero.
QZMATH_API void NormalizeVector(float * vector);
QZMATH_API void NormalizeVector(double * vector);

/// Another name of `NormalizeVector`. In spite of it, the zero vector is looked after here too.
QZMATH_API void NormalizeVectorNoZeroCheck(float * vector);
QZMATH_API void NormalizeVectorNoZeroCheck(double * vector);
