// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Monom.h>

#include <cstdint>

namespace VolTr
{

namespace
{

int addExponents(int a, int b)
{
    return static_cast<int>(static_cast<unsigned>(a) + static_cast<unsigned>(b));
}

double powerByMultiplication(double base, std::int64_t exponent)
{
    if (exponent == 0)
        return 1.0;
    if (base == 0.0)
        return 0.0;
    double power = 1.0;
    for (; exponent > 0; --exponent)
        power *= base;
    return power;
}

} // namespace

CMonom::~CMonom() = default;
CWeightedMonom::~CWeightedMonom() = default;

CMonom CMonom::x_i_pow_d(int i, int d)
{
    CMonom monom;
    monom.m_power[i] = d;
    return monom;
}

int CMonom::power() const { return addExponents(addExponents(m_power[0], m_power[1]), m_power[2]); }

double CMonom::eval(double const * point) const
{
    double product = 1.0;
    for (int axis = 0; axis < 3; ++axis) {
        product *= powerByMultiplication(point[axis], m_power[axis]);
        if (product == 0.0)
            return 0.0;
    }
    return product;
}

double CMonom::integrateOnBox(CParallelepiped const & box) const
{
    double product = 1.0;
    for (int axis = 0; axis < 3; ++axis) {
        std::int64_t const n = static_cast<std::int64_t>(m_power[axis]) + 1;
        double const divisor = static_cast<double>(n);
        product *= powerByMultiplication(box.getMax()[axis], n) / divisor -
                   powerByMultiplication(box.getMin()[axis], n) / divisor;
    }
    return product;
}

CMonom CMonom::operator*(CMonom const & other) const
{
    CMonom product;
    multiply(&product, other);
    return product;
}

CMonom & CMonom::operator*=(CMonom const & other)
{
    multiply(this, other);
    return *this;
}

void CMonom::multiply(CMonom * out, CMonom const & other) const
{
    for (int axis = 0; axis < 3; ++axis)
        out->m_power[axis] = addExponents(m_power[axis], other.m_power[axis]);
}

CWeightedMonom::CWeightedMonom(double weight, int count, int const * exponents)
    : m_monom(weight == 0.0 ? CMonom() : CMonom(count, exponents)), m_coeff(weight)
{}

CWeightedMonom CWeightedMonom::operator*(CWeightedMonom const & other) const
{
    CWeightedMonom product;
    multiply(&product, other);
    return product;
}

void CWeightedMonom::multiply(CWeightedMonom * out, CWeightedMonom const & other) const
{
    m_monom.multiply(&out->m_monom, other.m_monom);
    out->m_coeff = m_coeff * other.m_coeff;
}

void CWeightedMonom::scaleArgument(double const * s) { m_coeff *= m_monom.eval(s); }

CWeightedMonom operator*(double weight, CMonom const & monom) { return CWeightedMonom(weight, monom); }

} // namespace VolTr
