// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Products/SeparableProductCache.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace VolTr
{

namespace
{

// Offsets to each side beyond which a pair of depths gets no table: 14 depths apart for usual kernels.
std::int64_t const greatestTableReach = 1 << 15;
// Stands for any greater or undefined reach; no offset of `int` coordinates comes near.
std::int64_t const boundlessReach = std::int64_t(1) << 40;

// Offsets that the full table of two depths holds, both signs: twice the reach to each side.
std::int64_t tableLength(SProductCacheSetup const & setup, int leftDepth, int rightDepth)
{
    double const side = 2 * setup.reach(leftDepth, rightDepth);
    std::int64_t const places =
        side < static_cast<double>(boundlessReach) ? static_cast<std::int64_t>(side) : boundlessReach;
    return 2 * places + 1;
}

// The smallest integer not below `reach`.
std::int64_t integerReach(double reach)
{
    if (!(reach < static_cast<double>(boundlessReach)))
        return boundlessReach;
    return std::max<std::int64_t>(0, static_cast<std::int64_t>(std::ceil(reach)));
}

} // namespace

COneVariableProductCache::COneVariableProductCache(SProductCacheSetup const & setup,
                                                   CSingleVarLimitedPolynom const & left,
                                                   CSingleVarLimitedPolynom const & right, int offsetParity)
    : m_setup(setup), m_left(left), m_right(right), m_offsetParity(offsetParity),
      m_depthFactor(
          std::cbrt(powerByMultiplication(2.0, setup.leftDerivativeLevel + setup.rightDerivativeLevel)) * 2.0)
{}

double COneVariableProductCache::lookUp(int leftDepth, int rightDepth, std::int64_t offset)
{
    int const levels = m_setup.levelsBelow(leftDepth, rightDepth);
    leftDepth += levels;
    rightDepth += levels;
    offset >>= levels;
    double growth = powerByMultiplication(m_depthFactor, levels);
    if (m_offsetParity != 0 && offset < 0) {
        growth *= m_offsetParity;
        offset = -offset;
    }
    std::int64_t const length = tableLength(m_setup, leftDepth, rightDepth);
    std::int64_t const index = (length - 1) / 2 + offset;
    if (index < 0 || index >= length)
        return 0.0;
    // Depths are below 32 and the index below 2^42.
    std::uint64_t const key = static_cast<std::uint64_t>(index) << 10 |
                              static_cast<std::uint64_t>(leftDepth) << 5 |
                              static_cast<std::uint64_t>(rightDepth);
    auto const known = m_values.find(key);
    if (known != m_values.end())
        return known->second / growth;
    double const value = integrate(leftDepth, rightDepth, offset);
    m_values.emplace(key, value);
    return value / growth;
}

// The left factor stands at the origin, whatever nodes were asked for: the value must be the same for all
// pairs that share it. The product is written about the centre of the deeper factor. Far from it, the
// coefficients of that factor grow with the square of the distance in its cells and cancel.
double COneVariableProductCache::integrate(int leftDepth, int rightDepth, std::int64_t offset)
{
    double const leftScale = 1.0 / m_setup.octree->getCellSize(leftDepth);
    double const rightScale = 1.0 / m_setup.octree->getCellSize(rightDepth);
    double const leftNormalization = powerByMultiplication(leftScale, 3 + m_setup.leftDerivativeLevel);
    double const rightNormalization = powerByMultiplication(rightScale, 3 + m_setup.rightDerivativeLevel);
    m_leftTemp = m_left;
    m_leftTemp.scaleArgument(leftScale);
    m_leftTemp *= std::cbrt(leftNormalization);
    m_rightTemp = m_right;
    m_rightTemp.scaleArgument(rightScale);
    m_rightTemp.substituteArgPlusConst(static_cast<double>(offset) * m_setup.octree->getUnit());
    m_rightTemp *= std::cbrt(rightNormalization);
    if (leftDepth < rightDepth)
        m_leftTemp.changeShift(m_rightTemp.getArgShift());
    else
        m_rightTemp.changeShift(m_leftTemp.getArgShift());
    m_leftTemp.multiply(&m_productTemp, m_rightTemp);
    return m_productTemp.integrateWithBuffer(&m_primitive);
}

CCSFProductHelperImpl<CProductPiecewisePolynom>::CCSFProductHelperImpl(TBasis const * left,
                                                                       TBasis const * right, eBasisSymmetry,
                                                                       int, int const * parity)
    : CProductHelperBases<TKernel>(left, right), m_isLaplacianLike(false), m_plain(0), m_other(0),
      m_depthsNumber(0)
{
    TKernel const & leftSample = *left->getSamplePtr();
    TKernel const & rightSample = *right->getSamplePtr();
    for (int i = 0; i < leftSample.summandsNumber(); ++i) {
        for (int j = 0; j < rightSample.summandsNumber(); ++j) {
            CTerm term{};
            for (int axis = 0; axis < 3; ++axis) {
                CSingleVarLimitedPolynom const & leftFactor = leftSample.getSummand(i).getMultiplier(axis);
                CSingleVarLimitedPolynom const & rightFactor = rightSample.getSummand(j).getMultiplier(axis);
                auto const cache = std::find_if(m_caches.begin(), m_caches.end(),
                                                [&](COneVariableProductCache const & known) {
                                                    return known.isFor(leftFactor, rightFactor);
                                                });
                term[static_cast<std::size_t>(axis)] = static_cast<unsigned>(cache - m_caches.begin());
                if (cache == m_caches.end())
                    m_caches.emplace_back(m_setup, leftFactor, rightFactor,
                                          parity == nullptr ? 0 : parity[axis]);
            }
            m_terms.push_back(term);
        }
    }
    recogniseTerms();

    m_depthsNumber = static_cast<unsigned>(m_setup.leafDepth) + 1;
    m_pairs.reserve(static_cast<std::size_t>(m_depthsNumber) * m_depthsNumber);
    for (int leftDepth = 0; leftDepth <= m_setup.leafDepth; ++leftDepth)
        for (int rightDepth = 0; rightDepth <= m_setup.leafDepth; ++rightDepth)
            m_pairs.push_back({static_cast<std::uint64_t>(integerReach(m_setup.reach(leftDepth, rightDepth))),
                               m_setup.levelsBelow(leftDepth, rightDepth),
                               static_cast<std::ptrdiff_t>(m_caches.size()),
                               nullptr,
                               {}});
}

CCSFProductHelperImpl<CProductPiecewisePolynom>::~CCSFProductHelperImpl() = default;

void CCSFProductHelperImpl<CProductPiecewisePolynom>::recogniseTerms()
{
    m_isLaplacianLike = false;
    if (m_terms.size() != 3)
        return;
    m_other = m_terms[0][0];
    m_plain = m_terms[0][1];
    m_isLaplacianLike = m_terms[0] == CTerm{m_other, m_plain, m_plain} &&
                        m_terms[1] == CTerm{m_plain, m_other, m_plain} &&
                        m_terms[2] == CTerm{m_plain, m_plain, m_other};
}

// Asks the caches for what the sum needs and enters it in the table, which is made on the first call.
double CCSFProductHelperImpl<CProductPiecewisePolynom>::evalByCaches(
    int leftDepth, int rightDepth, SDepthPair & pair, std::array<std::int64_t, 3> const & offsets)
{
    std::int64_t const side = (static_cast<std::int64_t>(pair.limit) >> pair.shift) + 1;
    if (pair.middle == nullptr && side <= greatestTableReach) {
        pair.values.assign(static_cast<std::size_t>((2 * side + 1) * pair.stride),
                           std::numeric_limits<double>::quiet_NaN());
        pair.middle = pair.values.data() + side * pair.stride;
    }
    double sum = 0.0;
    for (CTerm const & term : m_terms) {
        double factors[3];
        for (std::size_t axis = 0; axis < 3; ++axis) {
            factors[axis] = m_caches[term[axis]].lookUp(leftDepth, rightDepth, offsets[axis]);
            if (pair.middle != nullptr)
                pair.place(offsets[axis])[term[axis]] = factors[axis];
        }
        sum += factors[0] * factors[1] * factors[2];
    }
    return sum;
}

void CCSFProductHelperImpl<CProductPiecewisePolynom>::initWithVariablesSwap(int a, int b, TBasis const * left,
                                                                            TBasis const * right)
{
    std::size_t const first = static_cast<std::size_t>(a);
    std::size_t const second = static_cast<std::size_t>(b);
    CTerm{}.at(first);
    CTerm{}.at(second);
    m_leftBasis = left;
    m_rightBasis = right;
    for (CTerm & term : m_terms)
        std::swap(term[first], term[second]);
    recogniseTerms();
}

int CCSFProductHelperImpl<CProductPiecewisePolynom>::cashSize() const
{
    std::int64_t const greatest = std::numeric_limits<int>::max();
    std::int64_t size = 0;
    for (int leftDepth = 0; leftDepth <= m_setup.leafDepth; ++leftDepth)
        for (int rightDepth = 0; rightDepth <= m_setup.leafDepth; ++rightDepth)
            size = std::min(greatest, size + std::min(greatest, tableLength(m_setup, leftDepth, rightDepth)));
    return static_cast<int>(std::min(greatest, size * static_cast<std::int64_t>(m_caches.size())));
}

} // namespace VolTr
