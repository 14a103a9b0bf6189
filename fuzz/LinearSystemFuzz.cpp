// SPDX-License-Identifier: Apache-2.0

// Small linear systems through every solver: stated well or badly, with any numbers. A direct solve that
// gives true has small residuals where rounding allows, one that gives false has a reason, and the same
// system gives the same bits again.

#include <QZmath/LinSys/CsrStorage.h>
#include <QZmath/LinSys/LinSysSolverCoreBicgstab.h>
#include <QZmath/LinSys/LinSysSolverDecomposed.h>
#include <QZmath/LinSys/LinSysSolverMKL.h>
#include <QZmath/LinSys/LinSysSolverSparse.h>
#include <QZmath/LinSys/SparseLinSysSolver.h>
#include <QZmath/LinSys/VPLSstorage.h>

#include "Input.h"

#include <memory>

namespace
{

using namespace qz_fuzz;
using namespace REmath;

constexpr int mostVertices = 7;
constexpr int fixedVertex = 100;

template <class T>
class Positions : public IVertexPosInformer<T>, public IEqSysResultReciever<T>
{
public:
    T given = 1;
    std::vector<T> values = std::vector<T>(mostVertices);
    int calls = 0;

private:
    T GetVertexPosition(int) const override { return given; }
    void SetVertexPosition(int vertex, T position) override
    {
        if (vertex >= 0 && vertex < mostVertices) // else one by misuse
            values[std::size_t(vertex)] = position;
        ++calls;
    }
};

struct System
{
    int size = 0;
    bool isSymmetric = false, isDefinite = false;
    double matrix[mostVertices][mostVertices] = {}, right[mostVertices] = {};
    bool isMisused = false, isGentle = false;
};

System drawSystem(Input & input)
{
    System system;
    int const kind = input.byte();
    system.isGentle = kind % 3 != 0;
    system.isMisused = kind % 7 == 0;
    system.isSymmetric = input.flag();
    system.isDefinite = input.byte() % 4 == 0;
    system.size = input.upTo(mostVertices);
    auto const element = [&] { return system.isGentle ? (input.byte() - 128) / 16.0 : input.number(); };
    for (int i = 0; i < system.size; ++i)
        for (int j = 0; j < system.size; ++j)
            system.matrix[i][j] = system.isSymmetric && j < i ? system.matrix[j][i]
                                  : input.byte() % 3 == 0     ? element()
                                                              : 0.0;
    bool const isDominant = input.flag();
    for (int i = 0; i < system.size; ++i) {
        for (int j = 0; isDominant && j < system.size; ++j)
            system.matrix[i][i] += j == i ? 1.0 : std::fabs(system.matrix[i][j]);
        system.right[i] = element();
    }
    return system;
}

template <class T>
void state(IVertexPosLinearSystem<T> & solver, System const & system, Input misuse)
{
    solver.setSymmetric(system.isSymmetric);
    solver.setPositiveDefinite(system.isDefinite);
    for (int vertex = 0; vertex < system.size; ++vertex)
        solver.DefineFreeVertex(vertex);
    solver.DefineFixedVertex(fixedVertex);
    for (int i = 0; i < system.size; ++i) {
        CVertexLinearCombination<T> equation;
        equation.AddVertex(i, T(0));
        for (int j = 0; j < system.size; ++j)
            if (system.matrix[i][j] != 0.0)
                equation.AddVertex(j, T(system.matrix[i][j]));
        equation.AddVertex(fixedVertex, T(-system.right[i]));
        if (system.isMisused) {
            switch (misuse.upTo(12)) {
            case 0:
                continue;
            case 1:
                solver.DefineFreeVertex(misuse.integer());
                break;
            case 2:
                solver.DefineFixedVertex(misuse.integer());
                break;
            case 3:
                equation.AddVertex(misuse.integer(), T(misuse.number()));
                break;
            case 4:
                solver.setSymmetric(misuse.flag());
                break;
            case 5:
                solver.SetFixedVertCoeff(misuse.integer(), misuse.integer(), T(misuse.number()));
                break;
            case 6:
                solver.AddEquation(equation);
                break;
            case 7:
                solver.GetFreeVertCoeff(misuse.integer(), misuse.integer());
                break;
            default:
                break;
            }
        }
        solver.AddEquation(equation);
    }
}

// The greatest residual in units of the terms of its row.
template <class T>
double residualOf(System const & system, Positions<T> const & positions)
{
    double greatest = 0, scale = 0, residual[mostVertices] = {};
    for (int i = 0; i < system.size; ++i) {
        double const right = double(T(system.right[i])) * double(positions.given);
        residual[i] = -right;
        scale = std::max(scale, std::fabs(right));
        for (int j = 0; j < system.size; ++j) {
            double const term = double(T(system.matrix[i][j])) * double(positions.values[std::size_t(j)]);
            residual[i] += term;
            scale = std::max(scale, std::fabs(term));
        }
        greatest = std::max(greatest, std::fabs(residual[i]));
    }
    return scale > 0 ? greatest / scale : 0.0;
}

template <class T>
void solve(IVertexPosLinearSystem<T> & solver, System const & system, bool isDirect)
{
    constexpr int parts = 2;
    Positions<T> first[parts], second[parts];
    auto const run = [&](Positions<T> * positions) {
        IVertexPosInformer<T> const * informers[parts];
        IEqSysResultReciever<T> * receivers[parts];
        for (int part = 0; part < parts; ++part) {
            positions[part].given = T(1 + part);
            informers[part] = &positions[part];
            receivers[part] = &positions[part];
        }
        return solver.SolveSystem(parts, informers, receivers, nullptr);
    };
    bool const isSolved = run(first);
    LinSysFailure const failure = solver.lastFailure();
    require(*failureText(failure) != '\0' || failure == LinSysFailure::none, "a failure has a text");
    require(isSolved || failure != LinSysFailure::none, "a failure has a reason");
    require(run(second) == isSolved && solver.lastFailure() == failure, "a system ends alike again");
    for (int part = 0; part < parts; ++part)
        require(Bits(first[part].values, first[part].calls) == Bits(second[part].values, second[part].calls),
                "a system has the same bits again");
    if (!isDirect)
        return;
    if (!isSolved) {
        require(first[0].calls == 0 && first[1].calls == 0, "a direct solver delivers all or nothing");
        return;
    }
    require(!solver.IsSpoiled() && solver.IsCorrectlyDefinedSystem(), "a spoiled system is not solved");
    for (Positions<T> const & positions : first) {
        require(positions.calls == system.size || system.isMisused, "each vertex gets its position");
        if (system.isGentle && !system.isMisused && failure == LinSysFailure::none)
            require(residualOf(system, positions) < (sizeof(T) == 4 ? 1e-3 : 1e-10),
                    "a direct solution solves the system");
    }
}

template <class T>
using Csr = CCSRSstorage<T>;
template <class T, template <class> class Row>
using Rows = CVPLSstorage<T, Row>;

template <class T>
std::unique_ptr<IVertexPosLinearSystem<T>> makeSolver(int which, int size, Input & input, bool & isDirect)
{
    isDirect = true;
    switch (which) {
    case 0:
        return std::make_unique<CLinSysSolverMKL<T>>();
    case 1:
        return std::make_unique<CSparseLinSysSolver<T>>();
    case 2: {
        auto solver = std::make_unique<CSparseStoreSparseLinSysSolver<T>>(input.integer() % 100);
        solver->reserveMemory(input.integer() % 1000);
        solver->getStorageRefMod().setIndexBase(input.upTo(1));
        return solver;
    }
    case 3:
        return std::make_unique<CLinSysSolverCompose<T, Csr<T>, CLinSysSolverCoreMkl<T>>>();
    case 4:
        return std::make_unique<
            CLinSysSolverCompose<T, Rows<T, CSparseVectorAsVPLSstorageRow>, CLinSysSolverCoreMkl<T>>>();
    case 5:
        return std::make_unique<
            CLinSysSolverCompose<T, Rows<T, CStdVectorAsVPLSstorageRow>, CLinSysSolverSparseDss<T>>>();
    default:
        break;
    }
    isDirect = false;
    T const eps = T(input.flag() ? input.number() : 1e-6);
    int const limit = 1 + input.byte();
    switch (which) {
    case 6:
        return std::make_unique<CSparseStoreBicgstabLinSysSolver<T>>(input.integer() % 100, eps, limit);
    case 7:
    case 8: {
        std::vector<int> boundaries;
        for (int k = input.upTo(4); k > 0; --k)
            boundaries.push_back(which == 7 ? input.upTo(size) : input.integer());
        if (which == 7)
            std::sort(boundaries.begin(), boundaries.end());
        return std::make_unique<CLinSysSolverSpaceDecomposer<T>>(boundaries, double(eps), limit);
    }
    case 9:
        return std::make_unique<CLinSysSolverCompose<T, Csr<T>, CLinSysSolverDecomposed<T>>>();
    case 10:
        return std::make_unique<
            CLinSysSolverCompose<T, Rows<T, CShiftedVectorAsVPLstorageRow>, CLinSysSolverCoreBicgstab<T>>>();
    default:
        return std::make_unique<CLinSysSolverCompose<T, Csr<T>, CLinSysSolverSparseMKL<T>>>();
    }
}

template <class T>
void check(Input & input)
{
    int const which = input.upTo(11);
    System const system = drawSystem(input);
    bool isDirect = false;
    std::unique_ptr<IVertexPosLinearSystem<T>> const solver =
        makeSolver<T>(which, system.size, input, isDirect);
    state(*solver, system, input);
    solve(*solver, system, isDirect);
    std::unique_ptr<IVertexPosLinearSystem<T>> const copy(solver->Copy());
    require(copy->IsSpoiled() == solver->IsSpoiled(), "a copy is as spoiled as its original");
    solve(*copy, system, isDirect);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size)
{
    Input input(data, size);
    if (input.flag())
        check<float>(input);
    else
        check<double>(input);
    return 0;
}
