// SPDX-License-Identifier: Apache-2.0
#include <QZmath/LinSys/LinSysSolverSparseDss.h>

#include <QZmath/Backend/DirectSolver.h>
#include <QZmath/LinSys/LinSysFailureDetail.h>
#include <QZmath/LinSys/LinSysSolverCoreDetail.h>
#include <QZsys/IndexDetail.h>
#include <QZsys/Progress.h>

#include <algorithm>
#include <cmath>
#include <optional>
#include <type_traits>
#include <vector>

namespace REmath
{

using VsUt::asIndex;
namespace
{

struct TF_MklDssError
{
    LinSysFailure failure;
};

void check(bool succeeded, LinSysFailure failure)
{
    if (!succeeded)
        throw TF_MklDssError{failure};
}

// Numbers that are not finite are why nothing comes of a matrix that need not be singular.
void checkNumbers(bool succeeded, double const * numbers, std::size_t count)
{
    if (!succeeded)
        throw TF_MklDssError{Detail::areFinite(numbers, count) ? LinSysFailure::singular
                                                               : LinSysFailure::notFinite};
}

// What a solution of a lifted matrix may leave of its right part.
constexpr double liftedResidualLimit = 1e-9;

// The values or right parts of a float system widened; those of a double system as they are.
template <class T>
class Widened
{
public:
    Widened(T const * elements, std::size_t count)
    {
        if constexpr (std::is_same_v<T, double>) {
            m_data = elements;
        } else {
            m_copy.assign(elements, elements + count);
            m_data = m_copy.data();
        }
    }
    double const * data() const { return m_data; }

private:
    std::vector<double> m_copy;
    double const * m_data;
};

// The arrays of a matrix in the form with one row index. A matrix of other making, whose rows do not follow
// one another, is compacted.
template <class T>
struct ContiguousMatrix
{
    explicit ContiguousMatrix(ICsrMatrix<T> const & matrix)
        : size(Detail::csrRowCount(matrix)), indexBase(matrix.getIndexBase())
    {
        check(Detail::isRowIndexComplete(matrix), LinSysFailure::incomplete);
        int const * const begin = matrix.getCsrPointerB();
        int const * const end = matrix.getCsrPointerE();
        if (end == begin + 1) {
            rowIndex = begin;
            columns = matrix.getCsrColumns();
            values = matrix.getCsrValues();
            nonZeros = matrix.getNonZeroValuesNumber();
            return;
        }
        ownRowIndex.push_back(indexBase);
        for (int row = 0; row < size; ++row) {
            ownColumns.insert(ownColumns.end(), matrix.getCsrColumns() + begin[row] - indexBase,
                              matrix.getCsrColumns() + end[row] - indexBase);
            ownValues.insert(ownValues.end(), matrix.getCsrValues() + begin[row] - indexBase,
                             matrix.getCsrValues() + end[row] - indexBase);
            ownRowIndex.push_back(static_cast<int>(ownColumns.size()) + indexBase);
        }
        rowIndex = ownRowIndex.data();
        columns = ownColumns.data();
        values = ownValues.data();
        nonZeros = static_cast<int>(ownColumns.size());
    }
    ContiguousMatrix(ContiguousMatrix const &) = delete;
    ContiguousMatrix & operator=(ContiguousMatrix const &) = delete;

    int size, indexBase, nonZeros = 0;
    int const * rowIndex = nullptr;
    int const * columns = nullptr;
    T const * values = nullptr;
    std::vector<int> ownRowIndex, ownColumns;
    std::vector<T> ownValues;
};

template <class T>
double largestDiagonalElement(ContiguousMatrix<T> const & matrix)
{
    double largest = 0.0;
    for (int row = 0; row < matrix.size; ++row) {
        int const * const begin = matrix.columns + matrix.rowIndex[row] - matrix.indexBase;
        int const * const end = matrix.columns + matrix.rowIndex[row + 1] - matrix.indexBase;
        int const * const diagonal = std::lower_bound(begin, end, row + matrix.indexBase);
        if (diagonal != end && *diagonal == row + matrix.indexBase)
            largest = std::max<double>(largest, matrix.values[diagonal - matrix.columns]);
    }
    return largest;
}

// |A x - b| <= limit |b|
template <class T>
bool isResidualBelow(double limit, ContiguousMatrix<T> const & matrix, bool upperOnly,
                     double const * solution, double const * rightPart)
{
    std::vector<double> residual(rightPart, rightPart + matrix.size);
    for (int row = 0; row < matrix.size; ++row)
        for (int position = matrix.rowIndex[row] - matrix.indexBase;
             position < matrix.rowIndex[row + 1] - matrix.indexBase; ++position) {
            int const column = matrix.columns[position] - matrix.indexBase;
            residual[asIndex(row)] -= matrix.values[position] * solution[column];
            if (upperOnly && column != row)
                residual[asIndex(column)] -= matrix.values[position] * solution[row];
        }
    double errorSquare = 0.0, square = 0.0;
    for (int row = 0; row < matrix.size; ++row) {
        errorSquare += residual[asIndex(row)] * residual[asIndex(row)];
        square += rightPart[row] * rightPart[row];
    }
    return std::sqrt(errorSquare) <= limit * std::sqrt(square);
}

} // namespace

template <class T>
bool CLinSysSolverSparseDss<T>::onSolveSystem(ILinearSystemReadOnly<T> const & system, int nRightParts,
                                              IVertexPosInformer<T> const ** informers,
                                              IEqSysResultReciever<T> ** recievers,
                                              CProgressCounter * progress)
{
    CPrgCntSubPhase preparation(progress, 0, 10, 0, true);
    if (!system.IsCorrectlyDefinedSystem()) {
        this->setFailure(Detail::whyUndefined(system));
        return false;
    }
    int const size = system.GetEquationsNumber();
    if (size == 0 || nRightParts <= 0)
        return true;
    std::optional<CCSRSquareMatrix<T>> copy;
    ICsrMatrix<T> const & matrix = Detail::asCsrOrCopy(system, st_iDssIndexBase, copy);
    if (matrix.getMatrixSize() != size) {
        this->setFailure(LinSysFailure::incomplete);
        return false;
    }

    std::size_t const rows = asIndex(size);
    std::vector<T> rightParts(rows * asIndex(nRightParts)), solutions(rightParts.size()), rightPart(rows);
    for (int part = 0; part < nRightParts; ++part) {
        system.SetSingleRightPart(rightPart.data(), *informers[part]);
        std::copy(rightPart.begin(), rightPart.end(),
                  rightParts.begin() + static_cast<std::ptrdiff_t>(rows) * part);
    }
    preparation.Finish();

    CPrgCntSubPhase solution(progress, 10, 90, 0, true);
    if (!solveForExplicitMatrixInternal(nRightParts, solutions.data(), matrix, system.isPositiveDefinite(),
                                        rightParts.data(), progress))
        return false;
    for (int part = 0; part < nRightParts; ++part)
        system.SetSingleSolution(solutions.data() + rows * asIndex(part), *recievers[part]);
    solution.Finish();
    return true;
}

template <class T>
bool CLinSysSolverSparseDss<T>::solveForExplicitMatrix(T * solution, ICsrMatrix<T> const & matrix,
                                                       bool positiveDefinite, T const * rightPart,
                                                       CProgressCounter * progress)
{
    return this->noteFailure([&] {
        return solveForExplicitMatrixInternal(1, solution, matrix, positiveDefinite, rightPart, progress);
    });
}

template <class T>
bool CLinSysSolverSparseDss<T>::solveForExplicitMatrixInternal(int nRightParts, T * solutions,
                                                               ICsrMatrix<T> const & matrix,
                                                               bool positiveDefinite, T const * rightParts,
                                                               CProgressCounter * progress)
{
    using QzBackend::CDirectSolver;
    m_conditionEstimate = 0;
    if (Detail::csrRowCount(matrix) == 0)
        return true;
    try {
        ContiguousMatrix<T> const arrays(matrix);
        bool const upperOnly = matrix.isUpperTriangleOnlyStored();
        CDirectSolver solver(upperOnly ? CDirectSolver::Structure::symmetricUpper
                                       : CDirectSolver::Structure::general,
                             positiveDefinite ? CDirectSolver::Definiteness::positiveDefinite
                                              : CDirectSolver::Definiteness::indefinite);
        check(solver.defineStructure(arrays.size, arrays.rowIndex, arrays.columns, arrays.nonZeros,
                                     arrays.indexBase),
              LinSysFailure::malformed);
        Widened<T> const values(arrays.values, asIndex(arrays.nonZeros));

        CPrgCntSubPhase ordering(progress, 0, 5, 0, true);
        check(solver.reorder(progress), LinSysFailure::unknown);
        ordering.Finish();

        CPrgCntSubPhase factorisation(progress, 5, 80, 0, true);
        double lift = 0;
        if (!solver.factor(values.data(), progress)) {
            std::size_t const nonZeros = asIndex(arrays.nonZeros);
            checkNumbers(positiveDefinite && m_semidefiniteLift > 0, values.data(), nonZeros);
            lift = m_semidefiniteLift * largestDiagonalElement(arrays);
            checkNumbers(solver.factor(values.data(), progress, lift), values.data(), nonZeros);
        }
        factorisation.Finish();

        std::size_t const rows = asIndex(arrays.size), elements = rows * asIndex(std::max(nRightParts, 0));
        std::vector<double> result(elements);
        CPrgCntSubPhase solution(progress, 85, 15, 0, true);
        Widened<T> const right(rightParts, elements);
        checkNumbers(solver.solve(right.data(), nRightParts, result.data(), progress), right.data(),
                     elements);
        for (std::size_t begin = 0; lift > 0 && begin < elements; begin += rows)
            check(isResidualBelow(liftedResidualLimit, arrays, upperOnly, result.data() + begin,
                                  right.data() + begin),
                  LinSysFailure::singular);
        if (m_isConditionEstimated)
            m_conditionEstimate = solver.conditionEstimate(values.data(), lift, progress);
        std::transform(result.begin(), result.end(), solutions, [](double element) { return T(element); });
        solution.Finish();
        return true;
    } catch (TF_MklDssError const & error) {
        this->setFailure(error.failure);
        return false;
    }
}

template class CLinSysSolverSparseDss<float>;
template class CLinSysSolverSparseDss<double>;
template class CLinSysSolverCompose<float, CCSRSstorage<float>, CLinSysSolverSparseDss<float>>;
template class CLinSysSolverCompose<double, CCSRSstorage<double>, CLinSysSolverSparseDss<double>>;

} // namespace REmath
