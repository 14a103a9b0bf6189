// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Reconstruction/Cloud/SampleNormals.h>

#include <QZmath/Reconstruction/Cloud/LocalCloud.h>
#include <QZmath/Reconstruction/Reconstruction.h>

#include <QZmath/SurfaceAnalysis/CloudMeasures.h>
#include <QZmath/SurfaceAnalysis/CloudNormals.h>

#include <QZsys/Progress.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

namespace QZmath
{

using REmath::Point3D;

namespace
{

// Shares of normals beyond which the user should know. Sharp edges and noise leave a few per cent on good
// clouds.
double const doubtfulOffPlane = 0.15;
double const doubtfulAgainstOthers = 0.03;

std::string percent(double share)
{
    char text[32];
    std::snprintf(text, sizeof(text), "%.2g %%", 100.0 * share);
    return text;
}

int zerosAmong(LocalCloud const & cloud)
{
    return static_cast<int>(std::count_if(
        cloud.normalVectors(), cloud.normalVectors() + cloud.size(), [](Point3D const & normal) {
            return normal.x() == 0.0f && normal.y() == 0.0f && normal.z() == 0.0f;
        }));
}

// Turns each normal to the place from which its point was seen.
void turnToViewpoints(LocalCloud const & cloud, ReconstructionOptions const & options,
                      std::vector<Point3D> & normals)
{
    std::vector<Point3D> viewpoints;
    auto const addLocal = [&](std::array<double, 3> const & place) {
        double local[3];
        for (std::size_t axis = 0; axis < 3; ++axis)
            local[axis] = (place[axis] - cloud.frame().origin[axis]) * cloud.frame().scale;
        viewpoints.emplace_back(local);
    };
    if (options.viewpoints.empty())
        addLocal(options.viewpoint);
    for (std::array<double, 3> const & place : options.viewpoints)
        addLocal(place);
    std::vector<std::size_t> const & ends = options.viewpointEnds;
    for (int i = 0; i < cloud.size(); ++i) {
        auto const part = static_cast<std::size_t>(
            std::upper_bound(ends.begin(), ends.end(), cloud.originalIndex(i)) - ends.begin());
        OrientNormalsTowards(1, cloud.points() + i, viewpoints[std::min(part, viewpoints.size() - 1)],
                             &normals[static_cast<std::size_t>(i)]);
    }
}

void orient(LocalCloud const & cloud, ReconstructionOptions const & options, std::vector<Point3D> & normals,
            ReconstructionReport & report, CProgressCounter * progress)
{
    if (options.hasViewpoint || !options.viewpoints.empty()) {
        turnToViewpoints(cloud, options, normals);
        return;
    }
    int guessed = 0;
    OrientNormalsBySpanningTree(cloud.size(), cloud.points(), normals.data(), progress, &guessed);
    report.guessedOrientation = static_cast<std::size_t>(guessed);
}

std::vector<Point3D> estimated(LocalCloud const & cloud, ReconstructionOptions const & options,
                               ReconstructionReport & report, CProgressCounter * progress)
{
    std::vector<Point3D> normals(static_cast<std::size_t>(cloud.size()));
    CEstimateNormalsPrms prms;
    prms.neighbourhood.count = options.normalNeighbours;
    prms.orientation = NormalOrientation::none;
    int made = 0;
    {
        CPrgCntSubPhase const phase(progress, 0.0, 0.5, 0, true);
        made = EstimateNormals(cloud.size(), cloud.points(), prms, normals.data(), progress);
    }
    if (made == 0)
        throw ReconstructionError(ReconstructionError::Kind::input,
                                  "no normals can be estimated: there is no point whose nearest ones, " +
                                      std::to_string(options.normalNeighbours) +
                                      " or as many as there are, span a plane");
    CPrgCntSubPhase const phase(progress, 0.5, 0.5, 0, true);
    orient(cloud, options, normals, report, progress);
    report.normalsEstimated = true;
    return normals;
}

void warnOfGivenNormals(ReconstructionReport & report)
{
    if (report.normalsOffPlane > doubtfulOffPlane)
        report.warnings.push_back(percent(report.normalsOffPlane) +
                                  " of the normals are more than 45 degrees off the surface that the points "
                                  "around them suggest, so the result may be wrong; --input-normals estimate "
                                  "makes new ones");
    else if (report.normalsAgainstOthers > doubtfulAgainstOthers)
        report.warnings.push_back(percent(report.normalsAgainstOthers) +
                                  " of the normals point to the other side than most around them, so the "
                                  "result may be wrong; --input-normals reorient finds the sides anew");
}

} // namespace

void settleNormals(LocalCloud & cloud, ReconstructionOptions const & options, CCloudMeasures const & measures,
                   ReconstructionReport & report, CProgressCounter * progress)
{
    bool const areGiven = cloud.normals() != nullptr;
    if (!areGiven && options.normals == Normals::asGiven)
        throw ReconstructionError(ReconstructionError::Kind::input,
                                  "the cloud has no normals; --input-normals estimate makes them");
    if (!areGiven || options.normals == Normals::estimate) {
        cloud.setNormals(estimated(cloud, options, report, progress));
    } else if (options.normals == Normals::reorient) {
        std::vector<Point3D> normals(cloud.normalVectors(), cloud.normalVectors() + cloud.size());
        orient(cloud, options, normals, report, progress);
        cloud.setNormals(normals);
    } else {
        report.normalsOffPlane = measures.normalsOffPlane;
        report.normalsAgainstOthers = measures.normalsAgainstOthers;
        if (options.normals == Normals::automatic)
            warnOfGivenNormals(report);
    }

    int without = zerosAmong(cloud);
    if (without > 0 && areGiven && options.normals == Normals::automatic) {
        std::vector<Point3D> normals(cloud.normalVectors(), cloud.normalVectors() + cloud.size());
        int const made =
            CompleteNormals(cloud.size(), cloud.points(), options.normalNeighbours, normals.data(), progress);
        cloud.setNormals(normals);
        report.normalsReplaced = static_cast<std::size_t>(made);
        without -= made;
    }
    report.pointsWithoutNormal = static_cast<std::size_t>(without);
    if (without > 0)
        report.warnings.push_back(std::to_string(without) + " points have no normal and do not count");
    if (report.guessedOrientation > 0)
        report.warnings.push_back(
            "the side of " + std::to_string(report.guessedOrientation) +
            " points, in parts without a clear outside, is a guess; --viewpoint decides it");
}

} // namespace QZmath
