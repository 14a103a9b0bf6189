// SPDX-License-Identifier: Apache-2.0
#include <python/src/Arrays.h>
#include <python/src/CallProgress.h>
#include <python/src/Subsystems.h>

#include <QZmath/SurfaceAnalysis/MeshProjection.h>
#include <QZmath/SurfaceAnalysis/NetSurface.h>
#include <QZmath/SurfaceAnalysis/Projectors.h>

#include <algorithm>
#include <limits>

namespace qz_python
{

namespace
{

using REmath::Point3D_d;
using Points = std::vector<Point3D_d>;

// The nearest points on a polyline, and their parameters.
py::tuple projectOnPolyline(py::array const & points, py::array const & polyline)
{
    Points const cloud = pointsOf(points, "points");
    CProjectorToPolyline projector(pointsOf(polyline, "onto"));
    std::vector<double> feet(3 * cloud.size()), params(cloud.size());
    {
        Released const released;
        for (std::size_t i = 0; i < cloud.size(); ++i) {
            Point3D_d foot;
            projector.projectPoint(cloud[i], foot, params[i]);
            std::copy_n(foot.asArray(), 3, feet.begin() + static_cast<std::ptrdiff_t>(3 * i));
        }
    }
    return py::make_tuple(handOver(std::move(feet), 3), handOver(std::move(params), 0));
}

// The points on a net of (rows, columns, 3), and their coordinates u and v.
py::tuple projectOnNet(py::array const & points, py::array const & nodes, int rows, int columns)
{
    float const * const cloud = numbersOf<float>(points, "points", -1, 3);
    float const * const coords = numbersOf<float>(nodes, "onto", py::ssize_t{rows} * columns, 3);
    auto const count = static_cast<std::size_t>(points.shape(0));
    std::vector<float> feet(3 * count);
    std::vector<double> params(2 * count);
    {
        Released const released;
        REmath::Matrix<REmath::Point3D> net(rows, columns);
        for (int row = 0; row < rows; ++row)
            for (int column = 0; column < columns; ++column)
                net.elem(row, column) = asPoints(coords)[std::ptrdiff_t{row} * columns + column];
        for (std::size_t i = 0; i < count; ++i) {
            ProjectPointToNet(cloud + 3 * i, net, params[2 * i], params[2 * i + 1]);
            getPointOnNet(static_cast<float>(params[2 * i]), static_cast<float>(params[2 * i + 1]), net,
                          feet.data() + 3 * i);
        }
    }
    return py::make_tuple(handOver(std::move(feet), 3), handOver(std::move(params), 2));
}

// The nearest points on a mesh, and the numbers of their triangles.
py::tuple projectOnMesh(py::array const & points, py::array const & vertices, py::array const & triangles,
                        int threads, py::object const & callback)
{
    float const * const cloud = numbersOf<float>(points, "points", -1, 3);
    float const * const corners = numbersOf<float>(vertices, "vertices", -1, 3);
    std::int32_t const * const indices = numbersOf<std::int32_t>(triangles, "triangles", -1, 3);
    if (std::max({points.shape(0), vertices.shape(0), triangles.shape(0)}) >
        std::numeric_limits<int>::max() / 3)
        throw py::value_error("there are more than 715827882 points, vertices or triangles");
    int const count = static_cast<int>(points.shape(0));
    std::vector<float> places(3 * static_cast<std::size_t>(count));
    std::vector<std::int32_t> numbers;
    numbers.reserve(static_cast<std::size_t>(count));
    CallProgress(callback).run(threads, [&](CProgressCounter & counter) {
        CMeshProjector const projector(static_cast<int>(vertices.shape(0)), asPoints(corners),
                                       static_cast<int>(triangles.shape(0)), indices);
        std::vector<CMeshProjector::Foot> feet(static_cast<std::size_t>(count));
        projector.project(count, asPoints(cloud), feet.data(), &counter);
        for (std::size_t i = 0; i < feet.size(); ++i)
            std::copy_n(feet[i].point.asArray(), 3, places.begin() + static_cast<std::ptrdiff_t>(3 * i));
        for (CMeshProjector::Foot const & foot : feet)
            numbers.push_back(foot.triangle);
    });
    return py::make_tuple(handOver(std::move(places), 3), handOver(std::move(numbers), 0));
}

} // namespace

void bindProjections(py::module_ & module)
{
    module.def("project_on_polyline", &projectOnPolyline, py::arg("points"), py::arg("onto"));
    module.def("project_on_net", &projectOnNet, py::arg("points"), py::arg("onto"), py::arg("rows"),
               py::arg("columns"));
    module.def("project_on_mesh", &projectOnMesh, py::arg("points"), py::arg("vertices"),
               py::arg("triangles"), py::arg("threads"), py::arg("callback"));
}

} // namespace qz_python
