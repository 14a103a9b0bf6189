// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Polynom.h>

#include <support/PiecewisePolynomials.h>

#include <gtest/gtest.h>

#include <array>
#include <limits>
#include <map>
#include <stdexcept>

using namespace VolTr;
using namespace TestPolynomials;

namespace
{

// Terms by exponents, which are ordered like monoms: additions happen one by one in an ordered map.
using TermMap = std::map<std::array<int, 3>, double>;

void addTo(TermMap & terms, std::array<int, 3> const & exponents, double weight)
{
    auto const [term, isNew] = terms.emplace(exponents, weight);
    if (!isNew && (term->second += weight) == 0.0)
        terms.erase(term);
}

TermMap toMap(CPolynom const & polynom)
{
    TermMap terms;
    for (int i = 0; i < polynom.getSummandNumber(); ++i) {
        CMonom const & monom = polynom.getSummand(i).getMonomRef();
        terms[{monom.getVarPower(0), monom.getVarPower(1), monom.getVarPower(2)}] =
            polynom.getSummand(i).getCoeff();
    }
    return terms;
}

TermMap multiplied(TermMap const & a, TermMap const & b)
{
    TermMap product;
    for (auto const & [factorExponents, factorWeight] : b)
        for (auto const & [exponents, weight] : a)
            addTo(product,
                  {exponents[0] + factorExponents[0], exponents[1] + factorExponents[1],
                   exponents[2] + factorExponents[2]},
                  weight * factorWeight);
    return product;
}

void expectSame(CPolynom const & polynom, TermMap const & terms)
{
    EXPECT_EQ(toMap(polynom), terms);
    EXPECT_EQ(polynom.getSummandNumber(), static_cast<int>(terms.size()));
    EXPECT_TRUE(polynom.checkClassInvariants());
}

// Small integer weights, so that terms cancel often.
CPolynom randomSparsePolynom(std::mt19937 & random, int terms, int maxExponent, double weightStep = 1.0)
{
    std::uniform_int_distribution<int> exponent(0, maxExponent), weight(-2, 2);
    CPolynom polynom;
    for (int i = 0; i < terms; ++i)
        polynom.insertWeightedMonom(CWeightedMonom(
            weight(random) * weightStep, CMonom(exponent(random), exponent(random), exponent(random))));
    return polynom;
}

} // namespace

TEST(Polynom, TermsAreThoseOfOneByOneAddition)
{
    std::mt19937 random(1);
    for (int trial = 0; trial < 400; ++trial) {
        int const maxExponent = 1 + trial % 3;
        CPolynom const a = randomSparsePolynom(random, trial % 14, maxExponent, 0.3);
        CPolynom const b = randomSparsePolynom(random, trial % 9, maxExponent, 0.3);
        TermMap const aTerms = toMap(a), bTerms = toMap(b);
        expectSame(a, aTerms);
        TermMap sum = aTerms;
        for (auto const & [exponents, weight] : bTerms)
            addTo(sum, exponents, weight);
        expectSame(a + b, sum);
        expectSame(a * b, multiplied(aTerms, bTerms));
        EXPECT_TRUE((a + b + -1.0 * b).checkClassInvariants());
        TermMap constant = aTerms;
        addTo(constant, {0, 0, 0}, -0.3);
        expectSame(a + -0.3, constant);
        CPolynom twice = a;
        twice += twice;
        TermMap doubled = aTerms;
        for (auto const & [exponents, weight] : aTerms)
            addTo(doubled, exponents, weight);
        expectSame(twice, doubled);
    }
}

TEST(Polynom, ZeroTermsAndDegree)
{
    int const exponents[3] = {1, 2, 3};
    EXPECT_EQ(CWeightedMonom(0.0, 3, exponents).getMonomRef(), CMonom());
    EXPECT_EQ(CWeightedMonom(-2.0, 3, exponents).getMonomRef(), CMonom(1, 2, 3));
    EXPECT_EQ(CWeightedMonom(0.0, CMonom(3, exponents)).getMonomRef().power(), 6);

    CPolynom polynom(CMonom(2, 0, 1));
    polynom += CPolynom(CMonom(0, 1, 0));
    polynom.insertWeightedMonom(CWeightedMonom(-1.0, CMonom(2, 0, 1)));
    EXPECT_EQ(polynom.power(), 1);
    // A zero term without a partner stays and counts; a second one removes it.
    polynom.insertWeightedMonom(CWeightedMonom(0.0, CMonom(0, 0, 4)));
    EXPECT_EQ(polynom.getSummandNumber(), 2);
    EXPECT_EQ(polynom.power(), 4);
    EXPECT_TRUE(polynom.checkClassInvariants());
    polynom.insertWeightedMonom(CWeightedMonom(0.0, CMonom(0, 0, 4)));
    EXPECT_EQ(polynom.power(), 1);
    polynom += 0.0;
    EXPECT_EQ(polynom.getSummandNumber(), 2);
    polynom += 0.0;
    EXPECT_EQ(polynom.getSummandNumber(), 1);
    polynom *= 0.0;
    EXPECT_EQ(polynom.getSummandNumber(), 1);
    EXPECT_EQ(polynom.power(), 1);

    // One of the own terms as argument.
    CPolynom quadratic = CPolynom(CMonom(0, 1, 0)) + CPolynom(CMonom(2, 0, 0));
    quadratic.insertWeightedMonom(quadratic.getSummand(1));
    quadratic *= quadratic.getSummand(0).getMonomRef();
    expectSame(quadratic, {{{0, 2, 0}, 1.0}, {{2, 1, 0}, 2.0}});

    CPolynom none;
    none *= CMonom(1, 1, 0);
    EXPECT_EQ(none.power(), 2);
    EXPECT_FALSE(none.checkClassInvariants());
    double const origin[3] = {0.0, 0.0, 0.0};
    EXPECT_EQ(none.eval(origin), 0.0);
    EXPECT_EQ(CMonom().eval(origin), 1.0);
}

TEST(Polynom, ShiftsThatCannotBeExpanded)
{
    double const one[3] = {1.0, 0.0, 0.0};
    // Binomials that leave the range of `double`; on other axes the power is not expanded.
    CPolynom high(CMonom(0, 0, 2000));
    double const up[3] = {0.0, 0.0, 1.0};
    EXPECT_THROW(high.substituteArgPlusConst(up), std::overflow_error);
    expectSame(high, {{{0, 0, 2000}, 1.0}});
    high.substituteArgPlusConst(one);
    expectSame(high, {{{0, 0, 2000}, 1.0}});

    // An undefined shift is not taken for none.
    double const undefined[3] = {std::numeric_limits<double>::quiet_NaN(), 0.0, 0.0};
    CPolynom square(CMonom(2, 0, 0));
    square.substituteArgPlusConst(undefined);
    EXPECT_TRUE(std::isnan(square.eval(one)));
    EXPECT_TRUE(square.checkClassInvariants());
}
