// SPDX-License-Identifier: Apache-2.0
#include <QZmath/LinSys/LinSysSolverCoreBicgstab.h>

#include <QZmath/LinSys/Bicgstab.h>
#include <QZmath/LinSys/LinSysFailureDetail.h>
#include <QZmath/LinSys/LinSysSolverCoreDetail.h>
#include <QZsys/Progress.h>

#include <vector>

namespace REmath
{
namespace
{

template <class T>
struct ProductContext
{
    ILinearSystemReadOnly<T> const & system;
    int size;
    Detail::IterationProgress progress;
};

template <class T>
void multiplyRows(void * context, T const * in, T * out)
{
    auto & product = *static_cast<ProductContext<T> *>(context);
    for (int row = 0; row < product.size; ++row)
        out[row] = product.system.ScalarProductByMatrixRow(row, product.size, in);
    product.progress.countProduct();
}

} // namespace

template <class T>
bool CLinSysSolverCoreBicgstab<T>::onSolveSystem(ILinearSystemReadOnly<T> const & system, int nRightParts,
                                                 IVertexPosInformer<T> const ** informers,
                                                 IEqSysResultReciever<T> ** recievers,
                                                 CProgressCounter * progress)
{
    if (!system.IsCorrectlyDefinedSystem()) {
        this->setFailure(Detail::whyUndefined(system));
        return false;
    }
    int const size = system.GetEquationsNumber();
    if (size == 0)
        return true;
    int expectedProducts = 1000;
    std::vector<T> rightPart(static_cast<std::size_t>(size)), solution(static_cast<std::size_t>(size));
    for (int part = 0; part < nRightParts; ++part) {
        CPrgCntSubPhase const phase(progress, static_cast<double>(part) / nRightParts, 1.0 / nRightParts, 1,
                                    true);
        system.SetSingleRightPart(rightPart.data(), *informers[part]);
        solution.assign(solution.size(), T(0));
        ProductContext<T> context{system, size, {progress, expectedProducts}};
        int const iterations =
            bicgstab(size, &multiplyRows<T>, &context, rightPart.data(), solution.data(), T(1e-6), -1);
        if (iterations < 0) {
            this->setFailure(LinSysFailure::notConverged);
            return false;
        }
        // A residual that is not a number ends the iteration too.
        if (!Detail::areFinite(solution.data(), solution.size()))
            this->setFailure(LinSysFailure::notConverged);
        expectedProducts = Detail::expectedAfter(iterations);
        system.SetSingleSolution(solution.data(), *recievers[part]);
    }
    return true;
}

template class CLinSysSolverCoreBicgstab<float>;
template class CLinSysSolverCoreBicgstab<double>;
template class CLinSysSolverCompose<float, CCSRSstorage<float>, CLinSysSolverCoreBicgstab<float>>;
template class CLinSysSolverCompose<double, CCSRSstorage<double>, CLinSysSolverCoreBicgstab<double>>;

} // namespace REmath
