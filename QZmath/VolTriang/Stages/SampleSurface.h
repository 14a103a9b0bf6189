// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/VolTriang/Stages/CloudPeers.h>
#include <QZmath/VolTriang/Stages/MomentLattice.h>

#include <array>
#include <memory>
#include <vector>

namespace VolTr
{

class IInputSamples;

/// Where the samples themselves see the surface near a point: a moving plane through their positions and
/// normals.
///
/// The samples are summed on a ladder of lattices, each twice as coarse as the one before; a lattice is a
/// choice of width. At a point v with the sums S of a lattice, m = S_n / |S_n| is the mean normal, a the mean
/// height of v over the planes of the samples, b its height over their centre, and the height of v
///
///     d = (1/2 - k) a + (1/2 + k) b.
///
/// On a curved surface a and b err by the same amount with opposite signs. Cf. G. Guennebaud, M. Gross,
/// Algebraic point set surfaces, SIGGRAPH 2007, for fits of this kind; the sums over a lattice make the cost
/// of a point independent of the number of samples around it.
///
/// Which width is best where is found by leaving samples out: the height of a sample's place over the others,
/// of each lattice, is compared with the sample's own (cross-validation).
///
/// Weights are taken at the samples' feet, the points of the level set below them: noisy samples would
/// otherwise agree with those that are displaced alike, and follow their noise.
///
/// Of a cloud that is spread over several holders, each sees the surface in its own territory. What is
/// decided by the whole cloud is decided by all together. Of lattices too coarse for what is here of the
/// neighbours' samples, holders have the nodes in their territory right, and give each other these.
///
/// Immutable once built; safe to use from many threads, each with a scratch of its own. Same bits for any
/// number of threads.
class QZMATH_SISTER_API SampleSurface
{
public:
    struct Input
    {
        IInputSamples const * samples = nullptr;
        int const * order = nullptr;                  ///< samples, neighbours close to each other
        int count = 0;                                ///< of `order`: all, or those near the territory
        std::vector<float> const * weights = nullptr; ///< of the samples; null when all are 1
        std::array<float, 3> const * feet = nullptr;  ///< of the samples minus their positions
        std::array<double, 3> origin{};               ///< least corner of the cloud's cube
        double cubeEdge = 1.0;
        double deepestCell = 1.0;    ///< greatest height that counts
        double edge = 1.0;           ///< of the polygoniser's cubes, for the error of its chords
        double samplesPerCell = 1.0; ///< of the surface, at `depth`
        int depth = 0;
        CloudPeers * peers = nullptr; ///< null when the samples are the whole cloud
    };

    static constexpr int greatestLevels = 7;

    struct Widths
    {
        int levels = 0;
        std::array<double, greatestLevels> cells{};  ///< of the lattices, from the finest
        std::array<double, greatestLevels> errors{}; ///< rms left-out error of each, in units of the model
        double level = 0.0; ///< the best of the whole cloud, between 0 and levels - 1
        double noise = 0.0; ///< rms left-out error there
    };

    class Scratch
    {
    public:
        Scratch();

    private:
        friend class SampleSurface;
        std::vector<MomentLattice::Cursor> m_cursors; // of the levels, then of the choice and the creases
    };

    struct Height
    {
        std::array<double, 3> move{};   ///< onto the surface of the samples; 0 far from them
        std::array<double, 3> normal{}; ///< their mean normal there, a unit vector, or 0
    };

    SampleSurface(Input const & input, QzBackend::LoopTeam & team);

    /// From a depth, and the samples a cell of the surface there, to the depth with 0.3 to 1.2, where the
    /// search for the finest lattice begins. A depth has a quarter of the one above it.
    static void goToSparseDepth(int & depth, double & perCell);

    /// The move that brings a point of the level set onto the surface that the samples suggest. No
    /// allocation.
    Height heightOf(double const * point, Scratch & scratch) const;

    Widths const & widths() const { return m_widths; }

private:
    struct Level
    {
        LatticeFrame frame;
        MomentLattice lattice;
        double curvatureTerm = 0.0; // k
        double meanOwnShare = 1.0;
    };

    // What the sums at a point say.
    struct Plane
    {
        double mass = 0.0;
        double coherence = 0.0;
        double normal[3] = {0.0, 0.0, 0.0};
        double overPlanes = 0.0; // a, in model units
        double overCentre = 0.0; // b
    };

    // The move and the normal, collected over levels.
    struct Sum
    {
        double open = 0.0; // the share that the next level may take
        double next = 0.0; // and what the one behind it may take besides
        double move[3] = {0.0, 0.0, 0.0};
        double normal[3] = {0.0, 0.0, 0.0};

        void add(Level const & level, double const * point, MomentLattice::Cursor & cursor);
    };

    // What leaving a sample out says.
    struct Test
    {
        double foot[3];
        std::array<float, greatestLevels> errors;
        std::array<float, greatestLevels> ownShares;
        bool isGood = false;
    };

    static void footOf(Input const & input, int index, double * foot3);
    // Of the samples at those indices of the order; of all when there are none.
    static std::unique_ptr<Level> makeLevel(Input const & input, int depth, std::vector<int> const * indices,
                                            QzBackend::LoopTeam & team);
    static std::unique_ptr<Level> makeJoinedLevel(Input const & input, int depth, int coarsest,
                                                  QzBackend::LoopTeam & team);
    static std::unique_ptr<Level> makeCoarser(Level const & finer, QzBackend::LoopTeam & team);
    static void exchangeNodes(Input const & input, int coarsest, Level & level, QzBackend::LoopTeam & team);
    static CloudPeers::Box boxAround(Input const & input, int coarsest, Level const & level,
                                     std::array<int, 3> const & brick);
    static bool isWithinReach(Input const & input, int depth);
    static std::vector<int> someOwn(Input const & input, QzBackend::LoopTeam & team);
    int finestDepth(Input const & input, int depth, int coarsest, QzBackend::LoopTeam & team) const;
    static std::vector<Test> leaveOut(Input const & input, std::vector<int> const & indices,
                                      std::vector<std::unique_ptr<Level>> const & ladder,
                                      QzBackend::LoopTeam & team);
    void chooseWidths(Input const & input, QzBackend::LoopTeam & team);
    void refineCreases(Input const & input, int depth, QzBackend::LoopTeam & team);
    static double coherenceAt(Level const & level, double const * point, MomentLattice::Cursor & cursor);
    static Plane planeOf(Moments const & sums, double const * local3, double cell);
    double levelAt(double const * point, Scratch & scratch) const;
    static double bestLevel(double const * errors, int levels);

    std::vector<std::unique_ptr<Level>> m_levels; // from the finest
    std::unique_ptr<Level> m_creases; // a finer one where normals spread; null where it does not pay
    LatticeFrame m_choiceFrame;
    MomentLattice m_choice; // per node: level, 1
    Widths m_widths;
    double m_deepestCell;
};

} // namespace VolTr
