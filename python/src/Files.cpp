// SPDX-License-Identifier: Apache-2.0
#include <python/src/Arrays.h>
#include <python/src/CallProgress.h>
#include <python/src/CloudAndMesh.h>
#include <python/src/Subsystems.h>

#include <QZmath/Files/Files.h>
#include <QZmath/Viewer/Viewer.h>

#include <pybind11/stl.h>

#include <algorithm>
#include <cstring>

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

QZmath::TriangleMesh meshOf(std::array<double, 3> const & origin, py::array const & positions,
                            py::array const & triangles, py::object const & normals,
                            py::object const & colors, py::object const & density)
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
    return mesh;
}

bool endsWith(std::string const & text, char const * ending)
{
    std::string last = text.substr(text.size() - std::min(text.size(), std::strlen(ending)));
    std::transform(last.begin(), last.end(), last.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c; });
    return last == ending;
}

QZmath::MeshScene sceneOf(QZmath::TriangleMesh const & mesh, std::string const & title)
{
    QZmath::MeshScene scene;
    scene.mesh = &mesh;
    scene.title = title;
    return scene;
}

void writeMesh(std::string const & path, std::array<double, 3> const & origin, py::array const & positions,
               py::array const & triangles, py::object const & normals, py::object const & colors,
               py::object const & density, py::object const & callback)
{
    QZmath::TriangleMesh const mesh = meshOf(origin, positions, triangles, normals, colors, density);
    std::string const name = path.substr(path.rfind('/') + 1);
    CallProgress(callback).run(0, [&](CProgressCounter & counter) {
        if (!endsWith(path, ".html") && !endsWith(path, ".png")) {
            QZmath::writeMesh(mesh, path, &counter);
            return;
        }
        QZmath::PendingFiles files;
        if (endsWith(path, ".html"))
            QZmath::writeMeshPage(sceneOf(mesh, name), path, files, {}, &counter);
        else
            QZmath::writeMeshStill(sceneOf(mesh, name), path, files, {}, &counter);
        files.commit();
    });
}

py::str meshPage(std::string const & title, std::size_t mostTriangles, std::array<double, 3> const & origin,
                 py::array const & positions, py::array const & triangles, py::object const & normals,
                 py::object const & colors, py::object const & density)
{
    QZmath::TriangleMesh const mesh = meshOf(origin, positions, triangles, normals, colors, density);
    QZmath::PageOptions options;
    options.mostTriangles = mostTriangles;
    std::string page;
    CallProgress(py::none()).run(0, [&](CProgressCounter & counter) {
        page = QZmath::meshPage(sceneOf(mesh, title), options, &counter);
    });
    return py::str(page);
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
    module.def("mesh_page", &meshPage, py::arg("title"), py::arg("most_triangles"), py::arg("origin"),
               py::arg("positions"), py::arg("triangles"), py::arg("normals"), py::arg("colors"),
               py::arg("density"));
}

} // namespace qz_python
