// SPDX-License-Identifier: Apache-2.0
#include <QZmath/LinSys/LinSysVariableManager.h>

#include <QZsys/IndexDetail.h>

#include <algorithm>
#include <limits>

namespace REmath
{

using VsUt::asIndex;

void CVertexNumbering::add(int vertex)
{
    int const index = size();
    m_vertices.push_back(vertex);

    std::int64_t const tableEnd = m_tableBegin + static_cast<std::int64_t>(m_table.size());
    if (m_scattered.empty()) {
        if (!m_table.empty() && vertex == tableEnd) {
            m_table.push_back(index);
            return;
        }
        if (vertex >= m_tableBegin && vertex < tableEnd) {
            m_table[asIndex(vertex - m_tableBegin)] = index;
            return;
        }
        std::int64_t const begin = m_table.empty() ? vertex : std::min<std::int64_t>(m_tableBegin, vertex);
        std::int64_t const end = m_table.empty() ? vertex + std::int64_t{1}
                                                 : std::max<std::int64_t>(tableEnd, vertex + std::int64_t{1});
        if (isDenseEnough(begin, end)) {
            // Room on the side that grows, so that descending identifiers cost as little as ascending ones.
            std::int64_t const room = (end - begin) / 2;
            rebuildTable(vertex < m_tableBegin ? begin - room : begin, vertex >= tableEnd ? end + room : end);
            return;
        }
        for (int k = 0; k <= index; ++k)
            m_scattered.emplace_hint(m_scattered.end(), at(k), k);
        m_table = decltype(m_table)();
        m_tableBegin = 0;
        return;
    }

    m_scattered.emplace(vertex, index);
    bool const isPowerOfTwo = (size() & index) == 0;
    if (isPowerOfTwo) {
        std::int64_t const begin = m_scattered.begin()->first;
        std::int64_t const end = m_scattered.rbegin()->first + std::int64_t{1};
        if (isDenseEnough(begin, end)) {
            m_scattered.clear();
            rebuildTable(begin, end);
        }
    }
}

bool CVertexNumbering::isFull() const { return size() == std::numeric_limits<int>::max(); }

int CVertexNumbering::findScattered(int vertex) const
{
    auto const entry = m_scattered.find(vertex);
    return entry == m_scattered.end() ? -1 : entry->second;
}

bool CVertexNumbering::isDenseEnough(std::int64_t begin, std::int64_t end) const
{
    return end - begin <= 1024 + 4 * std::int64_t{size()};
}

void CVertexNumbering::rebuildTable(std::int64_t begin, std::int64_t end)
{
    m_tableBegin = begin;
    m_table.assign(asIndex(end - begin), -1);
    for (int index = 0; index < size(); ++index)
        m_table[asIndex(at(index) - begin)] = index;
}

template <class T>
void CLinSysVariableManager<T>::imitateAddEquation(int row)
{
    if (m_equationsNumber != row) {
        onSpoil();
        return;
    }
    allocateFixedVariableMatrix();
    ++m_equationsNumber;
}

template <class T>
bool CLinSysVariableManager<T>::onIsCorrectlyDefinedSystem() const
{
    return !m_spoiled && m_freeVertices.size() == m_equationsNumber;
}

template <class T>
void CLinSysVariableManager<T>::onSetSingleRightPart(T * rightPart,
                                                     IVertexPosInformer<T> const & informer) const
{
    std::fill_n(rightPart, m_equationsNumber, T(0));
    std::vector<T> positions;
    positions.reserve(asIndex(m_fixedVertices.size()));
    for (int fixedIndex = 0; fixedIndex < m_fixedVertices.size(); ++fixedIndex)
        positions.push_back(informer.GetVertexPosition(m_fixedVertices.at(fixedIndex)));

    // Rows and columns that came after the fixed matrix was made have no coefficients. The sum of a row runs
    // over ascending fixed indices.
    int const rows = std::min(m_equationsNumber, m_fixedMatrixRows);
    T const * coeff = m_fixedMatrix.data();
    for (int row = 0; row < rows; ++row) {
        for (int fixedIndex = 0; fixedIndex < m_fixedMatrixColumns; ++fixedIndex, ++coeff) {
            // A zero coefficient must not meet a position that is not finite.
            if (*coeff != T(0))
                rightPart[row] += T(0) - *coeff * positions[asIndex(fixedIndex)];
        }
    }
}

template <class T>
int CLinSysVariableManager<T>::onGetEquationsNumber() const
{
    return m_equationsNumber;
}

template <class T>
void CLinSysVariableManager<T>::onSetSingleSolution(T const * solution,
                                                    IEqSysResultReciever<T> & reciever) const
{
    for (int index = 0; index < m_equationsNumber; ++index)
        reciever.SetVertexPosition(m_freeVertices.at(index), solution[index]);
}

template <class T>
bool CLinSysVariableManager<T>::onIsPositiveDefinite() const
{
    return m_positiveDefinite;
}

template <class T>
bool CLinSysVariableManager<T>::onIsSpoiled() const
{
    return m_spoiled;
}

template <class T>
int CLinSysVariableManager<T>::onGetFreeVariablesNumber() const
{
    return m_freeVertices.size();
}

template <class T>
int CLinSysVariableManager<T>::onGetFixedVariablesIndex(int vertex) const
{
    return m_fixedVertices.find(vertex);
}

template <class T>
int CLinSysVariableManager<T>::onGetFreeVariablesIndex(int vertex) const
{
    return m_freeVertices.find(vertex);
}

template <class T>
int CLinSysVariableManager<T>::onGetFixedVertexByIndex(int index) const
{
    return m_fixedVertices.at(index);
}

template <class T>
int CLinSysVariableManager<T>::onGetFreeVertexByIndex(int index) const
{
    return m_freeVertices.at(index);
}

template <class T>
int CLinSysVariableManager<T>::onGetFixedVariablesNumber() const
{
    return m_fixedVertices.size();
}

template <class T>
T CLinSysVariableManager<T>::onGetFixedVertCoeff(int row, int fixedIndex) const
{
    return isInFixedMatrix(row, fixedIndex) ? m_fixedMatrix[placeInFixedMatrix(row, fixedIndex)] : T(0);
}

template <class T>
void CLinSysVariableManager<T>::onDefineFixedVertex(int vertex)
{
    if (areVariablesDefined() || m_fixedVertices.isFull() || m_freeVertices.find(vertex) >= 0 ||
        m_fixedVertices.find(vertex) >= 0) {
        onSpoil();
        return;
    }
    m_fixedVertices.add(vertex);
}

template <class T>
void CLinSysVariableManager<T>::onDefineFreeVertex(int vertex)
{
    if (areVariablesDefined() || m_freeVertices.isFull() || m_fixedVertices.find(vertex) >= 0 ||
        m_freeVertices.find(vertex) >= 0) {
        onSpoil();
        return;
    }
    m_freeVertices.add(vertex);
}

template <class T>
void CLinSysVariableManager<T>::onSpoil()
{
    m_spoiled = true;
}

template <class T>
void CLinSysVariableManager<T>::onAddEquation(CVertexLinearCombination<T> const & equation)
{
    if (m_spoiled)
        return;
    int const row = m_equationsNumber;
    onAddEquationFixedPart(equation, row);
    if (m_spoiled)
        return;
    // Counted also when the free part spoils the system.
    onAddEquationFreePart(equation, row);
    ++m_equationsNumber;
}

template <class T>
void CLinSysVariableManager<T>::onSetPositiveDefinite(bool positiveDefinite)
{
    m_positiveDefinite = positiveDefinite;
}

template <class T>
void CLinSysVariableManager<T>::onSetFixedVertCoeff(int row, int fixedIndex, T value)
{
    if (!isInFixedMatrix(row, fixedIndex)) {
        onSpoil();
        return;
    }
    m_fixedMatrix[placeInFixedMatrix(row, fixedIndex)] = value;
}

template <class T>
void CLinSysVariableManager<T>::allocateFixedVariableMatrix()
{
    int const freeCount = m_freeVertices.size();
    int const fixedCount = m_fixedVertices.size();
    if (areFixedVariablesDefined()) {
        // A copied system takes vertices although its fixed matrix exists; they have no place in it.
        if (freeCount != m_fixedMatrixRows || fixedCount != m_fixedMatrixColumns)
            onSpoil();
        return;
    }
    if (freeCount < 1 || fixedCount < 1)
        return;
    m_fixedMatrix.assign(asIndex(freeCount) * asIndex(fixedCount), T(0));
    m_fixedMatrixRows = freeCount;
    m_fixedMatrixColumns = fixedCount;
}

template <class T>
void CLinSysVariableManager<T>::onAddEquationFixedPart(CVertexLinearCombination<T> const & equation, int row)
{
    allocateFixedVariableMatrix();
    if (m_spoiled)
        return;
    if (row >= m_freeVertices.size()) {
        onSpoil();
        return;
    }
    bool hasFreeTerm = false;
    CLinearCombIterator<T> const end = equation.end();
    for (CLinearCombIterator<T> term = equation.begin(); term != end; ++term) {
        if (m_freeVertices.find(term->GetVertexIdx()) >= 0) {
            hasFreeTerm = true;
            continue;
        }
        int const fixedIndex = m_fixedVertices.find(term->GetVertexIdx());
        if (fixedIndex < 0) {
            onSpoil();
            return;
        }
        onSetFixedVertCoeff(row, fixedIndex, term->GetCoeff());
    }
    if (!hasFreeTerm)
        onSpoil();
}

template <class T>
bool CLinSysVariableManager<T>::areFixedVariablesDefined() const
{
    return !m_fixedMatrix.empty();
}

template <class T>
bool CLinSysVariableManager<T>::areVariablesDefined() const
{
    return areFixedVariablesDefined() && areFreeVariablesDefined();
}

template <class T>
bool CLinSysVariableManager<T>::isInFixedMatrix(int row, int fixedIndex) const
{
    return row >= 0 && row < m_fixedMatrixRows && fixedIndex >= 0 && fixedIndex < m_fixedMatrixColumns;
}

template <class T>
std::size_t CLinSysVariableManager<T>::placeInFixedMatrix(int row, int fixedIndex) const
{
    return asIndex(std::int64_t{row} * m_fixedMatrixColumns + fixedIndex);
}

template class CLinSysVariableManager<float>;
template class CLinSysVariableManager<double>;

} // namespace REmath
