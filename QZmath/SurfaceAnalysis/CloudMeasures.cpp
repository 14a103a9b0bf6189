// SPDX-License-Identifier: Apache-2.0
#include <QZmath/SurfaceAnalysis/CloudMeasures.h>

#include <QZmath/SurfaceAnalysis/Cloud/Neighbourhoods.h>
#include <QZmath/SurfaceAnalysis/Cloud/PointTree.h>
#include <QZmath/SurfaceAnalysis/Cloud/StablePartition.h>
#include <QZmath/SurfaceAnalysis/Neighbourhood/Scatter.h>

#include <QZmath/Backend/Parallel.h>
#include <QZmath/Foundation/IndexDetail.h>
#include <QZmath/Foundation/VectorProductsDetail.h>

#include <QZsys/ParallelTasks.h>
#include <QZsys/Progress.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
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
using REmath::Detail::index;
using REmath::Detail::widen;

namespace
{

constexpr double unlimited = std::numeric_limits<double>::infinity();
constexpr int measuredNeighbours = 20;
constexpr int spacingNeighbour = 8;
constexpr int mostNeighbours = 320;
constexpr int enoughPoints = 30000;

double const pi = std::acos(-1.0);

// The value in the middle, or 0 of none. Changes the order.
double medianOf(std::vector<float> & values)
{
    if (values.empty())
        return 0;
    auto const middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return static_cast<double>(*middle);
}

// Values that points got, without those that got none.
std::vector<float> valuesOf(std::vector<float> const & ofPoints)
{
    std::vector<float> values;
    std::copy_if(ofPoints.begin(), ofPoints.end(), std::back_inserter(values),
                 [](float value) { return value >= 0; });
    return values;
}

struct Plane
{
    Point3D_d centre;
    Point3D_d normal;
    double rms;  // distance of the points
    bool isFlat; // they spread much less across than along the narrower side
};

// The plane of least squares of some points; none of points on a line or in one place.
std::optional<Plane> planeThrough(int count, Point3D const * points)
{
    if (count < 4)
        return std::nullopt;
    double memory[3][3];
    double * rows[3] = {memory[0], memory[1], memory[2]};
    REmath::Detail::ScatterEigen eigen;
    if (!REmath::Detail::decomposeScatterOf(count, points, rows, eigen))
        return std::nullopt;
    double const * const values = eigen.values;
    double const least = std::max(values[eigen.smallest], 0.0);
    double const largest = std::max({values[0], values[1], values[2]});
    double const middle = values[0] + values[1] + values[2] - largest - values[eigen.smallest];
    if (!(middle > 1e-10 * largest))
        return std::nullopt;
    Plane plane;
    for (int i = 0; i < count; ++i)
        plane.centre += widen(points[i]);
    plane.centre /= count;
    plane.normal = Point3D_d(memory[0][eigen.smallest], memory[1][eigen.smallest], memory[2][eigen.smallest]);
    plane.rms = std::sqrt(least / (count - 3));
    plane.isFlat = least < 0.1 * middle;
    return plane;
}

// Distance to the nearest other place of the given rank; 0 when there are fewer places.
double distanceOfRank(Gathered const & gathered, int rank)
{
    std::array<double, measuredNeighbours> squares;
    int count = 0;
    Point3D_d const centre = widen(gathered.data()[0]);
    for (int i = 1; i < gathered.size() && count < measuredNeighbours; ++i) {
        Point3D_d const apart = widen(gathered.data()[i]) - centre;
        double const square = dot(apart, apart);
        if (square > 0)
            squares[index(count++)] = square;
    }
    if (count < rank)
        return 0;
    std::nth_element(squares.begin(), squares.begin() + rank - 1, squares.begin() + count);
    return std::sqrt(squares[index(rank - 1)]);
}

// What the neighbourhoods of the examined points say of the cloud, for each; negative where they do not.
struct PointMeasures
{
    std::vector<float> spacings, noises;
    std::vector<std::uint8_t> normals;  // bits: 1 judged, 2 off the plane, 4 against the others
    std::vector<std::uint8_t> repeated; // 1 where another point is in the same place

    explicit PointMeasures(std::size_t n)
        : spacings(n, -1.0F), noises(n, -1.0F), normals(n, 0), repeated(n, 0)
    {}
};

std::uint8_t judgeNormal(Gathered const & gathered, CPointTree const & tree, Plane const & plane,
                         Point3D const * normals)
{
    Point3D_d const own = widen(normals[tree.index(gathered.positions()[0])]);
    double const length = own.length();
    if (!(length > 0) || !std::isfinite(length))
        return 0;
    std::uint8_t verdict = 1;
    if (std::abs(dot(own, plane.normal)) < std::sqrt(0.5) * length)
        verdict |= 2;
    int against = 0, with = 0;
    for (int i = 1; i < gathered.size(); ++i) {
        double const cosine = dot(own, widen(normals[tree.index(gathered.positions()[i])]));
        against += cosine < 0;
        with += cosine > 0;
    }
    if (against > with)
        verdict |= 4;
    return verdict;
}

void measurePoint(std::size_t point, Gathered const & gathered, CPointTree const & tree,
                  Point3D const * normals, PointMeasures & measures)
{
    auto const isHere = [own = gathered.data()](Point3D const & other) {
        return other.x() == own->x() && other.y() == own->y() && other.z() == own->z();
    };
    measures.repeated[point] = std::any_of(gathered.data() + 1, gathered.data() + gathered.size(), isHere);
    // A disc with that many points around its centre.
    double const radius = distanceOfRank(gathered, spacingNeighbour);
    if (radius > 0)
        measures.spacings[point] = static_cast<float>(radius * std::sqrt(pi / spacingNeighbour));
    std::optional<Plane> const plane = planeThrough(gathered.size(), gathered.data());
    if (!plane)
        return;
    measures.noises[point] = static_cast<float>(plane->rms);
    if (normals != nullptr && plane->isFlat)
        measures.normals[point] = judgeNormal(gathered, tree, *plane, normals);
}

// Share of the judged normals with a bit.
double shareOf(std::vector<std::uint8_t> const & verdicts, std::uint8_t bit)
{
    std::int64_t judged = 0, set = 0;
    for (std::uint8_t const verdict : verdicts) {
        judged += verdict & 1;
        set += (verdict & bit) != 0;
    }
    return judged > 0 ? static_cast<double>(set) / static_cast<double>(judged) : 0.0;
}

// Of the coordinates, as their sum may overflow.
bool isFinite(Point3D const & point)
{
    return std::isfinite(point.x()) && std::isfinite(point.y()) && std::isfinite(point.z());
}

// One point of each place, in lexicographic order.
std::vector<Point3D> placesOf(int n, Point3D const * points, CProgressCounter * progress)
{
    std::vector<std::uint8_t> isRepeated(index(std::max(n, 0)));
    FindRepeatedPoints(n, points, isRepeated.data(), progress);
    std::vector<Point3D> places;
    for (int i = 0; i < n; ++i) {
        if (isRepeated[index(i)] == 0 && isFinite(points[i]))
            places.push_back(points[i]);
    }
    std::sort(places.begin(), places.end(), [](Point3D const & a, Point3D const & b) {
        return std::lexicographical_compare(a.asArray(), a.asArray() + 3, b.asArray(), b.asArray() + 3);
    });
    return places;
}

// The same for equal places, of which 0 and -0 are two forms.
std::uint64_t hashOf(Point3D const & place)
{
    std::uint64_t hash = 0;
    for (int axis = 0; axis < 3; ++axis) {
        float const coordinate = place.asArray()[axis] + 0.0F;
        std::uint32_t bits;
        std::memcpy(&bits, &coordinate, sizeof(bits));
        hash = (hash ^ bits) * UINT64_C(0x9E3779B97F4A7C15);
        hash ^= hash >> 32;
    }
    return hash * UINT64_C(0xD6E8FEB86659FD93);
}

// Marks the points that repeat one before them in a list; gives how many.
int markRepeated(int const * begin, int const * end, Point3D const * points, std::uint8_t * isRepeated)
{
    std::vector<int> firsts(16, -1); // an open table, at most half full
    std::size_t places = 0;
    auto const slotOf = [&](int point) -> int & {
        float const * const here = points[point].asArray();
        std::size_t const mask = firsts.size() - 1;
        std::size_t slot = hashOf(points[point]) >> 24 & mask;
        while (firsts[slot] >= 0 && !std::equal(here, here + 3, points[firsts[slot]].asArray()))
            slot = (slot + 1) & mask;
        return firsts[slot];
    };
    for (int const * point = begin; point != end; ++point) {
        int & first = slotOf(*point);
        isRepeated[*point] = first >= 0;
        if (first >= 0)
            continue;
        first = *point;
        if (2 * ++places < firsts.size())
            continue;
        std::vector<int> const fewer = std::exchange(firsts, std::vector<int>(2 * firsts.size(), -1));
        for (int const moved : fewer) {
            if (moved >= 0)
                slotOf(moved) = moved;
        }
    }
    return static_cast<int>(end - begin) - static_cast<int>(places);
}

} // namespace

CCloudMeasures MeasureCloud(int n, Point3D const * points, Point3D const * normals,
                            CProgressCounter * progress)
{
    CCloudMeasures found;
    CPrgCntSubPhase growing(progress, 0.0, 0.7, 0, true);
    CPointTree const tree(n, points, progress);
    growing.Finish();
    CPrgCntSubPhase const measuring(progress, 0.7, 0.3, 0, true);
    auto const strideFor = [&](int neighbours) {
        return 1 + tree.size() / (enoughPoints / neighbours * measuredNeighbours);
    };
    PointMeasures measures(index(tree.leafCount() / strideFor(measuredNeighbours) + 1) *
                           index(tree.leafSize()));
    auto const measureWith = [&](int neighbours) {
        int const stride = strideFor(neighbours);
        return forAllNeighbourhoods(
            tree, neighbours, unlimited, progress,
            [&](std::uint32_t, Gathered const & gathered) {
                int const position = gathered.positions()[0], leaf = tree.leafOf(position);
                int const place = leaf / stride * tree.leafSize() + position - tree.leafBegin(leaf);
                measurePoint(index(place), gathered, tree, normals, measures);
                return true;
            },
            stride);
    };
    found.examined = measureWith(measuredNeighbours);
    if (found.examined > 0)
        found.repeated =
            static_cast<double>(std::count(measures.repeated.begin(), measures.repeated.end(), 1)) /
            found.examined;
    std::vector<float> spacings = valuesOf(measures.spacings);
    // Where most points repeat one another, places count.
    if (2 * spacings.size() < index(found.examined)) {
        std::vector<Point3D> const places = placesOf(n, points, progress);
        if (places.size() < index(tree.size())) {
            CCloudMeasures ofPlaces =
                MeasureCloud(static_cast<int>(places.size()), places.data(), nullptr, nullptr);
            ofPlaces.examined = found.examined;
            ofPlaces.repeated = found.repeated;
            return ofPlaces;
        }
    }
    double const spacing = medianOf(spacings);
    std::vector<float> noises = valuesOf(measures.noises);
    double noise = medianOf(noises);
    found.normalsOffPlane = shareOf(measures.normals, 2);
    found.normalsAgainstOthers = shareOf(measures.normals, 4);
    // Noise that fills the neighbourhoods shows its size in wider ones only.
    normals = nullptr;
    for (int neighbours = 4 * measuredNeighbours; neighbours <= mostNeighbours; neighbours *= 4) {
        double const radius = spacing * std::sqrt(neighbours / (4 * pi));
        if (noise < 0.25 * radius)
            break;
        std::fill(measures.noises.begin(), measures.noises.end(), -1.0F);
        measureWith(neighbours);
        noises = valuesOf(measures.noises);
        noise = medianOf(noises);
    }
    found.spacing = spacing / tree.unit();
    found.noise = noise / tree.unit();
    return found;
}

int FindRepeatedPoints(int n, Point3D const * points, std::uint8_t * isRepeated, CProgressCounter * progress)
{
    // By hash into lists that are looked through one by one; the last one is of points that are not finite.
    int const lists = std::clamp(n >> 12, 1, 1 << 10);
    std::vector<int> order(index(std::max(n, 0)));
    std::vector<int> marked(index(lists), 0);
    int const threads = std::clamp(lists, 1, CVescaThreadingTasksHelper::getNumOfPhisicalThread());
    QzBackend::LoopTeam::run(threads, progress, [&](QzBackend::LoopTeam & team) {
        std::fill_n(isRepeated, std::max(n, 0), std::uint8_t(0));
        auto const listOf = [&](int point) {
            return isFinite(points[point]) ? static_cast<int>(hashOf(points[point]) >> 54) % lists : lists;
        };
        auto const put = [&](int point, int place) { order[index(place)] = point; };
        std::vector<int> const begins = REmath::Detail::partitionStably(n, lists + 1, listOf, put, team);
        team.forEach(lists, [&](int list) {
            marked[index(list)] = markRepeated(order.data() + begins[index(list)],
                                               order.data() + begins[index(list + 1)], points, isRepeated);
        });
    });
    return std::accumulate(marked.begin(), marked.end(), 0);
}

namespace
{

// Marks outliers among the points; gives their number.
int markOutliers(int n, Point3D const * points, int count, double deviations, std::uint8_t * isOutlier,
                 CProgressCounter * progress)
{
    CPrgCntSubPhase growing(progress, 0.0, 0.2, 0, true);
    CPointTree const tree(n, points, progress);
    growing.Finish();

    // Of each point: the mean distance to its neighbours, and how far it and they stand off their plane.
    std::vector<float> distances(index(n), -1.0F), heights(index(n), 0.0F), spreads(index(n), -1.0F);
    CPrgCntSubPhase const searching(progress, 0.2, 0.8, 0, true);
    auto const measure = [&](std::uint32_t point, Gathered const & gathered) {
        if (gathered.size() < 2)
            return false;
        Point3D_d const own = widen(gathered.data()[0]);
        double sum = 0;
        for (int i = 1; i < gathered.size(); ++i)
            sum += (widen(gathered.data()[i]) - own).length();
        distances[point] = static_cast<float>(sum / (gathered.size() - 1));
        if (auto const plane = planeThrough(gathered.size() - 1, gathered.data() + 1)) {
            heights[point] = static_cast<float>(std::abs(dot(own - plane->centre, plane->normal)));
            spreads[point] = static_cast<float>(plane->rms);
        }
        return true;
    };
    forAllNeighbourhoods(tree, count, unlimited, progress, measure);

    // Points that repeat one another have no distances to compare.
    std::vector<float> logarithms;
    for (float const distance : distances) {
        if (distance > 0)
            logarithms.push_back(std::log(distance));
    }
    double const middle = medianOf(logarithms);
    for (float & value : logarithms)
        value = static_cast<float>(std::abs(static_cast<double>(value) - middle));
    double const deviation = std::max(1.4826 * medianOf(logarithms), 0.2);
    double const farthest = std::exp(middle + deviations * deviation);
    // The mean distance of k points around the centre of a disc is two thirds of its radius.
    double const spacing = 1.5 * std::exp(middle) * std::sqrt(pi / (count - 1));
    std::vector<float> known = valuesOf(spreads);
    double const typicalSpread = medianOf(known);

    int marked = 0;
    for (std::size_t point = 0; point < index(n); ++point) {
        double const height = static_cast<double>(heights[point]);
        double const spread = std::hypot(static_cast<double>(spreads[point]), typicalSpread);
        bool const isFar = static_cast<double>(distances[point]) > farthest;
        bool const isOff = height > spacing && height > (deviations + 1) * spread;
        isOutlier[point] = distances[point] < 0 || isFar || isOff;
        marked += isOutlier[point];
    }
    return marked;
}

} // namespace

int FindOutliers(int n, Point3D const * points, int neighbours, double deviations, std::uint8_t * isOutlier,
                 CProgressCounter * progress)
{
    std::fill_n(isOutlier, std::max(n, 0), std::uint8_t(0));
    if (!(deviations > 0) || n <= 0)
        return 0;
    int const count = std::clamp(neighbours, 3, 1000) + 1;
    int marked = 0;
    {
        CPrgCntSubPhase const first(progress, 0.0, 0.5, 0, true);
        marked = markOutliers(n, points, count, deviations, isOutlier, progress);
    }
    // Without the far ones, those near the surface stand out.
    CPrgCntSubPhase const second(progress, 0.5, 0.5, 0, true);
    std::vector<Point3D> rest;
    std::vector<int> indices;
    for (int i = 0; i < n; ++i) {
        if (isOutlier[i] == 0) {
            rest.push_back(points[i]);
            indices.push_back(i);
        }
    }
    std::vector<std::uint8_t> more(rest.size());
    if (marked == 0 || rest.empty())
        return marked;
    marked +=
        markOutliers(static_cast<int>(rest.size()), rest.data(), count, deviations, more.data(), progress);
    for (std::size_t i = 0; i < more.size(); ++i)
        isOutlier[indices[i]] = more[i];
    return marked;
}
