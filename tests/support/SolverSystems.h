// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/LinSys/LinearSystem.h>

#include <cstddef>
#include <map>
#include <vector>

#include <support/SparseSystems.h>

/// Systems with one fixed vertex, stated through the solvers' own interface, and what is solved for.
namespace testSupport
{

/// Vertices 0 to size-1 are free, this one is fixed.
constexpr int fixedVertex = 1000000;

/// Positions by vertex, given or received.
template <class T>
class PositionMap : public REmath::IVertexPosInformer<T>, public REmath::IEqSysResultReciever<T>
{
public:
    T GetVertexPosition(int vertex) const override { return m_positions.at(vertex); }
    void SetVertexPosition(int vertex, T position) override { m_positions[vertex] = position; }
    std::map<int, T> m_positions;
};

template <class T>
class Receiver : public REmath::IEqSysResultReciever<T>
{
public:
    void SetVertexPosition(int vertex, T position) override
    {
        if (values.size() <= std::size_t(vertex))
            values.resize(std::size_t(vertex) + 1);
        values[std::size_t(vertex)] = double(position);
        ++calls;
    }
    std::vector<double> values;
    int calls = 0;
};

/// States matrix * x = right part for a fixed position of 1. `Builder` is a solver or a storage.
template <class T, class Builder>
void stateSystem(Builder & builder, DenseMatrix const & matrix, std::vector<double> const & right)
{
    for (int vertex = 0; vertex < matrix.size; ++vertex)
        builder.DefineFreeVertex(vertex);
    builder.DefineFixedVertex(fixedVertex);
    for (int row = 0; row < matrix.size; ++row) {
        REmath::CVertexLinearCombination<T> equation;
        equation.AddVertex(row, T(0));
        for (int column = 0; column < matrix.size; ++column)
            if (matrix(row, column) != 0.0)
                equation.AddVertex(column, T(matrix(row, column)));
        equation.AddVertex(fixedVertex, T(-right[std::size_t(row)]));
        builder.AddEquation(equation);
    }
}

/// Solutions for the fixed positions 1, 2, 3...; `solver` is anything that solves with these arguments.
template <class T, class Solve>
std::vector<Receiver<T>> solveFor(int rightParts, bool & succeeded, Solve solve)
{
    std::vector<PositionMap<T>> positions(static_cast<std::size_t>(rightParts));
    std::vector<Receiver<T>> receivers(positions.size());
    std::vector<REmath::IVertexPosInformer<T> const *> informerPointers;
    std::vector<REmath::IEqSysResultReciever<T> *> receiverPointers;
    for (std::size_t part = 0; part < positions.size(); ++part) {
        positions[part].SetVertexPosition(fixedVertex, T(part + 1));
        informerPointers.push_back(&positions[part]);
        receiverPointers.push_back(&receivers[part]);
    }
    succeeded = solve(rightParts, informerPointers.data(), receiverPointers.data());
    return receivers;
}

template <class T>
std::vector<Receiver<T>> solveWhole(REmath::IVertexPosLinearSystem<T> & solver, int rightParts,
                                    bool & succeeded, CProgressCounter * progress = nullptr)
{
    return solveFor<T>(rightParts, succeeded, [&](int count, auto informers, auto receivers) {
        return solver.SolveSystem(count, informers, receivers, progress);
    });
}

} // namespace testSupport
