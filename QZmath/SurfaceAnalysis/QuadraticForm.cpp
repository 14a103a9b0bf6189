// SPDX-License-Identifier: Apache-2.0
#include <QZmath/SurfaceAnalysis/QuadraticForm.h>

#include <QZmath/Foundation/VectorProductsDetail.h>

#include <QZsys/Exceptions.h>

#include <algorithm>
#include <cmath>
#include <utility>

using REmath::Point3D_d;
using REmath::Detail::dot;

namespace
{

bool isZero(double value) { return std::abs(value) <= std::abs(value) * CQuadraticForm::m_sEvalError; }

Point3D_d product(CRotationMatrix const & matrix, Point3D_d const & vector)
{
    return {dot(matrix.getRow(0), vector), dot(matrix.getRow(1), vector), dot(matrix.getRow(2), vector)};
}

// Writes the quadratic, the linear and the free coefficients as far as `count` of 6, 9 or at least 10 goes.
template <class T>
void writeRaw(CQuadraticForm const & form, int count, T * coeffs)
{
    std::fill_n(coeffs, count, T(0));
    if (count != 6 && count != 9 && count < 10)
        throw CVescaException("Wrong quadric form coefficinets array size.");
    double const all[10] = {form.getKXX(), form.getKXY(), form.getKXZ(), form.getKYY(), form.getKYZ(),
                            form.getKZZ(), form.getKX(),  form.getKY(),  form.getKZ(),  form.getK()};
    std::transform(all, all + std::min(count, 10), coeffs,
                   [](double value) { return static_cast<T>(value); });
}

} // namespace

double const CQuadraticForm::m_sEvalError = 2.220446049250313e-16;

CQuadraticForm CQuadraticForm::buildFromCoefficients(double kxx, double kyy, double kzz, double kxy,
                                                     double kxz, double kyz, double kx, double ky, double kz,
                                                     double k)
{
    CQuadraticForm form;
    double const rows[3][3] = {
        {kxx, 0.5 * kxy, 0.5 * kxz}, {0.5 * kxy, kyy, 0.5 * kyz}, {0.5 * kxz, 0.5 * kyz, kzz}};
    form.m_quadratic = CRotationMatrix(rows);
    form.m_linear = {kx, ky, kz};
    form.m_free = k;
    return form;
}

template <class T>
CQuadraticForm CQuadraticForm::buildFromCoeffArray(int count, T const * coeffs)
{
    double c[10] = {};
    for (int i = 0; i < std::min(count, 10); ++i)
        c[i] = static_cast<double>(coeffs[i]);
    return buildFromCoefficients(c[0], c[3], c[5], c[1], c[2], c[4], c[6], c[7], c[8], c[9]);
}

template <class T>
void CQuadraticForm::ConvertToRawFormat(CQuadFormRaw9<T> & raw) const
{
    writeRaw(*this, 9, raw.coeffs);
}

template <class T>
void CQuadraticForm::ConvertToRawFormat(CQuadFormRaw10<T> & raw) const
{
    writeRaw(*this, 10, raw.coeffs);
}

double CQuadraticForm::eval(Point3D_d const & p) const
{
    return dot(product(m_quadratic, p) + m_linear, p) + m_free;
}

Point3D_d CQuadraticForm::evalGradient(Point3D_d const & p) const
{
    return 2 * product(m_quadratic, p) + m_linear;
}

CQuadraticForm::CalcZResult CQuadraticForm::calculateZByXY(double x, double y, double & z1, double & z2) const
{
    double const a = getKZZ();
    double const b = getKXZ() * x + getKYZ() * y + getKZ();
    double const c = eval({x, y, 0});
    if (isZero(a)) {
        if (isZero(b))
            return isZero(c) ? CalcZAny : CalcZNone;
        z1 = -c / b;
        return CalcZOne;
    }
    double const d = b * b - 4 * a * c;
    if (!(d >= 0))
        return CalcZNone;
    double const root = std::sqrt(d);
    z1 = (root - b) / (2 * a);
    z2 = -(b + root) / (2 * a);
    if (std::abs(z1) > std::abs(z2))
        std::swap(z1, z2);
    return CalcZTwo;
}

CQuadraticForm::CalcZResult CQuadraticForm::calculateZByXYSortedByGrad(double x, double y, double & z1,
                                                                       double & z2,
                                                                       Point3D_d const & dir) const
{
    CalcZResult const result = calculateZByXY(x, y, z1, z2);
    if (result == CalcZTwo) {
        Point3D_d const unitDir = dir.unitLength();
        auto const alongDir = [&](double z) { return dot(evalGradient({x, y, z}).unitLength(), unitDir); };
        if (alongDir(z1) < alongDir(z2))
            std::swap(z1, z2);
    }
    return result;
}

void CQuadraticForm::transformToBasis(COrthoNormBasis const & basis)
{
    // p = A y + t turns f into y^T (A^T Q A) y + A^T ((Q + Q^T) t + L) . y + f(t).
    RElinearTransform const & back = basis.getBackCoordTransform();
    CRotationMatrix const axesAsRows = CRotationMatrix(back.matrix).getTransposed();
    CRotationMatrix const twiceSymmetric = m_quadratic + m_quadratic.getTransposed();
    Point3D_d const origin(back.shift);
    m_free = eval(origin);
    m_linear = product(axesAsRows, product(twiceSymmetric, origin) + m_linear);
    for (int row = 0; row < 3; ++row) {
        Point3D_d const image = product(twiceSymmetric, axesAsRows.getRow(row));
        for (int col = row; col < 3; ++col)
            m_quadratic.m[row][col] = m_quadratic.m[col][row] = 0.5 * dot(image, axesAsRows.getRow(col));
    }
}

CQuadraticForm CQuadraticForm::getTransformedToBasis(COrthoNormBasis const & basis) const
{
    CQuadraticForm transformed(*this);
    transformed.transformToBasis(basis);
    return transformed;
}

template CQuadraticForm CQuadraticForm::buildFromCoeffArray(int, float const *);
template CQuadraticForm CQuadraticForm::buildFromCoeffArray(int, double const *);
template void CQuadraticForm::ConvertToRawFormat(CQuadFormRaw9<float> &) const;
template void CQuadraticForm::ConvertToRawFormat(CQuadFormRaw9<double> &) const;
template void CQuadraticForm::ConvertToRawFormat(CQuadFormRaw10<float> &) const;
template void CQuadraticForm::ConvertToRawFormat(CQuadFormRaw10<double> &) const;
