// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>

#include <cstddef>
#include <iterator>
#include <map>
#include <memory>

/// Equations over vertices. Every template of this file exists for `float` and `double`.
namespace REmath
{

template <class T>
class QZMATH_API IVertexPosInformer;

template <class T>
class QZMATH_API CVertexLinearCombination;

/// One term of an equation: a vertex and its coefficient.
template <class T>
class QZMATH_API CVertexMonom
{
public:
    /// The term 0 times vertex 0.
    CVertexMonom() = default;
    CVertexMonom(int vertex, T coeff);
    CVertexMonom(CVertexMonom const &) = default;
    virtual ~CVertexMonom() = default;
    virtual CVertexMonom & operator=(CVertexMonom const &) = default;

    int GetVertexIdx() const { return m_vertex; }
    int & VertexIdx() { return m_vertex; }
    T GetCoeff() const { return m_coeff; }
    T & Coeff() { return m_coeff; }

private:
    int m_vertex = 0;
    T m_coeff = 0;
};

/// Forward iterator over the terms of a combination, in ascending order of the vertex.
///
/// It shows a copy of the current term, taken when it arrived there: a later change of the coefficient is
/// seen only by iterators that come to the term afterwards. Adding terms to the combination leaves its
/// iterators valid; assigning to or destroying the combination does not. Advancing, copying and comparing
/// allocate nothing.
template <class T>
class QZMATH_API CLinearCombIterator
{
public:
    using iterator_category = std::input_iterator_tag;
    using value_type = CVertexMonom<T>;
    using difference_type = std::ptrdiff_t;
    using pointer = CVertexMonom<T> const *;
    using reference = CVertexMonom<T> const &;

    CLinearCombIterator(CLinearCombIterator const &) = default;
    virtual ~CLinearCombIterator() = default;
    virtual CLinearCombIterator & operator=(CLinearCombIterator const &) = default;

    /// The copy of the current term; of no meaning at the end.
    CVertexMonom<T> const & operator*() const { return m_term; }
    CVertexMonom<T> const * operator->() const { return &m_term; }

    /// Moves to the next term. Stays where it is when it is at the end already.
    CLinearCombIterator & operator++()
    {
        if (m_position != m_end) {
            ++m_position;
            refresh();
        }
        return *this;
    }
    CLinearCombIterator operator++(int)
    {
        CLinearCombIterator former(*this);
        ++*this;
        return former;
    }

    /// Do both stand at one place of one combination? The copied terms are not compared.
    bool isSamePosition(CLinearCombIterator const & other) const { return m_position == other.m_position; }

private:
    friend class CVertexLinearCombination<T>;
    using Position = typename std::map<int, T>::const_iterator;

    CLinearCombIterator() = default;
    CLinearCombIterator(Position position, Position end);

    void refresh()
    {
        if (m_position != m_end) {
            m_term.VertexIdx() = m_position->first;
            m_term.Coeff() = m_position->second;
        }
    }

    Position m_position;
    CVertexMonom<T> m_term;
    Position m_end;
};

/// Two iterators are equal when they stand at the same place of the same combination.
template <class T>
bool operator==(CLinearCombIterator<T> const & left, CLinearCombIterator<T> const & right)
{
    return left.isSamePosition(right);
}

template <class T>
bool operator!=(CLinearCombIterator<T> const & left, CLinearCombIterator<T> const & right)
{
    return !left.isSamePosition(right);
}

/// One equation: a linear combination of vertices, to be read as "the sum of coefficient times position is
/// zero".
///
/// Holds at most one term per vertex and gives the terms in ascending order of the vertex, whatever the order
/// in which they came. A term stays in it even when its coefficient is or becomes 0. Copies are deep. Not
/// thread-safe, except for concurrent reading.
template <class T>
class QZMATH_API CVertexLinearCombination
{
public:
    /// A combination without terms.
    CVertexLinearCombination();
    CVertexLinearCombination(CVertexLinearCombination const & other);
    virtual ~CVertexLinearCombination() = default;
    virtual CVertexLinearCombination & operator=(CVertexLinearCombination const & other);

    /// Adds `coeff` to the coefficient of `vertex`, which is inserted when absent, also for a `coeff` of 0.
    /// O(log n) in the number of terms; amortised O(1) when vertices come in ascending order.
    void AddVertex(int vertex, T coeff);

    /// The coefficient of `vertex`, 0 when it is absent. O(log n).
    T VertexCoeff(int vertex) const;

    CLinearCombIterator<T> begin() const;
    CLinearCombIterator<T> end() const;

    /// Multiplies every coefficient.
    CVertexLinearCombination & operator*=(T factor);

    /// Adds the other combination term by term, as `AddVertex` does; `a += a` doubles.
    CVertexLinearCombination & operator+=(CVertexLinearCombination const & other);

private:
    struct Body
    {
        std::map<int, T> m_terms;
    };
    std::unique_ptr<Body> m_body;
};

/// The sum of coefficient times position over the terms in ascending order of the vertex, started from 0.
/// The informer is not asked about a vertex whose coefficient is exactly 0.
template <class T>
QZMATH_API T EvaluateLinCombination(CVertexLinearCombination<T> const & combination,
                                    IVertexPosInformer<T> const & positions);

extern template class CVertexMonom<float>;
extern template class CVertexMonom<double>;
extern template class CLinearCombIterator<float>;
extern template class CLinearCombIterator<double>;
extern template class CVertexLinearCombination<float>;
extern template class CVertexLinearCombination<double>;
extern template QZMATH_API float EvaluateLinCombination<float>(CVertexLinearCombination<float> const &,
                                                               IVertexPosInformer<float> const &);
extern template QZMATH_API double EvaluateLinCombination<double>(CVertexLinearCombination<double> const &,
                                                                 IVertexPosInformer<double> const &);

} // namespace REmath
