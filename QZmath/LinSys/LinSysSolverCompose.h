// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/LinSys/LinSysSolverCore.h>
#include <QZmath/LinSys/LinearSystem.h>

namespace REmath
{

/// A whole solver from a storage, which keeps vertices and equations, and a core, which solves. `Storage`
/// derives from `ILinearSystemStorage<T>`, can be made without arguments and copied; `Core` derives from
/// `ILinSysSolverCore<T>` and is made by `LinSysCoreDefaults` anew for each solve.
///
/// Everything about vertices and equations goes to the storage. The solver may be solved repeatedly.
template <class T, class Storage, class Core>
class QZMATH_API CLinSysSolverCompose : public IVertexPosLinearSystem<T>
{
public:
    CLinSysSolverCompose * Copy() const override;

    /// The storage, for what only it can do: bulk equations, reservation, scaling.
    Storage & getStorageRefMod() { return m_storage; }
    Storage const & getStorageRef() const { return m_storage; }

private:
    bool OnSolveSystem(int nRightParts, IVertexPosInformer<T> const ** informers,
                       IEqSysResultReciever<T> ** recievers, CProgressCounter * progress) override;
    void OnDefineFixedVertex(int vertex) override;
    void OnDefineFreeVertex(int vertex) override;
    void OnAddEquation(CVertexLinearCombination<T> const & equation) override;
    bool OnIsCorrectlyDefinedSystem() const override;
    bool OnIsSpoiled() const override;
    void onSetSymmetric(bool symmetric) override;
    bool onIsSymmetric() const override;
    bool onIsPositiveDefinite() const override;
    void onSetPositiveDefinite(bool positiveDefinite) override;
    T onGetFreeVertCoeff(int row, int column) const override;
    void onSetFixedVertCoeff(int row, int fixedIndex, T value) override;

    Storage m_storage;
};

template <class T, class Storage, class Core>
CLinSysSolverCompose<T, Storage, Core> * CLinSysSolverCompose<T, Storage, Core>::Copy() const
{
    return new CLinSysSolverCompose(*this);
}

template <class T, class Storage, class Core>
bool CLinSysSolverCompose<T, Storage, Core>::OnSolveSystem(int nRightParts,
                                                           IVertexPosInformer<T> const ** informers,
                                                           IEqSysResultReciever<T> ** recievers,
                                                           CProgressCounter * progress)
{
    Core core = LinSysCoreDefaults<Core>::make();
    ILinSysSolverCore<T> & solver = core;
    bool const succeeded = solver.solveSystem(m_storage, nRightParts, informers, recievers, progress);
    this->setFailure(solver.lastFailure());
    return succeeded;
}

template <class T, class Storage, class Core>
void CLinSysSolverCompose<T, Storage, Core>::OnDefineFixedVertex(int vertex)
{
    m_storage.DefineFixedVertex(vertex);
}

template <class T, class Storage, class Core>
void CLinSysSolverCompose<T, Storage, Core>::OnDefineFreeVertex(int vertex)
{
    m_storage.DefineFreeVertex(vertex);
}

template <class T, class Storage, class Core>
void CLinSysSolverCompose<T, Storage, Core>::OnAddEquation(CVertexLinearCombination<T> const & equation)
{
    m_storage.AddEquation(equation);
}

template <class T, class Storage, class Core>
bool CLinSysSolverCompose<T, Storage, Core>::OnIsCorrectlyDefinedSystem() const
{
    return m_storage.IsCorrectlyDefinedSystem();
}

template <class T, class Storage, class Core>
bool CLinSysSolverCompose<T, Storage, Core>::OnIsSpoiled() const
{
    return m_storage.IsSpoiled();
}

template <class T, class Storage, class Core>
void CLinSysSolverCompose<T, Storage, Core>::onSetSymmetric(bool symmetric)
{
    m_storage.setSymmetric(symmetric);
}

template <class T, class Storage, class Core>
bool CLinSysSolverCompose<T, Storage, Core>::onIsSymmetric() const
{
    return m_storage.isSymmetric();
}

template <class T, class Storage, class Core>
bool CLinSysSolverCompose<T, Storage, Core>::onIsPositiveDefinite() const
{
    return m_storage.isPositiveDefinite();
}

template <class T, class Storage, class Core>
void CLinSysSolverCompose<T, Storage, Core>::onSetPositiveDefinite(bool positiveDefinite)
{
    m_storage.setPositiveDefinite(positiveDefinite);
}

template <class T, class Storage, class Core>
T CLinSysSolverCompose<T, Storage, Core>::onGetFreeVertCoeff(int row, int column) const
{
    return m_storage.GetFreeVertCoeff(row, column);
}

template <class T, class Storage, class Core>
void CLinSysSolverCompose<T, Storage, Core>::onSetFixedVertCoeff(int row, int fixedIndex, T value)
{
    m_storage.SetFixedVertCoeff(row, fixedIndex, value);
}

} // namespace REmath
