// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/SingleVarPolynom.h>

#include <QZsys/Exceptions.h>

#include <algorithm>

namespace VolTr
{

CSingleVarPolynom::CSingleVarPolynom() = default;
CSingleVarPolynom::~CSingleVarPolynom() = default;
CSingleVarPolynom::CSingleVarPolynom(CSingleVarPolynom const &) = default;
CSingleVarPolynom::CSingleVarPolynom(CSingleVarPolynom &&) noexcept = default;
CSingleVarPolynom & CSingleVarPolynom::operator=(CSingleVarPolynom const &) = default;
CSingleVarPolynom & CSingleVarPolynom::operator=(CSingleVarPolynom &&) noexcept = default;

CSingleVarPolynom::CSingleVarPolynom(int count, double const * coefficients) { assign(count, coefficients); }

void CSingleVarPolynom::assign(int count, double const * coefficients)
{
    if (count <= 0 || coefficients == nullptr)
        m_coefficients.clear();
    else
        m_coefficients.assign(coefficients, coefficients + count);
}

void CSingleVarPolynom::clear() { m_coefficients.clear(); }

double CSingleVarPolynom::eval(double x) const
{
    if (m_coefficients.empty())
        return 0.0;
    double value = m_coefficients.back();
    for (std::size_t k = m_coefficients.size() - 1; k-- > 0;)
        value = value * x + m_coefficients[k];
    return value;
}

CSingleVarPolynom & CSingleVarPolynom::operator*=(double factor)
{
    if (factor == 0.0)
        m_coefficients.clear();
    else
        for (double & coefficient : m_coefficients)
            coefficient *= factor;
    return *this;
}

void CSingleVarPolynom::multiply(CSingleVarPolynom * out, CSingleVarPolynom const & other) const
{
    out->m_coefficients.clear();
    if (m_coefficients.empty() || other.m_coefficients.empty())
        return;
    out->m_coefficients.resize(m_coefficients.size() + other.m_coefficients.size() - 1, 0.0);
    for (std::size_t i = 0; i < m_coefficients.size(); ++i)
        for (std::size_t j = 0; j < other.m_coefficients.size(); ++j)
            out->m_coefficients[i + j] += m_coefficients[i] * other.m_coefficients[j];
}

void CSingleVarPolynom::makeDerivative(CSingleVarPolynom * out) const
{
    std::size_t const count = m_coefficients.size();
    out->m_coefficients.resize(count < 2 ? 0 : count - 1);
    for (std::size_t k = 1; k < count; ++k)
        out->m_coefficients[k - 1] = static_cast<double>(k) * m_coefficients[k];
}

void CSingleVarPolynom::makePrimitive(CSingleVarPolynom * out) const
{
    out->m_coefficients.resize(m_coefficients.size() + 1);
    out->m_coefficients[0] = 0.0;
    for (std::size_t k = 0; k < m_coefficients.size(); ++k)
        out->m_coefficients[k + 1] = m_coefficients[k] / static_cast<double>(k + 1);
}

double CSingleVarPolynom::integrateOnIntervalWithBuffer(double a, double b, CSingleVarPolynom * buffer) const
{
    makePrimitive(buffer);
    return buffer->eval(b) - buffer->eval(a);
}

void CSingleVarPolynom::scaleArgument(double factor)
{
    if (factor == 0.0) {
        m_coefficients.resize(1, 0.0);
        return;
    }
    double power = 1.0;
    for (double & coefficient : m_coefficients) {
        coefficient *= power;
        power *= factor;
    }
}

void CSingleVarPolynom::substituteArgPlusConst(double shift)
{
    if (shift == 0.0)
        return;
    // The expansion of c[k] (x + shift)^k changes lower entries only, so ascending k expands none twice.
    for (std::size_t k = 1; k < m_coefficients.size(); ++k) {
        double const leading = m_coefficients[k];
        if (leading == 0.0)
            continue;
        // Binomials are integers; kept in floating point they are exact up to 2^53 and cannot overflow.
        double binomial = 1.0;
        double power = 1.0;
        for (std::size_t j = 1; j <= k; ++j) {
            binomial = binomial * static_cast<double>(k - j + 1) / static_cast<double>(j);
            power *= shift;
            m_coefficients[k - j] += binomial * leading * power;
        }
    }
}

bool CSingleVarPolynom::checkClassInvariants() const
{
    return m_coefficients.empty() || m_coefficients.back() != 0.0;
}

bool CSingleVarPolynom::operator==(CSingleVarPolynom const & other) const
{
    return m_coefficients == other.m_coefficients;
}

namespace
{
bool areStrictlyAscending(double const * knots, std::size_t count)
{
    for (std::size_t i = 1; i < count; ++i)
        if (!(knots[i - 1] < knots[i]))
            return false;
    return true;
}
} // namespace

CSingleVarLimitedPolynom::CSingleVarLimitedPolynom() : m_argShift(0.0) {}
CSingleVarLimitedPolynom::~CSingleVarLimitedPolynom() = default;
CSingleVarLimitedPolynom::CSingleVarLimitedPolynom(CSingleVarLimitedPolynom const &) = default;
CSingleVarLimitedPolynom::CSingleVarLimitedPolynom(CSingleVarLimitedPolynom &&) noexcept = default;
CSingleVarLimitedPolynom & CSingleVarLimitedPolynom::operator=(CSingleVarLimitedPolynom const &) = default;
CSingleVarLimitedPolynom &
CSingleVarLimitedPolynom::operator=(CSingleVarLimitedPolynom &&) noexcept = default;

CSingleVarLimitedPolynom::CSingleVarLimitedPolynom(double argShift, int pieceCount,
                                                   CSingleVarPolynom const * pieces, int knotCount,
                                                   double const * knots)
    : m_argShift(0.0)
{
    if (!assign(argShift, pieceCount, pieces, knotCount, knots))
        throw CVescaTextException("VolTr::CSingleVarLimitedPolynom: ctor fails");
}

bool CSingleVarLimitedPolynom::assign(double argShift, int pieceCount, CSingleVarPolynom const * pieces,
                                      int knotCount, double const * knots)
{
    if (pieceCount < 1 || knotCount < 2 || knotCount - 1 != pieceCount || pieces == nullptr ||
        knots == nullptr)
        return false;
    if (!areStrictlyAscending(knots, static_cast<std::size_t>(knotCount)))
        return false;
    // Copies first: the arguments may point into this object.
    std::vector<CSingleVarPolynom> newPieces(pieces, pieces + pieceCount);
    std::vector<double> newKnots(knots, knots + knotCount);
    m_pieces.swap(newPieces);
    m_knots.swap(newKnots);
    m_argShift = argShift;
    return true;
}

void CSingleVarLimitedPolynom::clear()
{
    m_pieces.clear();
    m_knots.clear();
    m_argShift = 0.0;
}

int CSingleVarLimitedPolynom::maxPower() const
{
    int power = -1;
    for (CSingleVarPolynom const & piece : m_pieces)
        power = std::max(power, piece.power());
    return power;
}

double CSingleVarLimitedPolynom::eval(double x) const
{
    if (m_knots.empty())
        return 0.0;
    double const t = x - m_argShift;
    if (!(t >= m_knots.front()) || !(t < m_knots.back()))
        return 0.0;
    for (std::size_t i = 1; i < m_knots.size(); ++i)
        if (m_knots[i] > t)
            return m_pieces[i - 1].eval(t);
    return 0.0;
}

double CSingleVarLimitedPolynom::integrateWithBuffer(CSingleVarPolynom * buffer) const
{
    double integral = 0.0;
    for (std::size_t i = 0; i < m_pieces.size(); ++i)
        integral += m_pieces[i].integrateOnIntervalWithBuffer(m_knots[i], m_knots[i + 1], buffer);
    return integral;
}

void CSingleVarLimitedPolynom::scaleArgument(double factor)
{
    m_argShift /= factor;
    for (double & knot : m_knots)
        knot /= factor;
    for (CSingleVarPolynom & piece : m_pieces)
        piece.scaleArgument(factor);
}

void CSingleVarLimitedPolynom::substituteArgPlusConst(double shift) { m_argShift -= shift; }

void CSingleVarLimitedPolynom::changeShift(double argShift)
{
    double const delta = argShift - m_argShift;
    if (delta == 0.0)
        return;
    m_argShift = argShift;
    for (CSingleVarPolynom & piece : m_pieces)
        piece.substituteArgPlusConst(delta);
    for (double & knot : m_knots)
        knot -= delta;
}

CSingleVarLimitedPolynom & CSingleVarLimitedPolynom::operator*=(double factor)
{
    for (CSingleVarPolynom & piece : m_pieces)
        piece *= factor;
    return *this;
}

CSingleVarLimitedPolynom CSingleVarLimitedPolynom::operator*(CSingleVarLimitedPolynom const & other) const
{
    CSingleVarLimitedPolynom product;
    multiply(&product, other);
    return product;
}

void CSingleVarLimitedPolynom::multiply(CSingleVarLimitedPolynom * out,
                                        CSingleVarLimitedPolynom const & other) const
{
    out->clear();
    if (empty() || other.empty())
        return;
    CSingleVarLimitedPolynom const * base = this;
    CSingleVarLimitedPolynom const * moved = &other;
    CSingleVarLimitedPolynom movedCopy;
    if (m_argShift != other.m_argShift) {
        if (other.maxPower() > maxPower())
            std::swap(base, moved);
        movedCopy = *moved;
        movedCopy.changeShift(base->m_argShift);
        moved = &movedCopy;
    }
    out->m_argShift = base->m_argShift;
    out->m_knots.reserve(base->m_knots.size() + moved->m_knots.size());
    out->m_pieces.reserve(base->m_pieces.size() + moved->m_pieces.size());
    for (std::size_t i = 0; i < base->m_pieces.size(); ++i) {
        double const baseLeft = base->m_knots[i];
        double const baseRight = base->m_knots[i + 1];
        if (!(baseLeft < moved->m_knots.back()))
            break;
        for (std::size_t j = 0; j < moved->m_pieces.size(); ++j) {
            double const left = std::max(baseLeft, moved->m_knots[j]);
            double const right = std::min(baseRight, moved->m_knots[j + 1]);
            if (!(left < right))
                continue;
            if (out->m_knots.empty())
                out->m_knots.push_back(left);
            out->m_knots.push_back(right);
            out->m_pieces.emplace_back();
            base->m_pieces[i].multiply(&out->m_pieces.back(), moved->m_pieces[j]);
        }
    }
}

void CSingleVarLimitedPolynom::makeDerivative(CSingleVarLimitedPolynom * out) const
{
    out->m_argShift = m_argShift;
    out->m_knots = m_knots;
    out->m_pieces.resize(m_pieces.size());
    for (std::size_t i = 0; i < m_pieces.size(); ++i)
        m_pieces[i].makeDerivative(&out->m_pieces[i]);
}

bool CSingleVarLimitedPolynom::checkClassInvariants() const
{
    if (m_pieces.empty())
        return m_knots.empty();
    return m_knots.size() == m_pieces.size() + 1 && areStrictlyAscending(m_knots.data(), m_knots.size());
}

bool CSingleVarLimitedPolynom::operator==(CSingleVarLimitedPolynom const & other) const
{
    return m_argShift == other.m_argShift && m_knots == other.m_knots && m_pieces == other.m_pieces;
}

CSingleVarLimitedPolynom operator*(double factor, CSingleVarLimitedPolynom const & function)
{
    CSingleVarLimitedPolynom product(function);
    product *= factor;
    return product;
}

} // namespace VolTr
