// SPDX-License-Identifier: Apache-2.0

// The Laplace equation on a square grid whose border is held fixed, solved for two borders at once by three
// solvers. The borders are those of polynomials for which the five-point formula is exact, so the solution is
// known: the polynomial inside, too.

#include <QZmath/QZmath.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>

namespace
{

constexpr int side = 60; // nodes along each axis; the outermost are the border

bool isOnBorder(int node)
{
    int const x = node % side, y = node / side;
    return x == 0 || y == 0 || x == side - 1 || y == side - 1;
}

// A polynomial without Laplacian as the source of the border and as the judge of the solution.
class Harmonic : public REmath::IVertexPosInformer<double>, public REmath::IEqSysResultReciever<double>
{
public:
    explicit Harmonic(double (*polynomial)(double, double)) : m_polynomial(polynomial) {}

    double GetVertexPosition(int node) const override
    {
        return m_polynomial(double(node % side) / side, double(node / side) / side);
    }
    void SetVertexPosition(int node, double position) override
    {
        m_largestError = std::max(m_largestError, std::fabs(position - GetVertexPosition(node)));
        ++m_solvedNodes;
    }
    double largestError() const
    {
        return m_solvedNodes == (side - 2) * (side - 2) ? m_largestError : INFINITY;
    }

private:
    double (*m_polynomial)(double, double);
    double m_largestError = 0;
    int m_solvedNodes = 0;
};

void stateLaplacian(REmath::IVertexPosLinearSystem<double> & solver)
{
    solver.setSymmetric(true); // the compressed storages keep one half then
    solver.setPositiveDefinite(true);
    for (int node = 0; node < side * side; ++node)
        isOnBorder(node) ? solver.DefineFixedVertex(node) : solver.DefineFreeVertex(node);
    for (int node = 0; node < side * side; ++node) {
        if (isOnBorder(node))
            continue;
        REmath::CVertexLinearCombination<double> equation;
        equation.AddVertex(node, 4);
        for (int neighbour : {node - side, node - 1, node + 1, node + side})
            equation.AddVertex(neighbour, -1);
        solver.AddEquation(equation);
    }
}

bool solveAndReport(char const * name, REmath::IVertexPosLinearSystem<double> & solver, double tolerance)
{
    stateLaplacian(solver);
    if (!solver.IsCorrectlyDefinedSystem())
        return false;
    Harmonic saddle([](double x, double y) { return x * x - y * y; });
    Harmonic cubic([](double x, double y) { return x * x * x - 3 * x * y * y + y; });
    REmath::IVertexPosInformer<double> const * borders[] = {&saddle, &cubic};
    REmath::IEqSysResultReciever<double> * solutions[] = {&saddle, &cubic};

    auto const start = std::chrono::steady_clock::now();
    bool const solved = solver.SolveSystem(2, borders, solutions, nullptr);
    std::chrono::duration<double, std::milli> const time = std::chrono::steady_clock::now() - start;
    double const error = std::max(saddle.largestError(), cubic.largestError());
    std::printf("%-12s %8.1f ms   largest error %.1e\n", name, time.count(), error);
    return solved && error < tolerance;
}

} // namespace

int main()
{
    // One factorisation for both borders.
    REmath::CSparseStoreSparseLinSysSolver<double> direct(3);
    // No memory beside the matrix but seven vectors.
    REmath::CSparseStoreBicgstabLinSysSolver<double> iterative(3, 1e-9, 10000);
    // Four strips of the grid, solved directly side by side and merged by iterations.
    int const unknowns = (side - 2) * (side - 2);
    REmath::CLinSysSolverSpaceDecomposer<double> decomposed({unknowns / 4, unknowns / 2, 3 * unknowns / 4},
                                                            1e-9, 10000);

    bool right = solveAndReport("direct", direct, 1e-11);
    right = solveAndReport("iterative", iterative, 1e-6) && right;
    right = solveAndReport("decomposed", decomposed, 1e-6) && right;
    return right ? 0 : 1;
}
