// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Foundation/Matrix.h>

#include <QZmath/Foundation/DenseElementDetail.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <memory>
#include <new>
#include <utility>

namespace REmath
{

namespace
{

// Side of the square blocks in which a matrix is transposed, so that both sides of the copy stay in cache.
constexpr int transposeBlock = 16;

template <class T>
void requireSameSize(Matrix<T> const & left, Matrix<T> const & right)
{
    if (left.rows() != right.rows() || left.cols() != right.cols())
        throw static_cast<char const *>("NURBSWrongSize2D");
}

template <class T>
void requireWindow(Matrix<T> const & matrix, int row, int col, int nRows, int nCols)
{
    if (row < 0 || col < 0 || std::int64_t(row) + nRows > matrix.rows() ||
        std::int64_t(col) + nCols > matrix.cols())
        throw static_cast<char const *>("NURBSMatrixErr");
}

} // namespace

template <class T>
Matrix<T>::Matrix() : Matrix(1, 1)
{}

template <class T>
Matrix<T>::Matrix(int rows, int cols)
{
    init(rows, cols);
}

template <class T>
Matrix<T>::Matrix(Matrix const & other)
{
    allocateCopy(other);
}

template <class T>
Matrix<T>::Matrix(Matrix && other)
{
    if (other.m_ownsMemory)
        swap(other);
    else
        allocateCopy(other);
}

template <class T>
Matrix<T>::Matrix(T * memory, T ** columnTable, int rows, int cols)
    : m_rows(rows), m_cols(cols), m_ownsMemory(0)
{
    if (rows < 1 || cols < 1)
        return;
    m_memory = memory;
    m_columnTable = columnTable;
    for (int col = 0; col < cols; ++col)
        columnTable[col] = memory + std::ptrdiff_t(rows) * col;
}

template <class T>
Matrix<T>::~Matrix()
{
    release();
}

template <class T>
void Matrix<T>::init(int rows, int cols)
{
    allocate(rows, cols);
    std::uninitialized_value_construct_n(m_memory, count());
}

template <class T>
void Matrix<T>::allocate(int rows, int cols)
{
    if (rows >= 1 && cols >= 1) {
        if (std::int64_t(rows) * cols > std::numeric_limits<int>::max())
            throw std::bad_alloc();
        // One block holds the column table and then, aligned for vector instructions, the elements.
        constexpr std::size_t alignment = 16;
        std::size_t const tableBytes =
            (std::size_t(cols) * sizeof(T *) + alignment - 1) / alignment * alignment;
        std::size_t const elementBytes = std::size_t(rows) * std::size_t(cols) * sizeof(T);
        char * const block = static_cast<char *>(::operator new(tableBytes + elementBytes));
        m_columnTable = static_cast<T **>(static_cast<void *>(block));
        m_memory = static_cast<T *>(static_cast<void *>(block + tableBytes));
        for (int col = 0; col < cols; ++col)
            m_columnTable[col] = m_memory + std::ptrdiff_t(rows) * col;
    }
    m_rows = rows;
    m_cols = cols;
}

template <class T>
void Matrix<T>::allocateCopy(Matrix const & other)
{
    allocate(other.m_rows, other.m_cols);
    std::uninitialized_copy_n(other.m_memory, count(), m_memory);
}

template <class T>
void Matrix<T>::release()
{
    // The elements have trivial destructors.
    if (m_ownsMemory)
        ::operator delete(m_columnTable);
}

template <class T>
bool Matrix<T>::hasOwn(int rows, int cols) const
{
    return m_ownsMemory && m_memory && m_rows == rows && m_cols == cols;
}

template <class T>
std::size_t Matrix<T>::count() const
{
    return m_memory ? std::size_t(m_rows) * std::size_t(m_cols) : 0;
}

template <class T>
int Matrix<T>::diagonalSize() const
{
    return m_memory ? std::min(m_rows, m_cols) : 0;
}

template <class T>
Matrix<T> & Matrix<T>::operator=(Matrix const & other)
{
    if (this == &other)
        return *this;
    if (hasOwn(other.m_rows, other.m_cols)) {
        std::copy_n(other.m_memory, count(), m_memory);
    } else {
        Matrix copy(other);
        swap(copy);
    }
    return *this;
}

template <class T>
Matrix<T> & Matrix<T>::operator=(Matrix && other)
{
    if (!other.m_ownsMemory)
        return *this = static_cast<Matrix const &>(other);
    swap(other);
    return *this;
}

template <class T>
T Matrix<T>::operator=(T value)
{
    reset(value);
    return value;
}

template <class T>
void Matrix<T>::resize(int rows, int cols)
{
    if (rows < 1 || cols < 1)
        return;
    if (hasOwn(rows, cols)) {
        reset();
    } else {
        Matrix resized(rows, cols);
        swap(resized);
    }
}

template <class T>
void Matrix<T>::resize(Matrix const & other)
{
    resize(other.m_rows, other.m_cols);
}

template <class T>
void Matrix<T>::resizeKeep(int rows, int cols)
{
    if (rows < 1 || cols < 1 || hasOwn(rows, cols))
        return;
    Matrix resized(rows, cols);
    if (m_memory)
        resized.copySubMatrix(0, 0, std::min(rows, m_rows), std::min(cols, m_cols), *this, 0, 0);
    swap(resized);
}

template <class T>
void Matrix<T>::swap(Matrix & other)
{
    std::swap(m_rows, other.m_rows);
    std::swap(m_cols, other.m_cols);
    std::swap(m_memory, other.m_memory);
    std::swap(m_columnTable, other.m_columnTable);
    std::swap(m_ownsMemory, other.m_ownsMemory);
}

template <class T>
void Matrix<T>::reset(T value)
{
    if (value == T(0))
        reset();
    else
        std::fill_n(m_memory, count(), value);
}

template <class T>
void Matrix<T>::reset()
{
    std::fill_n(m_memory, count(), T(0));
}

template <class T>
void Matrix<T>::submatrix(int i, int j, Matrix const & tile)
{
    if (tile.m_rows < 1 || tile.m_cols < 1 || m_rows < tile.m_rows || m_cols < tile.m_cols ||
        m_rows % tile.m_rows != 0 || m_cols % tile.m_cols != 0)
        throw static_cast<char const *>("NURBSWrongSize2D");
    if (i < 0 || j < 0 || i >= m_rows / tile.m_rows || j >= m_cols / tile.m_cols)
        throw static_cast<char const *>("NURBSOutOfBound2D");
    copySubMatrix(i * tile.m_rows, j * tile.m_cols, tile.m_rows, tile.m_cols, tile, 0, 0);
}

template <class T>
void Matrix<T>::as(int row, int col, Matrix const & source)
{
    requireWindow(*this, row, col, source.m_rows, source.m_cols);
    copySubMatrix(row, col, source.m_rows, source.m_cols, source, 0, 0);
}

template <class T>
void Matrix<T>::copySubMatrix(int row, int col, int nRows, int nCols, Matrix const & source, int sourceRow,
                              int sourceCol)
{
    if (nRows < 1 || nCols < 1)
        return;
    // Within one matrix, a window that moves to the right is copied from its last column backwards. Elements
    // of one column are moved as a block, which may overlap.
    int const first = col > sourceCol ? nCols - 1 : 0;
    int const step = col > sourceCol ? -1 : 1;
    for (int done = 0, offset = first; done < nCols; ++done, offset += step) {
        T const * const from = source.m_columnTable[sourceCol + offset] + sourceRow;
        T * const to = m_columnTable[col + offset] + row;
        if (to <= from)
            std::copy(from, from + nRows, to);
        else
            std::copy_backward(from, from + nRows, to + nRows);
    }
}

template <class T>
Matrix<T> Matrix<T>::get(int row, int col, int nRows, int nCols) const
{
    requireWindow(*this, row, col, nRows, nCols);
    if (nRows < 0 || nCols < 0)
        throw static_cast<char const *>("NURBSMatrixErr");
    Matrix window(nRows, nCols);
    window.copySubMatrix(0, 0, nRows, nCols, *this, row, col);
    return window;
}

template <class T>
Matrix<T> & Matrix<T>::operator+=(Matrix const & other)
{
    requireSameSize(*this, other);
    std::transform(m_memory, m_memory + count(), other.m_memory, m_memory, Detail::sum<T>);
    return *this;
}

template <class T>
Matrix<T> & Matrix<T>::operator-=(Matrix const & other)
{
    requireSameSize(*this, other);
    std::transform(m_memory, m_memory + count(), other.m_memory, m_memory, Detail::difference<T>);
    return *this;
}

template <class T>
Matrix<T> & Matrix<T>::operator+=(T value)
{
    std::for_each_n(m_memory, count(), [value](T & element) { element = Detail::sum(element, value); });
    return *this;
}

template <class T>
Matrix<T> & Matrix<T>::operator-=(T value)
{
    std::for_each_n(m_memory, count(),
                    [value](T & element) { element = Detail::difference(element, value); });
    return *this;
}

template <class T>
Matrix<T> & Matrix<T>::operator*=(DenseScalar<T> factor)
{
    std::for_each_n(m_memory, count(), [factor](T & element) { element = Detail::scaled(element, factor); });
    return *this;
}

template <class T>
Matrix<T> & Matrix<T>::operator/=(DenseScalar<T> divisor)
{
    std::for_each_n(m_memory, count(),
                    [divisor](T & element) { element = Detail::quotient(element, divisor); });
    return *this;
}

template <class T>
Matrix<T> Matrix<T>::herm() const
{
    return transpose();
}

template <class T>
Matrix<T> Matrix<T>::transpose() const
{
    Matrix result(m_cols, m_rows);
    if (!m_memory)
        return result;
    for (int blockCol = 0; blockCol < m_cols; blockCol += transposeBlock) {
        int const endCol = std::min(blockCol + transposeBlock, m_cols);
        for (int blockRow = 0; blockRow < m_rows; blockRow += transposeBlock) {
            int const endRow = std::min(blockRow + transposeBlock, m_rows);
            for (int col = blockCol; col < endCol; ++col) {
                for (int row = blockRow; row < endRow; ++row)
                    result.elem(col, row) = elem(row, col);
            }
        }
    }
    return result;
}

template <class T>
Matrix<T> Matrix<T>::flop() const
{
    Matrix result(m_rows, m_cols);
    if (!m_memory)
        return result;
    for (int col = 0; col < m_cols; ++col)
        std::copy_n(m_columnTable[m_cols - 1 - col], m_rows, result.m_columnTable[col]);
    return result;
}

template <class T>
void Matrix<T>::diag(T value)
{
    int const size = diagonalSize();
    for (int index = 0; index < size; ++index)
        elem(index, index) = value;
}

template <class T>
Vector<T> Matrix<T>::getDiag() const
{
    int const size = diagonalSize();
    Vector<T> diagonal(size);
    for (int index = 0; index < size; ++index)
        diagonal[index] = elem(index, index);
    return diagonal;
}

template <class T>
T Matrix<T>::trace() const
{
    T result(0);
    int const size = diagonalSize();
    for (int index = 0; index < size; ++index)
        result = Detail::sum(result, elem(index, index));
    return result;
}

template <class T>
Matrix<T> operator+(Matrix<T> const & left, Matrix<T> const & right)
{
    requireSameSize(left, right);
    Matrix<T> result(left);
    result += right;
    return result;
}

template <class T>
Matrix<T> operator-(Matrix<T> const & left, Matrix<T> const & right)
{
    requireSameSize(left, right);
    Matrix<T> result(left);
    result -= right;
    return result;
}

template <class T>
bool operator==(Matrix<T> const & left, Matrix<T> const & right)
{
    requireSameSize(left, right);
    if (left.rows() < 1 || left.cols() < 1)
        return true;
    return std::equal(left[0], left[0] + std::ptrdiff_t(left.rows()) * left.cols(), right[0]);
}

template <class T>
bool operator!=(Matrix<T> const & left, Matrix<T> const & right)
{
    return !(left == right);
}

template <class T>
Matrix<T> operator*(DenseScalar<T> factor, Matrix<T> const & matrix)
{
    Matrix<T> result(matrix);
    result *= factor;
    return result;
}

// NOLINTBEGIN(bugprone-macro-parentheses): the parameter is a type
#define QZ_INSTANTIATE_MATRIX(T)                                                                             \
    template class Matrix<T>;                                                                                \
    template QZMATH_API Matrix<T> operator+(Matrix<T> const &, Matrix<T> const &);                           \
    template QZMATH_API Matrix<T> operator-(Matrix<T> const &, Matrix<T> const &);                           \
    template QZMATH_API bool operator==(Matrix<T> const &, Matrix<T> const &);                               \
    template QZMATH_API bool operator!=(Matrix<T> const &, Matrix<T> const &);                               \
    template QZMATH_API Matrix<T> operator*<T>(DenseScalar<T>, Matrix<T> const &);
// NOLINTEND(bugprone-macro-parentheses)

QZ_INSTANTIATE_MATRIX(char)
QZ_INSTANTIATE_MATRIX(unsigned char)
QZ_INSTANTIATE_MATRIX(int)
QZ_INSTANTIATE_MATRIX(unsigned int)
QZ_INSTANTIATE_MATRIX(float)
QZ_INSTANTIATE_MATRIX(double)
QZ_INSTANTIATE_MATRIX(Point3D)
QZ_INSTANTIATE_MATRIX(Point3D_d)
QZ_INSTANTIATE_MATRIX(HPoint3D)
QZ_INSTANTIATE_MATRIX(HPoint3D_d)
#undef QZ_INSTANTIATE_MATRIX

} // namespace REmath
