// SPDX-License-Identifier: Apache-2.0
#include <python/src/Arrays.h>

#include <type_traits>

namespace qz_python
{

namespace
{

std::string shapeOf(py::array const & array)
{
    std::string text = "(";
    for (py::ssize_t axis = 0; axis < array.ndim(); ++axis)
        text += (axis > 0 ? ", " : "") + std::to_string(array.shape(axis));
    return text + ")";
}

} // namespace

void checkShape(py::array const & array, char const * name, py::ssize_t rows, py::ssize_t width)
{
    py::ssize_t const dimensions = width > 0 ? 2 : 1;
    if (array.ndim() != dimensions || (rows >= 0 && array.shape(0) != rows) ||
        (width > 0 && array.shape(1) != width)) {
        std::string const first = rows >= 0 ? std::to_string(rows) : "n";
        throw py::value_error(std::string(name) + " has the shape " + shapeOf(array) + ", expected (" +
                              first + (width > 0 ? ", " + std::to_string(width) : ",") + ")");
    }
    auto const needed = py::array::c_style | py::detail::npy_api::NPY_ARRAY_ALIGNED_;
    if ((array.flags() & needed) != needed)
        throw py::type_error(std::string(name) + " does not lie in memory as an array of C");
}

REmath::Point3D_d placeOf(py::array const & array, char const * name)
{
    double const * const numbers = numbersOf<double>(array, name, 3, 0);
    return {numbers[0], numbers[1], numbers[2]};
}

std::vector<REmath::Point3D_d> pointsOf(py::array const & array, char const * name)
{
    double const * const numbers = numbersOf<double>(array, name, -1, 3);
    std::vector<REmath::Point3D_d> points;
    points.reserve(static_cast<std::size_t>(array.shape(0)));
    for (py::ssize_t i = 0; i < array.shape(0); ++i)
        points.emplace_back(numbers[3 * i], numbers[3 * i + 1], numbers[3 * i + 2]);
    return points;
}

REmath::Point3D const * asPoints(float const * numbers)
{
    static_assert(sizeof(REmath::Point3D) == 3 * sizeof(float) && std::is_standard_layout_v<REmath::Point3D>);
    return reinterpret_cast<REmath::Point3D const *>(numbers);
}

py::array_t<double> arrayOf(REmath::Point3D_d const & point)
{
    py::array_t<double> array(3);
    for (int axis = 0; axis < 3; ++axis)
        array.mutable_at(axis) = point.asArray()[axis];
    return array;
}

} // namespace qz_python
