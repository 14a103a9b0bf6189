// SPDX-License-Identifier: Apache-2.0
#include <QZmath/LinSys/CsrMatrix.h>

#include <QZmath/LinSys/CsrMatrixDetail.h>

#include <QZsys/IndexDetail.h>

#include <algorithm>
#include <limits>
#include <stdexcept>

namespace REmath
{

using VsUt::asIndex;

namespace
{

// Invariant of a matrix under construction, after each push that succeeded: with `last` the row of the last
// element, the row index holds base + (number of elements before the row) for the rows 0 to last + 1, and -1
// behind. Rows that were jumped over begin and end at the same place. The end of the last row is thus always
// right, and a push has to write it, and the beginnings of the rows that it jumps over, and nothing else.
//
// Who completes a matrix leaves the -1 behind the last row with an element on purpose: a system whose last
// equations are empty has no unique solution, and the gap makes every product and solver refuse it.
//
// Rows arrive in two ways. Element by element every rule is tested at each push. As a whole row, the tests
// run over the row first, without a branch per element, and the arrays take it in one piece; a row that fails
// a test goes through the first way, which stores what stands in front of the failure and spoils at it, so
// the state behind is the same for both.
//
// Products read each element once, and that stream bounds them. Four partial sums break the chain of
// additions; which element goes into which sum depends on its place in the row alone, so a product has the
// same bits each time. Of a symmetric matrix the upper triangle is stored, and an element adds to two rows of
// the result: to its own in the partial sums, to its mirror's in memory. The mirror's row lies further down
// and starts from zero, which is why the result is cleared first.

constexpr std::int64_t maxElements = std::numeric_limits<int>::max();

} // namespace

// --- CCSRSquareMatrix

template <class T>
void CCSRSquareMatrix<T>::initMemory(int size, int nonZeros, eCSRindexBase base, bool upperOnly)
{
    // New vectors, so that the memory of the former elements is given back before the new one is taken.
    m_values = std::vector<T>();
    m_columns = std::vector<int>();
    m_rowIndex = std::vector<int>();
    m_upperTriangleOnly = upperOnly;
    m_indexBase = base;
    if (nonZeros < 1) {
        m_memoryPolicy = CSR_MEMORY_INCREASE;
    } else {
        m_memoryPolicy = CSR_MEMORY_PREALLOCATED;
        m_values.assign(asIndex(nonZeros), T(-1));
        m_columns.assign(asIndex(nonZeros), -1);
    }
    m_rowIndex.assign(size < 0 ? 0 : asIndex(size) + 1, -1);
}

template <class T>
void CCSRSquareMatrix<T>::reserveMemory(std::int64_t count)
{
    std::int64_t const reserved = std::min(count, maxElements);
    if (reserved > 0) {
        m_values.reserve(asIndex(reserved));
        m_columns.reserve(asIndex(reserved));
    }
}

template <class T>
void CCSRSquareMatrix<T>::makeSelfSubMatrix(int first, int last, ICsrMatrix<T> const & source)
{
    CCSRSquareMatrix block;
    block.m_indexBase = source.getIndexBase();
    block.m_upperTriangleOnly = source.isUpperTriangleOnlyStored();
    int const base = block.m_indexBase;

    bool const isBlock = first >= 0 && first <= last && last <= Detail::csrRowCount(source) &&
                         Detail::areRowsReadable(source, first, last);
    int const rowsEnd = isBlock ? last : first;
    block.m_rowIndex.reserve(asIndex(std::int64_t{rowsEnd} - first) + 1);

    int const * const columns = source.getCsrColumns();
    int const * const rowBegin = source.getCsrPointerB();
    int const * const rowEnd = source.getCsrPointerE();
    std::int64_t const firstColumn = std::int64_t{first} + base;
    std::int64_t const lastColumn = std::int64_t{last} + base;
    std::int64_t count = 0;
    for (int row = first; row < rowsEnd; ++row) {
        int const * const begin = columns + (rowBegin[row] - base);
        int const * const end = columns + (rowEnd[row] - base);
        int const * const inBegin = std::lower_bound(begin, end, firstColumn);
        int const * const inEnd = std::lower_bound(inBegin, end, lastColumn);
        block.m_rowIndex.push_back(static_cast<int>(count + base));
        count += inEnd - inBegin;
    }
    block.m_rowIndex.push_back(static_cast<int>(count + base));

    block.m_values.reserve(asIndex(count));
    block.m_columns.reserve(asIndex(count));
    T const * const values = source.getCsrValues();
    for (int row = first; row < rowsEnd; ++row) {
        int const * const begin = columns + (rowBegin[row] - base);
        int const * const end = columns + (rowEnd[row] - base);
        int const * const inBegin = std::lower_bound(begin, end, firstColumn);
        int const * const inEnd = std::lower_bound(inBegin, end, lastColumn);
        block.m_values.insert(block.m_values.end(), values + (inBegin - columns), values + (inEnd - columns));
        for (int const * column = inBegin; column != inEnd; ++column)
            block.m_columns.push_back(*column - first);
    }

    m_values.swap(block.m_values);
    m_columns.swap(block.m_columns);
    m_rowIndex.swap(block.m_rowIndex);
    m_indexBase = block.m_indexBase;
    m_memoryPolicy = CSR_MEMORY_PREALLOCATED;
    m_upperTriangleOnly = block.m_upperTriangleOnly;
}

template <class T>
eCSRindexBase CCSRSquareMatrix<T>::doGetIndexBase() const
{
    return m_indexBase;
}

template <class T>
bool CCSRSquareMatrix<T>::doIsUpperTriangleOnlyStored() const
{
    return m_upperTriangleOnly;
}

template <class T>
int CCSRSquareMatrix<T>::doGetMatrixSize() const
{
    return static_cast<int>(m_rowIndex.size()) - 1;
}

template <class T>
int CCSRSquareMatrix<T>::doGetNonZeroValuesNumber() const
{
    return static_cast<int>(m_values.size());
}

template <class T>
T const * CCSRSquareMatrix<T>::doGetCsrValues() const
{
    return m_values.data();
}

template <class T>
int const * CCSRSquareMatrix<T>::doGetCsrColumns() const
{
    return m_columns.data();
}

template <class T>
int const * CCSRSquareMatrix<T>::doGetCsrPointerB() const
{
    return m_rowIndex.data();
}

template <class T>
int const * CCSRSquareMatrix<T>::doGetCsrPointerE() const
{
    return m_rowIndex.empty() ? nullptr : m_rowIndex.data() + 1;
}

// --- CCSRSquareMatrixFiller

template <class T>
CCSRSquareMatrixFiller<T>::CCSRSquareMatrixFiller(CCSRSquareMatrix<T> * target, int size, int nonZeros,
                                                  int indexBase, bool upperOnly)
    : m_target(target), m_expectedCount(target == nullptr || nonZeros < 0 ? -1 : nonZeros),
      m_memoryPolicy(target != nullptr && nonZeros >= 1 ? CSR_MEMORY_PREALLOCATED : CSR_MEMORY_INCREASE),
      m_indexBase(indexBase), m_upperTriangleOnly(upperOnly)
{
    bool const isKnownBase = indexBase == CSR_INDEX_BASE_0 || indexBase == CSR_INDEX_BASE_1;
    if (target != nullptr) {
        target->initMemory(size, nonZeros,
                           isKnownBase ? static_cast<eCSRindexBase>(indexBase) : CSR_INDEX_BASE_0, upperOnly);
    }
    if (!isKnownBase)
        Spoil();
}

template <class T>
bool CCSRSquareMatrixFiller<T>::pushByRawNextNonZeroElement(int row, int column, T value)
{
    if (m_upperTriangleOnly && column < row)
        return true;
    std::int64_t const r = std::int64_t{row} - m_indexBase;
    std::int64_t const c = std::int64_t{column} - m_indexBase;
    bool const isBehindLast = r > m_lastRow || (r == m_lastRow && c > m_lastColumn);
    // The position behind the element must still fit into the row index, base included.
    if (m_target == nullptr || m_count < 0 || m_count == m_expectedCount ||
        m_count >= maxElements - m_indexBase || !isBehindLast || r < 0 || r >= targetSize() || c < 0 ||
        c >= targetSize()) {
        Spoil();
        return false;
    }
    bool const isStored = m_memoryPolicy == CSR_MEMORY_PREALLOCATED
                              ? pushByRawNextNonZeroElementMemoryPreallocatedCore(column, value)
                              : pushByRawNextNonZeroElementIncreaseMemoryCore(column, value);
    if (!isStored) {
        Spoil();
        return false;
    }
    advanceRowIndex(static_cast<int>(r));
    m_lastColumn = static_cast<int>(c);
    ++m_count;
    m_target->m_rowIndex[asIndex(r) + 1] = m_count + m_indexBase;
    return true;
}

template <class T>
bool CCSRSquareMatrixFiller<T>::pushRow(int row, int count, T const * values, int const * columns,
                                        bool skipLower)
{
    int first = 0;
    if (skipLower)
        while (first < count && columns[first] < row)
            ++first;
    if (isWholeRowPushable(row, count - first, columns + first)) {
        int const added = count - first;
        growFor(added);
        m_target->m_values.insert(m_target->m_values.end(), values + first, values + count);
        std::size_t const formerSize = m_target->m_columns.size();
        m_target->m_columns.insert(m_target->m_columns.end(), columns + first, columns + count);
        if (m_indexBase != 0) {
            int * const stored = m_target->m_columns.data() + formerSize;
            for (int k = 0; k < added; ++k)
                stored[k] += m_indexBase;
        }
        advanceRowIndex(row);
        m_lastColumn = columns[count - 1];
        m_count += added;
        m_target->m_rowIndex[asIndex(row) + 1] = m_count + m_indexBase;
        return true;
    }
    // Something in the row fails, is dropped or left out in between: element by element, up to the failure.
    for (int k = first; k < count; ++k) {
        if (skipLower && columns[k] < row)
            continue;
        std::int64_t const shiftedRow = std::int64_t{row} + m_indexBase;
        std::int64_t const shiftedColumn = std::int64_t{columns[k]} + m_indexBase;
        if (std::max(shiftedRow, shiftedColumn) > std::numeric_limits<int>::max()) {
            Spoil();
            return false;
        }
        if (!pushByRawNextNonZeroElement(static_cast<int>(shiftedRow), static_cast<int>(shiftedColumn),
                                         values[k]))
            return false;
    }
    return true;
}

template <class T>
bool CCSRSquareMatrixFiller<T>::isWholeRowPushable(int row, int count, int const * columns) const
{
    // Only for memory that grows without an expected number of elements: the rest is not worth a path of its
    // own.
    if (m_target == nullptr || m_count < 0 || m_expectedCount >= 0 || m_memoryPolicy != CSR_MEMORY_INCREASE ||
        count < 1 || row <= m_lastRow || row >= targetSize() ||
        m_target->m_values.size() != m_target->m_columns.size() ||
        std::int64_t{m_count} + count > maxElements - m_indexBase)
        return false;
    int const lowest = m_upperTriangleOnly ? row : 0;
    if (columns[0] < lowest || columns[count - 1] >= targetSize())
        return false;
    unsigned disorder = 0;
    for (int k = 1; k < count; ++k)
        disorder |= columns[k - 1] >= columns[k];
    return disorder == 0;
}

template <class T>
void CCSRSquareMatrixFiller<T>::reserveMemory(std::int64_t count)
{
    if (m_target == nullptr || m_memoryPolicy != CSR_MEMORY_INCREASE ||
        m_target->m_memoryPolicy != CSR_MEMORY_INCREASE) {
        Spoil();
        return;
    }
    m_target->reserveMemory(count);
}

template <class T>
bool CCSRSquareMatrixFiller<T>::setCompleted()
{
    bool const isExpectedCount = m_expectedCount <= 0 || m_expectedCount == m_count;
    if (m_memoryPolicy != CSR_MEMORY_INCREASE || !isExpectedCount || m_count < 1 || m_target == nullptr) {
        Spoil();
        return false;
    }
    m_expectedCount = m_count;
    return true;
}

template <class T>
int CCSRSquareMatrixFiller<T>::targetSize() const
{
    return static_cast<int>(m_target->m_rowIndex.size()) - 1;
}

template <class T>
void CCSRSquareMatrixFiller<T>::Spoil()
{
    m_count = -1;
}

template <class T>
bool CCSRSquareMatrixFiller<T>::pushByRawNextNonZeroElementMemoryPreallocatedCore(int column, T value)
{
    // The arrays are the target's, which may have been given another size since.
    std::size_t const position = asIndex(m_count);
    if (position >= m_target->m_values.size() || position >= m_target->m_columns.size())
        return false;
    m_target->m_values[position] = value;
    m_target->m_columns[position] = column;
    return true;
}

template <class T>
bool CCSRSquareMatrixFiller<T>::pushByRawNextNonZeroElementIncreaseMemoryCore(int column, T value)
{
    if (m_target->m_values.size() == m_target->m_values.capacity() ||
        m_target->m_columns.size() == m_target->m_columns.capacity())
        growFor(1);
    m_target->m_values.push_back(value);
    m_target->m_columns.push_back(column);
    return true;
}

// Grows both arrays by half when they are full: less slack than doubling in a matrix of gigabytes.
template <class T>
void CCSRSquareMatrixFiller<T>::growFor(std::int64_t addedElements)
{
    auto const grow = [addedElements](auto & elements) {
        std::size_t const needed = elements.size() + asIndex(addedElements);
        if (needed > elements.capacity())
            elements.reserve(std::max(needed, elements.capacity() + elements.capacity() / 2));
    };
    grow(m_target->m_values);
    grow(m_target->m_columns);
}

// Begins the rows up to and including `row`; those that were jumped over become empty ones.
template <class T>
void CCSRSquareMatrixFiller<T>::advanceRowIndex(int row)
{
    for (int begun = m_lastRow + 1; begun <= row; ++begun)
        m_target->m_rowIndex[asIndex(begun)] = m_count + m_indexBase;
    m_lastRow = row;
}

// --- Conversion

template <class T>
CCSRSquareMatrix<T> LinearSystem2CsrMatrix(ILinearSystemReadOnly<T> const & system, int indexBase,
                                           bool upperOnly)
{
    char const * const internalError = "REmath::LinearSystem2CsrMatrix internal error";
    int const size = std::max(0, system.GetEquationsNumber());
    std::int64_t nonZeros = 0;
    for (int row = 0; row < size; ++row)
        for (int column = upperOnly ? row : 0; column < size; ++column)
            nonZeros += system.GetFreeVertCoeff(row, column) != T(0);
    if (nonZeros > maxElements)
        throw std::logic_error(internalError);

    CCSRSquareMatrix<T> matrix;
    CCSRSquareMatrixFiller<T> filler(&matrix, size, static_cast<int>(nonZeros), indexBase, false);
    for (int row = 0; row < size && !filler.isSpoiled(); ++row) {
        for (int column = upperOnly ? row : 0; column < size; ++column) {
            T const coeff = system.GetFreeVertCoeff(row, column);
            if (coeff != T(0))
                filler.pushByRawNextNonZeroElement(row + indexBase, column + indexBase, coeff);
        }
    }
    if (!filler.isCompleted())
        throw std::logic_error(internalError);
    return matrix;
}

// --- Products

namespace
{

// Products are bound by the stream of values and columns; asking for it this many elements ahead, also
// across the ends of rows and pages where the processor's own foresight stops, saves a quarter of the time.
constexpr std::int64_t prefetchDistance = 256;

template <class T>
void prefetchElements(T const * values, int const * columns)
{
    __builtin_prefetch(values + prefetchDistance);
    __builtin_prefetch(columns + prefetchDistance);
}

// Sum over the elements of a row, in four interleaved partial sums.
template <int base, class T>
T rowProduct(T const * values, int const * columns, std::int64_t count, T const * vector)
{
    T sums[4] = {0, 0, 0, 0};
    std::int64_t k = 0;
    for (; k + 8 <= count; k += 8) {
        prefetchElements(values + k, columns + k);
        for (int lane = 0; lane < 8; ++lane)
            sums[lane % 4] += values[k + lane] * vector[columns[k + lane] - base];
    }
    for (; k < count; ++k)
        sums[0] += values[k] * vector[columns[k] - base];
    return (sums[0] + sums[1]) + (sums[2] + sums[3]);
}

// Sums like `rowProduct`, while each element's mirror image below the diagonal adds to its own row of the
// result.
template <int base, class T>
T rowProductWithMirror(T const * values, int const * columns, std::int64_t count, T const * vector,
                       T rowPosition, T * result)
{
    T sums[4] = {0, 0, 0, 0};
    std::int64_t k = 0;
    for (; k + 8 <= count; k += 8) {
        prefetchElements(values + k, columns + k);
        for (int lane = 0; lane < 8; ++lane) {
            int const column = columns[k + lane] - base;
            sums[lane % 4] += values[k + lane] * vector[column];
            result[column] += values[k + lane] * rowPosition;
        }
    }
    for (; k < count; ++k) {
        int const column = columns[k] - base;
        sums[0] += values[k] * vector[column];
        result[column] += values[k] * rowPosition;
    }
    return (sums[0] + sums[1]) + (sums[2] + sums[3]);
}

template <int base, class T>
void multiplyGeneral(int size, T * result, ICsrMatrix<T> const & matrix, T const * vector)
{
    T const * const values = matrix.getCsrValues();
    int const * const columns = matrix.getCsrColumns();
    int const * const rowBegin = matrix.getCsrPointerB();
    int const * const rowEnd = matrix.getCsrPointerE();
    for (int row = 0; row < size; ++row) {
        std::int64_t const begin = rowBegin[row] - base;
        std::int64_t const end = rowEnd[row] - base;
        result[row] = rowProduct<base>(values + begin, columns + begin, end - begin, vector);
    }
}

template <int base, class T>
void multiplySymmetric(int size, T * result, ICsrMatrix<T> const & matrix, T const * vector)
{
    T const * const values = matrix.getCsrValues();
    int const * const columns = matrix.getCsrColumns();
    int const * const rowBegin = matrix.getCsrPointerB();
    int const * const rowEnd = matrix.getCsrPointerE();
    std::fill_n(result, size, T(0));
    for (int row = 0; row < size; ++row) {
        std::int64_t begin = rowBegin[row] - base;
        std::int64_t const end = rowEnd[row] - base;
        while (begin < end && columns[begin] - base < row)
            ++begin;
        T diagonalTerm = 0;
        if (begin < end && columns[begin] - base == row) {
            diagonalTerm = values[begin] * vector[row];
            ++begin;
        }
        result[row] += diagonalTerm + rowProductWithMirror<base>(values + begin, columns + begin, end - begin,
                                                                 vector, vector[row], result);
    }
}

} // namespace

template <class T>
void MatrixMultVector(int size, T * result, ICsrMatrix<T> const & matrix, T const * vector)
{
    if (size != matrix.getMatrixSize() || size < 1 || !Detail::isRowIndexComplete(matrix))
        return;
    bool const isSymmetric = matrix.isUpperTriangleOnlyStored();
    if (matrix.getIndexBase() == CSR_INDEX_BASE_0)
        (isSymmetric ? multiplySymmetric<0, T> : multiplyGeneral<0, T>)(size, result, matrix, vector);
    else
        (isSymmetric ? multiplySymmetric<1, T> : multiplyGeneral<1, T>)(size, result, matrix, vector);
}

template class ICsrMatrix<float>;
template class ICsrMatrix<double>;
template class CCSRSquareMatrix<float>;
template class CCSRSquareMatrix<double>;
template class CCSRSquareMatrixFiller<float>;
template class CCSRSquareMatrixFiller<double>;
template QZMATH_API CCSRSquareMatrix<float>
LinearSystem2CsrMatrix<float>(ILinearSystemReadOnly<float> const &, int, bool);
template QZMATH_API CCSRSquareMatrix<double>
LinearSystem2CsrMatrix<double>(ILinearSystemReadOnly<double> const &, int, bool);
template QZMATH_API void MatrixMultVector<float>(int, float *, ICsrMatrix<float> const &, float const *);
template QZMATH_API void MatrixMultVector<double>(int, double *, ICsrMatrix<double> const &, double const *);

} // namespace REmath
