// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/LinSys/LinSysSolverCore.h>
#include <QZmath/LinSys/LinearSystem.h>

namespace REmath
{

/// A complete solver from a storage, which keeps vertices and equations, and a core, which solves. `Storage`
/// is an `ILinearSystemStorage<T>`, `Core` an `ILinSysSolverCore<T>` that `LinSysCoreDefaults` can make.
///
/// May be solved repeatedly, with other fixed positions each time: solving changes nothing in the storage. A
/// value with deep copy; used by one thread at a time.
template <class T, class Storage, class Core>
class CLinSysSolverCompose : public IVertexPosLinearSystem<T>
{
public:
    CLinSysSolverCompose() = default;
    ~CLinSysSolverCompose() override = default;
    CLinSysSolverCompose(CLinSysSolverCompose const &) = default;
    CLinSysSolverCompose & operator=(CLinSysSolverCompose const &) = default;

    /// A copy of the concrete solver, owned by the caller.
    CLinSysSolverCompose * Copy() const override { return new CLinSysSolverCompose(*this); }

    Storage & getStorageRefMod() { return m_storage; }
    Storage const & getStorageRef() const { return m_storage; }

private:
    bool OnSolveSystem(int nRightParts, IVertexPosInformer<T> const ** informers,
                       IEqSysResultReciever<T> ** recievers, CProgressCounter * progress) override
    {
        Core core = LinSysCoreDefaults<Core>::make();
        return core.solveSystem(m_storage, nRightParts, informers, recievers, progress);
    }
    void OnDefineFixedVertex(int vertex) override { m_storage.DefineFixedVertex(vertex); }
    void OnDefineFreeVertex(int vertex) override { m_storage.DefineFreeVertex(vertex); }
    void OnAddEquation(CVertexLinearCombination<T> const & equation) override
    {
        m_storage.AddEquation(equation);
    }
    bool OnIsCorrectlyDefinedSystem() const override { return m_storage.IsCorrectlyDefinedSystem(); }
    bool OnIsSpoiled() const override { return m_storage.IsSpoiled(); }
    void onSetSymmetric(bool symmetric) override { m_storage.setSymmetric(symmetric); }
    bool onIsSymmetric() const override { return m_storage.isSymmetric(); }
    bool onIsPositiveDefinite() const override { return m_storage.isPositiveDefinite(); }
    void onSetPositiveDefinite(bool positiveDefinite) override
    {
        m_storage.setPositiveDefinite(positiveDefinite);
    }
    T onGetFreeVertCoeff(int row, int column) const override
    {
        return m_storage.GetFreeVertCoeff(row, column);
    }
    void onSetFixedVertCoeff(int row, int fixedIndex, T value) override
    {
        m_storage.SetFixedVertCoeff(row, fixedIndex, value);
    }

    Storage m_storage;
};

} // namespace REmath
