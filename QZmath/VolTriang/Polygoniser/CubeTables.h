// SPDX-License-Identifier: Apache-2.0
#pragma once

/// How the polygoniser cuts a cube. Corner n, 0 to 7, lies at (bit 2, bit 1, bit 0) of n.
namespace CubeCut
{

inline constexpr int tetrahedra[6][4] = {{0, 2, 4, 1}, {6, 2, 1, 4}, {6, 2, 3, 1},
                                         {6, 4, 1, 5}, {6, 1, 3, 5}, {6, 3, 7, 5}};

struct Face
{
    int step[3];
    int corners[4];
};
inline constexpr Face faces[6] = {{{-1, 0, 0}, {0, 1, 2, 3}}, {{1, 0, 0}, {4, 5, 6, 7}},
                                  {{0, -1, 0}, {0, 1, 4, 5}}, {{0, 1, 0}, {2, 3, 6, 7}},
                                  {{0, 0, -1}, {0, 2, 4, 6}}, {{0, 0, 1}, {1, 3, 5, 7}}};
inline constexpr int faceBit[6] = {2, 2, 1, 1, 0, 0};

// Ends of the six edges of a tetrahedron, as positions among its four corners.
inline constexpr int tetrahedronEdges[6][2] = {{0, 1}, {0, 2}, {0, 3}, {1, 2}, {1, 3}, {2, 3}};

// The edges of a tetrahedron whose ends differ in sign, in their order, by the signs of its corners.
struct Crossings
{
    int number = 0;
    int edges[4] = {};
};

struct CrossingTable
{
    constexpr CrossingTable()
    {
        for (int signs = 0; signs < 16; ++signs) {
            for (int edge = 0; edge < 6; ++edge) {
                int const first = signs >> (3 - tetrahedronEdges[edge][0]) & 1;
                int const second = signs >> (3 - tetrahedronEdges[edge][1]) & 1;
                if (first != second)
                    bySigns[signs].edges[bySigns[signs].number++] = edge;
            }
        }
    }
    Crossings bySigns[16] = {};
};
inline constexpr CrossingTable crossingTable;

// Triangles of a tetrahedron by the signs of its corners (the first corner is the highest bit), as numbers of
// its edges from 1; 0 stands for no triangle.
inline constexpr int triangles[16][2][3] = {
    {{0, 0, 0}, {0, 0, 0}}, {{5, 6, 3}, {0, 0, 0}}, {{2, 6, 4}, {0, 0, 0}}, {{3, 5, 4}, {3, 4, 2}},
    {{1, 4, 5}, {0, 0, 0}}, {{3, 1, 4}, {3, 4, 6}}, {{1, 2, 6}, {1, 6, 5}}, {{1, 2, 3}, {0, 0, 0}},
    {{1, 3, 2}, {0, 0, 0}}, {{1, 5, 6}, {1, 6, 2}}, {{1, 3, 6}, {1, 6, 4}}, {{1, 5, 4}, {0, 0, 0}},
    {{3, 2, 4}, {3, 4, 5}}, {{6, 2, 4}, {0, 0, 0}}, {{5, 3, 6}, {0, 0, 0}}, {{0, 0, 0}, {0, 0, 0}}};

// The signs of four corners, the first one highest.
inline int signsAt(int cubeSigns, int const (&corner)[4])
{
    return (cubeSigns >> corner[0] & 1) << 3 | (cubeSigns >> corner[1] & 1) << 2 |
           (cubeSigns >> corner[2] & 1) << 1 | (cubeSigns >> corner[3] & 1);
}

// The steps from the lexicographically smaller to the larger end of a tetrahedron's edge.
inline constexpr int edgeDirections = 7;
inline constexpr int edgeSteps[edgeDirections][3] = {{0, 0, 1},  {0, 1, 0},  {1, 0, 0}, {0, 1, -1},
                                                     {1, -1, 0}, {1, 0, -1}, {1, 1, -1}};

constexpr int edgeDirection(int di, int dj, int dk)
{
    for (int direction = 0; direction < edgeDirections; ++direction) {
        if (edgeSteps[direction][0] == di && edgeSteps[direction][1] == dj && edgeSteps[direction][2] == dk)
            return direction;
    }
    return -1;
}

// Where the vertex of the edge between two corners of a cube stands: in the record of the corner `first`,
// under `direction`, which is -1 for a pair that is no edge of a tetrahedron.
struct EdgePlace
{
    int first = 0;
    int direction = -1;
};

struct EdgePlaces
{
    constexpr EdgePlaces()
    {
        for (int a = 0; a < 8; ++a) {
            for (int b = 0; b < 8; ++b) {
                // Corner numbers order like the lexicographic order of the corners.
                int const low = a < b ? a : b;
                int const high = a < b ? b : a;
                places[a][b].first = low;
                places[a][b].direction =
                    edgeDirection((high >> 2 & 1) - (low >> 2 & 1), (high >> 1 & 1) - (low >> 1 & 1),
                                  (high & 1) - (low & 1));
            }
        }
    }
    EdgePlace places[8][8] = {};
};
inline constexpr EdgePlaces edgePlaces;

} // namespace CubeCut
