// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Stages/SampleDensity.h>

#include <QZmath/VolTriang/Basis/KernelEvaluator.h>
#include <QZmath/VolTriang/Kernels.h>
#include <QZmath/VolTriang/OctreeIterators.h>
#include <QZmath/VolTriang/Stages/LogLine.h>
#include <QZmath/VolTriang/Stages/NormalizeByLast.h>
#include <QZmath/VolTriang/Tree/LatticeHash.h>
#include <QZmath/VolTriang/Tree/TrilinearShare.h>

#include <QZsys/Progress.h>

#include <algorithm>
#include <array>
#include <cfloat>
#include <cmath>
#include <limits>

namespace VolTr
{

namespace
{

bool isInside(CParallelepiped const & box, double const * point)
{
    for (int axis = 0; axis < CParallelepiped::DIM; ++axis) {
        if (!(point[axis] >= box.getMin()[axis] && point[axis] <= box.getMax()[axis]))
            return false;
    }
    return true;
}

// Trilinear count of the samples in the eight cells of edge `edge` that meet in `node`. A sample on a face
// that cells share counts in each of them.
double countAroundNode(IInputSamples const & samples, COctree const & octree, double const * node,
                       double edge)
{
    double sum = 0.0;
    for (int corner = 0; corner < 8; ++corner) {
        CParallelepiped box;
        for (int axis = 0; axis < 3; ++axis) {
            bool const below = (corner >> axis & 1) != 0;
            box.setDimension(axis, below ? CInterval(node[axis] - edge, node[axis])
                                         : CInterval(node[axis], node[axis] + edge));
        }
        for (CSamplePointsIteratorInBox it(samples, octree, box, -1); !it.isFinished(); it.next()) {
            if (isInside(box, *it))
                sum += calcTrilinearWeight(*it, node, box);
        }
    }
    return sum;
}

// Coordinates closer to each other than this may change sides by rounding.
double roundingOf(COctree const & octree)
{
    double magnitude = 0.0;
    for (int axis = 0; axis < 3; ++axis)
        magnitude =
            std::max({magnitude, std::fabs(octree.getBoxMin()[axis]), std::fabs(octree.getBoxMax()[axis])});
    return 1e-13 * magnitude;
}

// The leaf cells by the cubes of nodes of a depth that they lie in. The cube at a place has that place, a
// node or none, as its least corner, and holds its leaf cells in the order of x, y, z.
class NodeCubes
{
public:
    struct Cube
    {
        CInt3 place;
        int begin; // in `cells`
        int end;
    };

    NodeCubes(COctree const & octree, int depth)
    {
        int const cellsNumber = octree.getCellsNumberOnDeepestLevel();
        std::vector<int> cubeOfCell(static_cast<std::size_t>(cellsNumber));
        CLatticeHash table;
        int last = -1;
        // Cells follow each other along z.
        for (int position = 0; position < cellsNumber; ++position) {
            CTreeNode node;
            octree.makeCellNode(&node, depth, octree.getCellOffset(octree.getCellIndex().payload(position)),
                                0);
            CInt3 const place = node.shift();
            if (last < 0 || !(cubes[static_cast<std::size_t>(last)].place == place)) {
                std::uint64_t const hash = CLatticeHash::hashOf(place, 0);
                last = table.find(
                    hash, [&](int cube) { return cubes[static_cast<std::size_t>(cube)].place == place; });
                if (last < 0) {
                    last = static_cast<int>(cubes.size());
                    cubes.push_back({place, 0, 0});
                    table.insert(hash, last, [&](int cube) {
                        return CLatticeHash::hashOf(cubes[static_cast<std::size_t>(cube)].place, 0);
                    });
                }
            }
            cubeOfCell[static_cast<std::size_t>(position)] = last;
            ++cubes[static_cast<std::size_t>(last)].end;
        }
        int total = 0;
        for (Cube & cube : cubes) {
            cube.begin = total;
            total += cube.end;
            cube.end = cube.begin;
        }
        cells.resize(cubeOfCell.size());
        for (int position = 0; position < cellsNumber; ++position) {
            Cube & cube = cubes[static_cast<std::size_t>(cubeOfCell[static_cast<std::size_t>(position)])];
            cells[static_cast<std::size_t>(cube.end++)] = position;
        }
    }

    std::vector<Cube> cubes;
    std::vector<int> cells; // positions in the octree's cell index, cube after cube
};

// Gives the bits of `addDensityByNodes`, cube by cube in the orders in which its walk over the nodes adds.
class DensityEstimator
{
public:
    DensityEstimator(IInputSamples const & samples, COctree const & octree, Basis const & basis, int depth)
        : m_samples(samples), m_octree(octree), m_basis(basis), m_depth(depth),
          m_nodes(octree.getNodeIndex(depth)), m_cubes(octree, depth), m_edge(octree.getCellSize(depth)),
          m_step(1 << (octree.getLeafCellDepth() - depth)), m_doubt(roundingOf(octree)),
          m_counts(static_cast<std::size_t>(m_nodes.size()), 0.0),
          m_isDoubtful(static_cast<std::size_t>(m_nodes.size()), 0)
    {}

    void count(CProgressCounter * progress)
    {
        // A node adds up the cubes around it by z, y and x, from above.
        std::vector<int> order(m_cubes.cubes.size());
        for (std::size_t cube = 0; cube < order.size(); ++cube)
            order[cube] = static_cast<int>(cube);
        std::sort(order.begin(), order.end(), [&](int a, int b) {
            CInt3 const & left = m_cubes.cubes[static_cast<std::size_t>(a)].place;
            CInt3 const & right = m_cubes.cubes[static_cast<std::size_t>(b)].place;
            if (left.z() != right.z())
                return left.z() > right.z();
            return left.y() != right.y() ? left.y() > right.y() : left.x() > right.x();
        });
        for (std::size_t n = 0; n < order.size(); ++n) {
            if (progress != nullptr)
                progress->SetPosFloat(0.5 * static_cast<double>(n) / static_cast<double>(order.size()));
            countCube(m_cubes.cubes[static_cast<std::size_t>(order[n])]);
        }
        for (int position = 0; position < m_nodes.size(); ++position) {
            if (m_isDoubtful[static_cast<std::size_t>(position)] == 0)
                continue;
            double node[3];
            m_octree.getNodePosition(m_nodes.payload(position), node);
            m_counts[static_cast<std::size_t>(position)] = countAroundNode(m_samples, m_octree, node, m_edge);
        }
    }

    void spread(std::vector<float> & values, CProgressCounter * progress)
    {
        CParallelepiped const & support = m_basis.getSamplePtr()->getCommonSupportRef();
        double reach = 0.0;
        for (int axis = 0; axis < 3; ++axis)
            reach = std::max({reach, -support.getMin()[axis], support.getMax()[axis]});
        // Nodes beside a cube that reach into it, on each side. No more exist than
        // the cube of the octree has.
        int const most = (1 << m_depth) + 2;
        m_reach = reach < most ? static_cast<int>(reach + 1e-6) + 1 : most;
        m_reaches.resize(static_cast<std::size_t>(2 * m_reach));
        for (std::vector<double> & factors : m_factors)
            factors.resize(static_cast<std::size_t>(2 * m_reach));
        for (std::size_t n = 0; n < m_cubes.cubes.size(); ++n) {
            if (progress != nullptr)
                progress->SetPosFloat(0.5 + 0.5 * static_cast<double>(n) /
                                                static_cast<double>(m_cubes.cubes.size()));
            spreadOverCube(m_cubes.cubes[n], values);
        }
    }

private:
    using Point = std::array<double, 3>;

    // A number of nodes along each axis.
    CInt3 steps(int number) const { return CInt3(number * m_step, number * m_step, number * m_step); }

    // Calls visit(sample, point) for the samples of a cube.
    template <class Visitor>
    void visitSamples(NodeCubes::Cube const & cube, Visitor visit) const
    {
        for (int n = cube.begin; n < cube.end; ++n) {
            int const cell = m_cubes.cells[static_cast<std::size_t>(n)];
            for (int const * it = m_octree.getSamplesBegin(cell); it != m_octree.getSamplesEnd(cell); ++it) {
                float const * coords = m_samples.getSampleCoords3(*it);
                visit(*it, Point{coords[0], coords[1], coords[2]});
            }
        }
    }

    void countCube(NodeCubes::Cube const & cube)
    {
        Point low;
        Point high;
        m_octree.cellCoordsToReal(low.data(), cube.place);
        m_octree.cellCoordsToReal(high.data(), cube.place + steps(1));
        bool isDoubtful = false;
        m_points.clear();
        visitSamples(cube, [&](int, Point const & point) {
            for (std::size_t axis = 0; axis < 3; ++axis)
                isDoubtful =
                    isDoubtful || !(point[axis] > low[axis] + m_doubt && point[axis] < high[axis] - m_doubt);
            m_points.push_back(point);
        });
        if (isDoubtful) {
            // Rounding decides in which cubes a sample on a face counts.
            for (CLatticeBoxCursor it(&m_nodes, cube.place + steps(-1), cube.place + steps(2));
                 !it.isFinished(); it.next())
                m_isDoubtful[static_cast<std::size_t>(it.position())] = 1;
        }
        for (int corner = 0; corner < 8; ++corner) {
            CInt3 const place = cube.place + CInt3((corner & 1) * m_step, (corner >> 1 & 1) * m_step,
                                                   (corner >> 2 & 1) * m_step);
            int const position = m_nodes.find(place);
            if (m_isDoubtful[static_cast<std::size_t>(position)] != 0)
                continue;
            Point node;
            Point width;
            m_octree.cellCoordsToReal(node.data(), place);
            for (std::size_t axis = 0; axis < 3; ++axis) {
                bool const isBelow = (corner >> axis & 1) != 0;
                width[axis] = isBelow ? node[axis] - (node[axis] - m_edge) : node[axis] + m_edge - node[axis];
            }
            m_counts[static_cast<std::size_t>(position)] =
                addWeights(node, width, m_counts[static_cast<std::size_t>(position)]);
        }
    }

    // Adds `calcTrilinearWeight` of the points.
    double addWeights(Point const & node, Point const & width, double sum) const
    {
        for (Point const & point : m_points) {
            double weight = 1.0;
            for (std::size_t axis = 0; axis < 3; ++axis)
                weight *= trilinearShare(point[axis], node[axis], width[axis]);
            sum += weight;
        }
        return sum;
    }

    // What a place along each axis reaches.
    struct NodeReach
    {
        Point center;
        Point low;
        Point high;
    };
    struct Reaching
    {
        std::array<int, 3> offset; // steps from the first node that may reach into the cube
        double count;
    };

    void spreadOverCube(NodeCubes::Cube const & cube, std::vector<float> & values)
    {
        CInt3 const first = cube.place + steps(1 - m_reach);
        m_reaching.clear();
        for (CLatticeBoxCursor it(&m_nodes, first, cube.place + steps(m_reach)); !it.isFinished();
             it.next()) {
            double const count = m_counts[static_cast<std::size_t>(it.position())];
            CInt3 const place = it.place();
            if (count != 0.0)
                m_reaching.push_back({{(place.x() - first.x()) / m_step, (place.y() - first.y()) / m_step,
                                       (place.z() - first.z()) / m_step},
                                      count});
        }
        if (m_reaching.empty())
            return;
        CCSFunc3Tmpl<Kernel> const function = m_basis.makeFunctionByIndex(m_nodes.payload(0));
        double const scale = 0.0 - function.getArgumentScale();
        double const cellSize = 1.0 / function.getArgumentScale();
        double const normalization = function.getNormalizationScale();
        CParallelepiped const & support = m_basis.getSamplePtr()->getCommonSupportRef();
        for (int n = 0; n < 2 * m_reach; ++n) {
            NodeReach & reach = m_reaches[static_cast<std::size_t>(n)];
            m_octree.cellCoordsToReal(reach.center.data(), first + steps(n));
            for (std::size_t axis = 0; axis < 3; ++axis) {
                reach.low[axis] = support.getMin()[axis] * cellSize + reach.center[axis];
                reach.high[axis] = support.getMax()[axis] * cellSize + reach.center[axis];
            }
        }
        visitSamples(cube, [&](int sample, Point const & point) {
            for (std::size_t n = 0; n < m_reaches.size(); ++n) {
                NodeReach const & reach = m_reaches[n];
                for (std::size_t axis = 0; axis < 3; ++axis) {
                    bool const isReached = point[axis] >= reach.low[axis] && point[axis] <= reach.high[axis];
                    m_factors[axis][n] =
                        isReached
                            ? m_evaluator.evalFactor(0, axis, (reach.center[axis] - point[axis]) * scale)
                            : 0.0;
                }
            }
            float value = values[static_cast<std::size_t>(sample)];
            for (Reaching const & node : m_reaching) {
                double const kernel = m_factors[0][static_cast<std::size_t>(node.offset[0])] *
                                      m_factors[1][static_cast<std::size_t>(node.offset[1])] *
                                      m_factors[2][static_cast<std::size_t>(node.offset[2])];
                if (kernel != 0.0)
                    value += static_cast<float>(kernel * normalization * node.count);
            }
            values[static_cast<std::size_t>(sample)] = value;
        });
    }

    IInputSamples const & m_samples;
    COctree const & m_octree;
    Basis const & m_basis;
    int const m_depth;
    CLatticeIndex const & m_nodes;
    NodeCubes const m_cubes;
    double const m_edge;
    int const m_step;
    double const m_doubt;
    std::vector<double> m_counts;           // by position in `m_nodes`
    std::vector<std::uint8_t> m_isDoubtful; // near samples that rounding may move across a face
    CKernelEvaluator<Kernel> const m_evaluator{*m_basis.getSamplePtr()};
    int m_reach = 0;
    std::vector<Point> m_points;
    std::vector<Reaching> m_reaching;
    std::vector<NodeReach> m_reaches;
    std::vector<double> m_factors[3];
};

} // namespace

void addDensityByNodes(IInputSamples const & samples, COctree const & octree, Basis const & basis, int depth,
                       std::vector<float> & values)
{
    double const edge = octree.getCellSize(depth);
    for (COctreeInBoxNodeIterator it(&octree, octree.getNodesBoundaryBox(), depth); !it.isFinished();
         it.next()) {
        int const node = it.currentNodeIndex();
        double position[3];
        octree.getNodePosition(node, position);
        double const count = countAroundNode(samples, octree, position, edge);
        if (count == 0.0)
            continue;
        CParallelepiped const support = getScaledFunctionCommonSupport(basis.makeFunctionByIndex(node));
        for (CSamplePointsIteratorInBox sample(samples, octree, support, -1); !sample.isFinished();
             sample.next()) {
            if (isInside(support, *sample))
                values[static_cast<std::size_t>(sample.currentSampleIndex())] +=
                    static_cast<float>(basis.evalBasisValue(node, *sample) * count);
        }
    }
}

SampleDensity estimateSampleDensity(IInputSamples const & samples, COctree const & octree,
                                    Basis const & basis, int estimationDepth, CProgressCounter * progress,
                                    VsUt::IDebugLog * log)
{
    SampleDensity density;
    std::vector<float> & values = density.weights;
    values.assign(static_cast<std::size_t>(samples.pointsNumber()), 0.0f);

    if (octree.getUnit() > 10.0 * roundingOf(octree)) {
        DensityEstimator estimator(samples, octree, basis, estimationDepth);
        estimator.count(progress);
        estimator.spread(values, progress);
    } else {
        // All samples coincide, so far from the origin that rounding moves them out of their cells.
        addDensityByNodes(samples, octree, basis, estimationDepth, values);
    }

    logValues(log, "Weights normalized by factor", normalizeByLast(values));

    float minimum = values.empty() ? 0.0f : FLT_MAX;
    float maximum = 0.0f;
    for (float & value : values) {
        density.averageDensity += value;
        minimum = value < minimum ? value : minimum;
        maximum = value > maximum ? value : maximum;
        if (value > 0.0f)
            value = 1.0f / value;
    }
    if (!values.empty())
        density.averageDensity /= static_cast<float>(values.size());
    logValues(log, "Average density", density.averageDensity);
    logValues(log, "Minimal density", minimum);
    logValues(log, "Maximal density", maximum);
    return density;
}

} // namespace VolTr
