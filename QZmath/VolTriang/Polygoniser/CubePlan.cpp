// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Polygoniser/CubePlan.h>

#include <QZmath/VolTriang/Polygoniser/CubeTables.h>

#include <cmath>
#include <cstddef>

namespace VolTr
{

using namespace CubeCut;

namespace
{

struct CubePlans
{
    CubePlans()
    {
        for (int signs = 0; signs < 256; ++signs) {
            CubePlan & plan = bySigns[signs];
            double vectorArea[3] = {};
            for (int const(&corner)[4] : tetrahedra) {
                int const tetrahedronSigns = signsAt(signs, corner);
                Crossings const & crossings = crossingTable.bySigns[tetrahedronSigns];
                std::int8_t slots[6] = {};
                for (int n = 0; n < crossings.number; ++n) {
                    int const edge = crossings.edges[n];
                    slots[edge] =
                        slotOf(plan, corner[tetrahedronEdges[edge][0]], corner[tetrahedronEdges[edge][1]]);
                }
                for (int const(&triangle)[3] : triangles[tetrahedronSigns]) {
                    if (triangle[0] == 0)
                        continue;
                    plan.operations.push_back(
                        {{slots[triangle[0] - 1], slots[triangle[1] - 1], slots[triangle[2] - 1]}});
                    addArea(plan, plan.operations.back(), vectorArea);
                }
            }
            plan.area = 0.5 * std::hypot(vectorArea[0], vectorArea[1], vectorArea[2]);
        }
    }

    CubePlan bySigns[256];

private:
    // The slot of the edge between two corners, with its look-up at the first use.
    static std::int8_t slotOf(CubePlan & plan, int from, int to)
    {
        EdgePlace const & place = edgePlaces.places[from][to];
        std::size_t slot = 0;
        while (slot < plan.edges.size() &&
               (plan.edges[slot].first != place.first || plan.edges[slot].direction != place.direction))
            ++slot;
        if (slot == plan.edges.size()) {
            plan.edges.push_back({static_cast<std::int8_t>(place.first),
                                  static_cast<std::int8_t>(place.direction), static_cast<std::int8_t>(from),
                                  static_cast<std::int8_t>(to)});
            plan.operations.push_back({{static_cast<std::int8_t>(slot), -1, -1}});
        }
        return static_cast<std::int8_t>(slot);
    }

    // Adds twice the vector area of a triangle between the middles of its edges.
    static void addArea(CubePlan const & plan, CubePlan::Operation const & triangle, double (&sum)[3])
    {
        double points[3][3];
        for (int n = 0; n < 3; ++n) {
            CubePlan::Edge const & edge = plan.edges[static_cast<std::size_t>(triangle.edges[n])];
            for (int axis = 0; axis < 3; ++axis)
                points[n][axis] = 0.5 * ((edge.from >> (2 - axis) & 1) + (edge.to >> (2 - axis) & 1));
        }
        for (int axis = 0; axis < 3; ++axis) {
            int const u = (axis + 1) % 3;
            int const v = (axis + 2) % 3;
            sum[axis] += (points[1][u] - points[0][u]) * (points[2][v] - points[0][v]) -
                         (points[1][v] - points[0][v]) * (points[2][u] - points[0][u]);
        }
    }
};

} // namespace

CubePlan const & cubePlanOf(int signs)
{
    static CubePlans const plans;
    return plans.bySigns[signs];
}

} // namespace VolTr
