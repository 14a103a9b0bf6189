// SPDX-License-Identifier: Apache-2.0
#include <QZmath/SurfaceAnalysis/CloudNormals.h>

#include <QZmath/SurfaceAnalysis/Cloud/PointTree.h>
#include <QZmath/SurfaceAnalysis/Cloud/SpanningTree.h>
#include <QZmath/SurfaceAnalysis/Neighbourhood/CurvatureTensor.h>
#include <QZmath/SurfaceAnalysis/Neighbourhood/Scatter.h>
#include <QZmath/SurfaceAnalysis/NormalEstimation.h>

#include <QZmath/Backend/Parallel.h>
#include <QZmath/Foundation/IndexDetail.h>
#include <QZmath/Foundation/UnitScatterDetail.h>
#include <QZmath/Foundation/VectorProductsDetail.h>

#include <QZsys/Progress.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <limits>
#include <optional>
#include <vector>

using REmath::Point3D;
using REmath::Point3D_d;
using REmath::Detail::CNeighbourFinder;
using REmath::Detail::CPointTree;
using REmath::Detail::dot;
using REmath::Detail::index;
using REmath::Detail::widen;

namespace
{

// In the first tenth of the progress.
CPointTree growTree(int n, Point3D const * points, CProgressCounter * progress)
{
    CPrgCntSubPhase const growing(progress, 0.0, 0.1, 0, true);
    return CPointTree(n, points, progress);
}

// The radius in units of the tree; nothing for settings that make no sense.
std::optional<double> radiusInTree(CNeighbourhoodPrms const & prms, CPointTree const & tree)
{
    if (prms.count < 0 || !(prms.radius >= 0) || (prms.count == 0 && prms.radius == 0))
        return std::nullopt;
    return prms.radius > 0 ? prms.radius * tree.unit() : std::numeric_limits<double>::infinity();
}

// The neighbours' coordinates in units of the tree, the point of interest first.
class Gathered
{
public:
    void take(CPointTree const & tree, int position, CNeighbourFinder::Neighbours const & neighbours)
    {
        m_points.clear();
        m_points.push_back(tree.point(position));
        for (int i = 0; i < neighbours.count; ++i) {
            if (neighbours.positions[i] != position)
                m_points.push_back(tree.point(neighbours.positions[i]));
        }
    }
    int size() const { return static_cast<int>(m_points.size()); }
    Point3D const * data() const { return m_points.data(); }

private:
    std::vector<Point3D> m_points;
};

// Calls `estimate(index, gathered)` for every point of the tree, on all threads; gives how often that was
// true.
template <class Estimate>
int forAllNeighbourhoods(CPointTree const & tree, int count, double radius, CProgressCounter * progress,
                         Estimate estimate)
{
    if (tree.size() == 0)
        return 0;
    struct Worker
    {
        CNeighbourFinder finder;
        Gathered gathered;
        int made = 0;
    };
    int made = 0;
    QzBackend::LoopTeam::run(tree.usefulThreads(), progress, [&](QzBackend::LoopTeam & team) {
        std::vector<Worker> workers(index(team.threads()),
                                    Worker{CNeighbourFinder(tree, count, radius), {}, 0});
        auto const workOffLeaf = [&](int slot, int leaf) {
            Worker & worker = workers[index(slot)];
            worker.finder.openLeaf(leaf);
            for (int position = tree.leafBegin(leaf); position < tree.leafBegin(leaf + 1); ++position) {
                worker.gathered.take(tree, position, worker.finder.find(position));
                worker.made += estimate(tree.index(position), worker.gathered);
            }
        };
        team.forEachOnSlot(tree.leafCount(), workOffLeaf, 1);
        for (Worker const & worker : workers)
            made += worker.made;
    });
    return made;
}

bool estimateNormal(Gathered const & gathered, Point3D & normal)
{
    if (gathered.size() < 3)
        return false;
    double memory[3][3];
    double * rows[3] = {memory[0], memory[1], memory[2]};
    REmath::Detail::sumScatter(gathered.size(), gathered.data(), rows);
    REmath::Detail::UnitScatter const scatter(memory[0][0], memory[0][1], memory[0][2], memory[1][1],
                                              memory[1][2], memory[2][2]);
    Point3D_d vector;
    if (scatter.eigenvectorOf(scatter.leastEigenvalue(), 1e-3, vector)) {
        normal = Point3D(vector.asArray());
        return true;
    }
    REmath::Detail::ScatterEigen eigen;
    if (!REmath::Detail::decomposeScatter(rows, eigen) || eigen.smallest < 0)
        return false;
    // Without a second direction there is no plane. Rounded coordinates on a line leave some 1e-14.
    double const * const values = eigen.values;
    double const largest = std::max({values[0], values[1], values[2]});
    double const middle = values[0] + values[1] + values[2] - largest - values[eigen.smallest];
    if (!(middle > 1e-10 * largest))
        return false;
    normal = Point3D(memory[0][eigen.smallest], memory[1][eigen.smallest], memory[2][eigen.smallest]);
    return true;
}

// Principal curvatures and the direction of the larger one out of the tensor and the normal.
void decomposeTensor(double (&tensor)[3][3], double const * normal, CPointCurvatures & curvatures)
{
    double * rows[3] = {tensor[0], tensor[1], tensor[2]};
    REmath::Detail::ScatterEigen eigen;
    if (!REmath::Detail::decomposeScatter(rows, eigen))
        return;
    int along = 0;
    double largest = -1;
    for (int i = 0; i < 3; ++i) {
        double const cosine =
            std::abs(tensor[0][i] * normal[0] + tensor[1][i] * normal[1] + tensor[2][i] * normal[2]);
        if (cosine > largest) {
            largest = cosine;
            along = i;
        }
    }
    int low = (along + 1) % 3, high = (along + 2) % 3;
    if (eigen.values[low] > eigen.values[high])
        std::swap(low, high);
    curvatures.method = CPointCurvatures::quadric;
    curvatures.minCurvature = static_cast<float>(eigen.values[low]);
    curvatures.maxCurvature = static_cast<float>(eigen.values[high]);
    curvatures.maxDirection = Point3D(tensor[0][high], tensor[1][high], tensor[2][high]);
}

// In units of the tree, on the side of `side` unless that is null.
CPointCurvatures estimateCurvatures(Gathered const & gathered, Point3D const * side)
{
    CPointCurvatures curvatures;
    double normal[3], sphereNormal[3], tensor[3][3], curvature = 0;
    bool isSphereBetter = true;
    if (REmath::Detail::estimateCurvatureTensor(gathered.size(), gathered.data(), true, normal, tensor,
                                                &isSphereBetter))
        decomposeTensor(tensor, normal, curvatures);
    if (isSphereBetter &&
        EstimateUmbilicCurvature(gathered.size(), gathered.data(), sphereNormal, curvature)) {
        curvatures.method = CPointCurvatures::sphere;
        curvatures.minCurvature = curvatures.maxCurvature = static_cast<float>(curvature);
        curvatures.maxDirection = Point3D();
        std::copy_n(sphereNormal, 3, normal);
    }
    if (curvatures.method == CPointCurvatures::failed)
        return {};
    curvatures.normal = Point3D(normal);
    if (side && dot(Point3D_d(normal), widen(*side)) < 0) {
        curvatures.normal = -curvatures.normal;
        std::swap(curvatures.minCurvature, curvatures.maxCurvature);
        curvatures.minCurvature = -curvatures.minCurvature;
        curvatures.maxCurvature = -curvatures.maxCurvature;
        if (curvatures.method == CPointCurvatures::quadric) {
            Point3D_d const other = REmath::Detail::cross(Point3D_d(normal), widen(curvatures.maxDirection));
            curvatures.maxDirection = Point3D(other.asArray());
        }
    }
    return curvatures;
}

} // namespace

int EstimateNormals(int n, Point3D const * points, CEstimateNormalsPrms const & prms, Point3D * normals,
                    CProgressCounter * progress)
{
    std::fill_n(normals, std::max(n, 0), Point3D());
    CPointTree const tree = growTree(n, points, progress);
    std::optional<double> const radius = radiusInTree(prms.neighbourhood, tree);
    if (!radius)
        return 0;
    bool const isSpread = prms.orientation == NormalOrientation::spanningTree;
    int made = 0;
    {
        CPrgCntSubPhase const estimating(progress, 0.1, isSpread ? 0.4 : 0.9, 0, true);
        made = forAllNeighbourhoods(tree, prms.neighbourhood.count, *radius, progress,
                                    [&](std::uint32_t index, Gathered const & gathered) {
                                        return estimateNormal(gathered, normals[index]);
                                    });
    }
    if (isSpread) {
        CPrgCntSubPhase const orienting(progress, 0.5, 0.5, 0, true);
        REmath::Detail::orientBySpanningTree(tree, normals, progress);
    } else if (prms.orientation == NormalOrientation::viewpoint) {
        OrientNormalsTowards(n, points, prms.viewpoint, normals);
    }
    return made;
}

void OrientNormalsTowards(int n, Point3D const * points, Point3D const & viewpoint, Point3D * normals)
{
    Point3D_d const eye = widen(viewpoint);
    for (int i = 0; i < n; ++i) {
        if (dot(widen(normals[i]), eye - widen(points[i])) < 0)
            normals[i] = -normals[i];
    }
}

void OrientNormalsBySpanningTree(int n, Point3D const * points, Point3D * normals,
                                 CProgressCounter * progress)
{
    CPointTree const tree = growTree(n, points, progress);
    CPrgCntSubPhase const orienting(progress, 0.1, 0.9, 0, true);
    REmath::Detail::orientBySpanningTree(tree, normals, progress);
}

int EstimateCurvatures(int n, Point3D const * points, CNeighbourhoodPrms const & prms,
                       Point3D const * normals, CPointCurvatures * curvatures, CProgressCounter * progress)
{
    std::fill_n(curvatures, std::max(n, 0), CPointCurvatures());
    CPointTree const tree = growTree(n, points, progress);
    std::optional<double> const radius = radiusInTree(prms, tree);
    if (!radius)
        return 0;
    CPrgCntSubPhase const estimating(progress, 0.1, 0.9, 0, true);
    auto const unit = static_cast<float>(tree.unit());
    return forAllNeighbourhoods(tree, prms.count, *radius, progress,
                                [&](std::uint32_t index, Gathered const & gathered) {
                                    CPointCurvatures & found = curvatures[index];
                                    found = estimateCurvatures(gathered, normals ? normals + index : nullptr);
                                    found.minCurvature *= unit;
                                    found.maxCurvature *= unit;
                                    return found.method != CPointCurvatures::failed;
                                });
}
