// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <cstdint>
#include <vector>

namespace VolTr
{

/// What to do in a cube whose corners have certain signs, in the order of its tetrahedra: look up the
/// vertices of crossed edges, each once, and join them. Immutable.
struct CubePlan
{
    /// An edge of a tetrahedron, as the first tetrahedron that has it goes along it. Its place in tables is
    /// at the corner `first`, the lexicographically smaller end, under `direction` of `CubeCut::edgeSteps`.
    struct Edge
    {
        std::int8_t first;
        std::int8_t direction;
        std::int8_t from;
        std::int8_t to;
    };
    /// A triangle over three of the edges, or, where the second is negative, the look-up of the first.
    struct Operation
    {
        std::int8_t edges[3];
    };
    static constexpr int greatestEdges = 19;

    std::vector<Edge> edges;
    std::vector<Operation> operations;
    /// Of the surface in the cube, in faces of the cube: the length of the vector area of the triangles with
    /// their vertices in the middle of the edges. On average over the places of a plane it is 0.99 to 1.14 of
    /// the plane's, by the plane's direction.
    double area = 0.0;
};

/// \param signs bit n is set when corner n is positive
QZMATH_SISTER_API CubePlan const & cubePlanOf(int signs);

} // namespace VolTr
