// SPDX-License-Identifier: Apache-2.0
#include <QZmath/LinSys/SparseLinSysSolver.h>

#include <QZmath/LinSys/CsrMatrix.h>
#include <QZmath/LinSys/LinSysFailureDetail.h>

#include <cstdint>
#include <limits>

namespace REmath
{

namespace
{

// A system over sparse rows together with its compressed matrix. A core that takes compressed matrices finds
// it in the system and does without reading all n^2 elements one by one.
template <class T>
class CompressedSystem final : public ILinearSystemReadOnly<T>, public CCSRSquareMatrix<T>
{
public:
    using Storage = CVPLSstorage<T, CSparseVectorAsVPLSstorageRow>;

    explicit CompressedSystem(Storage const & storage) : m_storage(storage) {}

    // False when the matrix has more elements than one can count.
    bool compress()
    {
        int const size = m_storage.GetEquationsNumber();
        std::int64_t elements = 0;
        for (int row = 0; row < size; ++row)
            elements += m_storage.getRow(row)->GetNOfNonZeroElements();
        int const base = CLinSysSolverSparseDss<T>::st_iDssIndexBase;
        if (elements > std::numeric_limits<int>::max() - base)
            return false;
        CCSRSquareMatrixFiller<T> filler(this, size, static_cast<int>(elements), base, false);
        for (int row = 0; row < size; ++row) {
            CSparseVectorTmpl<T> const & elementsOfRow = *m_storage.getRow(row);
            for (int k = 0; k < elementsOfRow.GetNOfNonZeroElements(); ++k) {
                T value;
                int column;
                elementsOfRow.GetNonZeroElementAndPos(k, value, column);
                filler.pushByRawNextNonZeroElement(row + base, column + base, value);
            }
        }
        return true;
    }

private:
    bool onIsCorrectlyDefinedSystem() const override { return m_storage.IsCorrectlyDefinedSystem(); }
    void onSetSingleRightPart(T * rightPart, IVertexPosInformer<T> const & informer) const override
    {
        m_storage.SetSingleRightPart(rightPart, informer);
    }
    int onGetEquationsNumber() const override { return m_storage.GetEquationsNumber(); }
    T onScalarProductByMatrixRow(int row, int size, T const * vector) const override
    {
        return m_storage.ScalarProductByMatrixRow(row, size, vector);
    }
    T onGetFreeVertCoeff(int row, int column) const override
    {
        return m_storage.GetFreeVertCoeff(row, column);
    }
    void onSetSingleSolution(T const * solution, IEqSysResultReciever<T> & reciever) const override
    {
        m_storage.SetSingleSolution(solution, reciever);
    }
    bool onIsSymmetric() const override { return m_storage.isSymmetric(); }
    bool onIsPositiveDefinite() const override { return m_storage.isPositiveDefinite(); }

    Storage const & m_storage;
};

} // namespace

template <class T>
CSparseLinSysSolver<T> * CSparseLinSysSolver<T>::Copy() const
{
    return new CSparseLinSysSolver(*this);
}

template <class T>
bool CSparseLinSysSolver<T>::OnSolveSystem(int nRightParts, IVertexPosInformer<T> const ** informers,
                                           IEqSysResultReciever<T> ** recievers, CProgressCounter * progress)
{
    CompressedSystem<T> system(this->getStorageRef());
    CLinSysSolverSparseDss<T> core;
    if (!system.IsCorrectlyDefinedSystem()) {
        this->setFailure(Detail::whyUndefined<T>(this->getStorageRef()));
        return false;
    }
    if (!system.compress()) {
        this->setFailure(LinSysFailure::noMemory);
        return false;
    }
    bool const succeeded = core.solveSystem(system, nRightParts, informers, recievers, progress);
    this->setFailure(core.lastFailure());
    return succeeded;
}

template class CLinSysSolverCompose<float, CVPLSstorage<float, CSparseVectorAsVPLSstorageRow>,
                                    CLinSysSolverSparseDss<float>>;
template class CLinSysSolverCompose<double, CVPLSstorage<double, CSparseVectorAsVPLSstorageRow>,
                                    CLinSysSolverSparseDss<double>>;
template class CSparseLinSysSolver<float>;
template class CSparseLinSysSolver<double>;

} // namespace REmath
