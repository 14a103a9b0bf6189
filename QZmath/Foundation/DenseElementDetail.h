// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Foundation/Point3D.h>

#include <type_traits>

/// Arithmetic of the element types of the dense containers. Integers wrap around instead of overflowing, so
/// that no contents of a container is an undefined operation.
namespace REmath::Detail
{

/// Wide enough for every operation on two elements, with defined overflow.
template <class T>
using Wrapping = std::conditional_t<std::is_integral_v<T>, unsigned, T>;

template <class T>
T wrap(Wrapping<T> value)
{
    return static_cast<T>(value);
}

template <class T>
Wrapping<T> widen(T const & value)
{
    return static_cast<Wrapping<T>>(value);
}

template <class T>
T sum(T const & left, T const & right)
{
    return wrap<T>(widen(left) + widen(right));
}

template <class T>
T difference(T const & left, T const & right)
{
    return wrap<T>(widen(left) - widen(right));
}

inline HPoint3D product(HPoint3D const & left, HPoint3D const & right)
{
    return {left.x() * right.x(), left.y() * right.y(), left.z() * right.z(), left.w() * right.w()};
}

inline HPoint3D_d product(HPoint3D_d const & left, HPoint3D_d const & right)
{
    return {left.x() * right.x(), left.y() * right.y(), left.z() * right.z(), left.w() * right.w()};
}

template <class T, IfNumbers<T> = 0>
T product(T left, T right)
{
    return wrap<T>(widen(left) * widen(right));
}

template <class T, IfNumbers<T> = 0>
T scaled(T element, T factor)
{
    return product(element, factor);
}

template <class T, std::enable_if_t<isPoint<T>, int> = 0>
T scaled(T const & point, double factor)
{
    return point * factor;
}

template <class T, IfNumbers<T> = 0>
T quotient(T element, T divisor)
{
    if constexpr (std::is_same_v<T, int>) {
        // The one quotient that does not fit would trap.
        if (divisor == -1)
            return difference(0, element);
    }
    return static_cast<T>(element / divisor);
}

template <class T, std::enable_if_t<isPoint<T>, int> = 0>
T quotient(T const & point, double divisor)
{
    return point / divisor;
}

} // namespace REmath::Detail
