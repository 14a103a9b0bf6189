// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/LinSys/LinSysSolverCoreBicgstab.h>
#include <QZmath/LinSys/LinSysSolverDecomposed.h>
#include <QZmath/LinSys/LinSysSolverMKL.h>
#include <QZmath/LinSys/LinSysSolverSparse.h>
#include <QZmath/LinSys/SparseLinSysSolver.h>

#include <memory>
#include <vector>

#include <support/SolverSystems.h>

namespace testSupport
{

enum class Method
{
    direct,
    dense,
    iterative,    // gives false on a breakdown
    bestApproach, // delivers what it has
    decomposed
};

template <class T>
struct Solver
{
    Method method;
    std::unique_ptr<REmath::IVertexPosLinearSystem<T>> system;
};

/// Each solver that there is, once, for a system of `size` vertices.
template <class T>
std::vector<Solver<T>> everySolver(int size, int maxIterations = 1000)
{
    using namespace REmath;
    using Csr = CCSRSstorage<T>;
    std::vector<Solver<T>> result;
    result.push_back({Method::dense, std::make_unique<CLinSysSolverMKL<T>>()});
    result.push_back(
        {Method::dense, std::make_unique<CLinSysSolverCompose<T, Csr, CLinSysSolverCoreMkl<T>>>()});
    result.push_back({Method::direct, std::make_unique<CSparseLinSysSolver<T>>()});
    result.push_back({Method::direct, std::make_unique<CSparseStoreSparseLinSysSolver<T>>()});
    result.push_back(
        {Method::direct, std::make_unique<CLinSysSolverCompose<T, Csr, CLinSysSolverSparseDss<T>>>()});
    result.push_back(
        {Method::iterative, std::make_unique<CLinSysSolverCompose<T, Csr, CLinSysSolverCoreBicgstab<T>>>()});
    result.push_back({Method::bestApproach,
                      std::make_unique<CSparseStoreBicgstabLinSysSolver<T>>(3, T(1e-6), maxIterations)});
    result.push_back({Method::decomposed, std::make_unique<CLinSysSolverSpaceDecomposer<T>>(
                                              std::vector<int>{size / 2}, 1e-6, maxIterations)});
    return result;
}

} // namespace testSupport
