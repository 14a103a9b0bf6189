// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/ReconstructionEstimate.h>

#include <QZmath/Backend/Parallel.h>
#include <QZmath/VolTriang/Bricks/BrickPasses.h>
#include <QZmath/VolTriang/InputSamples.h>
#include <QZmath/VolTriang/Stages/FactorEstimate.h>
#include <QZmath/VolTriang/Stages/PathChoice.h>
#include <QZmath/VolTriang/Stages/SampleFeet.h>
#include <QZmath/VolTriang/Stages/SampleSurface.h>
#include <QZmath/VolTriang/Stages/SolverChoice.h>
#include <QZmath/VolTriang/Stages/SystemAssembly.h>
#include <QZmath/VolTriang/Tree/LatticeSweep.h>
#include <QZmath/VolTriang/Tree/SortedCells.h>
#include <QZmath/VolTriang/Tree/TreeRule.h>
#include <QZmath/VolTriang/VolTriangulationError.h>
#include <QZmath/VolTriang/VolTriangulationParams.h>

#include <QZsys/ParallelTasks.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>
#include <vector>

namespace VolTr
{

namespace
{

using Solver = CReconstructionReport::Solver;

// The leaf cells that hold samples, each with the payload 0.
CLatticeIndex findLeafCells(IInputSamples const & samples, INodesPositioningPolicy const & policy,
                            QzBackend::LoopTeam & team)
{
    TreeCube const cube = makeTreeCube(samples, policy, team);
    std::vector<CInt3> const places = sortIntoCells(samples, cube, team, 0.6).places;
    return LatticeSweep(team).sorted(places, std::vector<int>(places.size(), 0));
}

// Elements that a vector has room for when it has grown one by one.
double grown(double size) { return size <= 1.0 ? size : std::exp2(std::ceil(std::log2(size))); }

// What is counted before a run. Bytes below are sizes of the structures that bear the names, `double` since
// they may exceed all memory; factors without a structure were fitted to peaks of runs, as the tests do.
struct Counts
{
    double samples = 0;
    double leafCells = 0;
    double nodes = 0;
    double bricks = 0;
    double deepestBricks = 0;
    double brickBytes = 0;  // of lattice and system, what goes with the bricks
    double momentBytes = 0; // a sample, of the lattices that refine
    int depths = 0;

    void addDepth(double depthNodes, double depthBricks)
    {
        // Places, rows of nodes and first nodes grow one by one; neighbours and hash slots do not.
        double const lattice = (12 + 64 + 4) * grown(depthBricks) + 27 * 4 * depthBricks +
                               4 * std::max(4.0, grown(2 * depthBricks));
        // Two dense vectors of 512 `float`, the used rows, and 8 coarse bricks for each coarser depth.
        brickBytes += lattice + (2 * 2048 + 12 + 32 * depths) * depthBricks;
        nodes += depthNodes;
        bricks += depthBricks;
        deepestBricks = depthBricks;
        ++depths;
    }

    // Of the octree, what stays until the surface is there: cells have places in a sorted index, with some 3
    // bytes of its lines, and lists of their samples.
    double cellsOfTree() const { return 4 * samples + (12 + 4 + 8 + 3) * leafCells; }
    // And with the nodes, which go with the system, and the cell of each sample.
    double tree() const { return cellsOfTree() + 4 * samples + (16 + 8 + 3) * nodes; }
};

// A closed surface in this many triangles, which are four for each cube of the polygoniser. Where samples are
// sparse, the deepest nodes still go all along the surface; where they are noisy, they lie around it.
double countTriangles(Counts const & counts, CVolTriangulationParams const & params)
{
    double const factor = params.getReconstructFactor();
    if (!std::isfinite(factor))
        return 0;
    // The edge of a cube is twice a leaf cell: the distance of deepest nodes in centres, twice that at
    // corners.
    double const cubesPerSpacing = params.getUseCenter() ? factor : factor / 2;
    return 370 * counts.deepestBricks * cubesPerSpacing * cubesPerSpacing;
}

// Bytes a sample of the lattices that refine: a cell of the surface has 3.3 nodes of 32 bytes, and coarser
// lattices add a third. The finest one is mostly one depth above that where the search for it begins.
double countMomentBytes(std::vector<int> const & occupied, double samples)
{
    if (samples <= 0)
        return 0;
    int depth = static_cast<int>(occupied.size()) - 1;
    double perCell =
        samplesPerSurfaceCell([&](int up) { return occupied[static_cast<std::size_t>(up)]; }, depth, samples);
    SampleSurface::goToSparseDepth(depth, perCell);
    return 32.0 * 3.3 * 4.0 / 3.0 / (4.0 * perCell);
}

// What the refinement adds to the extraction, of a function of that many bytes: while its lattices are made,
// it needs the samples' feet and what is known of those that are left out; later the lattices and the waiting
// mesh stand beside what the extraction has itself.
double withRefinement(double extracting, double functionBytes, Counts const & counts,
                      CVolTriangulationParams const & params)
{
    if (!params.getRefine())
        return extracting;
    double const tests = 130 * std::min(counts.samples, 40000.0);
    return std::max(functionBytes + (22 + counts.momentBytes) * counts.samples + tests,
                    extracting + 20 * countTriangles(counts, params) + counts.momentBytes * counts.samples);
}

double acceleratedBytes(Counts const & counts, CVolTriangulationParams const & params)
{
    double const weights = params.getVariableDensity() ? 4 * counts.samples : 0;
    // The deepest level has one dense vector only. A compact index, and five compact vectors of the
    // iteration. Threads pass blocks to each other in rounds.
    bool const isShared = CVescaThreadingTasksHelper::getNumOfPhisicalThread() > 1;
    double const blocks = isShared ? 64.0 * sizeof(CoarseBlock) * std::max(counts.depths - 1, 0) : 0.0;
    double const system = counts.brickBytes - 2048 * counts.deepestBricks;
    double const solving = system + std::max((4 + 20) * counts.nodes + blocks, (4 + 36) * counts.nodes);
    // Rows of the function, with those that repeat a neighbour's; then bricks of the surface with their
    // values, crossed edges and vertices; and what is handed over at a time, four triangles for each of the
    // cubes.
    double const triangles = countTriangles(counts, params);
    double const handedOver = params.getRefine() ? 0.0 : 45 * std::min(triangles, 4.0 * 8192);
    double const extracting = withRefinement(2850 * counts.bricks + 12.5 * triangles + handedOver,
                                             2600 * counts.bricks, counts, params);
    return std::max(counts.tree() + weights + solving, counts.cellsOfTree() + extracting);
}

// The basis functions, for what depends on their couplings.
struct Functions
{
    std::vector<SupportCube> supports; // empty where nothing depends on them
    double spacing = 1;                // of the deepest nodes
    bool areWide = false;              // wider than unscaled ones, so that the room for rows may not suffice
};

double exactBytes(Counts const & counts, CVolTriangulationParams const & params, Solver solver,
                  Functions & functions)
{
    double const kept = counts.tree() + (params.getVariableDensity() ? 4 * counts.samples : 0);
    // Room for elements of 12 bytes is reserved, and grows by halves where kernels are wide: values first,
    // with the old ones still there.
    double const reserved = expectedElementsPerRow * counts.nodes;
    double const elements = functions.areWide ? estimateMatrixElements(functions.supports) : reserved;
    double room = reserved;
    while (room > 0 && room < elements)
        room *= 1.5;
    double const assembling = room > reserved ? 16 * room : 12 * room;

    double solving = 0;
    switch (solver) {
    case Solver::direct:
        // The graph and the order, then the factor: 8 bytes an element, and what better orders save is about
        // what the blocks of columns store in excess.
        solving = 9e6 + 4.6 * room + 10.7 * estimateFactorElements(functions.supports, functions.spacing);
        break;
    case Solver::iterative:
        solving = 100 * counts.nodes;
        break;
    case Solver::decomposing:
        solving = 8.3 * room; // parts of the matrix are copied
        break;
    default:
        throw CVolTriangulationError("Unexpected solver type");
    }
    double const extracting =
        withRefinement(122 * countTriangles(counts, params), 40 * counts.nodes, counts, params);
    return kept + 40 * counts.nodes + std::max({assembling, 12 * room + solving, extracting});
}

} // namespace

CReconstructionEstimate estimateReconstruction(IInputSamples const & samples,
                                               CVolTriangulationParams const & params, bool ofBothPaths,
                                               CProgressCounter * progress)
{
    std::unique_ptr<INodesPositioningPolicy> const policy =
        makeTreePolicy(params.getOctreeDepth(), params.getUseCenter(), params.getDetalizationLevel());
    Kernel const kernel = makeReconstructionKernel(params.getKernelScaleFactor());
    double const reach = kernel.getCommonSupportRef().getMax()[0];
    Functions functions;
    functions.spacing = policy->getScaleFactor();
    functions.areWide = reach > 1.5 * (1 + 1e-6);
    Counts counts;
    counts.samples = samples.pointsNumber();
    CReconstructionEstimate estimate;
    estimate.path = choosePath(samples, params, kernel, nullptr).path;
    bool const isExactWanted = ofBothPaths || estimate.path == CReconstructionReport::Path::exact;
    bool areSupportsWanted = isExactWanted; // as long as something depends on them
    std::vector<std::vector<SupportCube>> supports;

    // Depth by depth from the deepest, as the octree makes its nodes.
    auto const count = [&](QzBackend::LoopTeam & team) {
        LatticeSweep sweep(team);
        CLatticeIndex const leafCells = findLeafCells(samples, *policy, team);
        estimate.leafCells = leafCells.size();
        counts.leafCells = static_cast<double>(leafCells.size());
        int const leaf = params.getOctreeDepth();
        int const begin = policy->getNodeDepthBegin(), end = policy->getNodeDepthEnd();
        bool const isCentred = end <= leaf;
        std::vector<std::pair<int, int>> sizes;         // nodes and bricks
        std::vector<int> occupied(1, leafCells.size()); // cells, from the leaves up
        std::int64_t total = 0;
        CLatticeIndex cells; // of the depth
        CLatticeIndex const * deeper = &leafCells;
        for (int depth = end - 1; depth >= begin; --depth) {
            CLatticeIndex const cubes = isCentred ? sweep.halved(*deeper, -1) : CLatticeIndex();
            CLatticeIndex nodes = sweep.surrounded(isCentred ? cubes : *deeper).index;
            CLatticeIndex bricks;
            for (int edge = 1; edge < brickEdge; edge *= 2)
                bricks = sweep.halved(edge == 1 ? nodes : bricks, 0);
            sizes.emplace_back(nodes.size(), bricks.size());
            total += nodes.size();
            if (!functions.areWide && solverOf(params.getPrefferedSolver(), total) != Solver::direct)
                areSupportsWanted = false;
            if (!areSupportsWanted)
                supports.clear();
            if (areSupportsWanted) {
                int const shift = leaf - depth;
                sweep.scale(nodes, shift, isCentred ? 1 << (shift - 1) : 0);
                float const nodeReach = static_cast<float>(std::ldexp(reach, shift));
                supports.emplace_back(static_cast<std::size_t>(nodes.size()));
                sweep.forEachPoint(nodes, [&](int position, CInt3 const & place, int &) {
                    supports.back()[static_cast<std::size_t>(position)] = {{static_cast<float>(place.x()),
                                                                            static_cast<float>(place.y()),
                                                                            static_cast<float>(place.z())},
                                                                           nodeReach};
                });
            }
            if (depth > begin) {
                cells = sweep.halved(*deeper, 0);
                deeper = &cells;
                occupied.push_back(cells.size());
            }
            team.setPosition(1.0 - 0.4 * (depth - begin) / (end - begin));
        }
        counts.momentBytes = countMomentBytes(occupied, counts.samples);
        for (auto size = sizes.rbegin(); size != sizes.rend(); ++size)
            counts.addDepth(size->first, size->second);
    };
    QzBackend::LoopTeam::run(CVescaThreadingTasksHelper::getNumOfPhisicalThread(), progress, count);

    estimate.nodes = static_cast<std::int64_t>(counts.nodes);
    estimate.unknowns = estimate.nodes;
    estimate.triangles = countTriangles(counts, params);
    estimate.solver = solverOf(params.getPrefferedSolver(), estimate.unknowns);
    for (; !supports.empty(); supports.pop_back()) // the finest last
        functions.supports.insert(functions.supports.end(), supports.back().begin(), supports.back().end());
    estimate.exactBytes = isExactWanted ? exactBytes(counts, params, estimate.solver, functions) : 0.0;
    estimate.acceleratedBytes = acceleratedBytes(counts, params);
    return estimate;
}

} // namespace VolTr
