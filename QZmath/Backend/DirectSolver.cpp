// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Backend/DirectSolver.h>

#include <QZsys/Progress.h>

#include <algorithm>

namespace QzBackend
{

CDirectSolver::CDirectSolver(Structure structure, Definiteness definiteness)
    : m_structure(structure), m_definiteness(definiteness)
{}

CDirectSolver::~CDirectSolver() = default;

bool CDirectSolver::defineStructure(int size, int const * rowIndex, int const * columns, int nonZeros,
                                    int indexBase)
{
    m_stage = Stage::created;
    SparsePattern const pattern{size, rowIndex, columns, indexBase};
    if (size <= 0 || !isSoundPattern(pattern, nonZeros, m_structure == Structure::symmetricUpper))
        return false;
    m_pattern = pattern;
    m_stage = Stage::defined;
    return true;
}

bool CDirectSolver::reorder(CProgressCounter * progress)
{
    if (m_stage < Stage::defined)
        return false;
    m_stage = Stage::defined;
    // LU chooses its order by the values too, when it factors.
    if (m_definiteness == Definiteness::positiveDefinite)
        m_cholesky.analyze(m_pattern, progress);
    if (progress)
        progress->SetPosFloat(1.0);
    m_stage = Stage::reordered;
    return true;
}

bool CDirectSolver::isSymmetricFull(double const * values) const
{
    SparsePattern const & pattern = m_pattern;
    auto const elementAt = [&](int row, int column) {
        int const * const begin = pattern.columns + pattern.rowBegin(row);
        int const * const end = pattern.columns + pattern.rowEnd(row);
        int const * const found = std::lower_bound(begin, end, column + pattern.indexBase);
        return found != end && *found == column + pattern.indexBase ? values[found - pattern.columns] : 0.0;
    };
    for (int row = 0; row < pattern.size; ++row)
        for (int position = pattern.rowBegin(row); position < pattern.rowEnd(row); ++position)
            if (int const column = pattern.column(position);
                column != row && !(values[position] == elementAt(column, row)))
                return false;
    return true;
}

bool CDirectSolver::factor(double const * values, CProgressCounter * progress, double diagonalShift)
{
    if (m_stage < Stage::reordered)
        return false;
    m_stage = Stage::reordered;
    bool const upperOnly = m_structure == Structure::symmetricUpper;
    m_factoredByCholesky =
        m_definiteness == Definiteness::positiveDefinite && (upperOnly || isSymmetricFull(values));
    bool const succeeded = m_factoredByCholesky ? m_cholesky.factor(values, diagonalShift, progress)
                                                : m_lu.factor(m_pattern, upperOnly, values, progress);
    if (succeeded)
        m_stage = Stage::factored;
    return succeeded;
}

double CDirectSolver::conditionEstimate(double const * values, double diagonalShift,
                                        CProgressCounter * progress) const
{
    if (m_stage < Stage::factored)
        return 0.0;
    return m_factoredByCholesky ? m_cholesky.conditionEstimate(values, diagonalShift, progress)
                                : m_lu.conditionEstimate(progress);
}

bool CDirectSolver::solve(double const * rightParts, int count, double * solutions,
                          CProgressCounter * progress)
{
    if (m_stage < Stage::factored)
        return false;
    return m_factoredByCholesky ? m_cholesky.solve(rightParts, count, solutions, progress)
                                : m_lu.solve(rightParts, count, solutions, progress);
}

} // namespace QzBackend
