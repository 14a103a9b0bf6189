// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/VolTriang/Polygoniser/CubeTables.h>
#include <QZmath/VolTriang/jbProcess.h>

#include <algorithm>
#include <iterator>

/// What the tables hold as a corner: also the vertices of the edges that begin at it, and whether the cube
/// whose corner 0 it is was seen. The walk has these records at hand anyway, while tables of their own would
/// cost a cache miss for each look-up.
struct jbProcess::Corner : jbCornerlist
{
    static constexpr int noVertex = -1;

    explicit Corner(jbCornerlist const & corner) : jbCornerlist(corner)
    {
        std::fill(std::begin(edgeVertices), std::end(edgeVertices), noVertex);
    }

    int edgeVertices[CubeCut::edgeDirections];
    int isCubeSeen = 0;
};
