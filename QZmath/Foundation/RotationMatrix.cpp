// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Foundation/RotationMatrix.h>

#include <QZmath/Foundation/Matrix.h>
#include <QZmath/Foundation/SymmetricEigen.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <utility>

using REmath::Point3D_d;

namespace
{

// Whether all pairs of mirrored elements pass `isClose(upper, lower)`.
template <class IsClose>
bool isSymmetric(CRotationMatrix const & matrix, IsClose isClose)
{
    for (int i = 0; i < 3; ++i) {
        for (int j = i + 1; j < 3; ++j) {
            if (!isClose(matrix.m[i][j], matrix.m[j][i]))
                return false;
        }
    }
    return true;
}

bool isSymmetricRelative(CRotationMatrix const & matrix, double epsilon)
{
    return isSymmetric(matrix, [epsilon](double upper, double lower) {
        return std::abs(upper - lower) <= (std::abs(upper) + std::abs(lower)) * epsilon;
    });
}

} // namespace

CRotationMatrix::CRotationMatrix(double const (&elements)[3][3])
{
    std::copy_n(&elements[0][0], 9, &m[0][0]);
}

CRotationMatrix const & CRotationMatrix::Identity()
{
    static CRotationMatrix const identity;
    return identity;
}

CRotationMatrix const & CRotationMatrix::Zero()
{
    static CRotationMatrix const zero = Identity() * 0;
    return zero;
}

CRotationMatrix CRotationMatrix::buildFromRows(Point3D_d const & row0, Point3D_d const & row1,
                                               Point3D_d const & row2)
{
    CRotationMatrix matrix;
    matrix.setRow(0, row0);
    matrix.setRow(1, row1);
    matrix.setRow(2, row2);
    return matrix;
}

CRotationMatrix CRotationMatrix::buildFromColumns(Point3D_d const & col0, Point3D_d const & col1,
                                                  Point3D_d const & col2)
{
    CRotationMatrix matrix;
    matrix.setColumn(0, col0);
    matrix.setColumn(1, col1);
    matrix.setColumn(2, col2);
    return matrix;
}

Point3D_d CRotationMatrix::getRow(int row) const { return {m[row][0], m[row][1], m[row][2]}; }

void CRotationMatrix::setRow(int row, Point3D_d const & elements) { elements.toArray(m[row]); }

Point3D_d CRotationMatrix::getColumn(int col) const { return {m[0][col], m[1][col], m[2][col]}; }

void CRotationMatrix::setColumn(int col, Point3D_d const & elements)
{
    m[0][col] = elements.x();
    m[1][col] = elements.y();
    m[2][col] = elements.z();
}

void CRotationMatrix::transpose()
{
    std::swap(m[0][1], m[1][0]);
    std::swap(m[0][2], m[2][0]);
    std::swap(m[1][2], m[2][1]);
}

CRotationMatrix CRotationMatrix::getTransposed() const
{
    CRotationMatrix transposed(*this);
    transposed.transpose();
    return transposed;
}

CRotationMatrix & CRotationMatrix::operator+=(CRotationMatrix const & other)
{
    for (int row = 0; row < 3; ++row) {
        for (int col = 0; col < 3; ++col)
            m[row][col] += other.m[row][col];
    }
    return *this;
}

CRotationMatrix CRotationMatrix::operator+(CRotationMatrix other) const { return other += *this; }

CRotationMatrix & CRotationMatrix::operator*=(double factor)
{
    for (auto & row : m) {
        for (double & element : row)
            element *= factor;
    }
    return *this;
}

CRotationMatrix CRotationMatrix::operator*(double factor) const
{
    CRotationMatrix scaled(*this);
    return scaled *= factor;
}

CRotationMatrix CRotationMatrix::operator/(double divisor) const
{
    CRotationMatrix scaled(*this);
    for (auto & row : scaled.m) {
        for (double & element : row)
            element /= divisor;
    }
    return scaled;
}

bool CRotationMatrix::isSelfAdjoint() const
{
    return isSymmetricRelative(*this, std::numeric_limits<double>::epsilon());
}

bool CRotationMatrix::isSelfAdjointAsFloats() const
{
    return isSymmetricRelative(*this, std::numeric_limits<float>::epsilon());
}

bool IsSelfAdjoint(CRotationMatrix const & matrix)
{
    return isSymmetric(matrix, [](double upper, double lower) {
        return std::abs(upper - lower) <= std::numeric_limits<float>::epsilon();
    });
}

bool invertMatrix(CRotationMatrix const & a, CRotationMatrix & out)
{
    double elements[9];
    double * columns[3];
    REmath::Matrix<double> inverse(elements, columns, 3, 3);
    for (int row = 0; row < 3; ++row) {
        for (int col = 0; col < 3; ++col)
            inverse.elem(row, col) = a.m[row][col];
    }
    if (!inverseMat(inverse, inverse))
        return false;
    for (int row = 0; row < 3; ++row) {
        for (int col = 0; col < 3; ++col)
            out.m[row][col] = inverse.elem(row, col);
    }
    return true;
}

void GetEigenVectorsSA(CRotationMatrix const & m, Point3D_d * const vectors, double * values, bool normalize)
{
    CRotationMatrix columns(m);
    double * rows[3] = {columns.m[0], columns.m[1], columns.m[2]};
    double subdiagonal[3];
    tred2_d(rows, 3, values, subdiagonal);
    if (tqli_d(values, subdiagonal, 3, rows) == 0)
        throw std::runtime_error("GetEigenVectorsSA failed");
    for (int i = 0; i < 3; ++i) {
        double vector[3] = {columns.m[0][i], columns.m[1][i], columns.m[2][i]};
        if (normalize)
            NormalizeVector(vector);
        vectors[i].fromArray(vector);
    }
}
