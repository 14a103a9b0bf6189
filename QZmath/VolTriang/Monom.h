// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/VolTriang/Parallelepiped.h>

namespace VolTr
{

/// A power product of three variables, x^a y^b z^c. Variables and axes are numbered 0, 1, 2.
///
/// Exponents are meant to be 0 or above; sums of them wrap around outside `int`. The cost of evaluation and
/// integration is linear in the exponents.
class QZMATH_API CMonom
{
public:
    /// The constant 1.
    CMonom() : m_power{0, 0, 0} {}
    /// From three exponents; the count is not looked at.
    CMonom(int, int const * exponents) : m_power{exponents[0], exponents[1], exponents[2]} {}
    CMonom(int x, int y, int z) : m_power{x, y, z} {}
    virtual ~CMonom();
    CMonom(CMonom const &) = default;
    CMonom & operator=(CMonom const &) = default;

    /// The variable of an axis (unchecked) to the power `d`.
    static CMonom x_i_pow_d(int i, int d);

    bool operator==(CMonom const & other) const
    {
        return m_power[0] == other.m_power[0] && m_power[1] == other.m_power[1] &&
               m_power[2] == other.m_power[2];
    }
    bool operator!=(CMonom const & other) const { return !(*this == other); }
    /// The lexicographic order: the exponents of x first, then y, then z.
    bool operator<(CMonom const & other) const
    {
        if (m_power[0] != other.m_power[0])
            return m_power[0] < other.m_power[0];
        if (m_power[1] != other.m_power[1])
            return m_power[1] < other.m_power[1];
        return m_power[2] < other.m_power[2];
    }

    /// Exponent of the variable of an axis (unchecked).
    int getVarPower(int axis) const { return m_power[axis]; }
    /// The degree, which is the sum of the exponents.
    int power() const;

    /// Value at `point`, three coordinates. 0^0 is 1.
    double eval(double const * point) const;
    /// Integral over a box.
    double integrateOnBox(CParallelepiped const & box) const;

    CMonom operator*(CMonom const & other) const;
    CMonom & operator*=(CMonom const & other);
    /// The product goes to `out`, which may be an operand.
    void multiply(CMonom * out, CMonom const & other) const;

private:
    int m_power[3];
};

/// A coefficient times a power product: one term of a polynomial.
class QZMATH_API CWeightedMonom
{
public:
    /// The constant 0.
    CWeightedMonom() : m_coeff(0.0) {}
    /// From three exponents; the count is not looked at. A weight of 0 makes the constant 0, whatever the
    /// exponents are.
    CWeightedMonom(double weight, int count, int const * exponents);
    /// Keeps the exponents of `monom` also with a weight of 0.
    CWeightedMonom(double weight, CMonom const & monom) : m_monom(monom), m_coeff(weight) {}
    virtual ~CWeightedMonom();
    CWeightedMonom(CWeightedMonom const &) = default;
    CWeightedMonom & operator=(CWeightedMonom const &) = default;

    CMonom const & getMonomRef() const { return m_monom; }
    CMonom & getMonomRefMod() { return m_monom; }
    double getCoeff() const { return m_coeff; }
    double & getCoeffRefMod() { return m_coeff; }

    /// Value at `point`, three coordinates.
    double eval(double const * point) const { return m_monom.eval(point) * m_coeff; }
    /// Integral over a box.
    double integrateOnBox(CParallelepiped const & box) const { return m_monom.integrateOnBox(box) * m_coeff; }

    CWeightedMonom operator*(CWeightedMonom const & other) const;
    /// The product goes to `out`, which may be an operand: exponents add up, weights multiply.
    void multiply(CWeightedMonom * out, CWeightedMonom const & other) const;
    /// t(x, y, z) becomes t(s0 x, s1 y, s2 z).
    void scaleArgument(double const * s);

private:
    CMonom m_monom;
    double m_coeff;
};

/// `monom` with a coefficient.
QZMATH_API CWeightedMonom operator*(double weight, CMonom const & monom);

} // namespace VolTr
