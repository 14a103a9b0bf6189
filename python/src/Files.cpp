// SPDX-License-Identifier: Apache-2.0
#include <python/src/Arrays.h>
#include <python/src/CallProgress.h>
#include <python/src/CloudAndMesh.h>
#include <python/src/Subsystems.h>

#include <QZmath/Files/Files.h>

#include <pybind11/stl.h>

#include <algorithm>

namespace qz_python
{

namespace
{

template <class T>
std::vector<T> valuesOf(py::object const & object, char const * name, py::ssize_t rows, py::ssize_t width)
{
    T const * const numbers = numbersOrNull<T>(object, name, rows, width);
    if (numbers == nullptr)
        return {};
    return std::vector<T>(numbers, numbers + rows * std::max<py::ssize_t>(width, 1));
}

py::dict readPoints(std::string const & path, std::string const & columns, py::object const & callback)
{
    using namespace py::literals;
    QZmath::PointCloud cloud;
    QZmath::ReadOptions options;
    options.columns = columns;
    CallProgress progress(callback);
    progress.run(0, [&](CProgressCounter & counter) { cloud = QZmath::readPoints(path, options, &counter); });
    py::object points = cloud.positions64.empty() ? py::object(handOver(std::move(cloud.positions), 3))
                                                  : py::object(handOver(std::move(cloud.positions64), 3));
    return py::dict("points"_a = points, "normals"_a = handOverOrNone(std::move(cloud.normals), 3),
                    "colors"_a = handOverOrNone(std::move(cloud.colors), 3),
                    "border"_a = handOverOrNone(std::move(cloud.boundary), 0),
                    "viewpoint"_a = cloud.viewpoint, "notes"_a = py::tuple(py::cast(cloud.notes)));
}

void writePoints(std::string const & path, py::array const & points, py::object const & normals,
                 py::object const & colors, py::object const & border, py::object const & callback)
{
    QZmath::PointCloudView const cloud = viewOf(points, normals, colors, border);
    CallProgress(callback).run(
        0, [&](CProgressCounter & counter) { QZmath::writePoints(cloud, path, &counter); });
}

py::dict readMesh(std::string const & path, py::object const & callback)
{
    QZmath::TriangleMesh mesh;
    CallProgress progress(callback);
    progress.run(0, [&](CProgressCounter & counter) { mesh = QZmath::readMesh(path, &counter); });
    return arraysOf(std::move(mesh));
}

void writeMesh(std::string const & path, std::array<double, 3> const & origin, py::array const & positions,
               py::array const & triangles, py::object const & normals, py::object const & colors,
               py::object const & density, py::object const & callback)
{
    QZmath::TriangleMesh mesh;
    mesh.origin = origin;
    checkShape(positions, "positions", -1, 3);
    checkShape(triangles, "triangles", -1, 3);
    py::ssize_t const vertices = positions.shape(0);
    mesh.positions = valuesOf<float>(positions, "positions", vertices, 3);
    mesh.triangles = valuesOf<std::int32_t>(triangles, "triangles", triangles.shape(0), 3);
    mesh.normals = valuesOf<float>(normals, "normals", vertices, 3);
    mesh.colors = valuesOf<std::uint8_t>(colors, "colors", vertices, 3);
    mesh.density = valuesOf<float>(density, "density", vertices, 0);
    CallProgress(callback).run(0,
                               [&](CProgressCounter & counter) { QZmath::writeMesh(mesh, path, &counter); });
}

} // namespace

void bindFiles(py::module_ & module)
{
    py::register_exception_translator([](std::exception_ptr thrown) {
        try {
            std::rethrow_exception(thrown);
        } catch (QZmath::InputError const & error) {
            PyErr_SetString(PyExc_ValueError, error.what());
        } catch (QZmath::OutputError const & error) {
            PyErr_SetString(PyExc_OSError, error.what());
        }
    });
    module.def("read_points", &readPoints, py::arg("path"), py::arg("columns"), py::arg("callback"));
    module.def("write_points", &writePoints, py::arg("path"), py::arg("points"), py::arg("normals"),
               py::arg("colors"), py::arg("border"), py::arg("callback"));
    module.def("read_mesh", &readMesh, py::arg("path"), py::arg("callback"));
    module.def("write_mesh", &writeMesh, py::arg("path"), py::arg("origin"), py::arg("positions"),
               py::arg("triangles"), py::arg("normals"), py::arg("colors"), py::arg("density"),
               py::arg("callback"));
}

} // namespace qz_python
