// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/VolTriang/Monom.h>
#include <QZmath/VolTriang/Parallelepiped.h>

#include <cstddef>
#include <vector>

namespace VolTr
{

/// A sparse polynomial of three variables with exact bookkeeping of its terms.
///
/// The terms stand in strictly ascending order of `CMonom::operator<`, so no two have the same exponents, and
/// the degree is kept beside them. A term that is cancelled exactly by an addition is removed; terms of
/// weight 0 arise otherwise (multiplication by 0, scaling by 0, insertion of a zero term without a partner)
/// and stay, and count for the degree.
///
/// A value with deep copy, safe to read from many threads. Running out of memory passes
/// as the standard exception.
class QZMATH_API CPolynom
{
public:
    /// No terms: the zero polynomial, of degree 0.
    CPolynom();
    /// One term, kept also with a weight of 0.
    CPolynom(CWeightedMonom const & term);
    /// One term of weight 1.
    CPolynom(CMonom const & monom);
    virtual ~CPolynom();
    CPolynom(CPolynom const &);
    /// Leaves `other` without terms.
    CPolynom(CPolynom && other) noexcept;
    CPolynom & operator=(CPolynom const &);
    CPolynom & operator=(CPolynom && other) noexcept;

    /// Adds a term, to the one with the same exponents if there is one. A sum of exactly 0 removes it.
    /// Logarithmic search and a move of the terms behind.
    void insertWeightedMonom(CWeightedMonom const & term);

    int getSummandNumber() const { return static_cast<int>(m_terms.size()); }
    /// Term 0 to `getSummandNumber() - 1` (unchecked), in ascending order.
    CWeightedMonom const & getSummand(int term) const { return m_terms[static_cast<std::size_t>(term)]; }
    /// The greatest degree of a term, 0 without terms.
    int power() const { return m_power; }

    /// Value at `point` (three coordinates): the sum over the terms in order.
    double eval(double const * point) const;
    /// Integral over a box.
    double integrateOnBox(CParallelepiped const & box) const;

    /// Sums and products take time linear in the terms they meet.
    CPolynom operator+(CPolynom const & other) const;
    CPolynom & operator+=(CPolynom const & other);
    /// Adding 0 without a constant term makes a constant term of weight 0; adding it once more removes that.
    CPolynom operator+(double constant) const;
    CPolynom & operator+=(double constant);
    CPolynom operator*(CPolynom const & other) const;
    /// The product goes to `out`, which must be another object than both operands.
    void multiply(CPolynom * out, CPolynom const & other) const;
    /// Multiplies every coefficient. A factor of 0 leaves terms and degree as they are.
    CPolynom operator*(double factor) const;
    CPolynom & operator*=(double factor);
    /// Multiplies by a power product. The degree grows by that of `monom` also when there are no terms.
    CPolynom & operator*=(CMonom const & monom);

    /// p(x) becomes p(x + c), three components. The number of terms can grow to that of all products
    /// of lower powers. An exponent above 1029, whose binomials overflow, throws
    /// `std::overflow_error` and changes nothing.
    void substituteArgPlusConst(double const * c);
    /// `substituteArgPlusConst` with scratch memory for a whole loop. The buffers must be two other objects;
    /// what they hold is lost.
    void substituteArgPlusConstWithBuffers(double const * c, CPolynom * b1, CPolynom * b2);
    /// p(x, y, z) becomes p(s0 x, s1 y, s2 z).
    void scaleArgument(double const * s);

    /// Removes all terms.
    void clear();

    /// Are the terms in strictly ascending order, and is the degree right?
    bool checkClassInvariants() const;

private:
    bool debugCheckTermsSorted() const;
    // The first n terms only.
    bool debugCheckTermsPartialSorted(std::size_t n) const;
    int calculatePower() const;
    // Restores the order of the terms after they were edited from outside. Leaves the degree as it is.
    void collectAndSortSimilarTerms();

    void reserveFor(std::size_t count);
    void addSortedTerms(std::vector<CWeightedMonom> const & terms, CWeightedMonom const & factor,
                        std::vector<CWeightedMonom> * merged);

    std::vector<CWeightedMonom> m_terms;
    int m_power;
};

QZMATH_API CPolynom operator*(double factor, CPolynom const & polynom);

} // namespace VolTr
