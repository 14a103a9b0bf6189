// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/LinSys/CsrMatrix.h>
#include <QZmath/LinSys/LinSysSolverCore.h>
#include <QZmath/LinSys/LinSysVariableManager.h>

#include <cstdint>
#include <memory>
#include <vector>

class CProgressCounter;

namespace REmath
{

/// What is wrong with equations that `CBulkSystem` does not take.
enum class BulkFault
{
    none,
    badBegins,     ///< rows do not begin at 0 and ascend
    tooMany,       ///< more equations than free vertices, or more elements than 32-bit positions can address
    unknownVertex, ///< a vertex that is neither free nor fixed
    noFreeVertex,
    notFinite ///< a coefficient that is no finite number
};

/// A linear system over free and fixed vertices, stated by arrays: for callers whose equations are arrays
/// already, such as the rows of a sparse matrix, and for known right sides without a vertex of their own.
///
///     REmath::CBulkSystem<double> system;
///     system.defineFree(count, vertices);
///     system.addEquations(count, begins, terms, coeffs);
///     REmath::CLinSysSolverSparseDss<double> core;
///     bool const solved = system.solve(core, 3, nullptr, rightSides, solutions, nullptr);
///
/// Vertices are integers of the caller's choice, as in `ILinearSystemStorage`; equation k is row k, and
/// columns count the free vertices in order of definition, which can be any. Both matrices are sparse, so
/// that many thousands of fixed vertices do no harm: 12 bytes a coefficient, 8 a row. An equation costs some
/// ten nanoseconds a term where its free vertices ascend, and sorting else. Exists for `float` and `double`.
/// Stated by one thread; solved by any number at once, each with a core of its own.
template <class T>
class QZMATH_API CBulkSystem
{
public:
    /// \param symmetric         only elements on and above the diagonal are kept; equations may have them all
    /// \param positiveDefinite  a promise that `CLinSysSolverSparseDss` makes use of
    explicit CBulkSystem(bool symmetric = false, bool positiveDefinite = false);
    ~CBulkSystem();
    CBulkSystem(CBulkSystem const &) = delete;
    CBulkSystem & operator=(CBulkSystem const &) = delete;

    /// Names vertices before the first equation. False, with none of them taken, when there are equations,
    /// or one of the vertices is known already or named twice.
    bool defineFree(std::int64_t count, int const * vertices);
    bool defineFixed(std::int64_t count, int const * vertices);

    /// Adds `count` equations: the terms of equation k are those from `begins[k]` to `begins[k + 1]`, in any
    /// order; coefficients of one vertex are added up. On a fault nothing is added, and `faultyEquation`,
    /// unless null, gets its number among the given ones.
    BulkFault addEquations(std::int64_t count, std::int64_t const * begins, int const * vertices,
                           T const * coeffs, std::int64_t * faultyEquation = nullptr);

    int freeCount() const { return m_free.size(); }
    int fixedCount() const { return m_fixed.size(); }
    int equationCount() const { return static_cast<int>(m_fixedBegins.size()) - 1; }
    bool isComplete() const { return equationCount() == freeCount(); }
    bool isSymmetric() const { return m_symmetric; }

    /// The coefficients of free vertices, index base 0; incomplete before the last equation.
    ICsrMatrix<T> const & freeMatrix() const;
    /// Those of fixed vertices in compressed rows, columns in order of their definition.
    std::vector<std::int64_t> const & fixedBegins() const { return m_fixedBegins; }
    std::vector<int> const & fixedColumns() const { return m_fixedColumns; }
    std::vector<T> const & fixedValues() const { return m_fixedValues; }

    /// Solves F x = r - G p for `nRightParts` right parts at once. Part j of row i is element
    /// i nRightParts + j of each array.
    /// \param fixedPositions p, a row for each fixed vertex; null only if there are none
    /// \param rightSides     r, a row for each equation; null for 0
    /// \param solutions      x, a row for each free vertex; written as far as the core delivers
    /// A right part of zeros gets zeros, and the core, which may be one that cannot iterate from there, is
    /// not asked. Gives what the core gives, which tells why not; false for a system that is not complete.
    bool solve(ILinSysSolverCore<T> & core, int nRightParts, T const * fixedPositions, T const * rightSides,
               T * solutions, CProgressCounter * progress) const;

private:
    class Storage;

    bool define(CVertexNumbering & numbering, std::int64_t count, int const * vertices);
    BulkFault faultOf(std::int64_t begin, std::int64_t end, int const * vertices, T const * coeffs) const;
    void addEquation(std::int64_t begin, std::int64_t end, int const * vertices, T const * coeffs);

    struct Term
    {
        int column;
        T coeff;
    };

    bool m_symmetric;
    CVertexNumbering m_free, m_fixed;
    std::unique_ptr<Storage> m_storage;
    std::vector<std::int64_t> m_fixedBegins{0};
    std::vector<int> m_fixedColumns;
    std::vector<T> m_fixedValues;
    std::vector<Term> m_freeTerms, m_fixedTerms; // of the equation at hand
    std::vector<int> m_columns;
    std::vector<T> m_values;
};

extern template class CBulkSystem<float>;
extern template class CBulkSystem<double>;

} // namespace REmath
