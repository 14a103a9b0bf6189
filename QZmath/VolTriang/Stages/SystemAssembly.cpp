// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Stages/SystemAssembly.h>

#include <QZmath/BlockProcessor/TransThreadPrgCntAdapter.h>
#include <QZmath/LinSys/CsrStorage.h>
#include <QZmath/LinSys/LinSysSolverDecomposed.h>
#include <QZmath/LinSys/LinSysSolverSparse.h>
#include <QZmath/VolTriang/InterlacedSupportIterator.h>
#include <QZmath/VolTriang/Kernels.h>
#include <QZmath/VolTriang/Octree.h>
#include <QZmath/VolTriang/ReconstructionReport.h>
#include <QZmath/VolTriang/ScalarProductHelper.h>
#include <QZmath/VolTriang/Stages/LogLine.h>
#include <QZmath/VolTriang/Stages/NormalizeByLast.h>
#include <QZmath/VolTriang/Stages/RunPhases.h>
#include <QZmath/VolTriang/Stages/SolverChoice.h>
#include <QZmath/VolTriang/Stages/SparseRowAccumulator.h>
#include <QZmath/VolTriang/Stages/StageContext.h>
#include <QZmath/VolTriang/VolTriangulationError.h>
#include <QZmath/VolTriang/VolTriangulationParams.h>

#include <QZsys/ParallelTasks.h>
#include <QZsys/Progress.h>
#include <QZsys/Threads.h>

#include <algorithm>
#include <climits>
#include <utility>

namespace VolTr
{

using REmath::CLinSysSolverSpaceDecomposer;
using REmath::CSparseStoreBicgstabLinSysSolver;
using REmath::CSparseStoreSparseLinSysSolver;

tf_IMatrixMemoryReservator::~tf_IMatrixMemoryReservator() = default;
tf_ISystemSolveDetails::~tf_ISystemSolveDetails() = default;

namespace
{

using ProductHelper = CCSFProductHelperTmpl<Kernel>;

char const * const tooLargeError = "System is too large for 32-bit indices";

template <class TSolver>
class tf_CSparseMatrixReservator final : public tf_IMatrixMemoryReservator
{
public:
    tf_CSparseMatrixReservator(TSolver * solver, int systemSize)
        : m_solver(solver), m_systemSize(systemSize), m_elementsNumber(0)
    {}

    int reservationRow() const override { return 0; }
    void addRowElements(int count) override { m_elementsNumber += count; }
    void reserveMemory() override { getStorage().reserveMatrixMemory(expectedElements()); }
    std::int64_t expectedElements() const override { return m_systemSize * expectedElementsPerRow; }
    std::int64_t elementsNumber() const override { return m_elementsNumber; }
    void normalizeSystem(VsUt::IDebugLog * log) override
    {
        logValues(log, "System normalized by factor", getStorage().normalizeSystemMatrix());
    }
    REmath::CCSRSstorage<double> & getStorage() override { return m_solver->getStorageRefMod(); }

private:
    TSolver * m_solver;
    int m_systemSize;
    std::int64_t m_elementsNumber;
};

// A solver that has no details to tell: it is exact.
class tf_CNullSolveDetails final : public tf_ISystemSolveDetails
{
public:
    void logDetails(VsUt::IDebugLog *, CReconstructionReport & report) override { report.converged = true; }
};

template <class TSolver>
class tf_CIterativeSolverDetails final : public tf_ISystemSolveDetails
{
public:
    explicit tf_CIterativeSolverDetails(TSolver const * solver) : m_solver(solver) {}

    void logDetails(VsUt::IDebugLog * log, CReconstructionReport & report) override
    {
        report.iterations = m_solver->getIterationsUsed();
        report.converged = !m_solver->isIterationLimitReached();
        report.relativeResidual = m_solver->getRelativeResidual();
        logValues(log, "Iterations used", report.iterations);
        if (!report.converged)
            logValues(log, "Iteration limit reached without convergence, relative residual",
                      report.relativeResidual);
    }

private:
    TSolver const * m_solver;
};

template <class TSolver>
void setSolver(ReconstructionSolver & system, std::unique_ptr<TSolver> solver, int unknowns)
{
    system.matrixReservator = std::make_unique<tf_CSparseMatrixReservator<TSolver>>(solver.get(), unknowns);
    system.solver = std::move(solver);
}

// The right part: the divergence of the field, tested with every basis function.
class tf_rigthPartMaker final : public IVescaInvokeProc
{
public:
    tf_rigthPartMaker(std::vector<double> & result, VectorField const & field,
                      GradientBasis const & gradBasis, Basis const & basis, VsUt::IDebugLog * log)
        : m_result(result), m_field(field), m_gradBasis(gradBasis), m_basis(basis), m_log(log),
          m_adapter(nullptr)
    {}

    void setAdapter(CTransThreadPrgCntAdapter * adapter) { m_adapter = adapter; }
    void Invoke() override { make(nullptr); }

    void make(CProgressCounter * progress)
    {
        int const unknowns = m_basis.getFunctionsNumber();
        logValues(m_log, "System size", unknowns);
        m_result.assign(static_cast<std::size_t>(unknowns), 0.0);
        // One helper per axis: the derivative along each axis has the same
        // one-variable factors on swapped axes.
        int const parity[3] = {-1, 1, 1};
        std::vector<ProductHelper> helpers;
        helpers.reserve(3);
        for (int axis = 0; axis < 3; ++axis) {
            helpers.emplace_back(&m_basis, m_gradBasis[0].get(), BasisSymmetryNone, 6, parity);
            for (int swapped = 1; swapped <= axis; ++swapped)
                helpers.back().initWithVariablesSwap(swapped - 1, swapped, &m_basis,
                                                     m_gradBasis[static_cast<std::size_t>(swapped)].get());
        }
        int const coarsestDepth = coarsestDepthOfField();
        for (int row = 0; row < unknowns; ++row) {
            CPrgCntSubPhase rowPhase(progress, static_cast<double>(row) / unknowns, 1.0 / unknowns, 1, true);
            for (int axis = 0; m_adapter != nullptr && axis < 3; ++axis)
                m_adapter->increment();
            m_result[static_cast<std::size_t>(row)] = makeRow(row, helpers, coarsestDepth);
        }
        logValues(m_log, "Right part normalized by factor", normalizeByLast(m_result));
        logValues(m_log, "Right part scalar product cash size", helpers.front().cashSize());
    }

private:
    // Samples are splatted on the deepest depths, so the field is 0 on all coarser ones.
    int coarsestDepthOfField() const
    {
        COctree const & octree = m_basis.getOctreeRef();
        int coarsest = octree.getNodeDepthEnd();
        for (int node = 0; node < octree.getNodesNumber(); ++node) {
            bool isUsed = false;
            for (auto const & component : m_field)
                isUsed = isUsed || component->getBasisCoefficient(node) != 0.0;
            if (isUsed)
                coarsest = std::min(coarsest, octree.getNodeDepth(node));
        }
        return coarsest;
    }

    // The products of a function with the three components of the field, each summed up by itself. One walk
    // serves all three: the gradient bases stand on the same nodes with the same supports.
    double makeRow(int row, std::vector<ProductHelper> & helpers, int coarsestDepth)
    {
        CCSFunc3Tmpl<Kernel> const function = m_basis.makeFunctionByIndex(row);
        double sums[3] = {0.0, 0.0, 0.0};
        for (CInterlacedSupportIteratorTmpl<Kernel> it(
                 m_gradBasis[0].get(), getScaledFunctionCommonSupport(function), coarsestDepth);
             !it.isFinished(); it.next()) {
            int const node = it.functionIndex();
            for (std::size_t axis = 0; axis < 3; ++axis) {
                double const coefficient = m_field[axis]->getBasisCoefficient(node);
                if (coefficient != 0.0)
                    sums[axis] += helpers[axis].evalScalarProduct(function, *it) * coefficient;
            }
        }
        return sums[0] + sums[1] + sums[2];
    }

    std::vector<double> & m_result;
    VectorField const & m_field;
    GradientBasis const & m_gradBasis;
    Basis const & m_basis;
    VsUt::IDebugLog * m_log;
    CTransThreadPrgCntAdapter * m_adapter;
};

// The upper triangle of the stiffness matrix, row by row into the solver's storage.
class tf_matrixMaker final : public IVescaInvokeProc
{
public:
    tf_matrixMaker(ReconstructionSolver & system, Basis const & basis, COctree const & octree,
                   VsUt::IDebugLog * log)
        : m_solver(*system.solver), m_reservator(*system.matrixReservator), m_basis(basis), m_octree(octree),
          m_log(log), m_adapter(nullptr), m_row(basis.getFunctionsNumber())
    {}

    void setAdapter(CTransThreadPrgCntAdapter * adapter) { m_adapter = adapter; }
    void Invoke() override { make(nullptr); }

    void make(CProgressCounter * progress)
    {
        REmath::CCSRSstorage<double> & storage = m_reservator.getStorage();
        m_solver.setSymmetric(true);
        m_solver.setPositiveDefinite(true);

        Kernel laplacian;
        m_basis.getSamplePtr()->makeLaplacian(&laplacian);
        Basis const laplacianBasis(laplacian, &m_octree, 2);
        int const parity[3] = {1, 1, 1};
        ProductHelper helper(&m_basis, &laplacianBasis, BasisSymmetryFull, 7, parity);

        // Nodes of coarse depths come early, so most rows need none of them: their columns
        // stand left of the diagonal.
        std::vector<int> const lastNodes = lastNodesByDepth();
        int const unknowns = m_basis.getFunctionsNumber();
        for (int vertex = 0; vertex < unknowns; ++vertex)
            m_solver.DefineFreeVertex(vertex);
        // The one fixed vertex carries the right part as its coefficients; its position is 1.
        m_solver.DefineFixedVertex(unknowns);

        for (int row = 0; row < unknowns; ++row) {
            CPrgCntSubPhase rowPhase(progress, static_cast<double>(row) / unknowns, 1.0 / unknowns, 1, true);
            if (m_adapter != nullptr)
                m_adapter->increment();
            int coarsestDepth = m_octree.getNodeDepthBegin();
            while (lastNodes[static_cast<std::size_t>(coarsestDepth)] < row)
                ++coarsestDepth;
            makeRow(row, laplacianBasis, helper, coarsestDepth);
            int const count = static_cast<int>(m_values.size());
            m_reservator.addRowElements(count);
            if (m_reservator.elementsNumber() > INT_MAX)
                throw CVolTriangulationError(tooLargeError);
            if (row == m_reservator.reservationRow()) {
                logValues(m_log, "Reserving memory for system matrix, elements expected",
                          m_reservator.expectedElements());
                m_reservator.reserveMemory();
            }
            storage.addEquationFreePartNoAliases(row, count, m_values.data(), m_columns.data());
        }
        m_solver.IsCorrectlyDefinedSystem();

        double const elements = static_cast<double>(m_reservator.elementsNumber());
        logValues(m_log, "Matrix scalar product cash size", helper.cashSize());
        logValues(m_log, "Non zero elements in system", m_reservator.elementsNumber());
        logValues(m_log, "Average non-zero elements per line", unknowns > 0 ? elements / unknowns : 0.0);
        logValues(m_log, "System symmetric", m_solver.isSymmetric());
        logValues(m_log, "System positive definite", m_solver.isPositiveDefinite());
    }

private:
    // The greatest node index of each depth.
    std::vector<int> lastNodesByDepth() const
    {
        std::vector<int> last(static_cast<std::size_t>(m_octree.getNodeDepthEnd()), -1);
        for (int node = 0; node < m_octree.getNodesNumber(); ++node)
            last[static_cast<std::size_t>(m_octree.getNodeDepth(node))] = node;
        return last;
    }

    // The elements on and right of the diagonal, by ascending column.
    void makeRow(int row, Basis const & laplacianBasis, ProductHelper & helper, int coarsestDepth)
    {
        CCSFunc3Tmpl<Kernel> const function = m_basis.makeFunctionByIndex(row);
        CParallelepiped const box = getScaledFunctionCommonSupport(function);
        for (CInterlacedSupportIteratorTmpl<Kernel> it(&laplacianBasis, box, coarsestDepth); !it.isFinished();
             it.next()) {
            int const column = it.functionIndex();
            if (column < row)
                continue;
            double const value = 0.0 - helper.evalScalarProduct(function, *it);
            if (value != 0.0)
                m_row.insert(column, value);
        }
        m_row.moveTo(m_columns, m_values);
    }

    REmath::IVertexPosLinearSystem<double> & m_solver;
    tf_IMatrixMemoryReservator & m_reservator;
    Basis const & m_basis;
    COctree const & m_octree;
    VsUt::IDebugLog * m_log;
    CTransThreadPrgCntAdapter * m_adapter;
    SparseRowAccumulator m_row;
    std::vector<double> m_values;
    std::vector<int> m_columns;
};

} // namespace

ReconstructionSolver chooseSolver(StageContext const & context)
{
    using Solver = CReconstructionReport::Solver;
    VsUt::IDebugLog * const log = context.log;
    int const unknowns = context.octree.getNodesNumber();
    int const prefferedSolver = context.params.getPrefferedSolver();
    Solver const kind = solverOf(prefferedSolver, unknowns);
    if (kind == Solver::none) {
        logValues(log, "Error unexpected solver type", prefferedSolver);
        throw CVolTriangulationError("Unexpected solver type");
    }
    context.report.solver = kind;

    ReconstructionSolver system;
    system.solveDetails = std::make_unique<tf_CNullSolveDetails>();
    if (kind == Solver::direct) {
        auto solver = std::make_unique<CSparseStoreSparseLinSysSolver<double>>(0);
        // A kernel scale of exactly 1, or none, makes coarse functions sums of finer ones: the matrix is
        // semidefinite then, and any of its solutions gives the surface.
        solver->setSemidefiniteLift(1e-13);
        setSolver(system, std::move(solver), unknowns);
        logText(log, "Use CSparseStoreSparseLinSysSolver");
    } else if (kind == Solver::iterative) {
        double const tolerance = 1e-6;
        int const maxIterations = 3000;
        auto solver =
            std::make_unique<CSparseStoreBicgstabLinSysSolver<double>>(-1, tolerance, maxIterations);
        system.solveDetails =
            std::make_unique<tf_CIterativeSolverDetails<CSparseStoreBicgstabLinSysSolver<double>>>(
                solver.get());
        setSolver(system, std::move(solver), unknowns);
        logText(log, "Use CSparseStoreBicgstabLinSysSolver<double>");
        logValues(log, "Maximal allowed iterations", maxIterations);
        logValues(log, "Tolerance", tolerance);
    } else {
        // Nodes are numbered as the samples touch them, so a cut by index is a cut in
        // space for scans in order.
        std::int64_t const size = unknowns;
        std::vector<int> const splits = {static_cast<int>(size / 4), static_cast<int>(2 * size / 4),
                                         static_cast<int>(3 * size / 4)};
        auto solver = std::make_unique<CLinSysSolverSpaceDecomposer<double>>(splits, 1e-6, 10000);
        system.solveDetails =
            std::make_unique<tf_CIterativeSolverDetails<CLinSysSolverSpaceDecomposer<double>>>(solver.get());
        setSolver(system, std::move(solver), unknowns);
        logText(log, "Use CLinSysSolverSpaceDecomposer<double>");
    }
    if (system.matrixReservator->expectedElements() > INT_MAX)
        throw CVolTriangulationError(tooLargeError);
    return system;
}

void assembleSystem(StageContext const & context, GradientBasis const & gradBasis, VectorField const & field,
                    ReconstructionSolver & system, RunPhases & phases)
{
    CProgressCounter * const progress = context.progress;
    std::vector<double> right;
    tf_rigthPartMaker rightPartMaker(right, field, gradBasis, context.basis, context.log);
    tf_matrixMaker matrixMaker(system, context.basis, context.octree, context.log);
    if (context.threads < 2) {
        {
            RunPhases::Scope phase(phases, "right_part");
            rightPartMaker.make(progress);
        }
        RunPhases::Scope phase(phases, "matrix");
        matrixMaker.make(progress);
    } else {
        RunPhases::Scope phase(phases, "matrix+right_part");
        std::int64_t const steps = 4 * static_cast<std::int64_t>(context.octree.getNodesNumber());
        CTransThreadPrgCntAdapter adapter;
        adapter.refresh(progress, static_cast<int>(std::min<std::int64_t>(steps, INT_MAX)));
        rightPartMaker.setAdapter(&adapter);
        matrixMaker.setAdapter(&adapter);
        IVescaInvokeProc * tasks[] = {&rightPartMaker, &matrixMaker};
        CVescaThreadingTasksHelper::performInParallel(tasks, 2, &adapter);
    }

    context.report.matrixElements = system.matrixReservator->elementsNumber();
    RunPhases::Scope phase(phases, "update right part");
    int const unknowns = static_cast<int>(right.size());
    for (int row = 0; row < unknowns; ++row) {
        if (progress != nullptr)
            progress->SetPosFloat(static_cast<double>(row) / unknowns);
        system.solver->SetFixedVertCoeff(row, 0, right[static_cast<std::size_t>(row)]);
    }
}

std::unique_ptr<Combination> solveEquation(StageContext const & context, ReconstructionSolver system)
{
    VsUt::IDebugLog * const log = context.log;
    class LC_RightPartSetter final : public REmath::IVertexPosInformer<double>
    {
    public:
        double GetVertexPosition(int) const override { return 1.0; }
    };
    class LC_SolutionReceiver final : public REmath::IEqSysResultReciever<double>
    {
    public:
        explicit LC_SolutionReceiver(Combination & solution) : m_solution(solution) {}
        void SetVertexPosition(int vertex, double position) override
        {
            m_solution.setBasisCoefficient(vertex, position);
        }

    private:
        Combination & m_solution;
    };

    logText(log, "Trying to solve linear system...");
    auto solution = std::make_unique<Combination>(&context.basis);
    system.matrixReservator->normalizeSystem(log);
    LC_RightPartSetter const setter;
    LC_SolutionReceiver receiver(*solution);
    REmath::IVertexPosInformer<double> const * informers[] = {&setter};
    REmath::IEqSysResultReciever<double> * recievers[] = {&receiver};
    if (!system.solver->SolveSystem(1, informers, recievers, context.progress)) {
        char const * const text = "Failed to solve linear system";
        logText(log, text);
        throw CVolTriangulationError(text);
    }
    system.solveDetails->logDetails(log, context.report);
    system.solveDetails.reset();
    system.matrixReservator.reset();
    system.solver.reset();
    logText(log, "Linear system solved");
    return solution;
}

} // namespace VolTr
