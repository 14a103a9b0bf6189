// SPDX-License-Identifier: Apache-2.0
#include <QZmath/LinSys/LinSysSolverCoreBicgstab.h>
#include <QZmath/LinSys/LinSysSolverCoreMkl.h>
#include <QZmath/LinSys/LinSysSolverDecomposed.h>
#include <QZmath/LinSys/LinSysSolverMKL.h>
#include <QZmath/LinSys/LinSysSolverSparse.h>
#include <QZmath/LinSys/SparseLinSysSolver.h>

#include <gtest/gtest.h>

#include <new>
#include <set>
#include <string>
#include <vector>

#include <support/SolverProperties.h>

namespace
{

using namespace testSupport;

template <class T>
Candidates<T> everySolver(int size)
{
    Candidates<T> result;
    add<CLinSysSolverMKL<T>>(result, "dense rows, ready", Method::direct);
    add<CSparseLinSysSolver<T>>(result, "sparse rows, ready", Method::direct);
    add<CSparseStoreSparseLinSysSolver<T>>(result, "csr direct, ready", Method::direct, 3);
    add<CSparseStoreBicgstabLinSysSolver<T>>(result, "csr iterative, ready", Method::iterative, 3, T(1e-6),
                                             5 * size);
    // Blocks that are not coupled would leave the merge nothing to do, which counts as a breakdown.
    std::vector<int> const boundaries = size < 4 ? std::vector<int>() : std::vector<int>{size / 2};
    add<CLinSysSolverSpaceDecomposer<T>>(result, "csr decomposed, ready", Method::iterative, boundaries,
                                         T(1e-6), 5 * size);
    addOverStorages<CLinSysSolverCoreMkl>(result, "dense core", Method::direct);
    addOverStorages<CLinSysSolverSparseDss>(result, "direct", Method::direct);
    addOverStorages<CLinSysSolverSparseMKL>(result, "iterative", Method::iterative);
    addOverStorages<CLinSysSolverCoreBicgstab>(result, "by products", Method::iterative);
    add<CLinSysSolverCompose<T, ShiftedRows<T>, CLinSysSolverCoreBicgstab<T>>>(
        result, "shifted rows, by products", Method::iterative);
    add<CLinSysSolverCompose<T, Csr<T>, CLinSysSolverDecomposed<T>>>(result, "csr, decomposed",
                                                                     Method::direct);
    return result;
}

template <class T>
struct OfThisLibrary
{
    using Scalar = T;
    static Candidates<T> everySolver(int size) { return ::everySolver<T>(size); }
};

using Solvers = testing::Types<OfThisLibrary<float>, OfThisLibrary<double>>;

} // namespace

namespace testSupport
{
INSTANTIATE_TYPED_TEST_SUITE_P(OfThisLibrary, SolverProperties, Solvers, );
}

TEST(LinSysFailure, DenseMatricesOfMoreElementsThanCanBeCountedFindNoMemory)
{
    CLinSysSolverCompose<float, Csr<float>, CLinSysSolverCoreMkl<float>> large;
    constexpr int vertices = 47000;
    for (int vertex = 0; vertex < vertices; ++vertex)
        large.DefineFreeVertex(vertex);
    for (int vertex = 0; vertex < vertices; ++vertex) {
        CVertexLinearCombination<float> equation;
        equation.AddVertex(vertex, 1.0f);
        large.AddEquation(equation);
    }
    EXPECT_THROW(large.SolveSystem(0, nullptr, nullptr, nullptr), std::bad_alloc);
    EXPECT_EQ(large.lastFailure(), LinSysFailure::noMemory);
}

TEST(LinSysFailure, EachHasWordsOfItsOwnAndSilentCoresHaveOne)
{
    struct Silent : ILinSysSolverCore<double>
    {
        bool onSolveSystem(ILinearSystemReadOnly<double> const &, int, IVertexPosInformer<double> const **,
                           IEqSysResultReciever<double> **, CProgressCounter *) override
        {
            return false;
        }
    } silent;
    EXPECT_FALSE(silent.solveSystem(Csr<double>(), 0, nullptr, nullptr, nullptr));
    EXPECT_EQ(silent.lastFailure(), LinSysFailure::unknown);
    std::set<std::string> texts;
    for (int failure = 0; failure <= int(LinSysFailure::unknown); ++failure)
        texts.insert(failureText(LinSysFailure(failure)));
    EXPECT_EQ(texts.size(), std::size_t(LinSysFailure::unknown) + 1);
}
