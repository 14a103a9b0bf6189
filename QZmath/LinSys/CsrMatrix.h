// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/LinSys/LinearSystem.h>

#include <cstdint>
#include <vector>

/// Square sparse matrices in compressed rows. Every template of this file exists for `float` and `double`.
///
/// Three arrays hold the matrix: the values row by row, the column of each value, ascending within a row, and
/// the row index, which says where each row begins. Columns and row index count from the index base, 0 or 1.
/// The row index has one entry more than there are rows: a row ends where the next one begins. Positions are
/// 32-bit, so a matrix holds fewer than 2^31 elements.
///
/// A matrix under construction has row index entries of -1 behind the last row that has got an element. Such
/// a matrix is incomplete, also when the missing rows are empty; products and solvers refuse it.
namespace REmath
{

/// Where columns and the row index count from.
enum eCSRindexBase : int
{
    CSR_INDEX_BASE_0 = 0,
    CSR_INDEX_BASE_1 = 1
};

enum eCSRmemoryPolicy : int
{
    CSR_MEMORY_PREALLOCATED = 0, ///< sized in advance for a number of elements that is known exactly
    CSR_MEMORY_INCREASE = 1      ///< grows as elements arrive
};

/// Read access to a square matrix in compressed rows.
///
/// Whoever implements it answers for the arrays: rows lie within the values, columns within the matrix and
/// ascend within a row. The routines that take a matrix test the row ends before they read, but not every
/// column.
template <class T>
class QZMATH_API ICsrMatrix
{
public:
    virtual ~ICsrMatrix() = default;

    eCSRindexBase getIndexBase() const { return doGetIndexBase(); }
    /// Only elements on and above the diagonal are stored, the others follow by symmetry.
    bool isUpperTriangleOnlyStored() const { return doIsUpperTriangleOnlyStored(); }
    /// Number of rows; -1 for a matrix that was never given a size, which counts as empty.
    int getMatrixSize() const { return doGetMatrixSize(); }
    int getNonZeroValuesNumber() const { return doGetNonZeroValuesNumber(); }
    T const * getCsrValues() const { return doGetCsrValues(); }
    int const * getCsrColumns() const { return doGetCsrColumns(); }
    /// Beginnings of the rows within values and columns, counted from the index base.
    int const * getCsrPointerB() const { return doGetCsrPointerB(); }
    /// Ends of the rows, counted from the index base, exclusive.
    int const * getCsrPointerE() const { return doGetCsrPointerE(); }

private:
    virtual eCSRindexBase doGetIndexBase() const = 0;
    virtual bool doIsUpperTriangleOnlyStored() const = 0;
    virtual int doGetMatrixSize() const = 0;
    virtual int doGetNonZeroValuesNumber() const = 0;
    virtual T const * doGetCsrValues() const = 0;
    virtual int const * doGetCsrColumns() const = 0;
    virtual int const * doGetCsrPointerB() const = 0;
    virtual int const * doGetCsrPointerE() const = 0;

protected:
    ICsrMatrix() = default;
    ICsrMatrix(ICsrMatrix const &) = default;
    ICsrMatrix & operator=(ICsrMatrix const &) = default;
};

template <class T>
class QZMATH_API CCSRSquareMatrixFiller;

/// A square matrix in compressed rows that owns its arrays. Copies are deep. A new one has never been given a
/// size: base 0, general, `CSR_MEMORY_PREALLOCATED`.
///
/// Fill it with `CCSRSquareMatrixFiller`, which lets no inconsistent matrix come about. What ends in `Mod` or
/// begins with `pushBack` reaches into the bare arrays: whoever uses it has to leave them consistent.
template <class T>
class QZMATH_API CCSRSquareMatrix : public ICsrMatrix<T>
{
public:
    /// Starts over with `size` rows, none of them begun; a negative `size` leaves no row index at all. For a
    /// known number of elements, `nonZeros` of 1 or more, the arrays get their full length, filled with -1,
    /// and `CSR_MEMORY_PREALLOCATED`; for an unknown one they are left empty with `CSR_MEMORY_INCREASE`.
    void initMemory(int size, int nonZeros, eCSRindexBase base, bool upperOnly);

    /// Makes room for `count` elements in all, or as many as 32-bit positions can address; never gives room
    /// back. Throws `std::bad_alloc` when memory is short.
    void reserveMemory(std::int64_t count);

    /// Becomes the diagonal block of `source`, which may be this matrix, from row and column `first` up to
    /// and without `last`; base and triangle are those of `source`. Of size 0 if the range is not one within
    /// the matrix or has rows that were not begun. Costs a binary search per row and one pass over the block.
    void makeSelfSubMatrix(int first, int last, ICsrMatrix<T> const & source);

    T * getCsrValuesMod() { return m_values.data(); }
    int * getCsrColumnsMod() { return m_columns.data(); }
    int * getCsrPointerBMod() { return m_rowIndex.data(); }
    int * getCsrPointerEMod() { return m_rowIndex.empty() ? nullptr : m_rowIndex.data() + 1; }
    int const * getRowIndex() const { return m_rowIndex.data(); }
    int * getRowIndexMod() { return m_rowIndex.data(); }

    int getCsrValuesSize() const { return static_cast<int>(m_values.size()); }
    int getCsrColumnsSize() const { return static_cast<int>(m_columns.size()); }
    int getRowIndexSize() const { return static_cast<int>(m_rowIndex.size()); }
    int getCsrPointerBSize() const { return this->getMatrixSize(); }
    int getCsrPointerESize() const { return this->getMatrixSize(); }

    eCSRmemoryPolicy getMemoryPolicy() const { return m_memoryPolicy; }
    void pushBackCsrValue(T value) { m_values.push_back(value); }
    /// `column` includes the index base.
    void pushBackCsrColumn(int column) { m_columns.push_back(column); }

private:
    friend class CCSRSquareMatrixFiller<T>;

    eCSRindexBase doGetIndexBase() const override;
    bool doIsUpperTriangleOnlyStored() const override;
    int doGetMatrixSize() const override;
    int doGetNonZeroValuesNumber() const override;
    T const * doGetCsrValues() const override;
    int const * doGetCsrColumns() const override;
    int const * doGetCsrPointerB() const override;
    int const * doGetCsrPointerE() const override;

    std::vector<T> m_values;
    std::vector<int> m_columns;
    std::vector<int> m_rowIndex;
    eCSRindexBase m_indexBase = CSR_INDEX_BASE_0;
    eCSRmemoryPolicy m_memoryPolicy = CSR_MEMORY_PREALLOCATED;
    bool m_upperTriangleOnly = false;
};

/// Fills a matrix from its first element to its last, row by row and along each row; rows may be left empty.
///
/// The first push that fails spoils it for good, so that a matrix is either complete, by its number of
/// elements, or known not to be. The target is not owned and must outlive the filler.
template <class T>
class QZMATH_API CCSRSquareMatrixFiller
{
public:
    /// Prepares the target by `initMemory`. `nonZeros` is the exact number of elements when 1 or more;
    /// otherwise memory grows with the elements, and no element at all is expected when it is 0, any number
    /// when negative. With a null target, or a base other than 0 and 1, every push fails.
    CCSRSquareMatrixFiller(CCSRSquareMatrix<T> * target, int size, int nonZeros, int indexBase,
                           bool upperOnly);
    virtual ~CCSRSquareMatrixFiller() = default;

    /// Appends an element; `row` and `column` include the index base. Gives false, and spoils, when it is not
    /// behind the last one, lies outside the matrix, is one more than expected or more than 32-bit positions
    /// can hold. When only the upper triangle is stored, an element below it is accepted and dropped,
    /// whatever the state.
    bool pushByRawNextNonZeroElement(int row, int column, T value);

    /// Pushes `count` elements of one row in turn, up to the first that fails; a well-formed row costs one
    /// pass. Unlike for a single push, `row` and `columns` count from 0. Elements left of the diagonal are
    /// left out when `skipLower` is set, before anything else is looked at.
    bool pushRow(int row, int count, T const * values, int const * columns, bool skipLower);

    /// Makes room for `count` elements in all. Spoils when the number of elements was given exactly.
    void reserveMemory(std::int64_t count);

    /// Says that no element will follow. Succeeds only when memory grows with the elements, there is at least
    /// one, and no other positive number of them was expected; spoils otherwise. A filler for an exact number
    /// of elements is thus spoiled by this call even when it is full: ask `isCompleted` there.
    bool setCompleted();
    bool isCompleted() const { return m_count >= 0 && m_count == m_expectedCount; }
    bool isSpoiled() const { return m_count < 0; }

private:
    int targetSize() const;
    void Spoil();
    bool pushByRawNextNonZeroElementMemoryPreallocatedCore(int column, T value);
    bool pushByRawNextNonZeroElementIncreaseMemoryCore(int column, T value);
    void advanceRowIndex(int row);
    bool isWholeRowPushable(int row, int count, int const * columns) const;
    void growFor(std::int64_t addedElements);

    CCSRSquareMatrix<T> * m_target;
    int m_expectedCount; ///< -1 when unknown
    int m_count = 0;     ///< -1 when spoiled
    int m_lastRow = -1;
    int m_lastColumn = -1;
    eCSRmemoryPolicy m_memoryPolicy;
    int m_indexBase;
    bool m_upperTriangleOnly;
};

/// Copies the free matrix of a system, or with `upperOnly` its upper triangle, without elements that are
/// exactly 0.
///
/// Asks the system for every element twice, which takes n^2 look-ups: meant for small systems. The result
/// does not say that only the upper triangle is stored, even when only that was copied: to a reader it is a
/// triangular matrix. Throws `std::logic_error` when the system's answers change between the two passes, when
/// the index base is neither 0 nor 1, and when the elements are too many for 32-bit positions.
template <class T>
QZMATH_API CCSRSquareMatrix<T> LinearSystem2CsrMatrix(ILinearSystemReadOnly<T> const & system, int indexBase,
                                                      bool upperOnly);

/// result = matrix * vector, with both index bases, for a general matrix or a symmetric one of which the
/// upper triangle is stored; elements below the diagonal are not looked at in the second case.
///
/// `size` is the number of elements of both vectors, which must not overlap. When it is not the size of the
/// matrix, or the matrix is incomplete, the call is refused and `result` stays as it is. One pass over the
/// matrix; the order of summation depends on nothing but the matrix. Allocates nothing and starts no thread.
template <class T>
QZMATH_API void MatrixMultVector(int size, T * result, ICsrMatrix<T> const & matrix, T const * vector);

extern template class ICsrMatrix<float>;
extern template class ICsrMatrix<double>;
extern template class CCSRSquareMatrix<float>;
extern template class CCSRSquareMatrix<double>;
extern template class CCSRSquareMatrixFiller<float>;
extern template class CCSRSquareMatrixFiller<double>;
extern template QZMATH_API CCSRSquareMatrix<float>
LinearSystem2CsrMatrix<float>(ILinearSystemReadOnly<float> const &, int, bool);
extern template QZMATH_API CCSRSquareMatrix<double>
LinearSystem2CsrMatrix<double>(ILinearSystemReadOnly<double> const &, int, bool);
extern template QZMATH_API void MatrixMultVector<float>(int, float *, ICsrMatrix<float> const &,
                                                        float const *);
extern template QZMATH_API void MatrixMultVector<double>(int, double *, ICsrMatrix<double> const &,
                                                         double const *);

} // namespace REmath
