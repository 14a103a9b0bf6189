// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/Foundation/Point3D.h>
#include <QZmath/Foundation/Vector.h>

#include <cstddef>
#include <type_traits>

namespace REmath
{

namespace Detail
{
template <class T>
struct MatrixAccess;
} // namespace Detail

/// Dense matrix with deep copy, stored column by column, over memory of its own or over memory of the
/// caller's.
///
/// `m[c]` is the address of column c, behind which its `rows()` elements follow, and `m[0]` that of the whole
/// matrix, in the layout of LAPACK with a leading dimension of `rows()`. `m.elem(r, c)`, `m(r, c)` and
/// `m[c][r]` are the same element; none of them checks its indices.
///
/// A matrix with a size below 1 is empty: it keeps the sizes that were asked for and has no memory.
///
/// Errors of size are thrown as words, plain `char const *`, with the matrix unchanged: "NURBSWrongSize2D"
/// where sizes do not fit each other, "NURBSOutOfBound2D" where a tile index leaves the matrix,
/// "NURBSMatrixErr" where a window does. Exhausted memory, and a matrix of more than 2^31 - 1 elements, is
/// `std::bad_alloc`. Integers wrap around on overflow. Used by one thread at a time; concurrent reading is
/// safe.
template <class T>
class QZMATH_API Matrix
{
    static_assert(isDenseElement<T>, "there is no dense matrix of this element type");

public:
    /// One element, 0.
    Matrix();
    /// All elements 0; empty when either size is below 1.
    Matrix(int rows, int cols);
    Matrix(Matrix const & other);
    /// Takes the memory of `other` over if that owns it, and copies otherwise.
    Matrix(Matrix && other);
    /// Over rows * cols elements of the caller's and a table of `cols` pointers, which is filled here. Both
    /// must outlive the matrix, or its next resizing or assignment: from then on it has memory of its own.
    Matrix(T * memory, T ** columnTable, int rows, int cols);
    virtual ~Matrix();

    /// Takes over size and contents, in memory of its own.
    Matrix & operator=(Matrix const & other);
    Matrix & operator=(Matrix && other);
    /// Fills, and returns the value.
    T operator=(T value);

    int rows() const { return m_rows; }
    int cols() const { return m_cols; }
    /// Address of column `col`.
    T * operator[](int col) { return m_columnTable[col]; }
    T const * operator[](int col) const { return m_columnTable[col]; }
    T & elem(int row, int col) { return m_columnTable[col][row]; }
    T const & elem(int row, int col) const { return m_columnTable[col][row]; }
    T & operator()(int row, int col) { return m_columnTable[col][row]; }
    T const & operator()(int row, int col) const { return m_columnTable[col][row]; }

    /// Changes the size and makes all elements 0, also when the size stays. Memory is its own from then on.
    /// Does nothing when either size is below 1.
    void resize(int rows, int cols);
    /// To the size of `other`, all 0.
    void resize(Matrix const & other);
    /// Changes the size, where elements that exist before and after keep their values and new ones are 0.
    /// Does nothing when either size is below 1.
    void resizeKeep(int rows, int cols);
    void swap(Matrix & other);

    /// Fills all elements. A negative zero arrives as 0.
    void reset(T value);
    void reset();

    /// Seen as an array of tiles of the size of `tile`, writes `tile` at tile row `i`, tile column `j`.
    /// "NURBSWrongSize2D" unless this matrix is a whole number of tiles high and wide; "NURBSOutOfBound2D"
    /// when there is no such tile.
    void submatrix(int i, int j, Matrix const & tile);
    /// Writes `source` with its first element at `row`, `col`; "NURBSMatrixErr" when that leaves the matrix.
    void as(int row, int col, Matrix const & source);
    /// Copies the window of nRows * nCols elements at `sourceRow`, `sourceCol` of `source` to `row`, `col`.
    /// The windows may overlap, and must lie within their matrices, which is not checked. Nothing is copied
    /// when a size is below 1.
    void copySubMatrix(int row, int col, int nRows, int nCols, Matrix const & source, int sourceRow,
                       int sourceCol);
    /// The window of nRows * nCols elements at `row`, `col`; "NURBSMatrixErr" when that leaves the matrix.
    Matrix get(int row, int col, int nRows, int nCols) const;

    /// Element by element; "NURBSWrongSize2D" when the sizes differ.
    Matrix & operator+=(Matrix const & other);
    Matrix & operator-=(Matrix const & other);
    /// On every element; a number is added to every coordinate of a point.
    Matrix & operator+=(T value);
    Matrix & operator-=(T value);
    Matrix & operator*=(DenseScalar<T> factor);
    /// An integer divisor must not be 0.
    Matrix & operator/=(DenseScalar<T> divisor);

    /// The matrix with rows and columns exchanged; both functions are the same for real elements.
    Matrix herm() const;
    Matrix transpose() const;
    /// The matrix with its columns in reverse order.
    Matrix flop() const;

    /// Sets the main diagonal, min(rows, columns) elements, and leaves all others.
    void diag(T value);
    /// The main diagonal.
    Vector<T> getDiag() const;
    /// Sum of the main diagonal.
    T trace() const;

protected:
    /// Sets the sizes and, unless either is below 1, makes arrays filled with 0. For objects without memory.
    void init(int rows, int cols);

private:
    friend struct Detail::MatrixAccess<T>;

    void allocate(int rows, int cols);
    void allocateCopy(Matrix const & other);
    void release();
    bool hasOwn(int rows, int cols) const;
    std::size_t count() const;
    int diagonalSize() const;

    int m_rows = 0;
    int m_cols = 0;
    T * m_memory = nullptr;
    T ** m_columnTable = nullptr; // own memory is one block that begins here
    int m_ownsMemory = 1;
};

/// Whether matrices of `T` can be multiplied with each other: numbers and homogeneous points.
template <class T>
inline constexpr bool hasMatrixProduct =
    std::is_arithmetic_v<T> || std::is_same_v<T, HPoint3D> || std::is_same_v<T, HPoint3D_d>;

/// Element by element; "NURBSWrongSize2D" is thrown when the sizes differ.
template <class T>
QZMATH_API Matrix<T> operator+(Matrix<T> const & left, Matrix<T> const & right);
template <class T>
QZMATH_API Matrix<T> operator-(Matrix<T> const & left, Matrix<T> const & right);

/// Exact comparison of all elements; a NaN makes matrices different. Matrices of different sizes are not
/// merely different: "NURBSWrongSize2D" is thrown.
template <class T>
QZMATH_API bool operator==(Matrix<T> const & left, Matrix<T> const & right);
template <class T>
QZMATH_API bool operator!=(Matrix<T> const & left, Matrix<T> const & right);

/// Every element times a number.
template <class T>
QZMATH_API Matrix<T> operator*(DenseScalar<T> factor, Matrix<T> const & matrix);

/// Matrix product; "NURBSWrongSize2D" is thrown when the columns of `left` are not as many as the rows of
/// `right`. Elements of `left` that are exactly 0 contribute nothing, even where they meet infinity or NaN.
/// Homogeneous points multiply coordinate by coordinate, w included.
///
/// The result of `float` and `double` does not depend on the number of threads; large products go to BLAS.
template <class T, std::enable_if_t<hasMatrixProduct<T>, int> = 0>
QZMATH_API Matrix<T> operator*(Matrix<T> const & left, Matrix<T> const & right);

/// Product with a column vector; "NURBSWrongSize2D" is thrown when the columns are not as many as its
/// elements.
template <class T, IfNumbers<T> = 0>
QZMATH_API Vector<T> operator*(Matrix<T> const & matrix, Vector<T> const & vector);

/// The commutator left * right - right * left; "NURBSWrongSize2D" is thrown where sizes do not fit.
template <class T, IfNumbers<T> = 0>
QZMATH_API Matrix<T> comm(Matrix<T> const & left, Matrix<T> const & right);

/// Solves a * x = b for all columns of `b` at once, by LU factors with partial pivoting.
///
/// `a` is overwritten with its factors, as LAPACK's getrf leaves them. `x` becomes the size of `b`; it can be
/// `b` itself, which then is solved in place, and it can be `a`, which then receives the solution. A system
/// of size 0 is solved. Needs no memory beyond `x`, and n integers from size 16 on.
///
/// Gives false for a singular matrix, that is one in which a pivot is exactly 0: `x` is a copy of `b` then.
/// NaN and infinities are not noticed and spread into the solution. Throws the word "MatrixSolveDimError"
/// when `a` is not square or `b` has other rows. The result does not depend on the number of threads.
QZMATH_API bool solveMat(Matrix<float> & a, Matrix<float> const & b, Matrix<float> & x);
QZMATH_API bool solveMat(Matrix<double> & a, Matrix<double> const & b, Matrix<double> & x);

/// Inverts `a`; `inverse` can be the same object. False for a singular matrix, in which case `inverse` holds
/// the factors. Throws the word "MatrixSolveDimError" when `a` is not square.
QZMATH_API bool inverseMat(Matrix<double> const & a, Matrix<double> & inverse);

extern template class Matrix<char>;
extern template class Matrix<unsigned char>;
extern template class Matrix<int>;
extern template class Matrix<unsigned int>;
extern template class Matrix<float>;
extern template class Matrix<double>;
extern template class Matrix<Point3D>;
extern template class Matrix<Point3D_d>;
extern template class Matrix<HPoint3D>;
extern template class Matrix<HPoint3D_d>;

} // namespace REmath
