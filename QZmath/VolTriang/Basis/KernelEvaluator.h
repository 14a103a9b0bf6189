// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/VolTriang/PiecewisePolynom.h>
#include <QZmath/VolTriang/ProductPiecewisePolynom.h>
#include <QZmath/VolTriang/SingleVarPolynom.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <vector>

namespace VolTr
{

/// A piecewise polynomial of one variable, flattened for evaluation; the values are those of
/// `CSingleVarLimitedPolynom::eval`.
///
/// Up to three pieces of up to three coefficients stand in fixed arrays, which is what B-splines of degree 2
/// and their derivatives need, between two pieces that are 0; they are chosen without branches, which random
/// arguments would mislead. Anything else takes the general arrays.
class CFlatLimitedPolynom
{
public:
    CFlatLimitedPolynom() = default;

    explicit CFlatLimitedPolynom(CSingleVarLimitedPolynom const & function)
        : m_argShift(function.getArgShift())
    {
        int const pieces = function.piecesNumber();
        m_isSmall = pieces <= 3 && function.maxPower() <= 2;
        for (int knot = 0; knot <= pieces && pieces > 0; ++knot)
            m_isSmall = m_isSmall && std::isfinite(function.getKnot(knot)) &&
                        (knot == 0 || function.getKnot(knot - 1) < function.getKnot(knot));
        if (m_isSmall) {
            // Missing pieces become empty intervals at the end.
            for (int knot = 0; knot < 4; ++knot)
                m_smallKnots[static_cast<std::size_t>(knot)] =
                    pieces == 0 ? 0.0 : function.getKnot(std::min(knot, pieces));
            for (int piece = 0; piece < pieces; ++piece) {
                CSingleVarPolynom const & polynom = function.getPiece(piece);
                for (int exponent = 0; exponent <= polynom.power(); ++exponent)
                    m_smallPieces[static_cast<std::size_t>(piece + 1)][static_cast<std::size_t>(exponent)] =
                        polynom.getCoefficient(exponent);
            }
            return;
        }
        for (int piece = 0; piece < pieces; ++piece) {
            m_knots.push_back(function.getKnot(piece));
            m_pieceBegin.push_back(m_coefficients.size());
            CSingleVarPolynom const & polynom = function.getPiece(piece);
            for (int exponent = 0; exponent <= polynom.power(); ++exponent)
                m_coefficients.push_back(polynom.getCoefficient(exponent));
        }
        m_knots.push_back(function.getKnot(pieces));
        m_pieceBegin.push_back(m_coefficients.size());
    }

    double eval(double x) const
    {
        double const t = x - m_argShift;
        if (!m_isSmall)
            return evalGeneral(t);
        std::array<double, 3> const & c = m_smallPieces[static_cast<unsigned>(t >= m_smallKnots[0]) +
                                                        static_cast<unsigned>(t >= m_smallKnots[1]) +
                                                        static_cast<unsigned>(t >= m_smallKnots[2]) +
                                                        static_cast<unsigned>(t >= m_smallKnots[3])];
        // The outer pieces must stay 0 for infinite arguments and NaN too.
        double bounded = t < m_smallKnots[3] ? t : m_smallKnots[3];
        bounded = bounded > m_smallKnots[0] ? bounded : m_smallKnots[0];
        return (c[2] * bounded + c[1]) * bounded + c[0];
    }

private:
    double evalGeneral(double t) const
    {
        if (!(t >= m_knots.front() && t < m_knots.back()))
            return 0.0;
        std::size_t piece = 0;
        while (!(m_knots[piece + 1] > t))
            ++piece;
        double value = 0.0;
        for (std::size_t k = m_pieceBegin[piece + 1]; k-- > m_pieceBegin[piece];)
            value = value * t + m_coefficients[k];
        return value;
    }

    double m_argShift = 0.0;
    bool m_isSmall = true;
    std::array<double, 4> m_smallKnots{};
    std::array<std::array<double, 3>, 5> m_smallPieces{}; // the first and the last are 0
    std::vector<double> m_knots;
    std::vector<std::size_t> m_pieceBegin;
    std::vector<double> m_coefficients;
};

/// Evaluates a sample kernel without building objects. Each kernel type that a basis can stand on specialises
/// it.
///
/// `isSeparable` says that the kernel is a sum of `summandsNumber()` products of one-variable factors, which
/// a walk over nodes in the order of x, y, z can evaluate plane by plane and line by line.
template <class TKernel>
class CKernelEvaluator;

template <>
class CKernelEvaluator<CProductPiecewisePolynom>
{
public:
    static bool const isSeparable = true;

    explicit CKernelEvaluator(CProductPiecewisePolynom const & kernel)
    {
        for (int summand = 0; summand < kernel.summandsNumber(); ++summand) {
            std::array<CFlatLimitedPolynom, 3> factors;
            for (int axis = 0; axis < 3; ++axis)
                factors[static_cast<std::size_t>(axis)] =
                    CFlatLimitedPolynom(kernel.getSummand(summand).getMultiplier(axis));
            m_summands.push_back(factors);
        }
    }

    std::size_t summandsNumber() const { return m_summands.size(); }

    double evalFactor(std::size_t summand, std::size_t axis, double x) const
    {
        return m_summands[summand][axis].eval(x);
    }

    double eval(double const * point) const
    {
        double sum = 0.0;
        for (std::array<CFlatLimitedPolynom, 3> const & factors : m_summands) {
            double product = factors[0].eval(point[0]);
            if (product == 0.0)
                continue;
            product *= factors[1].eval(point[1]);
            if (product == 0.0)
                continue;
            sum += product * factors[2].eval(point[2]);
        }
        return sum;
    }

private:
    std::vector<std::array<CFlatLimitedPolynom, 3>> m_summands;
};

/// The general form has no factors to share: every value is that of the kernel itself.
template <>
class CKernelEvaluator<CPiecewisePolynom>
{
public:
    static bool const isSeparable = false;

    explicit CKernelEvaluator(CPiecewisePolynom const & kernel) : m_kernel(kernel) {}

    double eval(double const * point) const { return m_kernel.eval(point); }

private:
    CPiecewisePolynom m_kernel;
};

} // namespace VolTr
