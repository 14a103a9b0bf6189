// SPDX-License-Identifier: Apache-2.0
#include <QZmath/QZmath.h>

#include <cmath>
#include <cstdio>

struct Ends : REmath::IVertexPosInformer<double> // where the fixed vertices are
{
    double GetVertexPosition(int vertex) const override { return vertex == 0 ? 1.0 : 3.0; }
};

struct Chain : REmath::IEqSysResultReciever<double> // takes the free ones
{
    double position[10] = {};
    void SetVertexPosition(int vertex, double solved) override { position[vertex] = solved; }
};

int main()
{
    REmath::CSparseStoreSparseLinSysSolver<double> solver;
    for (int vertex = 1; vertex < 9; ++vertex)
        solver.DefineFreeVertex(vertex);
    solver.DefineFixedVertex(0);
    solver.DefineFixedVertex(9);
    for (int vertex = 1; vertex < 9; ++vertex) { // each lies midway between its neighbours
        REmath::CVertexLinearCombination<double> equation;
        equation.AddVertex(vertex, 2);
        equation.AddVertex(vertex - 1, -1);
        equation.AddVertex(vertex + 1, -1);
        solver.AddEquation(equation);
    }
    Ends ends;
    Chain chain;
    REmath::IVertexPosInformer<double> const * informers[] = {&ends};
    REmath::IEqSysResultReciever<double> * receivers[] = {&chain};
    bool const solved =
        solver.IsCorrectlyDefinedSystem() && solver.SolveSystem(1, informers, receivers, nullptr);
    std::printf("vertex 3 is at %g\n", chain.position[3]);
    return solved && std::fabs(chain.position[3] - (1.0 + 2.0 * 3 / 9)) < 1e-12 ? 0 : 1;
}
