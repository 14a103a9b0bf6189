// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>

#include <cstdint>
#include <string>
#include <vector>

namespace VolTr
{

/// What a run of `CVolumetricTriangulator` did and found. Plain values, to be read and copied freely.
///
///     VolTr::CReconstructionReport report;
///     VolTr::CVolumetricTriangulator triangulator(&target, &samples, &params, nullptr);
///     triangulator.setReport(&report);
///     triangulator.run();
///     if (!report.converged)
///         std::cerr << "residual " << report.relativeResidual << '\n';
///
/// A run begins by setting everything to what it is here, and fills a value in as soon as it has it. So after
/// a run that ended with an exception, the report tells how far it came: times, memory and the phases begun
/// are always there.
class QZMATH_API CReconstructionReport
{
public:
    /// Ways from the samples to the implicit function.
    enum class Path
    {
        none,       ///< the run had not chosen yet
        exact,      ///< the matrix is stored, and solved by `solver`
        accelerated ///< no matrix is stored; the nodes lie in bricks
    };

    /// Why this path.
    enum class Reason
    {
        none,          ///< the run had not chosen yet
        asParameters,  ///< it is the one that `CVolTriangulationParams::accelerated` names
        solverChosen,  ///< `prefferedSolver` is not 0, so the stored system is wanted
        kernelOrDepth, ///< the accelerated path cannot serve the width of the kernel or so many depths
        noSamples,     ///< there is nothing to accelerate
        didNotConverge ///< the accelerated path was tried and did not reach the tolerance
    };

    /// What solved the linear system.
    enum class Solver
    {
        none,        ///< the run had not come to it
        direct,      ///< factorisation of the stored matrix
        iterative,   ///< stabilised biconjugate gradients over the stored matrix
        decomposing, ///< the stored matrix cut in four, solved block by block and joined
        accelerated  ///< conjugate gradients over bricks
    };

    struct Phase
    {
        std::string name;   ///< as the progress counter shows it
        double seconds = 0; ///< wall time
        double share = 0;   ///< of `CReconstructionReport::seconds`, 0 to 1
    };

    /// What the refinement found, all 0 without `CVolTriangulationParams::refine`. Lengths in model units.
    struct Refinement
    {
        struct Width
        {
            double cell = 0;         ///< of the lattice: a sample counts up to three cells away
            double leftOutError = 0; ///< rms distance of left-out samples from what the others say
        };
        std::vector<Width> widths; ///< that were compared, from the narrowest
        double width = 0;          ///< that suits the whole cloud best; parts of it get what suits them
        double noise = 0;          ///< the least of the left-out errors: the noise across the surface
        double movedShare = 0;     ///< of the vertices that were moved, 0 to 1
        double rmsMove = 0;
        double greatestMove = 0;
        int unfoldedVertices = 0; ///< whose move was shortened because it would have folded the mesh
        /// Of the correction of the field, depth by depth, the last one the deepest: 0 where it would have
        /// followed noise, up to 1. Empty without `correctField`.
        std::vector<double> correctionShares;
    };

    Path path = Path::none;
    Reason reason = Reason::none;
    int threads = 0; ///< that the run was allowed to use

    int octreeDepth = 0; ///< the leaf lattice has 2^octreeDepth cells along the longest side of the cloud
    int leafCells = 0;   ///< cells of that lattice that hold samples
    int nodes = 0;       ///< of the octree, on all depths
    std::int64_t unknowns = 0; ///< of the linear system: one a node
    /// Of the stored matrix, diagonal and above; 0 where none is stored. Up to 12 bytes each.
    std::int64_t matrixElements = 0;

    Solver solver = Solver::none;
    /// Steps of the solver; 0 for the direct one, and the sum over all blocks for the decomposing one.
    int iterations = 0;
    /// With which the solver stopped, in terms of the right part: of the preconditioned system for the
    /// accelerated path. The direct solver leaves 0, and so does one of the other two that has reached its
    /// tolerance of 1e-6.
    double relativeResidual = 0;
    /// Was the system solved, to the tolerance where the solver iterates? The run goes on without: a surface
    /// from an iterative solver that gave up may be wrong.
    bool converged = false;

    double isoValue = 0; ///< of the implicit function on the surface; in no particular unit
    int vertices = 0;    ///< of the surface that the target received
    int triangles = 0;
    /// Walks over the surface, each from a place where none had been before: the pieces of the surface, but
    /// that two in one cube of the lattice count once, and that with `reach` one counts for each of its parts
    /// that only unsupported surface connects.
    int pieces = 0;
    /// With `reach`: patches of unsupported surface that were followed to their end, and that were not.
    int closedPatches = 0;
    int abandonedPatches = 0;
    /// The surface goes on where the lattice of its cubes ends, so the mesh has a border there.
    bool endsAtLimit = false;
    /// Why there is no surface, after "Failed to reconstruct iso-value surface"; else empty.
    std::string failure;

    Refinement refinement;

    /// Phases in the order in which they began, one after the other. When the accelerated path did not
    /// converge, the "solve" phase holds all that the exact one did in its place.
    std::vector<Phase> phases;
    double seconds = 0; ///< wall time of the run

    /// Memory that the run took at its peak, in bytes, estimated as the greatest growth of the process's
    /// resident memory since the start of the run. It is read from the high-water mark that the system keeps
    /// for the process; if the process had been larger before, the mark shows nothing of the run, and the
    /// growth seen at the ends of phases is taken, which may be too small. What other threads take meanwhile
    /// counts, memory that the allocator had kept from before does not. 0 where the system does not tell.
    std::int64_t peakMemory = 0;

    /// The enumerators as text, for messages: "accelerated", "the accelerated path
    /// did not converge", "direct".
    char const * pathText() const;
    char const * reasonText() const;
    char const * solverText() const;
};

} // namespace VolTr
