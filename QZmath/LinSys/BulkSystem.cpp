// SPDX-License-Identifier: Apache-2.0
#include <QZmath/LinSys/BulkSystem.h>

#include <QZmath/LinSys/CsrStorage.h>

#include <QZsys/IndexDetail.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace REmath
{

using VsUt::asIndex;

/// The free part of the system, over vertices that are their own indices. Fixed vertices it has none: a right
/// part comes ready, the informer being asked for the equations by number.
template <class T>
class CBulkSystem<T>::Storage final : public CCSRSstorage<T>
{
    void onSetSingleRightPart(T * rightPart, IVertexPosInformer<T> const & informer) const override
    {
        for (int row = 0; row < this->GetEquationsNumber(); ++row)
            rightPart[row] = informer.GetVertexPosition(row);
    }
};

namespace
{

template <class T>
class RightPart final : public IVertexPosInformer<T>
{
public:
    std::vector<T> values;
    T GetVertexPosition(int row) const override { return values[asIndex(row)]; }
};

template <class T>
class SolutionColumn final : public IEqSysResultReciever<T>
{
public:
    SolutionColumn(T * solutions, int columns, int column)
        : m_solutions(solutions), m_columns(columns), m_column(column)
    {}
    void SetVertexPosition(int vertex, T position) override
    {
        m_solutions[asIndex(std::int64_t{vertex} * m_columns + m_column)] = position;
    }

private:
    T * m_solutions;
    int m_columns, m_column;
};

// Brings the terms of an equation into ascending order of columns, one term for each.
template <class Term>
void arrange(std::vector<Term> & terms)
{
    auto const isBefore = [](Term const & one, Term const & other) { return one.column < other.column; };
    auto const isNotAfter = [](Term const & one, Term const & other) { return one.column >= other.column; };
    if (std::adjacent_find(terms.begin(), terms.end(), isNotAfter) == terms.end())
        return;
    // Stable, so that the sum of repeated terms has the order of the caller.
    std::stable_sort(terms.begin(), terms.end(), isBefore);
    std::size_t last = 0;
    for (std::size_t k = 1; k < terms.size(); ++k) {
        if (terms[k].column == terms[last].column)
            terms[last].coeff += terms[k].coeff;
        else
            terms[++last] = terms[k];
    }
    terms.resize(last + 1);
}

} // namespace

template <class T>
CBulkSystem<T>::CBulkSystem(bool symmetric, bool positiveDefinite)
    : m_symmetric(symmetric), m_storage(std::make_unique<Storage>())
{
    m_storage->setSymmetric(symmetric);
    m_storage->setPositiveDefinite(positiveDefinite);
    m_storage->setIndexBase(CSR_INDEX_BASE_0);
}

template <class T>
CBulkSystem<T>::~CBulkSystem() = default;

template <class T>
bool CBulkSystem<T>::define(CVertexNumbering & numbering, std::int64_t count, int const * vertices)
{
    if (equationCount() > 0 || count < 0 || count > std::numeric_limits<int>::max() - numbering.size())
        return false;
    CVertexNumbering grown = numbering;
    for (std::int64_t k = 0; k < count; ++k) {
        if (m_free.find(vertices[k]) >= 0 || m_fixed.find(vertices[k]) >= 0 || grown.find(vertices[k]) >= 0)
            return false;
        grown.add(vertices[k]);
    }
    numbering = std::move(grown);
    return true;
}

template <class T>
bool CBulkSystem<T>::defineFree(std::int64_t count, int const * vertices)
{
    int const before = freeCount();
    if (!define(m_free, count, vertices))
        return false;
    for (int index = before; index < freeCount(); ++index)
        m_storage->DefineFreeVertex(index);
    return true;
}

template <class T>
bool CBulkSystem<T>::defineFixed(std::int64_t count, int const * vertices)
{
    return define(m_fixed, count, vertices);
}

template <class T>
BulkFault CBulkSystem<T>::faultOf(std::int64_t begin, std::int64_t end, int const * vertices,
                                  T const * coeffs) const
{
    bool hasFree = false;
    for (std::int64_t k = begin; k < end; ++k) {
        bool const isFree = m_free.find(vertices[k]) >= 0;
        hasFree = hasFree || isFree;
        if (!isFree && m_fixed.find(vertices[k]) < 0)
            return BulkFault::unknownVertex;
        if (!std::isfinite(coeffs[k]))
            return BulkFault::notFinite;
    }
    return hasFree ? BulkFault::none : BulkFault::noFreeVertex;
}

template <class T>
BulkFault CBulkSystem<T>::addEquations(std::int64_t count, std::int64_t const * begins, int const * vertices,
                                       T const * coeffs, std::int64_t * faultyEquation)
{
    std::int64_t ignored = 0;
    std::int64_t & equation = faultyEquation != nullptr ? *faultyEquation : ignored;
    equation = 0;
    if (count <= 0)
        return BulkFault::none;
    if (begins[0] != 0)
        return BulkFault::badBegins;
    for (equation = 0; equation < count; ++equation) {
        if (begins[equation + 1] < begins[equation])
            return BulkFault::badBegins;
    }
    equation = std::int64_t{freeCount()} - equationCount();
    if (count > equation)
        return BulkFault::tooMany;
    equation = 0;
    if (begins[count] + m_storage->getNonZeroValuesNumber() > std::numeric_limits<int>::max())
        return BulkFault::tooMany;
    for (equation = 0; equation < count; ++equation) {
        BulkFault const fault = faultOf(begins[equation], begins[equation + 1], vertices, coeffs);
        if (fault != BulkFault::none)
            return fault;
    }
    if (equationCount() == 0 && count == freeCount())
        m_storage->reserveMatrixMemory(m_symmetric ? (begins[count] + count) / 2 : begins[count]);
    m_fixedBegins.reserve(m_fixedBegins.size() + asIndex(count));
    for (std::int64_t k = 0; k < count; ++k)
        addEquation(begins[k], begins[k + 1], vertices, coeffs);
    return BulkFault::none;
}

template <class T>
void CBulkSystem<T>::addEquation(std::int64_t begin, std::int64_t end, int const * vertices, T const * coeffs)
{
    m_freeTerms.clear();
    m_fixedTerms.clear();
    // What an equation left that memory did not suffice for belongs to no row.
    m_fixedColumns.resize(asIndex(m_fixedBegins.back()));
    m_fixedValues.resize(m_fixedColumns.size());
    for (std::int64_t k = begin; k < end; ++k) {
        int const column = m_free.find(vertices[k]);
        if (column >= 0)
            m_freeTerms.push_back({column, coeffs[k]});
        else
            m_fixedTerms.push_back({m_fixed.find(vertices[k]), coeffs[k]});
    }
    arrange(m_freeTerms);
    arrange(m_fixedTerms);
    m_columns.clear();
    m_values.clear();
    for (Term const & term : m_freeTerms) {
        m_columns.push_back(term.column);
        m_values.push_back(term.coeff);
    }
    for (Term const & term : m_fixedTerms) {
        m_fixedColumns.push_back(term.column);
        m_fixedValues.push_back(term.coeff);
    }
    m_storage->addEquationFreePartNoAliases(equationCount(), static_cast<int>(m_columns.size()),
                                            m_values.data(), m_columns.data());
    m_fixedBegins.push_back(static_cast<std::int64_t>(m_fixedColumns.size()));
}

template <class T>
ICsrMatrix<T> const & CBulkSystem<T>::freeMatrix() const
{
    return *m_storage;
}

template <class T>
bool CBulkSystem<T>::solve(ILinSysSolverCore<T> & core, int nRightParts, T const * fixedPositions,
                           T const * rightSides, T * solutions, CProgressCounter * progress) const
{
    if (!isComplete() || nRightParts < 0 || (fixedCount() > 0 && fixedPositions == nullptr))
        return false;
    std::vector<RightPart<T>> parts(asIndex(nRightParts));
    std::vector<SolutionColumn<T>> columns;
    std::vector<IVertexPosInformer<T> const *> informers;
    std::vector<IEqSysResultReciever<T> *> receivers;
    columns.reserve(parts.size());
    for (int part = 0; part < nRightParts; ++part) {
        std::vector<T> & values = parts[asIndex(part)].values;
        values.resize(asIndex(equationCount()));
        for (int row = 0; row < equationCount(); ++row) {
            std::int64_t const place = std::int64_t{row} * nRightParts + part;
            T sum = rightSides != nullptr ? rightSides[place] : T(0);
            for (std::int64_t k = m_fixedBegins[asIndex(row)]; k < m_fixedBegins[asIndex(row + 1)]; ++k)
                sum -= m_fixedValues[asIndex(k)] *
                       fixedPositions[std::int64_t{m_fixedColumns[asIndex(k)]} * nRightParts + part];
            values[asIndex(row)] = sum;
        }
        columns.emplace_back(solutions, nRightParts, part);
        if (std::all_of(values.begin(), values.end(), [](T value) { return value == T(0); })) {
            for (int row = 0; row < equationCount(); ++row)
                columns.back().SetVertexPosition(row, T(0));
            continue;
        }
        informers.push_back(&parts[asIndex(part)]);
        receivers.push_back(&columns.back());
    }
    if (informers.empty())
        return true;
    return core.solveSystem(*m_storage, static_cast<int>(informers.size()), informers.data(),
                            receivers.data(), progress);
}

template class CBulkSystem<float>;
template class CBulkSystem<double>;

} // namespace REmath
