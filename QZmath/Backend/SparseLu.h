// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Backend/SparsePattern.h>

#include <memory>

class CProgressCounter;

namespace QzBackend
{

/// LU factorisation of a sparse matrix with threshold pivoting, for symmetric indefinite and unsymmetric
/// matrices: left-looking by supernodes, after Demmel, Eisenstat, Gilbert, Li and Liu (SIAM J. Matrix Anal.
/// Appl. 20, 1999).
///
/// The numeric kernels are those of SuperLU. What stands around them is our own: the driver of SuperLU ends
/// the process when memory is short and cannot be interrupted. Rows and columns are scaled by powers of two.
/// Columns are ordered on the graph of A + A^T when the structure is nearly symmetric, else on that of A^T A,
/// where rows with many elements are left out. A pivot on the diagonal is kept when it is at least a tenth of
/// the largest candidate, or a thousandth where the structure is nearly symmetric: other pivots would spoil
/// an order chosen for these, and what precision is lost is won back by the refinement of solutions.
///
/// The pattern must be sound; its arrays and the values must live during `factor` only. Progress is reported
/// by the share of the work that an elimination without interchanges would have done. Otherwise the same
/// rules as for `CSparseCholesky`; it runs on the calling thread.
class CSparseLu
{
public:
    CSparseLu();
    ~CSparseLu();
    CSparseLu(CSparseLu const &) = delete;
    CSparseLu & operator=(CSparseLu const &) = delete;

    /// Orders and factors. With `upperOnly` the matrix is symmetric and its upper triangle is given. False
    /// when it is singular, by its structure or to working precision, or an element is not finite. Throws
    /// `std::bad_alloc` when memory is short or the factors have more than 2^31 elements.
    bool factor(SparsePattern const & pattern, bool upperOnly, double const * values,
                CProgressCounter * progress);

    /// Solves for `count` right parts of the matrix size, one behind the other, with a step or two of
    /// refinement. False when a solution is not finite; `solutions` may then have been changed.
    bool solve(double const * rightParts, int count, double * solutions,
               CProgressCounter * progress = nullptr);

    /// Estimate of the condition in the 1-norm, from below, of the matrix with rows and columns scaled; 0
    /// before it is factored. Costs about five solves, through which `progress` stands at 1.
    double conditionEstimate(CProgressCounter * progress) const;

private:
    struct Body;
    class Elimination;
    std::unique_ptr<Body> m_body;
};

} // namespace QzBackend
