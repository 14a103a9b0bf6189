// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/Foundation/Point3D.h>

#include <type_traits>

namespace REmath
{

/// Whether `Vector` and `Matrix` exist for elements of type `T`: `char`, `unsigned char`, `int`,
/// `unsigned int`, `float`, `double` and the four point types.
template <class T>
inline constexpr bool isDenseElement =
    std::is_same_v<T, char> || std::is_same_v<T, unsigned char> || std::is_same_v<T, int> ||
    std::is_same_v<T, unsigned int> || std::is_same_v<T, float> || std::is_same_v<T, double> || isPoint<T>;

/// What elements of type `T` are scaled by: themselves, or `double` for points.
template <class T>
using DenseScalar = std::conditional_t<isPoint<T>, double, T>;

/// Dense vector with deep copy, over memory of its own or over memory of the caller's.
///
/// The current size can be less than the allocated one: shrinking keeps the memory, so that growing again up
/// to the allocated size costs no allocation. A vector over the caller's memory works in place there and
/// never frees it; as soon as it has to grow beyond, it moves to memory of its own.
///
/// Errors of size are thrown as words, plain `char const *`: "NURBSsize" where two sizes differ,
/// "NURBSmatrix_err" where a range leaves the vector. Nothing is changed then. Exhausted memory is
/// `std::bad_alloc`, except in `resize`. Integers wrap around on overflow. Negative sizes count as 0. Used by
/// one thread at a time; concurrent reading is safe.
template <class T>
class QZMATH_API Vector
{
    static_assert(isDenseElement<T>, "there is no dense vector of this element type");

public:
    /// One element, 0.
    Vector();
    /// `n` zeros.
    explicit Vector(int n);
    Vector(Vector const & other);
    /// Takes the memory of `other` over if that owns it, and copies otherwise.
    Vector(Vector && other);
    /// Over `n` elements of the caller's, which must outlive the vector. The contents stay as they are.
    Vector(T * memory, int n);
    virtual ~Vector();

    /// Takes over size and contents; keeps its memory, also the caller's, when they fit into it.
    Vector & operator=(Vector const & other);
    Vector & operator=(Vector && other);
    /// Fills, and returns the value.
    T operator=(T value);

    int n() const { return m_size; }
    int size() const { return m_size; }
    int rows() const { return m_size; }
    /// Address of the first element; null when nothing was ever allocated.
    T * memory() { return m_memory; }
    T const * memory() const { return m_memory; }
    /// Element `index`, which is not checked.
    T & operator[](int index) { return m_memory[index]; }
    T const & operator[](int index) const { return m_memory[index]; }

    /// Sets the current size. The elements that were there stay, those that are added are 0. Beyond the
    /// allocated size, new memory of exactly `n` elements is taken. Gives the new size, or -1 when there is
    /// no memory; the vector is unchanged then.
    int resize(int n);
    /// To the current size of `other`.
    int resize(Vector const & other);
    /// Sets the current size to `n` when that is within 0 and the allocated size, otherwise does nothing. No
    /// element is touched.
    void trim(int n);
    /// Sets the current size to the allocated one. No element is touched, so what `trim` cut off comes back.
    void untrim();

    /// Fills all elements.
    virtual void reset(T value);

    /// Element by element; "NURBSsize" when the sizes differ.
    Vector & operator+=(Vector const & other);
    Vector & operator-=(Vector const & other);
    /// On every element.
    Vector & operator+=(T value);
    Vector & operator-=(T value);
    Vector & operator*=(DenseScalar<T> factor);
    /// An integer divisor must not be 0.
    Vector & operator/=(DenseScalar<T> divisor);

    /// Writes `source` to the elements from `index` on; "NURBSmatrix_err" when that leaves the vector.
    void as(int index, Vector const & source);
    /// The `n` elements from `index` on; "NURBSmatrix_err" when that leaves the vector.
    Vector get(int index, int n) const;

    /// Position of the smallest element, of the first one when there are several; -1 in an empty vector. A
    /// NaN is never smaller than another element, nor any element smaller than it. For numbers only.
    template <class Number = T, IfNumbers<Number> = 0>
    int minIndex() const
    {
        int smallest = m_size > 0 ? 0 : -1;
        for (int index = 1; index < m_size; ++index) {
            if (m_memory[index] < m_memory[smallest])
                smallest = index;
        }
        return smallest;
    }

    /// The element at `minIndex()`; 0 in an empty vector. For numbers only.
    template <class Number = T, IfNumbers<Number> = 0>
    Number minimum() const
    {
        return m_size > 0 ? m_memory[minIndex()] : Number(0);
    }

private:
    void allocateCopy(Vector const & other);
    void release();
    void takeOver(Vector & other);

    int m_allocatedSize = 0;
    int m_ownsMemory = 1;
    int m_size = 0;
    T * m_memory = nullptr;
};

/// Element by element; "NURBSsize" is thrown when the sizes differ.
template <class T>
QZMATH_API Vector<T> operator+(Vector<T> const & left, Vector<T> const & right);
template <class T>
QZMATH_API Vector<T> operator-(Vector<T> const & left, Vector<T> const & right);

/// Exact comparison of all elements; a NaN makes vectors different. Vectors of different sizes are not merely
/// different: "NURBSsize" is thrown.
template <class T>
QZMATH_API bool operator==(Vector<T> const & left, Vector<T> const & right);
template <class T>
QZMATH_API bool operator!=(Vector<T> const & left, Vector<T> const & right);

extern template class Vector<char>;
extern template class Vector<unsigned char>;
extern template class Vector<int>;
extern template class Vector<unsigned int>;
extern template class Vector<float>;
extern template class Vector<double>;
extern template class Vector<Point3D>;
extern template class Vector<Point3D_d>;
extern template class Vector<HPoint3D>;
extern template class Vector<HPoint3D_d>;

} // namespace REmath
