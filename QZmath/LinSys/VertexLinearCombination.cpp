// SPDX-License-Identifier: Apache-2.0
#include <QZmath/LinSys/LinearSystem.h>
#include <QZmath/LinSys/VertexLinearCombination.h>

namespace REmath
{

template <class T>
CVertexMonom<T>::CVertexMonom(int vertex, T coeff) : m_vertex(vertex), m_coeff(coeff)
{}

template <class T>
CLinearCombIterator<T>::CLinearCombIterator(Position position, Position end)
    : m_position(position), m_end(end)
{
    refresh();
}

template <class T>
CVertexLinearCombination<T>::CVertexLinearCombination() : m_body(std::make_unique<Body>())
{}

template <class T>
CVertexLinearCombination<T>::CVertexLinearCombination(CVertexLinearCombination const & other)
    : m_body(std::make_unique<Body>(*other.m_body))
{}

template <class T>
CVertexLinearCombination<T> & CVertexLinearCombination<T>::operator=(CVertexLinearCombination const & other)
{
    if (this != &other)
        *m_body = *other.m_body;
    return *this;
}

template <class T>
void CVertexLinearCombination<T>::AddVertex(int vertex, T coeff)
{
    std::map<int, T> & terms = m_body->m_terms;
    if (terms.empty() || terms.rbegin()->first < vertex) {
        terms.emplace_hint(terms.end(), vertex, coeff);
        return;
    }
    auto const [term, isNew] = terms.try_emplace(vertex, coeff);
    if (!isNew)
        term->second += coeff;
}

template <class T>
T CVertexLinearCombination<T>::VertexCoeff(int vertex) const
{
    auto const term = m_body->m_terms.find(vertex);
    return term == m_body->m_terms.end() ? T(0) : term->second;
}

template <class T>
CLinearCombIterator<T> CVertexLinearCombination<T>::begin() const
{
    return {m_body->m_terms.cbegin(), m_body->m_terms.cend()};
}

template <class T>
CLinearCombIterator<T> CVertexLinearCombination<T>::end() const
{
    return {m_body->m_terms.cend(), m_body->m_terms.cend()};
}

template <class T>
CVertexLinearCombination<T> & CVertexLinearCombination<T>::operator*=(T factor)
{
    for (auto & term : m_body->m_terms)
        term.second *= factor;
    return *this;
}

template <class T>
CVertexLinearCombination<T> & CVertexLinearCombination<T>::operator+=(CVertexLinearCombination const & other)
{
    // No term is new when the other one is this one, so the walk is safe then too.
    for (auto const & term : other.m_body->m_terms)
        AddVertex(term.first, term.second);
    return *this;
}

template <class T>
T EvaluateLinCombination(CVertexLinearCombination<T> const & combination,
                         IVertexPosInformer<T> const & positions)
{
    T sum = 0;
    CLinearCombIterator<T> const end = combination.end();
    for (CLinearCombIterator<T> term = combination.begin(); term != end; ++term)
        if (term->GetCoeff() != T(0))
            sum += term->GetCoeff() * positions.GetVertexPosition(term->GetVertexIdx());
    return sum;
}

template class CVertexMonom<float>;
template class CVertexMonom<double>;
template class CLinearCombIterator<float>;
template class CLinearCombIterator<double>;
template class CVertexLinearCombination<float>;
template class CVertexLinearCombination<double>;
template QZMATH_API float EvaluateLinCombination<float>(CVertexLinearCombination<float> const &,
                                                        IVertexPosInformer<float> const &);
template QZMATH_API double EvaluateLinCombination<double>(CVertexLinearCombination<double> const &,
                                                          IVertexPosInformer<double> const &);

} // namespace REmath
