// SPDX-License-Identifier: Apache-2.0
#include <QZmath/SurfaceAnalysis/CloudNormals.h>

#include <QZmath/SurfaceAnalysis/Cloud/Neighbourhoods.h>
#include <QZmath/SurfaceAnalysis/Cloud/PointTree.h>
#include <QZmath/SurfaceAnalysis/Cloud/SpanningTree.h>
#include <QZmath/SurfaceAnalysis/Neighbourhood/CurvatureTensor.h>
#include <QZmath/SurfaceAnalysis/Neighbourhood/Scatter.h>
#include <QZmath/SurfaceAnalysis/NormalEstimation.h>

#include <QZmath/Foundation/IndexDetail.h>
#include <QZmath/Foundation/UnitScatterDetail.h>
#include <QZmath/Foundation/VectorProductsDetail.h>

#include <QZsys/Progress.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <limits>
#include <numeric>
#include <optional>
#include <utility>
#include <vector>

using REmath::Point3D;
using REmath::Point3D_d;
using REmath::Detail::CPointTree;
using REmath::Detail::dot;
using REmath::Detail::forAllNeighbourhoods;
using REmath::Detail::Gathered;
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

template <class Point>
bool isZero(Point const & vector)
{
    return vector.x() == 0 && vector.y() == 0 && vector.z() == 0;
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
                    CProgressCounter * progress, int * guessed)
{
    if (guessed != nullptr)
        *guessed = 0;
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
        int const withoutSide = REmath::Detail::orientBySpanningTree(tree, normals, progress);
        if (guessed != nullptr)
            *guessed = withoutSide;
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
                                 CProgressCounter * progress, int * guessed)
{
    CPointTree const tree = growTree(n, points, progress);
    CPrgCntSubPhase const orienting(progress, 0.1, 0.9, 0, true);
    int const withoutSide = REmath::Detail::orientBySpanningTree(tree, normals, progress);
    if (guessed != nullptr)
        *guessed = withoutSide;
}

int CompleteNormals(int n, Point3D const * points, int neighbours, Point3D * normals,
                    CProgressCounter * progress)
{
    CPointTree const tree = growTree(n, points, progress);
    CPrgCntSubPhase const completing(progress, 0.1, 0.9, 0, true);

    // The planes of all points without a normal, and who their neighbours are.
    struct Pending
    {
        std::uint32_t point;
        Point3D normal;
        std::vector<std::uint32_t> around;
    };
    std::vector<int> pendingOf(REmath::Detail::index(std::max(n, 0)), -1);
    std::vector<Pending> pending;
    for (int i = 0; i < n; ++i) {
        if (isZero(normals[i])) {
            pendingOf[REmath::Detail::index(i)] = static_cast<int>(pending.size());
            pending.push_back({static_cast<std::uint32_t>(i), {}, {}});
        }
    }
    auto const settlePlane = [&](std::uint32_t point, Gathered const & gathered) {
        if (pendingOf[point] < 0)
            return false;
        Pending & own = pending[REmath::Detail::index(pendingOf[point])];
        if (!estimateNormal(gathered, own.normal))
            return false;
        for (int i = 1; i < gathered.size(); ++i)
            own.around.push_back(tree.index(gathered.positions()[i]));
        return true;
    };
    forAllNeighbourhoods(tree, neighbours, std::numeric_limits<double>::infinity(), progress, settlePlane);
    std::vector<std::vector<int>> askedBy(pending.size()); // the pending ones around which a pending one is
    for (std::size_t i = 0; i < pending.size(); ++i) {
        for (std::uint32_t const neighbour : pending[i].around) {
            if (pendingOf[neighbour] >= 0)
                askedBy[REmath::Detail::index(pendingOf[neighbour])].push_back(static_cast<int>(i));
        }
    }

    // Sides spread from those that are known, ring by ring.
    int made = 0;
    std::vector<int> ring(pending.size());
    std::iota(ring.begin(), ring.end(), 0);
    while (!ring.empty()) {
        std::vector<std::pair<std::uint32_t, Point3D>> found;
        for (int const candidate : ring) {
            Pending const & own = pending[REmath::Detail::index(candidate)];
            Point3D_d side;
            for (std::uint32_t const neighbour : own.around)
                side += widen(normals[neighbour]);
            if (!isZero(normals[own.point]) || isZero(side))
                continue;
            found.emplace_back(own.point, dot(widen(own.normal), side) < 0 ? -own.normal : own.normal);
        }
        ring.clear();
        for (auto const & [point, normal] : found) {
            normals[point] = normal;
            std::vector<int> const & next = askedBy[REmath::Detail::index(pendingOf[point])];
            ring.insert(ring.end(), next.begin(), next.end());
        }
        std::sort(ring.begin(), ring.end());
        ring.erase(std::unique(ring.begin(), ring.end()), ring.end());
        made += static_cast<int>(found.size());
    }
    return made;
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
    return forAllNeighbourhoods(
        tree, prms.count, *radius, progress, [&](std::uint32_t index, Gathered const & gathered) {
            CPointCurvatures & found = curvatures[index];
            found = estimateCurvatures(gathered, normals ? normals + index : nullptr);
            found.minCurvature *= unit;
            found.maxCurvature *= unit;
            // Of neighbours so near that no float holds their curvature.
            if (!std::isfinite(found.minCurvature) || !std::isfinite(found.maxCurvature))
                found = {};
            return found.method != CPointCurvatures::failed;
        });
}
