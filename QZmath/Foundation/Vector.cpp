// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Foundation/Vector.h>

#include <QZmath/Foundation/DenseElementDetail.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <new>
#include <utility>

namespace REmath
{

namespace
{

template <class T>
T * tryAllocate(int count)
{
    // At most 2^31 elements of 32 bytes: the product fits.
    return static_cast<T *>(::operator new(static_cast<std::size_t>(count) * sizeof(T), std::nothrow));
}

template <class T>
T * allocate(int count)
{
    return static_cast<T *>(::operator new(static_cast<std::size_t>(count) * sizeof(T)));
}

template <class T>
void requireSameSize(Vector<T> const & left, Vector<T> const & right)
{
    if (left.size() != right.size())
        throw static_cast<char const *>("NURBSsize");
}

template <class T>
void requireRange(Vector<T> const & vector, int index, int count)
{
    if (index < 0 || count < 0 || count > vector.size() - index)
        throw static_cast<char const *>("NURBSmatrix_err");
}

} // namespace

template <class T>
Vector<T>::Vector() : Vector(1)
{}

template <class T>
Vector<T>::Vector(int n)
{
    if (n < 1)
        return;
    m_memory = allocate<T>(n);
    m_allocatedSize = m_size = n;
    std::uninitialized_value_construct_n(m_memory, n);
}

template <class T>
Vector<T>::Vector(Vector const & other)
{
    allocateCopy(other);
}

template <class T>
Vector<T>::Vector(Vector && other)
{
    if (other.m_ownsMemory)
        takeOver(other);
    else
        allocateCopy(other);
}

template <class T>
Vector<T>::Vector(T * memory, int n)
    : m_allocatedSize(std::max(n, 0)), m_ownsMemory(0), m_size(std::max(n, 0)), m_memory(memory)
{}

template <class T>
Vector<T>::~Vector()
{
    release();
}

template <class T>
void Vector<T>::allocateCopy(Vector const & other)
{
    if (other.m_size == 0)
        return;
    m_memory = allocate<T>(other.m_size);
    m_allocatedSize = m_size = other.m_size;
    std::uninitialized_copy_n(other.m_memory, m_size, m_memory);
}

template <class T>
void Vector<T>::release()
{
    // The elements have trivial destructors.
    if (m_ownsMemory)
        ::operator delete(m_memory);
}

template <class T>
void Vector<T>::takeOver(Vector & other)
{
    m_allocatedSize = std::exchange(other.m_allocatedSize, 0);
    m_ownsMemory = std::exchange(other.m_ownsMemory, 1);
    m_size = std::exchange(other.m_size, 0);
    m_memory = std::exchange(other.m_memory, nullptr);
}

template <class T>
Vector<T> & Vector<T>::operator=(Vector const & other)
{
    if (this == &other)
        return *this;
    if (other.m_size > m_allocatedSize) {
        Vector copy(other);
        release();
        takeOver(copy);
    } else {
        m_size = other.m_size;
        std::copy_n(other.m_memory, m_size, m_memory);
    }
    return *this;
}

template <class T>
Vector<T> & Vector<T>::operator=(Vector && other)
{
    // Memory of the caller's keeps receiving what is assigned, like on copying.
    if (this == &other || !m_ownsMemory || !other.m_ownsMemory || other.m_size <= m_allocatedSize)
        return *this = static_cast<Vector const &>(other);
    release();
    takeOver(other);
    return *this;
}

template <class T>
T Vector<T>::operator=(T value)
{
    reset(value);
    return value;
}

template <class T>
int Vector<T>::resize(int n)
{
    n = std::max(n, 0);
    if (n > m_allocatedSize) {
        T * const memory = tryAllocate<T>(n);
        if (!memory)
            return -1;
        std::uninitialized_copy_n(m_memory, m_size, memory);
        std::uninitialized_value_construct_n(memory + m_size, n - m_size);
        release();
        m_memory = memory;
        m_allocatedSize = n;
        m_ownsMemory = 1;
    } else if (n > m_size) {
        std::fill_n(m_memory + m_size, n - m_size, T(0));
    }
    m_size = n;
    return n;
}

template <class T>
int Vector<T>::resize(Vector const & other)
{
    return resize(other.m_size);
}

template <class T>
void Vector<T>::trim(int n)
{
    if (n >= 0 && n <= m_allocatedSize)
        m_size = n;
}

template <class T>
void Vector<T>::untrim()
{
    m_size = m_allocatedSize;
}

template <class T>
void Vector<T>::reset(T value)
{
    std::fill_n(m_memory, m_size, value);
}

template <class T>
Vector<T> & Vector<T>::operator+=(Vector const & other)
{
    requireSameSize(*this, other);
    std::transform(m_memory, m_memory + m_size, other.m_memory, m_memory, Detail::sum<T>);
    return *this;
}

template <class T>
Vector<T> & Vector<T>::operator-=(Vector const & other)
{
    requireSameSize(*this, other);
    std::transform(m_memory, m_memory + m_size, other.m_memory, m_memory, Detail::difference<T>);
    return *this;
}

template <class T>
Vector<T> & Vector<T>::operator+=(T value)
{
    for (int index = 0; index < m_size; ++index)
        m_memory[index] = Detail::sum(m_memory[index], value);
    return *this;
}

template <class T>
Vector<T> & Vector<T>::operator-=(T value)
{
    for (int index = 0; index < m_size; ++index)
        m_memory[index] = Detail::difference(m_memory[index], value);
    return *this;
}

template <class T>
Vector<T> & Vector<T>::operator*=(DenseScalar<T> factor)
{
    for (int index = 0; index < m_size; ++index)
        m_memory[index] = Detail::scaled(m_memory[index], factor);
    return *this;
}

template <class T>
Vector<T> & Vector<T>::operator/=(DenseScalar<T> divisor)
{
    for (int index = 0; index < m_size; ++index)
        m_memory[index] = Detail::quotient(m_memory[index], divisor);
    return *this;
}

template <class T>
void Vector<T>::as(int index, Vector const & source)
{
    requireRange(*this, index, source.m_size);
    if (&source != this)
        std::copy_n(source.m_memory, source.m_size, m_memory + index);
}

template <class T>
Vector<T> Vector<T>::get(int index, int n) const
{
    requireRange(*this, index, n);
    Vector part(0);
    if (n > 0) {
        part.m_memory = allocate<T>(n);
        part.m_allocatedSize = part.m_size = n;
        std::uninitialized_copy_n(m_memory + index, n, part.m_memory);
    }
    return part;
}

template <class T>
Vector<T> operator+(Vector<T> const & left, Vector<T> const & right)
{
    requireSameSize(left, right);
    Vector<T> result(left);
    result += right;
    return result;
}

template <class T>
Vector<T> operator-(Vector<T> const & left, Vector<T> const & right)
{
    requireSameSize(left, right);
    Vector<T> result(left);
    result -= right;
    return result;
}

template <class T>
bool operator==(Vector<T> const & left, Vector<T> const & right)
{
    requireSameSize(left, right);
    return std::equal(left.memory(), left.memory() + left.size(), right.memory());
}

template <class T>
bool operator!=(Vector<T> const & left, Vector<T> const & right)
{
    return !(left == right);
}

// NOLINTBEGIN(bugprone-macro-parentheses): the parameter is a type
#define QZ_INSTANTIATE_VECTOR(T)                                                                             \
    template class Vector<T>;                                                                                \
    template QZMATH_API Vector<T> operator+(Vector<T> const &, Vector<T> const &);                           \
    template QZMATH_API Vector<T> operator-(Vector<T> const &, Vector<T> const &);                           \
    template QZMATH_API bool operator==(Vector<T> const &, Vector<T> const &);                               \
    template QZMATH_API bool operator!=(Vector<T> const &, Vector<T> const &);
// NOLINTEND(bugprone-macro-parentheses)

QZ_INSTANTIATE_VECTOR(char)
QZ_INSTANTIATE_VECTOR(unsigned char)
QZ_INSTANTIATE_VECTOR(int)
QZ_INSTANTIATE_VECTOR(unsigned int)
QZ_INSTANTIATE_VECTOR(float)
QZ_INSTANTIATE_VECTOR(double)
QZ_INSTANTIATE_VECTOR(Point3D)
QZ_INSTANTIATE_VECTOR(Point3D_d)
QZ_INSTANTIATE_VECTOR(HPoint3D)
QZ_INSTANTIATE_VECTOR(HPoint3D_d)
#undef QZ_INSTANTIATE_VECTOR

} // namespace REmath
