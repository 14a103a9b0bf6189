// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/Foundation/Point3D.h>

/// General 3 by 3 matrix of `double`; that it is a rotation is up to the caller.
///
/// A plain value: `m[row][col]`, stored row by row, and nothing else. Vectors are columns, `m v`. Indices of
/// rows and columns are 0 to 2, which is not checked. No function throws or allocates; reading is safe from
/// any number of threads.
class QZMATH_API CRotationMatrix
{
public:
    /// The identity.
    CRotationMatrix() = default;
    CRotationMatrix(double const (&elements)[3][3]);

    /// Shared constants, made on first use.
    static CRotationMatrix const & Identity();
    static CRotationMatrix const & Zero();
    static CRotationMatrix buildFromRows(REmath::Point3D_d const & row0, REmath::Point3D_d const & row1,
                                         REmath::Point3D_d const & row2);
    static CRotationMatrix buildFromColumns(REmath::Point3D_d const & col0, REmath::Point3D_d const & col1,
                                            REmath::Point3D_d const & col2);

    REmath::Point3D_d getRow(int row) const;
    void setRow(int row, REmath::Point3D_d const & elements);
    REmath::Point3D_d getColumn(int col) const;
    void setColumn(int col, REmath::Point3D_d const & elements);

    /// In place.
    void transpose();
    CRotationMatrix getTransposed() const;

    CRotationMatrix & operator+=(CRotationMatrix const & other);
    CRotationMatrix operator+(CRotationMatrix other) const;
    CRotationMatrix & operator*=(double factor);
    CRotationMatrix operator*(double factor) const;
    /// True division of every element.
    CRotationMatrix operator/(double divisor) const;

    /// Whether mirrored elements are equal up to rounding, `|a - b| <= (|a| + |b|) ε`, with the ε of `double`
    /// or of `float`. The bound is relative: a tiny element opposite to 0 makes the matrix asymmetric. False
    /// on NaN above or below the diagonal.
    bool isSelfAdjoint() const;
    bool isSelfAdjointAsFloats() const;

    double m[3][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
};

/// Whether mirrored elements differ by at most the ε of `float`, 1.19e-7, whatever their size. The members of
/// `CRotationMatrix` compare relatively.
QZMATH_API bool IsSelfAdjoint(CRotationMatrix const & matrix);

/// Inverts `a` by LU factors with partial pivoting. False for a singular matrix, that is one with a pivot of
/// exactly 0: `out` stays as it was. A nearly singular matrix is inverted, to large or infinite elements.
/// `out` can be `a`.
QZMATH_API bool invertMatrix(CRotationMatrix const & a, CRotationMatrix & out);

/// Eigenvalues and eigenvectors of a symmetric matrix, of which the lower triangle is read: `m vectors[i] =
/// values[i] vectors[i]`, three of each, in no order. The vectors are orthogonal and of unit length up to
/// rounding; `normalize` takes out the rounding of the lengths. Their signs and their handedness are
/// arbitrary.
///
/// Throws `std::runtime_error` with "GetEigenVectorsSA failed" when the iteration fails, as it does for a
/// matrix with NaN or infinity.
QZMATH_API void GetEigenVectorsSA(CRotationMatrix const & m, REmath::Point3D_d * vectors, double * values,
                                  bool normalize);
