// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/VolTriang/Parallelepiped.h>
#include <QZmath/VolTriang/SingleVarPolynom.h>

#include <array>
#include <vector>

namespace VolTr
{

/// A separable function of space: f(x, y, z) = m0(x) m1(y) m2(z), each factor a piecewise polynomial of one
/// variable. Axes are numbered 0, 1, 2.
class QZMATH_API CProductPolynom
{
public:
    /// Three factors without pieces: the zero function.
    CProductPolynom();
    CProductPolynom(CSingleVarLimitedPolynom const & x, CSingleVarLimitedPolynom const & y,
                    CSingleVarLimitedPolynom const & z);
    virtual ~CProductPolynom();
    CProductPolynom(CProductPolynom const &);
    CProductPolynom(CProductPolynom &&) noexcept;
    CProductPolynom & operator=(CProductPolynom const &);
    CProductPolynom & operator=(CProductPolynom &&) noexcept;

    /// Factor of an axis; another axis than 0, 1 or 2 throws `std::out_of_range`.
    CSingleVarLimitedPolynom const & getMultiplier(int axis) const
    {
        return m_multipliers.at(static_cast<std::size_t>(axis));
    }
    /// Replaces the factor of an axis; another axis than 0, 1 or 2 throws `std::out_of_range`.
    void setMultiplier(int axis, CSingleVarLimitedPolynom const & multiplier);

    /// Value at `point` (three coordinates): (m0 m1) m2, stopping at a product of 0.
    double eval(double const * point) const;
    /// Clears the three factors.
    void clear();
    /// Has any factor no pieces? Then the function is 0 everywhere.
    bool empty() const;
    /// Sum of the factors' `maxPower()`.
    int power() const;
    /// The box outside which the function is 0; an axis without pieces contributes [0, 0].
    CParallelepiped getSupport() const;

    /// Integral over space. `buffer` is scratch memory, best reused over many calls.
    double integrateOnSupportWithBuffer(CSingleVarPolynom * buffer) const;

    /// f(p) becomes f(p + shift), three components.
    void substituteArgPlusConst(double const * shift);
    /// Writes every factor about the new argument shift of its axis, without changing the values.
    void changeShift(double const * argShift);
    /// f(p) becomes f(factor * p), component by component; the three factors must be above 0.
    void scaleArgument(double const * factor);
    /// Multiplies the function by `factor`, spread evenly: each axis takes the cube root. A factor of exactly
    /// 0 leaves pieces without coefficients.
    CProductPolynom & operator*=(double factor);
    /// The pointwise product, empty when the two supports do not overlap with a volume.
    /// `out` must be neither operand.
    void multiply(CProductPolynom * out, CProductPolynom const & other) const;

private:
    friend class CProductPiecewisePolynom;

    void multiplyEachAxis(double factor);

    std::array<CSingleVarLimitedPolynom, 3> m_multipliers;
};

/// A sum of separable functions: the form of kernels, their derivatives and products of them.
///
/// All summands are written about one common argument shift, which starts at 0 and moves only with
/// `substituteArgPlusConst`, `changeShift` and `scaleArgument`: a summand is adapted to it when it is added,
/// and not the other way round. The common support is a box that holds the supports of all summands; as it
/// starts as the point 0 and grows by union, a sum built by `addSummand` has a support that contains the
/// origin. Kernels are centred there, for them the box is tight; for others it is merely generous, which
/// `checkClassInvariants` tells.
class QZMATH_API CProductPiecewisePolynom
{
public:
    /// The zero function: no summands, support and shift 0.
    CProductPiecewisePolynom();
    /// The sum of `count` functions, added one after the other.
    CProductPiecewisePolynom(int count, CProductPolynom const * summands);
    virtual ~CProductPiecewisePolynom();
    CProductPiecewisePolynom(CProductPiecewisePolynom const &);
    CProductPiecewisePolynom(CProductPiecewisePolynom &&) noexcept;
    CProductPiecewisePolynom & operator=(CProductPiecewisePolynom const &);
    CProductPiecewisePolynom & operator=(CProductPiecewisePolynom &&) noexcept;

    /// Becomes the zero function of the default constructor.
    void clear();

    /// A box outside which the function is 0.
    CParallelepiped const & getCommonSupportRef() const { return m_commonSupport; }
    int summandsNumber() const { return static_cast<int>(m_summands.size()); }
    /// Summand 0 to `summandsNumber() - 1`; another index throws `std::out_of_range`.
    CProductPolynom const & getSummand(int summand) const
    {
        return m_summands.at(static_cast<std::size_t>(summand));
    }

    /// Value at `point` (three coordinates): the sum over the summands in order.
    double eval(double const * point) const;
    /// Integral over space.
    double integrateOnSupport() const;

    /// Adds a function: appends a copy written about the common shift and unites the support with its box.
    void addSummand(CProductPolynom const & summand);
    /// Adds every summand of `other` (this object included) like `addSummand`.
    CProductPiecewisePolynom & operator+=(CProductPiecewisePolynom const & other);
    /// The pointwise product: one summand for each pair of summands with overlapping supports,
    /// without expansion about the origin. Its common shift is that of the operand of the greater
    /// power, at equal power of the one with more summands, else of this one; its common support is
    /// the intersection of the two.
    CProductPiecewisePolynom operator*(CProductPiecewisePolynom const & other) const;
    /// Multiplies the function, each axis of each summand by the cube root of `factor`. A factor of exactly 0
    /// clears it.
    CProductPiecewisePolynom & operator*=(double factor);

    /// f(p) becomes f(p + shift), three components; no coefficient changes.
    void substituteArgPlusConst(double const * shift);
    /// Writes the function about another common shift, three components, without changing its values.
    void changeShift(double const * argShift);
    /// f(p) becomes f(factor * p), component by component; the three factors must be above 0.
    void scaleArgument(double const * factor);

    /// The partial derivative along an axis, with as many summands. Steps at knots are not represented. An
    /// axis other than 0, 1 or 2 throws `std::out_of_range` unless there are no summands.
    void makePartialDerivative(CProductPiecewisePolynom * out, int axis) const;
    /// The sum of the second derivatives along the three axes, with three summands for each of this.
    void makeLaplacian(CProductPiecewisePolynom * out) const;

    /// A diagnosis: is the common support the tight one (to 1e-8), are all summands written about the common
    /// shift, and are their factors well formed? True without summands.
    bool checkClassInvariants() const;

private:
    int maxPower() const;
    bool checkSummands() const;
    bool checkCommonSupport() const;
    bool checkCommonShift() const;

    CParallelepiped m_commonSupport;
    std::array<double, 3> m_commonShift;
    std::vector<CProductPolynom> m_summands;
};

} // namespace VolTr
