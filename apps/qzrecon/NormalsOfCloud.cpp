// SPDX-License-Identifier: Apache-2.0
#include <apps/qzrecon/NormalsOfCloud.h>

#include <QZmath/Files/Errors.h>
#include <QZmath/SurfaceAnalysis/CloudNormals.h>

#include <string>
#include <vector>

namespace qz_recon
{

std::size_t estimateNormals(QZmath::PointCloud & cloud, int neighbours,
                            std::optional<REmath::Point3D> const & viewpoint, CProgressCounter * progress)
{
    std::vector<REmath::Point3D> points, normals(cloud.size());
    points.reserve(cloud.size());
    for (std::size_t i = 0; i < cloud.positions.size(); i += 3)
        points.emplace_back(&cloud.positions[i]);
    CEstimateNormalsPrms prms;
    prms.neighbourhood.count = neighbours;
    if (viewpoint) {
        prms.orientation = NormalOrientation::viewpoint;
        prms.viewpoint = *viewpoint;
    }
    int const made =
        EstimateNormals(static_cast<int>(points.size()), points.data(), prms, normals.data(), progress);
    if (made == 0)
        throw QZmath::InputError("no normals can be estimated: there is no point whose nearest ones, " +
                                 std::to_string(neighbours) + " or as many as there are, span a plane");
    cloud.normals.clear();
    cloud.normals.reserve(cloud.positions.size());
    for (REmath::Point3D const & normal : normals)
        cloud.normals.insert(cloud.normals.end(), normal.asArray(), normal.asArray() + 3);
    return cloud.size() - static_cast<std::size_t>(made);
}

} // namespace qz_recon
