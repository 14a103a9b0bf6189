// SPDX-License-Identifier: Apache-2.0

// Normals, curvatures and measures of any points, of the whole cloud and of one neighbourhood. Normals are
// unit vectors or zero, as many as are said to be made, with the same bits for one thread and for two, and
// for a cloud of twice the size; what is marked is counted.

#include <QZmath/SurfaceAnalysis/CloudMeasures.h>
#include <QZmath/SurfaceAnalysis/CloudNormals.h>
#include <QZmath/SurfaceAnalysis/NormalEstimation.h>
#include <QZsys/ParallelTasks.h>

#include "Input.h"

namespace
{

using namespace qz_fuzz;
using REmath::Point3D;
using REmath::Point3D_d;
using Points = std::vector<Point3D>;

Point3D_d wide(Point3D const & p) { return {double(p.x()), double(p.y()), double(p.z())}; }

bool isZero(Point3D const & p) { return p.x() == 0 && p.y() == 0 && p.z() == 0; }

std::size_t countUnits(Points const & normals)
{
    std::size_t count = 0;
    for (Point3D const & normal : normals) {
        require(isZero(normal) || isUnit(wide(normal), 1e-5), "a normal is a unit vector or zero");
        count += isZero(normal) ? 0 : 1;
    }
    return count;
}

// The same after multiplication with 2, unless that meets the end of the range.
bool isDoubled(Points const & points, Points & twice)
{
    twice = points;
    for (Point3D & p : twice)
        p *= 2.0F;
    return std::all_of(points.begin(), points.end(), [](Point3D const & p) {
        auto const isInside = [](float x) {
            return x == 0 || (std::fabs(x) > 1e-30F && std::fabs(x) < 1e30F);
        };
        return isInside(p.x()) && isInside(p.y()) && isInside(p.z());
    });
}

CEstimateNormalsPrms drawSettings(Input & input)
{
    CEstimateNormalsPrms settings;
    if (input.flag())
        settings.neighbourhood.count = input.integer();
    if (input.flag())
        settings.neighbourhood.radius = input.number();
    settings.orientation = static_cast<NormalOrientation>(input.upTo(2));
    Point3D_d const viewpoint = input.point();
    settings.viewpoint = Point3D(viewpoint.x(), viewpoint.y(), viewpoint.z());
    return settings;
}

void checkNormals(Points const & points, Input & input)
{
    int const n = int(points.size());
    CEstimateNormalsPrms const settings = drawSettings(input);
    Points normals(points.size()), others(points.size());
    int guessed = -1, guessedByTwo = -1;
    int made = 0, madeByTwo = 0;
    {
        CThreadNumberScope const one(1);
        made = EstimateNormals(n, points.data(), settings, normals.data(), nullptr, &guessed);
    }
    {
        CThreadNumberScope const two(2);
        madeByTwo = EstimateNormals(n, points.data(), settings, others.data(), nullptr, &guessedByTwo);
    }
    require(Bits(normals, made, guessed) == Bits(others, madeByTwo, guessedByTwo),
            "threads have no influence on normals");
    require(countUnits(normals) == std::size_t(made) && guessed >= 0 && guessed <= n, "normals are counted");
    Points twice;
    if (settings.neighbourhood.radius == 0 && settings.orientation != NormalOrientation::viewpoint &&
        isDoubled(points, twice)) {
        EstimateNormals(n, twice.data(), settings, others.data());
        require(Bits(normals) == Bits(others), "the size of a cloud has no influence on normals");
    }
    // Some are taken away, or made strange, and completed.
    for (Point3D & normal : normals) {
        int const change = input.byte();
        if (change % 4 == 3)
            normal = Point3D();
        else if (change > 250)
            normal = inSinglePrecision({input.point()}).front();
    }
    Points completed = normals;
    std::size_t const missing = std::size_t(std::count_if(normals.begin(), normals.end(), isZero));
    int const more = CompleteNormals(n, points.data(), input.integer(), completed.data());
    require(more >= 0 && std::size_t(more) <= missing, "what is completed was missing");
    require(std::size_t(std::count_if(completed.begin(), completed.end(), isZero)) ==
                missing - std::size_t(more),
            "completed normals are counted");
    for (std::size_t k = 0; k < normals.size(); ++k)
        require(isZero(normals[k]) || Bits(normals[k]) == Bits(completed[k]), "a given normal stays");
    OrientNormalsTowards(n, points.data(), settings.viewpoint, completed.data());
    OrientNormalsBySpanningTree(n, points.data(), normals.data(), nullptr, &guessed);
    require(guessed >= 0 && guessed <= n, "guessed normals are counted");
}

void checkCurvatures(Points const & points, Input & input)
{
    int const n = int(points.size());
    CNeighbourhoodPrms const neighbourhood = drawSettings(input).neighbourhood;
    Points const normals(points.rbegin(), points.rend());
    std::vector<CPointCurvatures> curvatures(points.size()), again(points.size());
    Point3D const * const given = input.flag() ? normals.data() : nullptr;
    int const made = EstimateCurvatures(n, points.data(), neighbourhood, given, curvatures.data());
    EstimateCurvatures(n, points.data(), neighbourhood, given, again.data());
    int count = 0;
    for (std::size_t k = 0; k < points.size(); ++k) {
        CPointCurvatures const & c = curvatures[k];
        require(Bits(c.minCurvature, c.maxCurvature, c.normal, c.method) ==
                    Bits(again[k].minCurvature, again[k].maxCurvature, again[k].normal, again[k].method),
                "curvatures have the same bits again");
        if (c.method == CPointCurvatures::failed) {
            require(c.minCurvature == 0 && c.maxCurvature == 0 && isZero(c.normal), "a failure is all zero");
            continue;
        }
        ++count;
        require(c.minCurvature <= c.maxCurvature && std::isfinite(c.minCurvature) &&
                    std::isfinite(c.maxCurvature),
                "curvatures are finite and in order");
        require(isUnit(wide(c.normal), 1e-5), "the normal of a curvature is a unit vector");
        require(isZero(c.maxDirection) == (c.method == CPointCurvatures::sphere),
                "a quadric has a direction");
    }
    require(count == made, "curvatures are counted");
}

void checkMeasures(Points const & points, Input & input)
{
    int const n = int(points.size());
    Points const normals(points.rbegin(), points.rend());
    CCloudMeasures const measures = MeasureCloud(n, points.data(), input.flag() ? normals.data() : nullptr);
    auto const isShare = [](double value) { return value >= 0 && value <= 1; };
    require(std::isfinite(measures.spacing) && measures.spacing >= 0 && std::isfinite(measures.noise) &&
                measures.noise >= 0 && isShare(measures.normalsOffPlane) &&
                isShare(measures.normalsAgainstOthers) && isShare(measures.repeated),
            "measures are in range");
    std::vector<std::uint8_t> marks(points.size(), 7), again(marks);
    auto const count = [&] {
        require(std::all_of(marks.begin(), marks.end(), [](int mark) { return mark == 0 || mark == 1; }),
                "every point is marked or not");
        return std::count(marks.begin(), marks.end(), 1);
    };
    int const repeated = FindRepeatedPoints(n, points.data(), marks.data());
    require(repeated == count(), "repeated points are counted");
    for (std::size_t k = 0; k < points.size(); ++k) {
        bool const isRepeated = std::any_of(points.begin(), points.begin() + std::ptrdiff_t(k),
                                            [&](Point3D const & p) { return p == points[k]; });
        require((marks[k] == 1) == (isRepeated && isFinite(points[k])), "repeated points are those");
    }
    int const neighbours = input.integer();
    double const deviations = input.number();
    int const outliers = FindOutliers(n, points.data(), neighbours, deviations, marks.data());
    require(outliers == count(), "outliers are counted");
    FindOutliers(n, points.data(), neighbours, deviations, again.data());
    require(marks == again, "outliers are the same again");
}

void checkNeighbourhood(Points points, Input & input)
{
    int const n = int(points.size());
    double rows[3][3], normal[3], curvature = 0;
    double * matrix[3] = {rows[0], rows[1], rows[2]};
    float anisotropy = 0;
    auto const isUnitNormal = [&] { return isUnit(Point3D_d(normal), 1e-5); };
    if (GetNormal(n, points.data(), matrix, normal) != 0)
        require(isUnitNormal(), "the normal of a plane is a unit vector");
    if (GetAnisotropy(n, points.data(), matrix, anisotropy) != 0)
        require(anisotropy >= -1e-6F && anisotropy < 0.3334F, "an anisotropy is in range");
    if (EstimateNormal(points, normal))
        require(isUnitNormal(), "an estimated normal is a unit vector");
    CGetNormal2Prms settings;
    settings.Force2() = input.flag();
    settings.ZeroFremTerm() = input.flag();
    if (input.flag())
        settings.Appr2MinDist() = float(input.number());
    CQuadraticForm form;
    std::vector<float> distances(points.size());
    double scale = 0;
    if (GetNormal2(n, points.data(), &settings, &form, normal, distances.data(), &scale)) {
        require(isUnitNormal() && std::isfinite(scale) && scale > 0,
                "the normal of a quadric is a unit vector");
        require(!std::isnan(form.getKXX() + form.getKYZ() + form.getKZ() + form.getK()),
                "a quadric is finite");
        MaxCurvature(form);
    }
    if (GetNormalAndQuadricApprShiftedNonScaled(n, points.data(), form, normal))
        require(isUnitNormal(), "the normal of a quadric in place is a unit vector");
    REmath::Matrix<double> tensor;
    if (EstimateCurvature(points, true, normal, tensor))
        require(isUnitNormal() && tensor.rows() == 3 && tensor(0, 1) == tensor(1, 0),
                "a tensor is symmetric");
    float least = 0, greatest = 0;
    if (GetMinMaxCurvaturesForPoints(points, least, greatest))
        require(least <= greatest && std::isfinite(least) && std::isfinite(greatest),
                "curvatures are in order");
    if (EstimateUmbilicCurvature(n, points.data(), normal, curvature))
        require(isUnitNormal() && std::isfinite(curvature) && curvature >= 0, "a sphere is finite");
    float contourNormal[3];
    if (DetectContourNormal(points, contourNormal))
        require(isUnit(wide(Point3D(contourNormal)), 1e-4), "the normal of a contour is a unit vector");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size)
{
    Input input(data, size);
    int const kind = input.upTo(3);
    Points const points = inSinglePrecision(input.points(kind == 3 ? 25 : 150));
    switch (kind) {
    case 0:
        checkNormals(points, input);
        break;
    case 1:
        checkCurvatures(points, input);
        break;
    case 2:
        checkMeasures(points, input);
        break;
    default:
        checkNeighbourhood(points, input);
    }
    return 0;
}
