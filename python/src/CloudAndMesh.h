// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Foundation/PointCloudView.h>
#include <QZmath/Foundation/TriangleMesh.h>

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

/// The library's clouds and meshes as arrays.
namespace qz_python
{

/// A cloud in arrays, in place: points of (n, 3) `float` or `double`; normals of (n, 3) `float`, colours of
/// (n, 3) bytes and marks of (n,) bytes, each or None. \throws py::type_error, py::value_error
QZmath::PointCloudView viewOf(pybind11::array const & points, pybind11::object const & normals,
                              pybind11::object const & colors, pybind11::object const & border);

/// The arrays of a mesh by their names, without a copy: origin, positions, triangles, and normals, colors and
/// density or None.
pybind11::dict arraysOf(QZmath::TriangleMesh && mesh);

} // namespace qz_python
