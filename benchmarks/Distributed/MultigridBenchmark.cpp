// SPDX-License-Identifier: Apache-2.0

// The Laplace equation on a cube of points, by the direct, the iterative and the multigrid core. The first
// two work on rank 0 alone, with all its threads, the last one on all ranks:
//   mpirun -n 2 distributed_multigrid_benchmark [side]

#include <QZmath/Distributed/MultigridCore.h>
#include <QZmath/LinSys/BulkSystem.h>
#include <QZmath/LinSys/LinSysSolverSparseDss.h>
#include <QZmath/LinSys/LinSysSolverSparseMKL.h>

#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include <mpi.h>

namespace
{

using Clock = std::chrono::steady_clock;

int const largestDirectSide = 64; // the factor of a larger cube takes minutes and gigabytes

// Each point is coupled with its six neighbours; beyond the cube everything is zero.
void stateLaplacian(REmath::CBulkSystem<double> & system, int side)
{
    std::vector<int> points, columns;
    std::vector<std::int64_t> begins{0};
    std::vector<double> coeffs;
    for (int point = 0; point < side * side * side; ++point) {
        int const places[] = {point % side, point / side % side, point / (side * side)};
        int const steps[] = {1, side, side * side};
        points.push_back(point);
        columns.push_back(point);
        coeffs.push_back(6.0);
        for (int axis = 0; axis < 3; ++axis)
            if (places[axis] + 1 < side) { // by symmetry, the neighbours before follow
                columns.push_back(point + steps[axis]);
                coeffs.push_back(-1.0);
            }
        begins.push_back(static_cast<std::int64_t>(columns.size()));
    }
    system.defineFree(static_cast<std::int64_t>(points.size()), points.data());
    system.addEquations(static_cast<std::int64_t>(points.size()), begins.data(), columns.data(),
                        coeffs.data());
}

// |A x - b| / |b|
double residualOf(REmath::CBulkSystem<double> const & system, std::vector<double> const & solution,
                  std::vector<double> const & right)
{
    std::vector<double> product(right.size());
    REmath::MatrixMultVector<double>(system.equationCount(), product.data(), system.freeMatrix(),
                                     solution.data());
    double difference = 0.0, whole = 0.0;
    for (std::size_t k = 0; k < right.size(); ++k) {
        difference += (product[k] - right[k]) * (product[k] - right[k]);
        whole += right[k] * right[k];
    }
    return std::sqrt(difference / whole);
}

} // namespace

int main(int argc, char ** argv)
{
    MPI_Init(&argc, &argv);
    int rank = 0, ranks = 1;
    MPI_Comm_rank(MPI_COMM_WORLD, &rank);
    MPI_Comm_size(MPI_COMM_WORLD, &ranks);
    int const side = argc > 1 ? std::atoi(argv[1]) : 64;
    if (side < 1 || side > 400) {
        std::fprintf(stderr, "a side is 1 to 400 points\n");
        MPI_Abort(MPI_COMM_WORLD, 2);
    }
    REmath::CBulkSystem<double> system(true, true);
    stateLaplacian(system, side);
    std::vector<double> right(static_cast<std::size_t>(system.equationCount()));
    for (std::size_t point = 0; point < right.size(); ++point)
        right[point] = std::sin(0.7 * static_cast<double>(point % 1013));
    std::vector<double> solution(right.size());
    auto const solve = [&](char const * name, REmath::ILinSysSolverCore<double> & core,
                           int const * iterations) {
        auto const start = Clock::now();
        bool const succeeded = system.solve(core, 1, nullptr, right.data(), solution.data(), nullptr);
        double const seconds = std::chrono::duration<double>(Clock::now() - start).count();
        if (rank == 0)
            std::printf("%-10s %7.3f s  iterations %4d  residual %.1e%s\n", name, seconds,
                        iterations != nullptr ? *iterations : 0, residualOf(system, solution, right),
                        succeeded ? "" : "  FAILED");
        return succeeded;
    };
    bool succeeded = true;
    if (rank == 0) {
        std::printf("%d points, %d ranks\n", system.equationCount(), ranks);
        if (side <= largestDirectSide) {
            REmath::CLinSysSolverSparseDss<double> direct;
            succeeded = solve("direct", direct, nullptr);
        }
        REmath::CLinSysSolverSparseMKL<double> iterative(1e-9, 10000);
        REmath::IterationReport<double> const & report = iterative.getIterationReport();
        succeeded = solve("iterative", iterative, &report.iterationsUsed) && succeeded;
    }
    MPI_Barrier(MPI_COMM_WORLD);
    {
        QZmath::Distributed::MultigridCore<double> multigrid(MPI_COMM_WORLD, 1e-9);
        REmath::IterationReport<double> const & report = multigrid.getIterationReport();
        succeeded = solve("multigrid", multigrid, &report.iterationsUsed) && succeeded;
    }
    MPI_Finalize();
    return succeeded ? 0 : 1;
}
