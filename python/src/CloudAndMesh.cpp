// SPDX-License-Identifier: Apache-2.0
#include <python/src/CloudAndMesh.h>

#include <python/src/Arrays.h>

#include <pybind11/stl.h>

namespace qz_python
{

QZmath::PointCloudView viewOf(py::array const & points, py::object const & normals, py::object const & colors,
                              py::object const & border)
{
    QZmath::PointCloudView cloud;
    py::ssize_t const rows = points.ndim() > 0 ? points.shape(0) : 0;
    if (py::dtype::of<double>().equal(points.dtype()))
        cloud.positions64 = numbersOf<double>(points, "points", rows, 3);
    else
        cloud.positions = numbersOf<float>(points, "points", rows, 3);
    cloud.size = static_cast<std::size_t>(rows);
    cloud.normals = numbersOrNull<float>(normals, "normals", rows, 3);
    cloud.colors = numbersOrNull<std::uint8_t>(colors, "colors", rows, 3);
    cloud.boundary = numbersOrNull<std::uint8_t>(border, "border", rows, 0);
    return cloud;
}

py::dict arraysOf(QZmath::TriangleMesh && mesh)
{
    using namespace py::literals;
    return py::dict("origin"_a = mesh.origin, "positions"_a = handOver(std::move(mesh.positions), 3),
                    "triangles"_a = handOver(std::move(mesh.triangles), 3),
                    "normals"_a = handOverOrNone(std::move(mesh.normals), 3),
                    "colors"_a = handOverOrNone(std::move(mesh.colors), 3),
                    "density"_a = handOverOrNone(std::move(mesh.density), 0));
}

} // namespace qz_python
