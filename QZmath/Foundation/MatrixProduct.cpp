// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Backend/Blas.h>
#include <QZmath/Foundation/DenseElementDetail.h>
#include <QZmath/Foundation/Matrix.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>

namespace REmath
{

namespace
{

// Numbers of multiplications from which BLAS wins over the loops of this file, the products with a vector
// being bound by memory sooner.
constexpr std::int64_t blasProductSize = 8 * 8 * 8;
constexpr std::int64_t blasVectorProductSize = 16 * 16;

// Whether no element is infinite or NaN. May give false for finite elements of extreme size.
template <class T>
bool isFinite(T const * values, std::size_t count)
{
    // What is not finite stays so in a sum. Several sums, to be independent of each other.
    constexpr std::size_t lanes = 16;
    T sums[lanes] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    std::size_t index = 0;
    for (; index + lanes <= count; index += lanes) {
        for (std::size_t lane = 0; lane < lanes; ++lane)
            sums[lane] += values[index + lane];
    }
    for (; index < count; ++index)
        sums[index % lanes] += values[index];
    for (std::size_t lane = 1; lane < lanes; ++lane)
        sums[0] += sums[lane];
    return std::isfinite(sums[0]);
}

// result += left * right, column by column: each element is summed in ascending order of the inner index.
template <class T>
void addProduct(Matrix<T> const & left, Matrix<T> const & right, Matrix<T> & result)
{
    // Integers need no care for products with 0.
    constexpr bool isSkippingZeros = !std::is_integral_v<T>;
    int const rows = left.rows();
    for (int col = 0; col < right.cols(); ++col) {
        T * const sums = result[col];
        for (int inner = 0; inner < left.cols(); ++inner) {
            T const * const leftColumn = left[inner];
            T const factor = right.elem(inner, col);
            for (int row = 0; row < rows; ++row) {
                if (!isSkippingZeros || !(leftColumn[row] == T(0)))
                    sums[row] = Detail::sum(sums[row], Detail::product(leftColumn[row], factor));
            }
        }
    }
}

} // namespace

namespace Detail
{

template <class T>
struct MatrixAccess
{
    // A matrix with both sizes 1 or more whose elements are still to be written.
    static Matrix<T> uninitialized(int rows, int cols)
    {
        Matrix<T> matrix(0, 0);
        matrix.allocate(rows, cols);
        return matrix;
    }
};

} // namespace Detail

template <class T, std::enable_if_t<hasMatrixProduct<T>, int>>
Matrix<T> operator*(Matrix<T> const & left, Matrix<T> const & right)
{
    if (left.cols() != right.rows())
        throw static_cast<char const *>("NURBSWrongSize2D");
    if constexpr (std::is_floating_point_v<T>) {
        // BLAS multiplies by zeros as well, which makes no difference unless they meet what is not finite.
        bool const isLarge = left.rows() > 0 && left.cols() > 0 && right.cols() > 0 &&
                             std::int64_t(left.rows()) * left.cols() * right.cols() >= blasProductSize;
        if (isLarge && isFinite(right[0], std::size_t(right.rows()) * std::size_t(right.cols()))) {
            Matrix<T> result = Detail::MatrixAccess<T>::uninitialized(left.rows(), right.cols());
            QzBackend::multiply(left.rows(), right.cols(), left.cols(), left[0], right[0], result[0]);
            return result;
        }
    }
    Matrix<T> result(left.rows(), right.cols());
    if (left.rows() > 0 && right.cols() > 0)
        addProduct(left, right, result);
    return result;
}

template <class T, IfNumbers<T>>
Vector<T> operator*(Matrix<T> const & matrix, Vector<T> const & vector)
{
    if (matrix.cols() != vector.size())
        throw static_cast<char const *>("NURBSWrongSize2D");
    Vector<T> result(matrix.rows());
    if (matrix.rows() < 1)
        return result;
    if constexpr (std::is_floating_point_v<T>) {
        if (std::int64_t(matrix.rows()) * matrix.cols() >= blasVectorProductSize) {
            QzBackend::multiply(matrix.rows(), matrix.cols(), matrix[0], vector.memory(), result.memory());
            return result;
        }
    }
    for (int col = 0; col < matrix.cols(); ++col) {
        T const * const column = matrix[col];
        T const factor = vector[col];
        for (int row = 0; row < matrix.rows(); ++row)
            result[row] = Detail::sum(result[row], Detail::product(column[row], factor));
    }
    return result;
}

template <class T, IfNumbers<T>>
Matrix<T> comm(Matrix<T> const & left, Matrix<T> const & right)
{
    if (left.cols() != right.rows() || right.cols() != left.rows() || left.rows() != right.rows())
        throw static_cast<char const *>("NURBSWrongSize2D");
    Matrix<T> result = left * right;
    result -= right * left;
    return result;
}

// NOLINTBEGIN(bugprone-macro-parentheses): the parameter is a type
#define QZ_INSTANTIATE_MATRIX_PRODUCT(T)                                                                     \
    template QZMATH_API Matrix<T> operator*(Matrix<T> const &, Matrix<T> const &);
#define QZ_INSTANTIATE_NUMBER_PRODUCTS(T)                                                                    \
    QZ_INSTANTIATE_MATRIX_PRODUCT(T)                                                                         \
    template QZMATH_API Vector<T> operator*(Matrix<T> const &, Vector<T> const &);                           \
    template QZMATH_API Matrix<T> comm(Matrix<T> const &, Matrix<T> const &);
// NOLINTEND(bugprone-macro-parentheses)

QZ_INSTANTIATE_NUMBER_PRODUCTS(char)
QZ_INSTANTIATE_NUMBER_PRODUCTS(unsigned char)
QZ_INSTANTIATE_NUMBER_PRODUCTS(int)
QZ_INSTANTIATE_NUMBER_PRODUCTS(unsigned int)
QZ_INSTANTIATE_NUMBER_PRODUCTS(float)
QZ_INSTANTIATE_NUMBER_PRODUCTS(double)
QZ_INSTANTIATE_MATRIX_PRODUCT(HPoint3D)
QZ_INSTANTIATE_MATRIX_PRODUCT(HPoint3D_d)
#undef QZ_INSTANTIATE_NUMBER_PRODUCTS
#undef QZ_INSTANTIATE_MATRIX_PRODUCT

} // namespace REmath
