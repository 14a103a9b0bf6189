// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Foundation/TriangleMesh.h>

class CProgressCounter;

namespace QZmath
{

class CallRecord;
class LocalCloud;
struct ReconstructionOptions;
struct ReconstructionReport;

/// Lengths that the stages go by.
struct CellSizes
{
    double spacing = 0;      ///< of the samples
    double leaf = 0;         ///< edge of a leaf cell
    double trimDistance = 0; ///< from the nearest sample, up to which the surface is supported
};

/// Makes of the mesh that the core has extracted the one that the user gets: boundary, components, fairing of
/// closed gaps, slivers, simplification, attributes, in this order. Lengths are local, those of the report
/// too.
void finishMesh(TriangleMesh & mesh, LocalCloud const & cloud, CellSizes const & cells,
                ReconstructionOptions const & options, ReconstructionReport & report, CallRecord & record,
                CProgressCounter * progress);

} // namespace QZmath
