// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/Foundation/OrthoNormBasis.h>
#include <QZmath/Foundation/Point3D.h>
#include <QZmath/Foundation/RotationMatrix.h>

/// The coefficients of a quadric in the order
///
///     KXX, KXY, KXZ, KYY, KYZ, KZZ, KX, KY, KZ
///
/// of the monomials x², xy, xz, y², yz, z², x, y, z. KXY, KXZ and KYZ are whole coefficients, twice the
/// element of a symmetric matrix. `T` is `float` or `double`; the size is exactly that of the nine numbers,
/// which begin as 0 in `CQuadFormRaw9<T>()` and can be given in braces. Indices are not checked.
template <class T>
struct CQuadFormRaw9
{
    T coeffs[9];

    T & operator[](int index) { return coeffs[index]; }
    T const & operator[](int index) const { return coeffs[index]; }
};

/// Ten coefficients: those of `CQuadFormRaw9`, and the free term K behind them.
template <class T>
struct CQuadFormRaw10
{
    T coeffs[10];

    T & operator[](int index) { return coeffs[index]; }
    T const & operator[](int index) const { return coeffs[index]; }
};

/// General quadric in space, the zero set of f(p) = p^T Q p + L . p + K.
///
/// Every function that builds or moves a form leaves Q symmetric, but `GetQuadaricTerm` lets a caller store
/// any matrix: `eval` and the solvers for z use all nine elements then, and only `evalGradient` minds the
/// difference.
///
/// A plain value of 13 `double`. Nothing here allocates, and nothing throws; reading is safe from any number
/// of threads.
class QZMATH_API CQuadraticForm
{
public:
    /// Which z solve the form over some (x, y); a set of bits.
    enum CalcZResult
    {
        CalcZNone = 0, ///< no real z
        CalcZAny = 1,  ///< every z
        CalcZOne = 2,  ///< one, in the first output
        CalcZTwo = 6   ///< two, which can coincide, in both outputs
    };

    /// 2^-52. A coefficient v counts as zero in the solvers for z when |v| <= |v| m_sEvalError, that is when
    /// it is 0. An infinite one counts as zero too.
    static double const m_sEvalError;

    /// f(p) = |p|²: Q is the identity, L and K are zero.
    CQuadraticForm() = default;

    /// The three squares come first here, unlike in the arrays. A mixed coefficient is halved into both
    /// mirrored elements of Q.
    static CQuadraticForm buildFromCoefficients(double kxx, double kyy, double kzz, double kxy, double kxz,
                                                double kyz, double kx, double ky, double kz, double k);
    /// Reads up to ten coefficients in the order of `CQuadFormRaw10`; those that `count` does not cover are
    /// 0, so that 9 gives a form without free term and 6 one without linear term. `T` is `float` or `double`.
    template <class T>
    static CQuadraticForm buildFromCoeffArray(int count, T const * coeffs);

    /// Writes the coefficients, the sums of mirrored elements for the mixed ones. What
    /// `buildFromCoeffArray` has read comes back unchanged. `T` is `float`, to which the sums are rounded, or
    /// `double`.
    template <class T>
    void ConvertToRawFormat(CQuadFormRaw9<T> & raw) const;
    template <class T>
    void ConvertToRawFormat(CQuadFormRaw10<T> & raw) const;

    double getKXX() const { return m_quadratic.m[0][0]; }
    double getKYY() const { return m_quadratic.m[1][1]; }
    double getKZZ() const { return m_quadratic.m[2][2]; }
    double getKXY() const { return m_quadratic.m[0][1] + m_quadratic.m[1][0]; }
    double getKXZ() const { return m_quadratic.m[0][2] + m_quadratic.m[2][0]; }
    double getKYZ() const { return m_quadratic.m[1][2] + m_quadratic.m[2][1]; }
    double getKX() const { return m_linear.x(); }
    double getKY() const { return m_linear.y(); }
    double getKZ() const { return m_linear.z(); }
    double getK() const { return m_free; }

    CRotationMatrix & GetQuadaricTerm() { return m_quadratic; }
    CRotationMatrix const & GetQuadaricTerm() const { return m_quadratic; }
    REmath::Point3D_d & GetLinearTerm() { return m_linear; }
    REmath::Point3D_d const & GetLinearTerm() const { return m_linear; }

    /// f(p).
    double eval(REmath::Point3D_d const & p) const;
    /// 2 Q p + L: the gradient of f when Q is symmetric. Of another Q it takes the rows only.
    REmath::Point3D_d evalGradient(REmath::Point3D_d const & p) const;

    /// Solves f(x, y, z) = 0 for z. Of two roots z1 is the one nearer to 0. Outputs that the result does not
    /// announce stay as they were. When `z1` and `z2` are the same variable, it gets the root
    /// -(b + sqrt(d)) / 2a.
    CalcZResult calculateZByXY(double x, double y, double & z1, double & z2) const;
    /// The roots of `calculateZByXY` in another order: of two, z1 is the one at which the unit gradient
    /// points more along `dir`, whatever its length. The order stays where that cannot be compared, for a
    /// zero gradient or a zero `dir`.
    CalcZResult calculateZByXYSortedByGrad(double x, double y, double & z1, double & z2,
                                           REmath::Point3D_d const & dir) const;

    /// Re-expresses the form in the coordinates of `basis`: afterwards f takes at a point's local coordinates
    /// the value that it took at the point. The axes need not be orthonormal. Q comes out symmetric.
    void transformToBasis(COrthoNormBasis const & basis);
    CQuadraticForm getTransformedToBasis(COrthoNormBasis const & basis) const;

private:
    CRotationMatrix m_quadratic;
    REmath::Point3D_d m_linear;
    double m_free = 0;
};
