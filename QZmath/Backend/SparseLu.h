// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Backend/SparsePattern.h>

#include <memory>

class CProgressCounter;

namespace QzBackend
{

/// LU factorisation of a sparse matrix with threshold pivoting, by UMFPACK with its own ordering (AMD or
/// COLAMD, chosen by the structure). For symmetric indefinite and unsymmetric matrices.
///
/// The pattern must be sound; its arrays and the values must live as long as the calls that use them.
/// Progress is reported between the calls into UMFPACK only: a factorisation cannot be interrupted. Otherwise
/// the same rules as for `CSparseCholesky`.
class CSparseLu
{
public:
    CSparseLu();
    ~CSparseLu();
    CSparseLu(CSparseLu const &) = delete;
    CSparseLu & operator=(CSparseLu const &) = delete;

    /// Orders and factors. With `upperOnly` the matrix is symmetric and its upper triangle is given. False
    /// when it is singular to working precision, an element is not finite, or memory is short.
    bool factor(SparsePattern const & pattern, bool upperOnly, double const * values,
                CProgressCounter * progress);

    /// Solves for `count` right parts of the matrix size, one behind the other, with a step or two of
    /// refinement. False when a solution is not finite; `solutions` may then have been changed.
    bool solve(double const * rightParts, int count, double * solutions);

private:
    struct Body;
    std::unique_ptr<Body> m_body;
};

} // namespace QzBackend
