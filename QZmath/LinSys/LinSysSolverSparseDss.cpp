// SPDX-License-Identifier: Apache-2.0
#include <QZmath/LinSys/LinSysSolverSparseDss.h>

#include <QZmath/Backend/DirectSolver.h>
#include <QZmath/LinSys/CsrMatrixDetail.h>

#include <QZsys/Progress.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <optional>
#include <vector>

namespace REmath
{

namespace
{

using QzBackend::CDirectSolver;

double const largestResidualOfLift = 1e-9;

// The values of a matrix in double precision: those of a double matrix in place, a copy of those of a float
// matrix.
class WideValues
{
public:
    explicit WideValues(ICsrMatrix<double> const & matrix) : m_values(matrix.getCsrValues()) {}
    explicit WideValues(ICsrMatrix<float> const & matrix)
        : m_copy(matrix.getCsrValues(), matrix.getCsrValues() + matrix.getNonZeroValuesNumber()),
          m_values(m_copy.data())
    {}
    double const * get() const { return m_values; }

private:
    std::vector<double> m_copy;
    double const * m_values;
};

template <class T>
double largestDiagonalElement(ICsrMatrix<T> const & matrix)
{
    int const base = matrix.getIndexBase();
    double largest = 0.0;
    for (int row = 0; row < matrix.getMatrixSize(); ++row) {
        int const * begin = matrix.getCsrColumns() + (matrix.getCsrPointerB()[row] - base);
        int const * end = matrix.getCsrColumns() + (matrix.getCsrPointerE()[row] - base);
        int const * found = std::lower_bound(begin, end, row + base);
        if (found != end && *found == row + base)
            largest =
                std::max(largest, static_cast<double>(matrix.getCsrValues()[found - matrix.getCsrColumns()]));
    }
    return largest;
}

// |A x - b| / |b| in double precision. A right part of 0 is solved exactly by 0 only.
template <class T>
double relativeResidual(ICsrMatrix<T> const & matrix, double const * solution, double const * rightPart)
{
    int const size = matrix.getMatrixSize();
    int const base = matrix.getIndexBase();
    bool const upperOnly = matrix.isUpperTriangleOnlyStored();
    std::vector<double> residual(rightPart, rightPart + size);
    double scale = 0.0;
    for (double value : residual)
        scale += value * value;
    for (int row = 0; row < size; ++row) {
        for (int element = matrix.getCsrPointerB()[row] - base; element < matrix.getCsrPointerE()[row] - base;
             ++element) {
            int const column = matrix.getCsrColumns()[element] - base;
            double const value = static_cast<double>(matrix.getCsrValues()[element]);
            residual[static_cast<std::size_t>(row)] -= value * solution[column];
            if (upperOnly && column != row)
                residual[static_cast<std::size_t>(column)] -= value * solution[row];
        }
    }
    double sum = 0.0;
    for (double value : residual)
        sum += value * value;
    return sum == 0.0 ? 0.0 : std::sqrt(sum / scale);
}

} // namespace

template <class T>
CLinSysSolverSparseDss<T>::CLinSysSolverSparseDss() : m_semidefiniteLift(0)
{}

template <class T>
CLinSysSolverSparseDss<T>::~CLinSysSolverSparseDss() = default;

template <class T>
bool CLinSysSolverSparseDss<T>::onSolveSystem(ILinearSystemReadOnly<T> const & system, int nRightParts,
                                              IVertexPosInformer<T> const ** informers,
                                              IEqSysResultReciever<T> ** recievers,
                                              CProgressCounter * progress)
{
    CPrgCntSubPhase preparation(progress, 0, 10, 0, true);
    if (!system.IsCorrectlyDefinedSystem())
        return false;
    int const equations = system.GetEquationsNumber();
    if (equations == 0)
        return true;
    std::optional<CCSRSquareMatrix<T>> converted;
    auto const * matrix = dynamic_cast<ICsrMatrix<T> const *>(&system);
    // A converted matrix is the whole one: its own upper half would not say that the other half is missing.
    if (matrix == nullptr)
        matrix = &converted.emplace(LinearSystem2CsrMatrix(system, st_iDssIndexBase, false));
    if (Detail::csrRowCount(*matrix) != equations || !Detail::isRowIndexComplete(*matrix))
        return false;

    std::size_t const size = static_cast<std::size_t>(equations);
    std::size_t const parts = static_cast<std::size_t>(std::max(0, nRightParts));
    std::vector<T> rightParts(size * parts, T(0));
    std::vector<T> solutions(size * parts, T(0));
    for (std::size_t part = 0; part < parts; ++part)
        system.SetSingleRightPart(rightParts.data() + part * size, *informers[part]);
    preparation.Finish();

    CPrgCntSubPhase solution(progress, 10, 90, 0, true);
    if (!solveForExplicitMatrixInternal(nRightParts, solutions.data(), *matrix, system.isPositiveDefinite(),
                                        rightParts.data(), progress))
        return false;
    for (std::size_t part = 0; part < parts; ++part)
        system.SetSingleSolution(solutions.data() + part * size, *recievers[part]);
    solution.Finish();
    return true;
}

template <class T>
bool CLinSysSolverSparseDss<T>::solveForExplicitMatrix(T * solution, ICsrMatrix<T> const & matrix,
                                                       bool positiveDefinite, T const * rightPart,
                                                       CProgressCounter * progress)
{
    if (!Detail::isRowIndexComplete(matrix))
        return false;
    return solveForExplicitMatrixInternal(1, solution, matrix, positiveDefinite, rightPart, progress);
}

template <class T>
bool CLinSysSolverSparseDss<T>::solveForExplicitMatrixInternal(int nRightParts, T * solutions,
                                                               ICsrMatrix<T> const & matrix,
                                                               bool positiveDefinite, T const * rightParts,
                                                               CProgressCounter * progress)
{
    std::size_t const size = static_cast<std::size_t>(Detail::csrRowCount(matrix));
    std::size_t const total = size * static_cast<std::size_t>(std::max(0, nRightParts));
    if (size == 0)
        return true;
    WideValues const values(matrix);
    CDirectSolver solver(matrix.isUpperTriangleOnlyStored() ? CDirectSolver::Structure::symmetricUpper
                                                            : CDirectSolver::Structure::general,
                         positiveDefinite ? CDirectSolver::Definiteness::positiveDefinite
                                          : CDirectSolver::Definiteness::indefinite);
    if (!solver.defineStructure(static_cast<int>(size), matrix.getCsrPointerB(), matrix.getCsrColumns(),
                                matrix.getNonZeroValuesNumber(), matrix.getIndexBase()))
        return false;
    {
        CPrgCntSubPhase phase(progress, 0, 5, 0, true);
        if (!solver.reorder(progress))
            return false;
    }
    bool lifted = false;
    {
        CPrgCntSubPhase phase(progress, 5, 80, 0, true);
        if (!solver.factor(values.get(), progress)) {
            if (!positiveDefinite || !(m_semidefiniteLift > T(0)))
                return false;
            lifted = true;
            double const shift = static_cast<double>(m_semidefiniteLift) * largestDiagonalElement(matrix);
            if (!solver.factor(values.get(), progress, shift))
                return false;
        }
    }
    CPrgCntSubPhase phase(progress, 85, 15, 0, true);
    std::vector<double> const wideRightParts(rightParts, rightParts + total);
    std::vector<double> wideSolutions(total, 0.0);
    if (!solver.solve(wideRightParts.data(), nRightParts, wideSolutions.data()))
        return false;
    if (lifted) {
        for (std::size_t offset = 0; offset < total; offset += size) {
            if (!(relativeResidual(matrix, wideSolutions.data() + offset, wideRightParts.data() + offset) <
                  largestResidualOfLift))
                return false;
        }
    }
    std::transform(wideSolutions.begin(), wideSolutions.end(), solutions,
                   [](double value) { return static_cast<T>(value); });
    return true;
}

template class CLinSysSolverSparseDss<float>;
template class CLinSysSolverSparseDss<double>;

} // namespace REmath
