// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>

#include <cstddef>
#include <vector>

namespace VolTr
{

/// A polynomial of one variable, as the list of its coefficients: entry k belongs to x^k. An empty list is
/// the zero polynomial, of power -1.
///
/// Nothing trims trailing zeros: the power counts the stored entries, and a caller that stores a zero as last
/// coefficient breaks `checkClassInvariants`, without harm to the other operations.
class QZMATH_API CSingleVarPolynom
{
public:
    /// The zero polynomial, without coefficients.
    CSingleVarPolynom();
    /// \param count number of coefficients; 0 or less gives the zero polynomial
    /// \param coefficients lowest power first
    CSingleVarPolynom(int count, double const * coefficients);
    virtual ~CSingleVarPolynom();
    CSingleVarPolynom(CSingleVarPolynom const &);
    CSingleVarPolynom(CSingleVarPolynom &&) noexcept;
    CSingleVarPolynom & operator=(CSingleVarPolynom const &);
    CSingleVarPolynom & operator=(CSingleVarPolynom &&) noexcept;

    /// Replaces the coefficients; arguments as in the constructor.
    void assign(int count, double const * coefficients);
    /// Becomes the zero polynomial. Keeps the memory.
    void clear();

    /// Number of stored coefficients minus 1.
    int power() const { return static_cast<int>(m_coefficients.size()) - 1; }
    /// Coefficient of x^exponent, for an exponent from 0 to `power()` (unchecked).
    double getCoefficient(int exponent) const { return m_coefficients[static_cast<std::size_t>(exponent)]; }

    /// Value at `x`, by Horner's rule from the highest coefficient; 0 without coefficients.
    double eval(double x) const;

    /// Multiplies all coefficients; a factor of exactly 0 removes them.
    CSingleVarPolynom & operator*=(double factor);
    /// The product with `other`, of power `power() + other.power()`, empty if an operand is. `out` must be
    /// neither operand; its memory is reused.
    void multiply(CSingleVarPolynom * out, CSingleVarPolynom const & other) const;
    /// The derivative. `out` must be another object.
    void makeDerivative(CSingleVarPolynom * out) const;
    /// The primitive that is 0 at 0, with one entry more. `out` must be another object.
    void makePrimitive(CSingleVarPolynom * out) const;
    /// The integral from `a` to `b`. `buffer`, another object, receives the primitive; reuse it over many
    /// calls to avoid allocations.
    double integrateOnIntervalWithBuffer(double a, double b, CSingleVarPolynom * buffer) const;

    /// p(x) becomes p(factor * x). A factor of exactly 0 leaves one coefficient, the constant term.
    void scaleArgument(double factor);
    /// p(x) becomes p(x + shift), in place. Exact to rounding while the binomials stay below 2^53, so up to
    /// power 52.
    void substituteArgPlusConst(double shift);

    /// Is it empty, or is its last coefficient not 0?
    bool checkClassInvariants() const;

    /// Exact equality of the coefficient lists.
    bool operator==(CSingleVarPolynom const & other) const;
    bool operator!=(CSingleVarPolynom const & other) const { return !(*this == other); }

private:
    std::vector<double> m_coefficients;
};

/// A piecewise polynomial of one variable on a bounded interval, 0 elsewhere.
///
/// Knots and pieces are written in the shifted variable t = x - argShift: piece i holds for
/// knots[i] <= t < knots[i + 1]. So a translation costs nothing and changes no coefficient. Without pieces
/// the function is 0 everywhere.
class QZMATH_API CSingleVarLimitedPolynom
{
public:
    /// Zero everywhere: no pieces, no knots, shift 0.
    CSingleVarLimitedPolynom();
    /// \param argShift   the place of t = 0
    /// \param pieceCount at least 1
    /// \param pieces     polynomials in t, ascending intervals
    /// \param knotCount  `pieceCount + 1`
    /// \param knots      strictly ascending, in t
    /// Throws `std::exception` with "VolTr::CSingleVarLimitedPolynom: ctor fails" if an argument is not so.
    CSingleVarLimitedPolynom(double argShift, int pieceCount, CSingleVarPolynom const * pieces, int knotCount,
                             double const * knots);
    virtual ~CSingleVarLimitedPolynom();
    CSingleVarLimitedPolynom(CSingleVarLimitedPolynom const &);
    CSingleVarLimitedPolynom(CSingleVarLimitedPolynom &&) noexcept;
    CSingleVarLimitedPolynom & operator=(CSingleVarLimitedPolynom const &);
    CSingleVarLimitedPolynom & operator=(CSingleVarLimitedPolynom &&) noexcept;

    /// Replaces everything and returns true, or returns false and changes nothing where the constructor with
    /// the same arguments would throw.
    bool assign(double argShift, int pieceCount, CSingleVarPolynom const * pieces, int knotCount,
                double const * knots);
    /// Removes pieces and knots and sets the shift to 0.
    void clear();

    /// Are there no pieces?
    bool empty() const { return m_pieces.empty(); }
    /// Greatest power of a piece, -1 without pieces.
    int maxPower() const;
    /// The place of t = 0.
    double getArgShift() const { return m_argShift; }
    /// First knot as a value of x; 0 without knots.
    double getLeftBound() const { return m_knots.empty() ? 0.0 : m_knots.front() + m_argShift; }
    /// Last knot as a value of x; 0 without knots.
    double getRightBound() const { return m_knots.empty() ? 0.0 : m_knots.back() + m_argShift; }

    int piecesNumber() const { return static_cast<int>(m_pieces.size()); }
    /// Piece 0 to `piecesNumber() - 1` (unchecked), a polynomial in t.
    CSingleVarPolynom const & getPiece(int piece) const { return m_pieces[static_cast<std::size_t>(piece)]; }
    /// Knot 0 to `piecesNumber()` (unchecked), a value of t.
    double getKnot(int knot) const { return m_knots[static_cast<std::size_t>(knot)]; }

    /// Value at `x`. A knot belongs to the piece on its right, the last one to none.
    /// Linear in the number of pieces.
    double eval(double x) const;
    /// Integral over the whole line. `buffer` is scratch memory, best reused over many calls.
    double integrateWithBuffer(CSingleVarPolynom * buffer) const;

    /// f(x) becomes f(factor * x). The factor must be above 0.
    void scaleArgument(double factor);
    /// f(x) becomes f(x + shift); only the argument shift moves.
    void substituteArgPlusConst(double shift);
    /// Writes pieces and knots about a new argument shift, without changing the values.
    void changeShift(double argShift);

    /// Multiplies every piece; a factor of exactly 0 leaves pieces without coefficients.
    CSingleVarLimitedPolynom & operator*=(double factor);
    /// The pointwise product; see `multiply`.
    CSingleVarLimitedPolynom operator*(CSingleVarLimitedPolynom const & other) const;
    /// The pointwise product, on the intersection of the two intervals with the union of their knots there,
    /// or empty when they do not overlap. It is written about the argument shift of the operand of the
    /// greater `maxPower()`, at equal power of this one. `out` must be neither operand.
    void multiply(CSingleVarLimitedPolynom * out, CSingleVarLimitedPolynom const & other) const;
    /// The derivative of every piece between the same knots; steps at the knots are not represented. `out`
    /// must be another object.
    void makeDerivative(CSingleVarLimitedPolynom * out) const;

    /// Without pieces no knots; otherwise one knot more than pieces, strictly ascending.
    bool checkClassInvariants() const;

    /// Exact equality of shift, knots and pieces.
    bool operator==(CSingleVarLimitedPolynom const & other) const;
    bool operator!=(CSingleVarLimitedPolynom const & other) const { return !(*this == other); }

private:
    std::vector<CSingleVarPolynom> m_pieces;
    std::vector<double> m_knots;
    double m_argShift;
};

/// A copy of `function` with every piece multiplied by `factor`.
QZMATH_API CSingleVarLimitedPolynom operator*(double factor, CSingleVarLimitedPolynom const & function);

} // namespace VolTr
