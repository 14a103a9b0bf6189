// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Backend/SparseCholesky.h>
#include <QZmath/Backend/SparseLu.h>
#include <QZmath/Backend/SparsePattern.h>

class CProgressCounter;

namespace QzBackend
{

/// Direct solver for sparse square systems, in stages: construct, `defineStructure`, `reorder`, `factor`,
/// `solve`; the destructor releases everything. `factor` and `solve` may be repeated.
///
/// A stage that fails gives false, prints nothing and leaves the object ready for a new `defineStructure`; a
/// stage out of turn fails too. Exceptions: what the progress counter throws, and `std::bad_alloc` when
/// memory is short; both leave the object valid and nothing leaked.
///
/// Positive definite matrices are factored by supernodal Cholesky (`CSparseCholesky`), all others by LU with
/// pivoting (`CSparseLu`), symmetric ones expanded: saddle points and zeros on the diagonal are no obstacle.
/// A full matrix declared positive definite takes the first way if its elements are symmetric, the second
/// otherwise.
///
/// The caller's arrays are not copied. The structure must stay as it is until the last `factor`, the values
/// during `factor`. An object belongs to one thread at a time; any number of objects work at the same time.
/// The same input gives the same bits, whatever the number of threads.
///
/// Memory in the Cholesky case: about 24 bytes per stored element while the order is chosen, then 8 bytes per
/// element of the factor and at most 8 per stored element. Cholesky factors run on as many threads as
/// `CVescaThreadingTasksHelper::getNumOfPhisicalThread` gives.
class CDirectSolver
{
public:
    enum class Structure
    {
        symmetricUpper, ///< symmetric; the elements on and above the diagonal are stored
        general
    };
    enum class Definiteness
    {
        positiveDefinite, ///< promised; a matrix that is not fails in `factor`
        indefinite
    };

    CDirectSolver(Structure structure, Definiteness definiteness);
    ~CDirectSolver();
    CDirectSolver(CDirectSolver const &) = delete;
    CDirectSolver & operator=(CDirectSolver const &) = delete;

    /// Takes the places of the elements: `rowIndex` of `size` + 1 entries and `columns` of `nonZeros`, both
    /// from `indexBase` 0 or 1. Fails on any arrays but those of a sound matrix: the row index never falls
    /// and ends behind the last element, columns ascend strictly, none below the diagonal where only the
    /// upper triangle is promised. Fails for a matrix without rows.
    bool defineStructure(int size, int const * rowIndex, int const * columns, int nonZeros, int indexBase);

    /// Chooses the order of elimination. `progress` (may be null) gets positions 0 to 1 here and in `factor`.
    bool reorder(CProgressCounter * progress);

    /// Factors matrix + `diagonalShift` * identity; the shift is meant for positive definite matrices and
    /// must be 0 for others. Fails when the matrix is singular or not positive definite as promised, and
    /// when a value is not finite.
    bool factor(double const * values, CProgressCounter * progress, double diagonalShift = 0.0);

    /// Solves for `count` right parts that lie one behind the other, in the order of the matrix. `solutions`
    /// must not overlap them. Fails when a solution is not finite; what stands in `solutions` is then
    /// worthless.
    bool solve(double const * rightParts, int count, double * solutions,
               CProgressCounter * progress = nullptr);

    /// Estimate of the condition of the factored matrix in the 1-norm, from below and seldom by more than a
    /// factor of 3, after scaling: to a diagonal of ones for Cholesky, else of rows and columns to elements
    /// of about 1. What scaling can mend does not show in it. Takes what the last `factor` got; 0 before
    /// that. Costs about five solves, through which `progress` (may be null) stands at 1.
    double conditionEstimate(double const * values, double diagonalShift = 0.0,
                             CProgressCounter * progress = nullptr) const;

private:
    enum class Stage
    {
        created,
        defined,
        reordered,
        factored
    };

    bool isSymmetricFull(double const * values) const;

    Structure const m_structure;
    Definiteness const m_definiteness;
    Stage m_stage = Stage::created;
    SparsePattern m_pattern;
    CSparseCholesky m_cholesky;
    CSparseLu m_lu;
    bool m_factoredByCholesky = false;
};

} // namespace QzBackend
