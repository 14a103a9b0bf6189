// SPDX-License-Identifier: Apache-2.0
#include <python/src/Arrays.h>
#include <python/src/CallProgress.h>
#include <python/src/Subsystems.h>

#include <QZmath/LinSys/BulkSystem.h>
#include <QZmath/LinSys/LinSysSolverCoreMkl.h>
#include <QZmath/LinSys/LinSysSolverDecomposed.h>
#include <QZmath/LinSys/LinSysSolverSparseDss.h>
#include <QZmath/LinSys/LinSysSolverSparseMKL.h>

#include <pybind11/stl.h>

#include <algorithm>
#include <mutex>
#include <type_traits>

namespace qz_python
{

namespace
{

using REmath::BulkFault;

// A system, and the lock that lets several threads of Python hold it at once.
struct System
{
    System(bool symmetric, bool positiveDefinite) : system(symmetric, positiveDefinite) {}

    REmath::CBulkSystem<double> system;
    std::mutex mutex;
};

bool define(System & system, py::array const & vertices, bool isFree)
{
    int const * const numbers = numbersOf<int>(vertices, "vertices", -1, 0);
    std::int64_t const count = vertices.shape(0);
    Released const released;
    std::lock_guard<std::mutex> const held(system.mutex);
    return isFree ? system.system.defineFree(count, numbers) : system.system.defineFixed(count, numbers);
}

char const * textOf(BulkFault fault)
{
    switch (fault) {
    case BulkFault::badBegins:
        return "begins after it ends";
    case BulkFault::tooMany:
        return "is one more than there are free vertices, or there are too many coefficients";
    case BulkFault::unknownVertex:
        return "has a vertex that is neither free nor fixed";
    case BulkFault::noFreeVertex:
        return "has no free vertex";
    case BulkFault::notFinite:
        return "has a coefficient that is not finite";
    default:
        return "";
    }
}

// None, or the number of the first faulty equation and what is wrong with it.
py::object addEquations(System & system, py::array const & begins, py::array const & vertices,
                        py::array const & coeffs)
{
    std::int64_t const * const rows = numbersOf<std::int64_t>(begins, "indptr", -1, 0);
    int const * const terms = numbersOf<int>(vertices, "vertices", -1, 0);
    double const * const values = numbersOf<double>(coeffs, "coefficients", vertices.shape(0), 0);
    std::int64_t const count = begins.shape(0) - 1;
    if (count < 0 || rows[count] > vertices.shape(0))
        throw py::value_error("indptr reaches beyond the vertices");
    for (std::int64_t row = 0; row <= count; ++row)
        if (rows[row] < 0 || rows[row] > rows[count])
            return py::make_tuple(row, textOf(BulkFault::badBegins));
    BulkFault fault = BulkFault::none;
    std::int64_t equation = 0;
    {
        Released const released;
        std::lock_guard<std::mutex> const held(system.mutex);
        fault = system.system.addEquations(count, rows, terms, values, &equation);
    }
    if (fault == BulkFault::none)
        return py::none();
    return py::make_tuple(equation, textOf(fault));
}

// The solution or None, the reason, the iterations, and whether a limit was reached.
template <class Core>
py::tuple solveBy(Core & core, System & system, py::array const & fixedPositions,
                  py::object const & rightSides, int threads, py::object const & callback)
{
    using namespace REmath;
    auto const parts = fixedPositions.ndim() == 2 ? fixedPositions.shape(1) : 0;
    double const * const positions =
        numbersOf<double>(fixedPositions, "fixed", system.system.fixedCount(), parts);
    double const * const sides = numbersOrNull<double>(rightSides, "right", system.system.freeCount(), parts);
    py::array_t<double> solutions({py::ssize_t{system.system.freeCount()}, parts});
    double * const result = solutions.mutable_data();
    bool solved = false;
    CallProgress(callback).run(threads, [&](CProgressCounter & counter) {
        std::lock_guard<std::mutex> const held(system.mutex);
        solved = system.system.solve(core, static_cast<int>(parts), positions, sides, result, &counter);
    });
    int iterations = 0;
    double residual = 0;
    if constexpr (std::is_base_of_v<IterationReporter<double>, Core>) {
        iterations = core.getIterationsUsed();
        residual = core.getRelativeResidual();
    }
    LinSysFailure const failure = core.lastFailure();
    py::object const reason =
        failure == LinSysFailure::none ? py::object(py::none()) : py::object(py::str(failureText(failure)));
    return py::make_tuple(solved ? py::object(solutions) : py::object(py::none()), reason, iterations,
                          residual, failure == LinSysFailure::noMemory);
}

py::tuple solve(System & system, std::string const & solver, py::array const & fixedPositions,
                py::object const & rightSides, double tolerance, int mostIterations, double lift,
                std::vector<int> const & boundaries, int threads, py::object const & callback)
{
    using namespace REmath;
    if (solver == "direct") {
        CLinSysSolverSparseDss<double> core;
        core.setSemidefiniteLift(lift);
        return solveBy(core, system, fixedPositions, rightSides, threads, callback);
    }
    if (solver == "dense") {
        CLinSysSolverCoreMkl<double> core;
        return solveBy(core, system, fixedPositions, rightSides, threads, callback);
    }
    if (solver == "decomposing") {
        CLinSysSolverDecomposed<double> core(boundaries, tolerance, mostIterations);
        return solveBy(core, system, fixedPositions, rightSides, threads, callback);
    }
    CLinSysSolverSparseMKL<double> core(tolerance, mostIterations);
    return solveBy(core, system, fixedPositions, rightSides, threads, callback);
}

// Whoever waits for the lock must not hold the GIL, which the progress of a solve comes back for.
template <class Work>
auto locked(System & system, Work const & work)
{
    Released const released;
    std::lock_guard<std::mutex> const held(system.mutex);
    return work(system.system);
}

// Row begins, columns and values of the free and of the fixed matrix.
py::tuple matrices(System & system)
{
    struct Rows
    {
        std::vector<std::int64_t> begins;
        std::vector<int> columns;
        std::vector<double> values;

        py::tuple arrays()
        {
            return py::make_tuple(handOver(std::move(begins), 0), handOver(std::move(columns), 0),
                                  handOver(std::move(values), 0));
        }
    };
    auto copies = locked(system, [](REmath::CBulkSystem<double> const & from) {
        auto const & matrix = from.freeMatrix();
        int const count = matrix.getNonZeroValuesNumber(), size = std::max(matrix.getMatrixSize(), 0);
        Rows free{{0}, {}, {}};
        free.begins.insert(free.begins.end(), matrix.getCsrPointerE(), matrix.getCsrPointerE() + size);
        free.columns.assign(matrix.getCsrColumns(), matrix.getCsrColumns() + count);
        free.values.assign(matrix.getCsrValues(), matrix.getCsrValues() + count);
        return std::pair<Rows, Rows>(std::move(free),
                                     Rows{from.fixedBegins(), from.fixedColumns(), from.fixedValues()});
    });
    return py::make_tuple(copies.first.arrays(), copies.second.arrays());
}

int equationCount(System & system)
{
    return locked(system, [](REmath::CBulkSystem<double> const & from) { return from.equationCount(); });
}

} // namespace

void bindLinearSystems(py::module_ & module)
{
    py::class_<System>(module, "System")
        .def(py::init<bool, bool>(), py::arg("symmetric"), py::arg("positive_definite"))
        .def("define", &define, py::arg("vertices"), py::arg("is_free"))
        .def("add_equations", &addEquations, py::arg("indptr"), py::arg("vertices"), py::arg("coefficients"))
        .def("equation_count", &equationCount)
        .def("solve", &solve, py::arg("solver"), py::arg("fixed"), py::arg("right"), py::arg("tolerance"),
             py::arg("most_iterations"), py::arg("lift"), py::arg("boundaries"), py::arg("threads"),
             py::arg("callback"))
        .def("matrices", &matrices);
}

} // namespace qz_python
