// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Backend/SparsePattern.h>

#include <memory>

class CProgressCounter;

namespace QzBackend
{

/// Cholesky factorisation L L^T of a sparse symmetric positive definite matrix by supernodes.
///
/// The numeric phase, where nearly all of the time goes, runs on as many threads as the library may use:
/// subtrees of the elimination tree side by side, and parts of the large blocks at its top. It works on dense
/// blocks of limited size, so that progress is reported, and a user's interruption noticed, every few
/// hundredths of a second; and it takes the elements from the caller's arrays, which spares the permuted copy
/// of the matrix.
///
/// The arrays behind the pattern and the values must live as long as `analyze` and `factor` run; the elements
/// on and above the diagonal are read. The pattern must be sound. One object belongs to one thread at a time,
/// different objects are independent. An exception of the progress counter leaves an object that can be used
/// afresh; so does `std::bad_alloc`, which every function throws when memory is short. Results are the same
/// for any number of threads.
class CSparseCholesky
{
public:
    CSparseCholesky();
    ~CSparseCholesky();
    CSparseCholesky(CSparseCholesky const &) = delete;
    CSparseCholesky & operator=(CSparseCholesky const &) = delete;

    /// Chooses the order of elimination and finds the structure of the factor.
    void analyze(SparsePattern const & pattern, CProgressCounter * progress);

    /// Factors matrix + `diagonalShift` * identity. False when it is not positive definite, or so close to
    /// singular that a pivot keeps none of the digits of its diagonal element or, without a shift, that the
    /// solutions would keep none, or an element is not finite.
    /// May be called again with other values, also after a failure.
    bool factor(double const * values, double diagonalShift, CProgressCounter * progress);

    /// Solves for `count` right parts of the matrix size, one behind the other. False when a solution is
    /// not finite; `solutions` may then have been changed.
    bool solve(double const * rightParts, int count, double * solutions,
               CProgressCounter * progress = nullptr);

    /// Estimate of the condition in the 1-norm, from below, of the matrix scaled to a diagonal of ones; 0
    /// before it is factored. With what the last `factor` got. Costs about five solves, through which
    /// `progress` stands at 1.
    double conditionEstimate(double const * values, double diagonalShift, CProgressCounter * progress) const;

private:
    struct Body;
    class Factorisation;
    std::unique_ptr<Body> m_body;
};

} // namespace QzBackend
