// SPDX-License-Identifier: Apache-2.0
#include <QZmath/LinSys/LinSysSolverSparse.h>

namespace REmath
{

template <class T>
CSparseStoreSparseLinSysSolver<T>::CSparseStoreSparseLinSysSolver(int expectedElementsPerLine)
{
    this->getStorageRefMod().setIndexBase(CSR_INDEX_BASE_1);
    if (expectedElementsPerLine > 0)
        this->getStorageRefMod().setExpectedElementsPerLine(expectedElementsPerLine);
}

template <class T>
CSparseStoreSparseLinSysSolver<T> * CSparseStoreSparseLinSysSolver<T>::Copy() const
{
    return new CSparseStoreSparseLinSysSolver(*this);
}

template <class T>
void CSparseStoreSparseLinSysSolver<T>::reserveMemory(int count)
{
    if (count > 0)
        this->getStorageRefMod().reserveMatrixMemory(count);
}

template <class T>
bool CSparseStoreSparseLinSysSolver<T>::OnSolveSystem(int nRightParts,
                                                      IVertexPosInformer<T> const ** informers,
                                                      IEqSysResultReciever<T> ** recievers,
                                                      CProgressCounter * progress)
{
    CLinSysSolverSparseDss<T> core;
    core.setSemidefiniteLift(m_semidefiniteLift);
    core.setConditionEstimated(m_isConditionEstimated);
    m_conditionEstimate = 0;
    bool const succeeded =
        core.solveSystem(this->getStorageRef(), nRightParts, informers, recievers, progress);
    this->setFailure(core.lastFailure());
    m_conditionEstimate = core.getConditionEstimate();
    return succeeded;
}

template <class T>
CSparseStoreBicgstabLinSysSolver<T>::CSparseStoreBicgstabLinSysSolver(int expectedElementsPerLine, T eps,
                                                                      int maxIterations)
    : m_eps(eps), m_maxIterations(maxIterations)
{
    this->getStorageRefMod().setIndexBase(CSR_INDEX_BASE_0);
    if (expectedElementsPerLine > 0)
        this->getStorageRefMod().setExpectedElementsPerLine(expectedElementsPerLine);
}

template <class T>
CSparseStoreBicgstabLinSysSolver<T> * CSparseStoreBicgstabLinSysSolver<T>::Copy() const
{
    return new CSparseStoreBicgstabLinSysSolver(*this);
}

template <class T>
bool CSparseStoreBicgstabLinSysSolver<T>::OnSolveSystem(int nRightParts,
                                                        IVertexPosInformer<T> const ** informers,
                                                        IEqSysResultReciever<T> ** recievers,
                                                        CProgressCounter * progress)
{
    CLinSysSolverSparseMKL<T> core(m_eps, m_maxIterations);
    bool const succeeded =
        core.solveSystem(this->getStorageRef(), nRightParts, informers, recievers, progress);
    this->m_report = core.getIterationReport();
    this->setFailure(core.lastFailure());
    if (!succeeded)
        this->m_report.iterationsUsed = -1;
    return succeeded;
}

template class CSparseStoreSparseLinSysSolver<float>;
template class CSparseStoreSparseLinSysSolver<double>;
template class CSparseStoreBicgstabLinSysSolver<float>;
template class CSparseStoreBicgstabLinSysSolver<double>;

} // namespace REmath
