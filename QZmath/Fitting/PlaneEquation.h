// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>

namespace REmath
{

/// Plane of the points p with n·p + `FreeTerm()` = 0, n = `NormalDir()`, or the mark that there is none. A
/// plain value; mind that the free term is -n·c for a point c of the plane.
class QZMATH_API CPlaneEquation
{
public:
    static constexpr int DIM = 3;
    static constexpr int COEFF_SIZE = 4;
    /// Place of the free term behind the normal.
    static constexpr int FREE_TERM_OFFSET = 3;

    /// Invalid, with zero coefficients.
    CPlaneEquation();
    /// Back to the state of a new object.
    void Clear();

    bool IsValid() const;
    /// The `DIM` components of the normal, behind which the free term follows.
    double * NormalDir();
    double const * NormalDir() const;
    /// Stores a normal; the equation is valid from then on, unless the normal is zero or NaN.
    void SetNormalDir(double const * normal);
    double FreeTerm() const;
    void SetFreeTerm(double freeTerm);

private:
    double m_coefficients[COEFF_SIZE];
    /// Length that the normal had when it was set; -1 before.
    double m_validity;
};

} // namespace REmath
