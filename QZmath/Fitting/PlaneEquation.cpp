// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Fitting/PlaneEquation.h>

#include <QZmath/Foundation/Point3D.h>

#include <algorithm>

namespace REmath
{

CPlaneEquation::CPlaneEquation() { Clear(); }

void CPlaneEquation::Clear()
{
    std::fill_n(m_coefficients, COEFF_SIZE, 0.0);
    m_validity = -1;
}

bool CPlaneEquation::IsValid() const { return m_validity > 0; }

double * CPlaneEquation::NormalDir() { return m_coefficients; }
double const * CPlaneEquation::NormalDir() const { return m_coefficients; }

void CPlaneEquation::SetNormalDir(double const * normal)
{
    std::copy_n(normal, DIM, m_coefficients);
    m_validity = Point3D_d(normal).length();
}

double CPlaneEquation::FreeTerm() const { return m_coefficients[FREE_TERM_OFFSET]; }
void CPlaneEquation::SetFreeTerm(double freeTerm) { m_coefficients[FREE_TERM_OFFSET] = freeTerm; }

} // namespace REmath
