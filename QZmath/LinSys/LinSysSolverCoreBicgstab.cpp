// SPDX-License-Identifier: Apache-2.0
#include <QZmath/LinSys/LinSysSolverCoreBicgstab.h>

#include <QZmath/LinSys/Bicgstab.h>
#include <QZmath/LinSys/IterativeSolveDetail.h>

#include <vector>

namespace REmath
{

namespace
{

template <class T>
struct RowProducts
{
    ILinearSystemReadOnly<T> const & system;
    int size;
    Detail::ProductProgress progress;

    static void multiply(void * context, T const * in, T * out)
    {
        RowProducts & self = *static_cast<RowProducts *>(context);
        for (int row = 0; row < self.size; ++row)
            out[row] = self.system.ScalarProductByMatrixRow(row, self.size, in);
        self.progress.afterProduct();
    }
};

} // namespace

template <class T>
CLinSysSolverCoreBicgstab<T>::CLinSysSolverCoreBicgstab() = default;
template <class T>
CLinSysSolverCoreBicgstab<T>::~CLinSysSolverCoreBicgstab() = default;

template <class T>
bool CLinSysSolverCoreBicgstab<T>::onSolveSystem(ILinearSystemReadOnly<T> const & system, int nRightParts,
                                                 IVertexPosInformer<T> const ** informers,
                                                 IEqSysResultReciever<T> ** recievers,
                                                 CProgressCounter * progress)
{
    if (!system.IsCorrectlyDefinedSystem())
        return false;
    int const size = system.GetEquationsNumber();
    if (size == 0)
        return true;
    int expected = Detail::expectedIterations;
    for (int part = 0; part < nRightParts; ++part) {
        CPrgCntSubPhase phase(progress, static_cast<double>(part) / nRightParts, 1.0 / nRightParts, 1, true);
        std::vector<T> rightPart(static_cast<std::size_t>(size), T(0));
        system.SetSingleRightPart(rightPart.data(), *informers[part]);
        std::vector<T> solution(static_cast<std::size_t>(size), T(0));
        RowProducts<T> products{system, size, Detail::ProductProgress(progress, expected)};
        int const iterations = bicgstab(size, &RowProducts<T>::multiply, &products, rightPart.data(),
                                        solution.data(), T(1e-6), -1);
        if (iterations < 0)
            return false;
        expected = Detail::expectedAfter(iterations);
        system.SetSingleSolution(solution.data(), *recievers[part]);
    }
    return true;
}

template class CLinSysSolverCoreBicgstab<float>;
template class CLinSysSolverCoreBicgstab<double>;

} // namespace REmath
