// SPDX-License-Identifier: Apache-2.0
#include <QZmath/LinSys/LinSysSolverCoreMkl.h>

#include <QZmath/Foundation/Matrix.h>
#include <QZmath/LinSys/LinSysFailureDetail.h>

#include <QZsys/Progress.h>

namespace REmath
{

template <class T>
bool CLinSysSolverCoreMkl<T>::onSolveSystem(ILinearSystemReadOnly<T> const & system, int nRightParts,
                                            IVertexPosInformer<T> const ** informers,
                                            IEqSysResultReciever<T> ** recievers, CProgressCounter * progress)
{
    CPrgCntSubPhase fillPhase(progress, 0, 20, 0, true);
    if (!system.IsCorrectlyDefinedSystem()) {
        this->setFailure(Detail::whyUndefined(system));
        return false;
    }
    int const size = system.GetEquationsNumber();
    if (size == 0)
        return true;
    Matrix<T> rightParts(size, nRightParts);
    Matrix<T> solutions(size, nRightParts);
    bool isFinite = true;
    for (int part = 0; part < nRightParts; ++part) {
        system.SetSingleRightPart(rightParts[part], *informers[part]);
        isFinite &= Detail::areFinite(rightParts[part], static_cast<std::size_t>(size));
    }
    Matrix<T> freeMatrix(size, size);
    for (int column = size - 1; column >= 0; --column)
        for (int row = size - 1; row >= 0; --row) {
            T const element = system.GetFreeVertCoeff(row, column);
            freeMatrix.elem(row, column) = element;
            isFinite &= std::isfinite(element);
        }
    fillPhase.Finish();

    CPrgCntSubPhase solvePhase(progress, 20, 75, 0, true);
    if (!solveMat(freeMatrix, rightParts, solutions)) {
        this->setFailure(isFinite ? LinSysFailure::singular : LinSysFailure::notFinite);
        return false;
    }
    if (!isFinite)
        this->setFailure(LinSysFailure::notFinite);
    solvePhase.Finish();

    CPrgCntSubPhase deliveryPhase(progress, 95, 5, 0, true);
    for (int part = 0; part < nRightParts; ++part)
        system.SetSingleSolution(solutions[part], *recievers[part]);
    deliveryPhase.Finish();
    return true;
}

template class CLinSysSolverCoreMkl<float>;
template class CLinSysSolverCoreMkl<double>;
template class CLinSysSolverCompose<float, CCSRSstorage<float>, CLinSysSolverCoreMkl<float>>;
template class CLinSysSolverCompose<double, CCSRSstorage<double>, CLinSysSolverCoreMkl<double>>;

} // namespace REmath
