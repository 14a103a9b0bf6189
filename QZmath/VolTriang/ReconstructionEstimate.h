// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/VolTriang/ReconstructionReport.h>

#include <cstdint>

class CProgressCounter;

namespace VolTr
{

class CVolTriangulationParams;
class IInputSamples;

/// What a reconstruction will be like, known before it begins. Counts are exact but for the triangles; bytes
/// are what the run asks for at its peak beyond what the caller keeps: samples and mesh.
struct CReconstructionEstimate
{
    std::int64_t leafCells = 0; ///< that hold samples
    std::int64_t nodes = 0;
    std::int64_t unknowns = 0; ///< of the linear system: one for each node
    double triangles = 0;      ///< of a closed surface; a guess, within a factor of two
    /// Peak of the path that stores the system, with `solver`, the one that the parameters choose for it.
    double exactBytes = 0;
    CReconstructionReport::Solver solver = CReconstructionReport::Solver::none;
    /// Peak of the path without a matrix, whatever the parameters say.
    double acceleratedBytes = 0;
    /// The path that will be taken. If the accelerated one does not converge, the other one follows.
    CReconstructionReport::Path path = CReconstructionReport::Path::none;

    /// Peak of `path`.
    double peakBytes() const
    {
        return path == CReconstructionReport::Path::accelerated ? acceleratedBytes : exactBytes;
    }
};

/// Estimates what `CVolumetricTriangulator::run` makes and takes with these samples and parameters.
///
/// Bytes come within a quarter of what a run asks for, and within a tenth in most cases, on clean, noisy,
/// uneven and open clouds. What occupies the machine's memory can be a fifth less, since a part of it is not
/// touched.
///
/// Sorts the samples and counts the nodes as the tree does, on all threads, and so takes about as long as the
/// tree; normals and marks are not asked for. Keeps 12 bytes a sample, then one depth of nodes at a time; all
/// of them, at 16 bytes each, where the direct solver is the choice of the exact path. Can be called from
/// several threads.
///
/// \param ofBothPaths false: without the exact path, which costs most, where the accelerated one will be
/// taken;
///                    its bytes are 0 then
/// \param progress    null for none; what it throws to interrupt goes through
/// \throws what `run` throws for a depth out of range, a coordinate that is not finite and an unknown solver
QZMATH_API CReconstructionEstimate estimateReconstruction(IInputSamples const & samples,
                                                          CVolTriangulationParams const & params,
                                                          bool ofBothPaths = true,
                                                          CProgressCounter * progress = nullptr);

} // namespace VolTr
