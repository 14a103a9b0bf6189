// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/PiecewisePolynom.h>

#include <algorithm>
#include <limits>
#include <utility>

namespace VolTr
{

namespace
{

double const containmentTolerance = 1e-10;

CParallelepiped emptyBox()
{
    double const greatest = std::numeric_limits<double>::max();
    return CParallelepiped(greatest, -greatest, greatest, -greatest, greatest, -greatest);
}

bool contains(CParallelepiped const & box, double const * point)
{
    for (int axis = 0; axis < 3; ++axis) {
        double const coord = point[axis] + containmentTolerance;
        if (!(box.getMin()[axis] <= coord && coord <= box.getMax()[axis]))
            return false;
    }
    return true;
}

bool overlapWithVolume(CParallelepiped const & a, CParallelepiped const & b)
{
    for (int axis = 0; axis < 3; ++axis)
        if (!(a.getMin()[axis] < b.getMax()[axis] && b.getMin()[axis] < a.getMax()[axis]))
            return false;
    return true;
}

CParallelepiped intersection(CParallelepiped const & a, CParallelepiped const & b)
{
    CParallelepiped box;
    for (int axis = 0; axis < 3; ++axis) {
        box.getMinMod()[axis] = std::max(a.getMin()[axis], b.getMin()[axis]);
        box.getMaxMod()[axis] = std::min(a.getMax()[axis], b.getMax()[axis]);
    }
    return box;
}

void unite(CParallelepiped * box, CParallelepiped const & other)
{
    for (int axis = 0; axis < 3; ++axis) {
        box->getMinMod()[axis] = std::min(box->getMin()[axis], other.getMin()[axis]);
        box->getMaxMod()[axis] = std::max(box->getMax()[axis], other.getMax()[axis]);
    }
}

void subtract(CParallelepiped * box, double const * c)
{
    for (int axis = 0; axis < 3; ++axis) {
        box->getMinMod()[axis] -= c[axis];
        box->getMaxMod()[axis] -= c[axis];
    }
}

void divide(CParallelepiped * box, double const * s)
{
    for (int axis = 0; axis < 3; ++axis) {
        box->getMinMod()[axis] /= s[axis];
        box->getMaxMod()[axis] /= s[axis];
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

CLimitedPolynom::CLimitedPolynom(CPolynom const & polynomial, CParallelepiped const & support,
                                 double const * shift)
    : m_shiftedPolynom(polynomial), m_support(support), m_argShift{}
{
    if (shift != nullptr)
        std::copy(shift, shift + 3, m_argShift);
}

CLimitedPolynom::~CLimitedPolynom() = default;
CLimitedPolynom::CLimitedPolynom(CLimitedPolynom const &) = default;
CLimitedPolynom::CLimitedPolynom(CLimitedPolynom &&) noexcept = default;
CLimitedPolynom & CLimitedPolynom::operator=(CLimitedPolynom const &) = default;
CLimitedPolynom & CLimitedPolynom::operator=(CLimitedPolynom &&) noexcept = default;

double CLimitedPolynom::eval(double const * point) const
{
    double const shifted[3] = {point[0] - m_argShift[0], point[1] - m_argShift[1], point[2] - m_argShift[2]};
    return m_shiftedPolynom.eval(shifted);
}

void CLimitedPolynom::scaleArgument(double const * s)
{
    double const factors[3] = {s[0], s[1], s[2]}; // s may be the own shift
    m_shiftedPolynom.scaleArgument(factors);
    divide(&m_support, factors);
    for (int axis = 0; axis < 3; ++axis)
        m_argShift[axis] /= factors[axis];
}

void CLimitedPolynom::substituteArgPlusConst(double const * c)
{
    if (c == nullptr)
        return;
    double const translation[3] = {c[0], c[1], c[2]}; // c may be the own shift
    subtract(&m_support, translation);
    for (int axis = 0; axis < 3; ++axis)
        m_argShift[axis] -= translation[axis];
}

void CLimitedPolynom::changeShift(double const * s)
{
    CPolynom accumulated, expansion;
    changeShiftWithBuffers(s, &accumulated, &expansion);
}

void CLimitedPolynom::changeShiftWithBuffers(double const * s, CPolynom * b1, CPolynom * b2)
{
    double const origin[3] = {0.0, 0.0, 0.0};
    double const * const shift = s == nullptr ? origin : s;
    double const delta[3] = {shift[0] - m_argShift[0], shift[1] - m_argShift[1], shift[2] - m_argShift[2]};
    m_shiftedPolynom.substituteArgPlusConstWithBuffers(delta, b1, b2);
    std::copy(shift, shift + 3, m_argShift);
}

CPiecewisePolynom::CPiecewisePolynom() : m_commonSupport(emptyBox()), m_commonShift{}, m_maxPower(0) {}

CPiecewisePolynom::CPiecewisePolynom(CLimitedPolynom const & term) : CPiecewisePolynom() { addTerm(term); }

CPiecewisePolynom::~CPiecewisePolynom() = default;
CPiecewisePolynom::CPiecewisePolynom(CPiecewisePolynom const &) = default;
CPiecewisePolynom & CPiecewisePolynom::operator=(CPiecewisePolynom const &) = default;

CPiecewisePolynom::CPiecewisePolynom(CPiecewisePolynom && other) noexcept : CPiecewisePolynom()
{
    *this = std::move(other);
}

CPiecewisePolynom & CPiecewisePolynom::operator=(CPiecewisePolynom && other) noexcept
{
    if (this != &other) {
        m_terms = std::move(other.m_terms);
        other.m_terms.clear();
        m_commonSupport = std::exchange(other.m_commonSupport, emptyBox());
        std::copy(other.m_commonShift, other.m_commonShift + 3, m_commonShift);
        m_maxPower = std::exchange(other.m_maxPower, 0);
    }
    return *this;
}

void CPiecewisePolynom::addTerm(CLimitedPolynom const & term)
{
    CPolynom accumulated, expansion;
    appendTerm(CLimitedPolynom(term), &accumulated, &expansion);
}

void CPiecewisePolynom::appendTerm(CLimitedPolynom && term, CPolynom * b1, CPolynom * b2)
{
    // All that can throw comes first.
    if (!m_terms.empty())
        term.changeShiftWithBuffers(m_commonShift, b1, b2);
    m_terms.push_back(std::move(term));
    CLimitedPolynom const & added = m_terms.back();
    if (m_terms.size() == 1)
        std::copy(added.getArgShift3(), added.getArgShift3() + 3, m_commonShift);
    unite(&m_commonSupport, added.getSupportRef());
    m_maxPower = std::max(m_maxPower, added.getShiftedPolynomRef().power());
}

double CPiecewisePolynom::eval(double const * point) const
{
    if (!contains(m_commonSupport, point))
        return 0.0;
    double sum = 0.0;
    for (CLimitedPolynom const & term : m_terms)
        if (contains(term.getSupportRef(), point))
            sum += term.eval(point);
    return sum;
}

double CPiecewisePolynom::integrateOnSupport() const
{
    double sum = 0.0;
    for (CLimitedPolynom const & term : m_terms) {
        CParallelepiped box = term.getSupportRef();
        subtract(&box, term.getArgShift3());
        sum += term.getShiftedPolynomRef().integrateOnBox(box);
    }
    return sum;
}

CPiecewisePolynom & CPiecewisePolynom::operator+=(CPiecewisePolynom const & other)
{
    std::size_t const count = other.m_terms.size();
    CParallelepiped const box = other.m_commonSupport;
    CPolynom accumulated, expansion;
    for (std::size_t i = 0; i < count; ++i)
        appendTerm(CLimitedPolynom(other.m_terms[i]), &accumulated, &expansion);
    unite(&m_commonSupport, box);
    return *this;
}

CPiecewisePolynom & CPiecewisePolynom::operator*=(double factor)
{
    for (CLimitedPolynom & term : m_terms)
        term.getShiftedPolynomRefMod() *= factor;
    return *this;
}

void CPiecewisePolynom::substituteArgPlusConst(double const * c)
{
    // The empty box of no pieces stays as it is.
    if (c == nullptr || m_terms.empty() || c[0] * c[0] + c[1] * c[1] + c[2] * c[2] == 0.0)
        return;
    double const translation[3] = {c[0], c[1], c[2]}; // c may be the shift of a piece
    for (CLimitedPolynom & term : m_terms)
        term.substituteArgPlusConst(translation);
    subtract(&m_commonSupport, translation);
    for (int axis = 0; axis < 3; ++axis)
        m_commonShift[axis] -= translation[axis];
}

void CPiecewisePolynom::changeShift(double const * const s)
{
    if (squaredDistance(s, m_commonShift) == 0.0)
        return;
    double const shift[3] = {s[0], s[1], s[2]};
    changeCommonShift(shift);
}

void CPiecewisePolynom::changeCommonShift(double const * const s)
{
    CPolynom accumulated, expansion;
    // A piece that cannot be expanded leaves all of them about the old shift.
    std::vector<CLimitedPolynom> changed(m_terms);
    for (CLimitedPolynom & term : changed)
        term.changeShiftWithBuffers(s, &accumulated, &expansion);
    m_terms.swap(changed);
    std::copy(s, s + 3, m_commonShift);
}

void CPiecewisePolynom::scaleArgument(double const * s)
{
    if (m_terms.empty())
        return;
    double const factors[3] = {s[0], s[1], s[2]};
    for (CLimitedPolynom & term : m_terms)
        term.scaleArgument(factors);
    divide(&m_commonSupport, factors);
    for (int axis = 0; axis < 3; ++axis)
        m_commonShift[axis] /= factors[axis];
}

bool CPiecewisePolynom::checkClassInvariants() const
{
    return debugCheckShiftTheSame() && debugCheckCommonSupportIsOk() && debugCheckMaxPower();
}

bool CPiecewisePolynom::debugCheckShiftTheSame() const
{
    for (CLimitedPolynom const & term : m_terms)
        if (!(squaredDistance(term.getArgShift3(), m_commonShift) == 0.0))
            return false;
    return true;
}

bool CPiecewisePolynom::debugCheckCommonSupportIsOk() const
{
    if (m_terms.empty())
        return true;
    CParallelepiped box = emptyBox();
    for (CLimitedPolynom const & term : m_terms)
        unite(&box, term.getSupportRef());
    return std::equal(box.getMin(), box.getMin() + 3, m_commonSupport.getMin()) &&
           std::equal(box.getMax(), box.getMax() + 3, m_commonSupport.getMax());
}

bool CPiecewisePolynom::debugCheckMaxPower() const
{
    int power = 0;
    for (CLimitedPolynom const & term : m_terms)
        power = std::max(power, term.getShiftedPolynomRef().power());
    return power == m_maxPower;
}

CPiecewisePolynom operator+(CPiecewisePolynom const & a, CPiecewisePolynom const & b)
{
    CPiecewisePolynom sum(a);
    sum += b;
    return sum;
}

CPiecewisePolynom operator*(CPiecewisePolynom const & a, CPiecewisePolynom const & b)
{
    CPiecewisePolynom result;
    CPiecewisePolynom const * base = &a;
    CPiecewisePolynom const * other = &b;
    bool const sameShift = squaredDistance(a.m_commonShift, b.m_commonShift) == 0.0;
    std::vector<CLimitedPolynom> rewritten;
    if (!sameShift) {
        if (b.m_maxPower > a.m_maxPower ||
            (b.m_maxPower == a.m_maxPower && b.m_terms.size() > a.m_terms.size()))
            std::swap(base, other);
        rewritten = other->m_terms;
    }
    double const * const shift = base->m_commonShift;
    CPolynom accumulated, expansion, product;
    for (CLimitedPolynom const & baseTerm : base->m_terms) {
        CParallelepiped const & baseBox = baseTerm.getSupportRef();
        if (!overlapWithVolume(baseBox, other->m_commonSupport))
            continue;
        for (std::size_t i = 0; i < other->m_terms.size(); ++i) {
            CLimitedPolynom const * otherTerm = &other->m_terms[i];
            if (!overlapWithVolume(baseBox, otherTerm->getSupportRef()))
                continue;
            if (!sameShift) {
                // Expanded when it meets a piece first.
                if (squaredDistance(rewritten[i].getArgShift3(), shift) != 0.0)
                    rewritten[i].changeShiftWithBuffers(shift, &accumulated, &expansion);
                otherTerm = &rewritten[i];
            }
            baseTerm.getShiftedPolynomRef().multiply(&product, otherTerm->getShiftedPolynomRef());
            result.appendTerm(
                CLimitedPolynom(product, intersection(baseBox, otherTerm->getSupportRef()), shift),
                &accumulated, &expansion);
        }
    }
    return result;
}

} // namespace VolTr
