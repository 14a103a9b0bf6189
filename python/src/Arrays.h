// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Foundation/Point3D.h>

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

/// Arrays of numpy as the library takes and gives them. Everything here needs the GIL.
namespace qz_python
{

namespace py = pybind11;

/// Checks that an array can be read in place as `rows` rows of `width` numbers of its type: aligned, without
/// gaps, in the order of C. A width of 0 stands for an array of one dimension; rows of -1 for any number.
/// \throws py::type_error, py::value_error with the name of the argument
void checkShape(py::array const & array, char const * name, py::ssize_t rows, py::ssize_t width);

/// The numbers of an array of type T, in place, after `checkShape`.
template <class T>
T const * numbersOf(py::array const & array, char const * name, py::ssize_t rows, py::ssize_t width)
{
    if (!py::dtype::of<T>().equal(array.dtype()))
        throw py::type_error(std::string(name) + " has the dtype " + std::string(py::str(array.dtype())) +
                             ", expected " + std::string(py::str(py::dtype::of<T>())));
    checkShape(array, name, rows, width);
    return static_cast<T const *>(array.data());
}

/// The same of an array or None, which gives null.
template <class T>
T const * numbersOrNull(py::object const & object, char const * name, py::ssize_t rows, py::ssize_t width)
{
    return object.is_none() ? nullptr : numbersOf<T>(object.cast<py::array>(), name, rows, width);
}

/// Three numbers from an array of (3,).
REmath::Point3D_d placeOf(py::array const & array, char const * name);

/// Copies of the (n, 3) points of an array.
std::vector<REmath::Point3D_d> pointsOf(py::array const & array, char const * name);

/// (n, 3) numbers of `float` as points, in place.
REmath::Point3D const * asPoints(float const * numbers);

/// An array that owns what was a vector, without a copy; of two dimensions if `width` is above 0.
template <class T>
py::array_t<T> handOver(std::vector<T> && values, py::ssize_t width)
{
    auto owner = std::make_unique<std::vector<T>>(std::move(values));
    T const * const data = owner->data();
    auto const size = static_cast<py::ssize_t>(owner->size());
    std::vector<T> * const kept = owner.get();
    py::capsule const capsule(kept, [](void * vector) { delete static_cast<std::vector<T> *>(vector); });
    owner.release();
    if (width > 0)
        return py::array_t<T>({size / width, width}, data, capsule);
    return py::array_t<T>({size}, data, capsule);
}

/// The same, None for an empty vector.
template <class T>
py::object handOverOrNone(std::vector<T> && values, py::ssize_t width)
{
    if (values.empty())
        return py::none();
    return handOver(std::move(values), width);
}

/// A point as a new array of (3,).
py::array_t<double> arrayOf(REmath::Point3D_d const & point);

} // namespace qz_python
