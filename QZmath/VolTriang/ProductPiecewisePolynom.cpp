// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/ProductPiecewisePolynom.h>

#include <algorithm>
#include <cmath>

namespace VolTr
{

namespace
{

bool overlapWithVolume(CParallelepiped const & a, CParallelepiped const & b)
{
    for (int axis = 0; axis < 3; ++axis)
        if (!(a.getMin()[axis] < b.getMax()[axis] && b.getMin()[axis] < a.getMax()[axis]))
            return false;
    return true;
}

void unite(CParallelepiped * box, CParallelepiped const & other)
{
    for (int axis = 0; axis < 3; ++axis) {
        box->getMinMod()[axis] = std::min(box->getMin()[axis], other.getMin()[axis]);
        box->getMaxMod()[axis] = std::max(box->getMax()[axis], other.getMax()[axis]);
    }
}

double squaredDistance(double const * a, double const * b)
{
    double sum = 0.0;
    for (int axis = 0; axis < 3; ++axis)
        sum += (a[axis] - b[axis]) * (a[axis] - b[axis]);
    return sum;
}

} // namespace

CProductPolynom::CProductPolynom() = default;
CProductPolynom::~CProductPolynom() = default;
CProductPolynom::CProductPolynom(CProductPolynom const &) = default;
CProductPolynom::CProductPolynom(CProductPolynom &&) noexcept = default;
CProductPolynom & CProductPolynom::operator=(CProductPolynom const &) = default;
CProductPolynom & CProductPolynom::operator=(CProductPolynom &&) noexcept = default;

CProductPolynom::CProductPolynom(CSingleVarLimitedPolynom const & x, CSingleVarLimitedPolynom const & y,
                                 CSingleVarLimitedPolynom const & z)
    : m_multipliers{x, y, z}
{}

void CProductPolynom::setMultiplier(int axis, CSingleVarLimitedPolynom const & multiplier)
{
    m_multipliers.at(static_cast<std::size_t>(axis)) = multiplier;
}

double CProductPolynom::eval(double const * point) const
{
    double product = m_multipliers[0].eval(point[0]);
    if (product == 0.0)
        return 0.0;
    product *= m_multipliers[1].eval(point[1]);
    if (product == 0.0)
        return 0.0;
    return product * m_multipliers[2].eval(point[2]);
}

void CProductPolynom::clear()
{
    for (CSingleVarLimitedPolynom & multiplier : m_multipliers)
        multiplier.clear();
}

bool CProductPolynom::empty() const
{
    return m_multipliers[0].empty() || m_multipliers[1].empty() || m_multipliers[2].empty();
}

int CProductPolynom::power() const
{
    return m_multipliers[0].maxPower() + m_multipliers[1].maxPower() + m_multipliers[2].maxPower();
}

CParallelepiped CProductPolynom::getSupport() const
{
    CParallelepiped box;
    for (std::size_t axis = 0; axis < 3; ++axis) {
        box.getMinMod()[axis] = m_multipliers[axis].getLeftBound();
        box.getMaxMod()[axis] = m_multipliers[axis].getRightBound();
    }
    return box;
}

double CProductPolynom::integrateOnSupportWithBuffer(CSingleVarPolynom * buffer) const
{
    return m_multipliers[0].integrateWithBuffer(buffer) * m_multipliers[1].integrateWithBuffer(buffer) *
           m_multipliers[2].integrateWithBuffer(buffer);
}

void CProductPolynom::substituteArgPlusConst(double const * shift)
{
    for (std::size_t axis = 0; axis < 3; ++axis)
        m_multipliers[axis].substituteArgPlusConst(shift[axis]);
}

void CProductPolynom::changeShift(double const * argShift)
{
    for (std::size_t axis = 0; axis < 3; ++axis)
        m_multipliers[axis].changeShift(argShift[axis]);
}

void CProductPolynom::scaleArgument(double const * factor)
{
    for (std::size_t axis = 0; axis < 3; ++axis)
        m_multipliers[axis].scaleArgument(factor[axis]);
}

void CProductPolynom::multiplyEachAxis(double factor)
{
    for (CSingleVarLimitedPolynom & multiplier : m_multipliers)
        multiplier *= factor;
}

CProductPolynom & CProductPolynom::operator*=(double factor)
{
    multiplyEachAxis(std::cbrt(factor));
    return *this;
}

void CProductPolynom::multiply(CProductPolynom * out, CProductPolynom const & other) const
{
    out->clear();
    if (!overlapWithVolume(getSupport(), other.getSupport()))
        return;
    for (std::size_t axis = 0; axis < 3; ++axis)
        m_multipliers[axis].multiply(&out->m_multipliers[axis], other.m_multipliers[axis]);
}

CProductPiecewisePolynom::CProductPiecewisePolynom() : m_commonShift{} {}
CProductPiecewisePolynom::~CProductPiecewisePolynom() = default;
CProductPiecewisePolynom::CProductPiecewisePolynom(CProductPiecewisePolynom const &) = default;
CProductPiecewisePolynom::CProductPiecewisePolynom(CProductPiecewisePolynom &&) noexcept = default;
CProductPiecewisePolynom & CProductPiecewisePolynom::operator=(CProductPiecewisePolynom const &) = default;
CProductPiecewisePolynom &
CProductPiecewisePolynom::operator=(CProductPiecewisePolynom &&) noexcept = default;

CProductPiecewisePolynom::CProductPiecewisePolynom(int count, CProductPolynom const * summands)
    : m_commonShift{}
{
    for (int i = 0; i < count; ++i)
        addSummand(summands[i]);
}

void CProductPiecewisePolynom::clear()
{
    m_commonSupport = CParallelepiped();
    m_commonShift.fill(0.0);
    m_summands.clear();
}

double CProductPiecewisePolynom::eval(double const * point) const
{
    double sum = 0.0;
    for (CProductPolynom const & summand : m_summands)
        sum += summand.eval(point);
    return sum;
}

double CProductPiecewisePolynom::integrateOnSupport() const
{
    CSingleVarPolynom buffer;
    double sum = 0.0;
    for (CProductPolynom const & summand : m_summands)
        sum += summand.integrateOnSupportWithBuffer(&buffer);
    return sum;
}

int CProductPiecewisePolynom::maxPower() const
{
    int power = 0;
    for (CProductPolynom const & summand : m_summands)
        power = std::max(power, summand.power());
    return power;
}

void CProductPiecewisePolynom::addSummand(CProductPolynom const & summand)
{
    m_summands.push_back(summand);
    CProductPolynom & stored = m_summands.back();
    unite(&m_commonSupport, stored.getSupport());
    stored.changeShift(m_commonShift.data());
}

CProductPiecewisePolynom & CProductPiecewisePolynom::operator+=(CProductPiecewisePolynom const & other)
{
    std::size_t const count = other.m_summands.size(); // fixed: other may be this object
    m_summands.reserve(m_summands.size() + count);
    for (std::size_t i = 0; i < count; ++i)
        addSummand(other.m_summands[i]);
    return *this;
}

CProductPiecewisePolynom CProductPiecewisePolynom::operator*(CProductPiecewisePolynom const & other) const
{
    CProductPiecewisePolynom product;
    CProductPiecewisePolynom const * base = this;
    CProductPiecewisePolynom const * factor = &other;
    CProductPiecewisePolynom shiftedFactor;
    std::vector<bool> shifted;
    bool const sameShift = squaredDistance(m_commonShift.data(), other.m_commonShift.data()) == 0.0;
    if (!sameShift) {
        int const power = maxPower();
        int const otherPower = other.maxPower();
        if (otherPower > power || (otherPower == power && other.m_summands.size() > m_summands.size()))
            std::swap(base, factor);
        shiftedFactor = *factor;
        shifted.resize(shiftedFactor.m_summands.size(), false);
        factor = &shiftedFactor;
    }

    for (int axis = 0; axis < 3; ++axis) {
        product.m_commonSupport.getMinMod()[axis] =
            std::max(base->m_commonSupport.getMin()[axis], factor->m_commonSupport.getMin()[axis]);
        product.m_commonSupport.getMaxMod()[axis] =
            std::min(base->m_commonSupport.getMax()[axis], factor->m_commonSupport.getMax()[axis]);
    }
    product.m_commonShift = base->m_commonShift;

    CProductPolynom summandProduct;
    for (CProductPolynom const & left : base->m_summands) {
        CParallelepiped const leftSupport = left.getSupport();
        if (!overlapWithVolume(leftSupport, factor->m_commonSupport))
            continue;
        for (std::size_t i = 0; i < factor->m_summands.size(); ++i) {
            if (!sameShift && !shifted[i]) {
                shiftedFactor.m_summands[i].changeShift(base->m_commonShift.data());
                shifted[i] = true;
            }
            CProductPolynom const & right = factor->m_summands[i];
            if (!overlapWithVolume(leftSupport, right.getSupport()))
                continue;
            left.multiply(&summandProduct, right);
            if (!summandProduct.empty())
                product.m_summands.push_back(summandProduct);
        }
    }
    return product;
}

CProductPiecewisePolynom & CProductPiecewisePolynom::operator*=(double factor)
{
    if (factor == 0.0) {
        clear();
        return *this;
    }
    double const axisFactor = std::cbrt(factor);
    for (CProductPolynom & summand : m_summands)
        summand.multiplyEachAxis(axisFactor);
    return *this;
}

void CProductPiecewisePolynom::substituteArgPlusConst(double const * shift)
{
    for (std::size_t axis = 0; axis < 3; ++axis) {
        m_commonSupport.getMinMod()[axis] -= shift[axis];
        m_commonSupport.getMaxMod()[axis] -= shift[axis];
        m_commonShift[axis] -= shift[axis];
    }
    for (CProductPolynom & summand : m_summands)
        summand.substituteArgPlusConst(shift);
}

void CProductPiecewisePolynom::changeShift(double const * argShift)
{
    if (std::equal(m_commonShift.begin(), m_commonShift.end(), argShift))
        return;
    std::copy(argShift, argShift + 3, m_commonShift.begin());
    for (CProductPolynom & summand : m_summands)
        summand.changeShift(m_commonShift.data());
}

void CProductPiecewisePolynom::scaleArgument(double const * factor)
{
    for (std::size_t axis = 0; axis < 3; ++axis) {
        m_commonSupport.getMinMod()[axis] /= factor[axis];
        m_commonSupport.getMaxMod()[axis] /= factor[axis];
        m_commonShift[axis] /= factor[axis];
    }
    for (CProductPolynom & summand : m_summands)
        summand.scaleArgument(factor);
}

void CProductPiecewisePolynom::makePartialDerivative(CProductPiecewisePolynom * out, int axis) const
{
    CProductPiecewisePolynom derivative; // apart from `out`, which may be this object
    derivative.m_summands.reserve(m_summands.size());
    CSingleVarLimitedPolynom factorDerivative;
    for (CProductPolynom const & summand : m_summands) {
        CProductPolynom differentiated(summand);
        summand.getMultiplier(axis).makeDerivative(&factorDerivative);
        differentiated.setMultiplier(axis, factorDerivative);
        derivative.addSummand(differentiated);
    }
    *out = std::move(derivative);
}

void CProductPiecewisePolynom::makeLaplacian(CProductPiecewisePolynom * out) const
{
    CProductPiecewisePolynom laplacian;
    CProductPiecewisePolynom first;
    CProductPiecewisePolynom second;
    for (int axis = 0; axis < 3; ++axis) {
        makePartialDerivative(&first, axis);
        first.makePartialDerivative(&second, axis);
        laplacian += second;
    }
    *out = std::move(laplacian);
}

bool CProductPiecewisePolynom::checkClassInvariants() const
{
    return m_summands.empty() || (checkCommonSupport() && checkCommonShift() && checkSummands());
}

bool CProductPiecewisePolynom::checkCommonSupport() const
{
    double const squaredTolerance = 1e-16;
    CParallelepiped box = m_summands.front().getSupport();
    for (CProductPolynom const & summand : m_summands)
        unite(&box, summand.getSupport());
    return squaredDistance(box.getMin(), m_commonSupport.getMin()) <= squaredTolerance &&
           squaredDistance(box.getMax(), m_commonSupport.getMax()) <= squaredTolerance;
}

bool CProductPiecewisePolynom::checkCommonShift() const
{
    for (CProductPolynom const & summand : m_summands) {
        double argShift[3];
        for (std::size_t axis = 0; axis < 3; ++axis)
            argShift[axis] = summand.m_multipliers[axis].getArgShift();
        if (!(squaredDistance(argShift, m_commonShift.data()) == 0.0))
            return false;
    }
    return true;
}

bool CProductPiecewisePolynom::checkSummands() const
{
    for (CProductPolynom const & summand : m_summands)
        for (CSingleVarLimitedPolynom const & multiplier : summand.m_multipliers)
            if (multiplier.empty() || !multiplier.checkClassInvariants())
                return false;
    return true;
}

} // namespace VolTr
