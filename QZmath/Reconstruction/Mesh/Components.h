// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/Foundation/TriangleMesh.h>

namespace QzBackend
{
class LoopTeam;
}

namespace QZmath::Stages
{

class SampleIndex;

struct ComponentRule
{
    bool keepAll = true;        ///< or only the one with most samples
    double smallest = 0;        ///< share of all triangles that a component must have, 0 to 1
    double supportDistance = 0; ///< from a sample, up to which it supports the surface; in model units
};

struct ComponentFindings
{
    int found = 0;
    int kept = 0;
    int dropped = 0;
};

/// Drops the pieces of a mesh that are too small or that fewer than four samples support, and with
/// `keepAll` false all but the one that most samples are nearest to (of several, the one with the least
/// vertex). What is left keeps its order. 4 bytes a vertex, and 30 more to count samples.
QZMATH_SISTER_API ComponentFindings keepComponents(TriangleMesh & mesh, SampleIndex const & samples,
                                                   ComponentRule const & rule, QzBackend::LoopTeam & team,
                                                   double until = 0);

} // namespace QZmath::Stages
