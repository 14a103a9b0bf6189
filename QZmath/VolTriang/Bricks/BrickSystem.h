// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/VolTriang/Bricks/BrickLattice.h>
#include <QZmath/VolTriang/Bricks/BrickPasses.h>
#include <QZmath/VolTriang/Bricks/BrickTables.h>

#include <QZmath/VolTriang/Bricks/BrickShare.h>

#include <array>
#include <cstdint>
#include <vector>

namespace QzBackend
{
class LoopTeam;
}

namespace VolTr
{

/// The linear system of the reconstruction without a matrix.
///
/// An equation says that the integrals of the products of gradients, of a node's function with the function
/// that is sought, equal those of the node's function with minus the divergence of the splatted field. The
/// unknowns are scaled so that the matrix has the diagonal 1. Two nodes are coupled by their difference of
/// depth and their offset only, and the coupling is a sum of three products over the axes; so the product
/// with a vector takes three passes per brick and pair of depths, over tables of a few numbers.
///
/// The iteration is that of conjugate gradients on the system preconditioned by one symmetric sweep over the
/// depths, in the form that needs one product a step (Eisenstat, Efficient implementation of a class of
/// preconditioned conjugate gradient methods, 1981). With L the coupling to coarser depths, U to finer ones
/// and A within the depths, the unknown is (w + U) u, the matrix (w + L)^-1 (L + A + U) (w + U)^-1.
///
/// Vectors are compact over the lattice's nodes, with room for eight numbers more at the end. Every sum is
/// taken in an order that does not depend on the number of threads. The lattice must outlive the system; one
/// solution or product at a time.
class QZMATH_SISTER_API BrickSystem
{
public:
    using Vector = std::vector<float>;

    /// \param kernel one-variable factor of the basis functions, the same on each axis
    BrickSystem(BrickLattice const & lattice, CSingleVarLimitedPolynom const & kernel,
                BrickPasses const & passes);
    BrickSystem(BrickLattice const & lattice, CSingleVarLimitedPolynom const & kernel,
                BrickPasses const & passes, QzBackend::LoopTeam & team);
    /// A system of which every process has a part: vectors are those of its own bricks and of replicated
    /// levels, and what they hold at others is not used, but for fields, which need the numbers of all
    /// bricks. `share` must outlive the system. All members are collective; neither `solve` nor `product`.
    BrickSystem(BrickLattice const & lattice, CSingleVarLimitedPolynom const & kernel,
                BrickPasses const & passes, BrickShare & share, QzBackend::LoopTeam & team);

    /// Can the passes serve this kernel on nodes of so many depths? It must reach at most 1.5 cells, and the
    /// tables of more than 13 depths would become large.
    static bool canServe(int depthsNumber, CSingleVarLimitedPolynom const & kernel);

    struct Solution
    {
        Vector values;
        int iterations = 0;
        double relativeResidual = 0.0; ///< of the preconditioned system
        bool hasConverged = false;
    };

    /// The right sides for splatted fields: compact values of the three components.
    Vector rightPart(std::array<Vector, 3> const & field, QzBackend::LoopTeam & team);
    /// \param tolerance on the relative residual
    Solution solve(Vector const & right, double tolerance, int maxIterations, QzBackend::LoopTeam & team);

    /// What an iteration of somebody else's needs: the preconditioned system has the right side
    /// `transformedRight` and the matrix of `transformedProduct`, which is symmetric and positive definite,
    /// and `toSolution` makes the unknowns of its solution.
    Vector transformedRight(Vector const & right, QzBackend::LoopTeam & team);
    void transformedProduct(Vector const & vector, Vector & image, QzBackend::LoopTeam & team);
    void toSolution(Vector & vector, QzBackend::LoopTeam & team);
    /// Numbers that fit a vector, all 0.
    Vector emptyVector(QzBackend::LoopTeam & team) const;

    /// The product of the matrix with a vector.
    Vector product(Vector const & vector, QzBackend::LoopTeam & team);

    /// Factor from an unknown to the amplitude of the kernel at its node, for functions that are known up to
    /// a common positive factor.
    double amplitudeOfUnknown(int depth) const;

private:
    struct alignas(32) Row
    {
        float of[brickEdge];
    };
    using Dense = std::vector<Row>; // rows without nodes stay 0
    static float * numbersOf(Dense & rows) { return rows.empty() ? nullptr : rows[0].of; }
    struct RowPlace;
    static Row const st_zeros[brickRows];

    // A depth, with the coarse bricks that each brick couples to: eight for each coarser depth.
    struct Level
    {
        BrickLevel const * bricks = nullptr;
        int coarserDepths = 0;
        std::vector<int> coarseBricks;
        std::vector<BrickRows> usedRows;
        Dense values; // of the solution of the upward sweep
        Dense sums;   // couplings to finer depths, then the solution of the downward sweep

        int const * coarseBricksOf(int brick, int delta) const
        {
            return coarseBricks.data() + placeOf(brick, delta);
        }
        std::size_t placeOf(int brick, int delta) const // in `coarseBricks`
        {
            return (static_cast<std::size_t>(brick) * static_cast<std::size_t>(coarserDepths) +
                    static_cast<std::size_t>(delta - 1)) *
                   8;
        }
    };
    // Where the coarse places of a brick lie.
    struct CoarseFrame
    {
        CoarseTable const * tables[3];
        int offset[3];      // of the first place in the lower bricks
        int const * bricks; // under 4 x + 2 y + z
    };

    void build(QzBackend::LoopTeam & team);
    void buildBrick(Level & level, int brick) const;
    CoarseFrame coarseFrame(int level, int brick, int delta) const;
    std::uint64_t rowsOf(CoarseFrame const & frame, Level const & coarse, int half) const;
    void gather(CoarseFrame const & frame, BrickRows const & used, Level const & coarse, Dense const & values,
                CoarseBlock & block) const;
    void scatter(CoarseFrame const & frame, CoarseBlock const & block, Level & coarse) const;
    void gatherHalo(Level const & level, int brick, BrickHalo & halo) const;
    void expandBrick(int level, int brick, Vector const & vector);

    struct BrickList;
    template <class Make, class Restrict>
    void restrictBricks(int level, BrickList const & list, QzBackend::LoopTeam & team,
                        Make const & makeValues, Restrict const & restrictBrick);
    template <class Make, class Restrict>
    void restrictLevel(int level, QzBackend::LoopTeam & team, Make const & makeValues,
                       Restrict const & restrictBrick);
    template <class Make>
    void restrictValues(int level, QzBackend::LoopTeam & team, Make const & makeValues);
    template <class Body>
    void forOwnBricks(int level, QzBackend::LoopTeam & team, Body const & body) const;
    bool isShared(int level) const { return m_share != nullptr && !m_share->part(level).isReplicated; }
    void sweepUp(Vector const & vector, QzBackend::LoopTeam & team);
    void sweepDown(Vector const & vector, bool withOwn, Vector & result, QzBackend::LoopTeam & team);
    void downBrick(int level, int brick, Vector const & vector, bool withOwn, Vector & result);
    void clearSums(QzBackend::LoopTeam & team);

    BrickLattice const & m_lattice;
    BrickPasses const & m_passes;
    BrickShare * const m_share = nullptr;
    BrickTables m_tables;
    std::vector<float> m_couplingScales; // by difference of depth
    std::vector<Level> m_levels;         // from the coarsest depth
    std::vector<CoarseBlock> m_blocks;
    std::size_t m_size;
};

} // namespace VolTr
