// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Polynom.h>

#include <boost/math/special_functions/binomial.hpp>

#include <algorithm>
#include <array>
#include <utility>

namespace VolTr
{

namespace
{

// What is set aside at once for a result whose greatest possible length is known. Longer ones grow.
double const greatestReservation = 1 << 16;

std::size_t reservation(double greatestLength)
{
    return static_cast<std::size_t>(std::min(greatestLength, greatestReservation));
}

// How many power products of three variables have at most this degree.
double monomsNumber(double degree) { return (degree + 1.0) * (degree + 2.0) * (degree + 3.0) / 6.0; }

bool precedes(CWeightedMonom const & a, CWeightedMonom const & b)
{
    return a.getMonomRef() < b.getMonomRef();
}

// The coefficients of (x + shift)^exponent from the constant one on.
void expandPower(std::vector<double> * coefficients, int exponent, double shift)
{
    coefficients->clear();
    for (int k = 0; k <= exponent; ++k) {
        coefficients->push_back(boost::math::binomial_coefficient<double>(static_cast<unsigned>(exponent),
                                                                          static_cast<unsigned>(k)));
    }
    double power = 1.0;
    for (std::size_t k = coefficients->size(); k-- > 0;) {
        (*coefficients)[k] *= power;
        power *= shift;
    }
}

} // namespace

CPolynom::CPolynom() : m_power(0) {}
CPolynom::CPolynom(CWeightedMonom const & term) : m_terms(1, term), m_power(term.getMonomRef().power()) {}
CPolynom::CPolynom(CMonom const & monom) : CPolynom(CWeightedMonom(1.0, monom)) {}
CPolynom::~CPolynom() = default;
CPolynom::CPolynom(CPolynom const &) = default;
CPolynom & CPolynom::operator=(CPolynom const &) = default;

CPolynom::CPolynom(CPolynom && other) noexcept
    : m_terms(std::move(other.m_terms)), m_power(std::exchange(other.m_power, 0))
{
    other.m_terms.clear();
}

CPolynom & CPolynom::operator=(CPolynom && other) noexcept
{
    if (this != &other) {
        m_terms = std::move(other.m_terms);
        other.m_terms.clear();
        m_power = std::exchange(other.m_power, 0);
    }
    return *this;
}

void CPolynom::reserveFor(std::size_t count)
{
    std::size_t const capacity = m_terms.capacity();
    if (count > capacity)
        m_terms.reserve(std::max(count, capacity + capacity / 2));
}

void CPolynom::insertWeightedMonom(CWeightedMonom const & term)
{
    CWeightedMonom const added = term; // may be one of the terms
    int const degree = added.getMonomRef().power();
    auto const place = std::lower_bound(m_terms.begin(), m_terms.end(), added, precedes);
    if (place != m_terms.end() && place->getMonomRef() == added.getMonomRef()) {
        place->getCoeffRefMod() += added.getCoeff();
        if (place->getCoeff() == 0.0)
            m_terms.erase(place);
        if (degree == m_power)
            m_power = calculatePower();
        return;
    }
    auto const index = place - m_terms.begin();
    reserveFor(m_terms.size() + 1);
    m_terms.insert(m_terms.begin() + index, added);
    m_power = std::max(m_power, degree);
}

// Inserts terms[i] * factor for all i, in one pass over both sorted lists; `merged` is scratch memory. Two
// terms of `terms` never meet each other, so this is what inserting them one by one does.
void CPolynom::addSortedTerms(std::vector<CWeightedMonom> const & terms, CWeightedMonom const & factor,
                              std::vector<CWeightedMonom> * merged)
{
    merged->clear();
    bool degreeIsOpen = false;
    auto present = m_terms.cbegin();
    for (CWeightedMonom const & term : terms) {
        CWeightedMonom added = term * factor;
        int const degree = added.getMonomRef().power();
        for (; present != m_terms.cend() && precedes(*present, added); ++present)
            merged->push_back(*present);
        if (present != m_terms.cend() && present->getMonomRef() == added.getMonomRef()) {
            added.getCoeffRefMod() = present->getCoeff() + added.getCoeff();
            ++present;
            degreeIsOpen = degreeIsOpen || degree == m_power;
            if (added.getCoeff() == 0.0)
                continue;
        } else {
            m_power = std::max(m_power, degree);
        }
        merged->push_back(added);
    }
    merged->insert(merged->end(), present, m_terms.cend());
    m_terms.swap(*merged);
    if (degreeIsOpen)
        m_power = calculatePower();
}

double CPolynom::eval(double const * point) const
{
    double sum = 0.0;
    for (CWeightedMonom const & term : m_terms)
        sum += term.eval(point);
    return sum;
}

double CPolynom::integrateOnBox(CParallelepiped const & box) const
{
    double sum = 0.0;
    for (CWeightedMonom const & term : m_terms)
        sum += term.integrateOnBox(box);
    return sum;
}

CPolynom CPolynom::operator+(CPolynom const & other) const
{
    CPolynom sum(*this);
    sum += other;
    return sum;
}

CPolynom & CPolynom::operator+=(CPolynom const & other)
{
    std::vector<CWeightedMonom> merged;
    merged.reserve(m_terms.size() + other.m_terms.size());
    addSortedTerms(other.m_terms, CWeightedMonom(1.0, CMonom()), &merged);
    return *this;
}

CPolynom CPolynom::operator+(double constant) const
{
    CPolynom sum(*this);
    sum += constant;
    return sum;
}

CPolynom & CPolynom::operator+=(double constant)
{
    insertWeightedMonom(CWeightedMonom(constant, CMonom()));
    return *this;
}

CPolynom CPolynom::operator*(CPolynom const & other) const
{
    CPolynom product;
    multiply(&product, other);
    return product;
}

void CPolynom::multiply(CPolynom * out, CPolynom const & other) const
{
    out->clear();
    std::size_t const length = reservation(
        std::min(static_cast<double>(m_terms.size()) * static_cast<double>(other.m_terms.size()),
                 monomsNumber(static_cast<double>(m_power) + static_cast<double>(other.m_power))));
    out->m_terms.reserve(length);
    std::vector<CWeightedMonom> merged;
    merged.reserve(length);
    // A power product added to all terms keeps their order.
    for (CWeightedMonom const & factor : other.m_terms)
        out->addSortedTerms(m_terms, factor, &merged);
}

CPolynom CPolynom::operator*(double factor) const
{
    CPolynom product(*this);
    product *= factor;
    return product;
}

CPolynom & CPolynom::operator*=(double factor)
{
    for (CWeightedMonom & term : m_terms)
        term.getCoeffRefMod() *= factor;
    return *this;
}

CPolynom & CPolynom::operator*=(CMonom const & monom)
{
    CMonom const factor = monom; // may belong to one of the terms
    for (CWeightedMonom & term : m_terms)
        term.getMonomRefMod() *= factor;
    m_power = static_cast<int>(static_cast<unsigned>(m_power) + static_cast<unsigned>(factor.power()));
    return *this;
}

void CPolynom::substituteArgPlusConst(double const * c)
{
    CPolynom accumulated, expansion;
    substituteArgPlusConstWithBuffers(c, &accumulated, &expansion);
}

void CPolynom::substituteArgPlusConstWithBuffers(double const * c, CPolynom * b1, CPolynom * b2)
{
    if (c[0] * c[0] + c[1] * c[1] + c[2] * c[2] == 0.0 || m_power == 0)
        return;
    CPolynom & accumulated = *b1;
    CPolynom & expansion = *b2;
    accumulated.clear();
    double const degree = static_cast<double>(m_power);
    double const termLength = (degree + 1.0) * (degree + 1.0) * (degree + 1.0);
    std::size_t const length =
        reservation(std::min(static_cast<double>(m_terms.size()) * termLength, monomsNumber(degree)));
    accumulated.m_terms.reserve(length);
    std::vector<CWeightedMonom> merged;
    merged.reserve(length);
    std::array<std::vector<double>, 3> factors;
    CWeightedMonom const one(1.0, CMonom());
    for (CWeightedMonom const & term : m_terms) {
        // Each axis is expanded by itself: the power stays where nothing is added to the variable.
        std::array<int, 3> start;
        for (int axis = 0; axis < 3; ++axis) {
            std::vector<double> & factor = factors[static_cast<std::size_t>(axis)];
            int const exponent = term.getMonomRef().getVarPower(axis);
            bool const isKept = exponent == 0 || c[axis] == 0.0;
            start[static_cast<std::size_t>(axis)] = isKept ? exponent : 0;
            if (isKept)
                factor.assign(1, 1.0);
            else
                expandPower(&factor, exponent, c[axis]);
        }
        // The product of the three, from the lowest term on.
        expansion.clear();
        for (std::size_t x = 0; x < factors[0].size(); ++x) {
            double const weightX = term.getCoeff() * factors[0][x];
            for (std::size_t y = 0; y < factors[1].size(); ++y) {
                double const weightXY = weightX * factors[1][y];
                for (std::size_t z = 0; z < factors[2].size(); ++z) {
                    expansion.m_terms.emplace_back(weightXY * factors[2][z],
                                                   CMonom(start[0] + static_cast<int>(x),
                                                          start[1] + static_cast<int>(y),
                                                          start[2] + static_cast<int>(z)));
                }
            }
        }
        accumulated.addSortedTerms(expansion.m_terms, one, &merged);
    }
    expansion.clear();
    m_terms.swap(accumulated.m_terms);
    accumulated.m_power = m_power;
}

void CPolynom::scaleArgument(double const * s)
{
    for (CWeightedMonom & term : m_terms)
        term.scaleArgument(s);
}

void CPolynom::clear()
{
    m_terms.clear();
    m_power = 0;
}

bool CPolynom::checkClassInvariants() const { return debugCheckTermsSorted() && m_power == calculatePower(); }

bool CPolynom::debugCheckTermsSorted() const { return debugCheckTermsPartialSorted(m_terms.size()); }

bool CPolynom::debugCheckTermsPartialSorted(std::size_t n) const
{
    for (std::size_t i = 1; i < std::min(n, m_terms.size()); ++i)
        if (!precedes(m_terms[i - 1], m_terms[i]))
            return false;
    return true;
}

int CPolynom::calculatePower() const
{
    int power = 0;
    for (CWeightedMonom const & term : m_terms)
        power = std::max(power, term.getMonomRef().power());
    return power;
}

void CPolynom::collectAndSortSimilarTerms()
{
    std::sort(m_terms.begin(), m_terms.end(), precedes);
    std::size_t kept = 0;
    for (std::size_t i = 0; i < m_terms.size(); ++i) {
        if (kept > 0 && m_terms[kept - 1].getMonomRef() == m_terms[i].getMonomRef())
            m_terms[kept - 1].getCoeffRefMod() += m_terms[i].getCoeff();
        else
            m_terms[kept++] = m_terms[i];
    }
    m_terms.resize(kept);
    m_terms.erase(std::remove_if(m_terms.begin(), m_terms.end(),
                                 [](CWeightedMonom const & term) { return term.getCoeff() == 0.0; }),
                  m_terms.end());
}

CPolynom operator*(double factor, CPolynom const & polynom) { return polynom * factor; }

} // namespace VolTr
