// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Products/GeneralProductCache.h>

#include <QZmath/VolTriang/Kernels.h>

#include <algorithm>
#include <cmath>
#include <tuple>
#include <utility>
#include <vector>

namespace VolTr
{

namespace
{

std::int64_t absolute(std::int64_t offset) { return offset < 0 ? -offset : offset; }

bool isBeforeByMagnitude(std::int64_t a, std::int64_t b)
{
    return absolute(a) != absolute(b) ? absolute(a) < absolute(b) : a < b;
}

} // namespace

bool CCSFProductHelperImpl<CPiecewisePolynom>::SKey::operator<(SKey const & other) const
{
    return std::tie(leftDepth, rightDepth, offsets) <
           std::tie(other.leftDepth, other.rightDepth, other.offsets);
}

CCSFProductHelperImpl<CPiecewisePolynom>::CCSFProductHelperImpl(TBasis const * left, TBasis const * right,
                                                                eBasisSymmetry symmetry, int axisMask,
                                                                int const * parity)
    : CProductHelperBases<TKernel>(left, right),
      m_leftRightSymmetric(left == right || symmetry == BasisSymmetryFull), m_axisInterchangeable{},
      m_equalAxes(0), m_parity{}
{
    for (int axis = 0; axis < 3; ++axis) {
        bool const isInterchangeable = (axisMask >> axis & 1) != 0;
        m_axisInterchangeable[static_cast<std::size_t>(axis)] = isInterchangeable;
        m_equalAxes += isInterchangeable ? 1 : 0;
        m_parity[static_cast<std::size_t>(axis)] = parity == nullptr ? 0 : parity[axis];
    }
}

CCSFProductHelperImpl<CPiecewisePolynom>::~CCSFProductHelperImpl() = default;

double CCSFProductHelperImpl<CPiecewisePolynom>::evalScalarProduct(CCSFunc3Tmpl<TKernel> const & f,
                                                                   CCSFunc3Tmpl<TKernel> const & g)
{
    SKey key{f.getNodeDepth(), g.getNodeDepth(), {}};
    if (std::min(key.leftDepth, key.rightDepth) < 0 ||
        std::max(key.leftDepth, key.rightDepth) > m_setup.leafDepth)
        return 0.0;
    std::int64_t greatestOffset = 0;
    for (std::size_t axis = 0; axis < 3; ++axis) {
        key.offsets[axis] =
            static_cast<std::int64_t>(f.getArgumentShiftInt()[axis]) - g.getArgumentShiftInt()[axis];
        greatestOffset = std::max(greatestOffset, absolute(key.offsets[axis]));
    }
    // Supports are cubes, so the largest offset decides. Touching ones are integrated, to 0.
    if (!(m_setup.reach(key.leftDepth, key.rightDepth) >= static_cast<double>(greatestOffset)))
        return 0.0;
    double const factor = normalise(&key);
    auto const known = m_values.find(key);
    if (known != m_values.end())
        return known->second / factor;
    double const value = integrate(key);
    m_values.emplace(key, value);
    return value / factor;
}

// Brings the key to the one of all pairs that share its integral. The integral of the new key is that of the
// old one times the returned factor.
double CCSFProductHelperImpl<CPiecewisePolynom>::normalise(SKey * key) const
{
    std::array<std::int64_t, 3> & offsets = key->offsets;
    int const levels = m_setup.levelsBelow(key->leftDepth, key->rightDepth);
    key->leftDepth += levels;
    key->rightDepth += levels;
    for (std::int64_t & offset : offsets)
        offset >>= levels;
    double factor =
        std::ldexp(1.0, levels * (3 + m_setup.leftDerivativeLevel + m_setup.rightDerivativeLevel));
    if (m_leftRightSymmetric) {
        auto const firstOffset =
            std::find_if(offsets.begin(), offsets.end(), [](std::int64_t offset) { return offset != 0; });
        bool const isExchanged = key->leftDepth > key->rightDepth;
        bool const isMirrored =
            key->leftDepth == key->rightDepth && firstOffset != offsets.end() && *firstOffset < 0;
        if (isExchanged)
            std::swap(key->leftDepth, key->rightDepth);
        if (isExchanged || isMirrored)
            for (std::int64_t & offset : offsets)
                offset = -offset;
    }
    for (std::size_t axis = 0; axis < 3; ++axis) {
        if (m_parity[axis] != 0 && offsets[axis] < 0) {
            factor *= m_parity[axis];
            offsets[axis] = -offsets[axis];
        }
    }
    if (m_equalAxes == 3) {
        std::sort(offsets.begin(), offsets.end(), isBeforeByMagnitude);
    } else if (m_equalAxes == 2) {
        std::size_t const first = m_axisInterchangeable[0] ? 0 : 1;
        std::size_t const second = m_axisInterchangeable[2] ? 2 : 1;
        if (isBeforeByMagnitude(offsets[second], offsets[first]))
            std::swap(offsets[first], offsets[second]);
    }
    return factor;
}

// The left function stands at the origin, whatever nodes were asked for: the value must be the same for all
// pairs that share it.
double CCSFProductHelperImpl<CPiecewisePolynom>::integrate(SKey const & key) const
{
    COctree const & octree = *m_setup.octree;
    double const leftScale = 1.0 / octree.getCellSize(key.leftDepth);
    double const rightScale = 1.0 / octree.getCellSize(key.rightDepth);
    double leftCenter[3] = {0.0, 0.0, 0.0};
    double rightCenter[3];
    for (std::size_t axis = 0; axis < 3; ++axis)
        rightCenter[axis] = 0.0 - static_cast<double>(key.offsets[axis]) * octree.getUnit();
    int noPlace[3] = {0, 0, 0};
    CCSFunc3Tmpl<TKernel> const left(m_leftBasis->getSamplePtr(), leftCenter, noPlace, leftScale,
                                     powerByMultiplication(leftScale, 3 + m_setup.leftDerivativeLevel),
                                     key.leftDepth);
    CCSFunc3Tmpl<TKernel> const right(m_rightBasis->getSamplePtr(), rightCenter, noPlace, rightScale,
                                      powerByMultiplication(rightScale, 3 + m_setup.rightDerivativeLevel),
                                      key.rightDepth);
    // The flatter function is written about the centre of the steeper one; the other way round the high
    // powers of the steep one would cancel and leave nothing of the digits.
    TKernel leftPolynom = polynomByShiftedKernel(left);
    TKernel rightPolynom = polynomByShiftedKernel(right);
    if (key.leftDepth < key.rightDepth)
        leftPolynom.changeShift(rightCenter);
    else
        rightPolynom.changeShift(leftCenter);
    return integrateOnSupport(leftPolynom * rightPolynom);
}

void CCSFProductHelperImpl<CPiecewisePolynom>::initWithVariablesSwap(int a, int b, TBasis const * left,
                                                                     TBasis const * right)
{
    std::size_t const first = static_cast<std::size_t>(a);
    std::size_t const second = static_cast<std::size_t>(b);
    std::swap(m_parity.at(first), m_parity.at(second));
    std::swap(m_axisInterchangeable[first], m_axisInterchangeable[second]);
    m_leftBasis = left;
    m_rightBasis = right;
    std::map<SKey, double> values;
    for (auto const & [oldKey, value] : m_values) {
        SKey key = oldKey;
        std::swap(key.offsets[first], key.offsets[second]);
        normalise(&key);
        values[key] = value;
    }
    m_values.swap(values);
}

} // namespace VolTr
