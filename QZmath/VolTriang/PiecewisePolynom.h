// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/VolTriang/Parallelepiped.h>
#include <QZmath/VolTriang/Polynom.h>

#include <vector>

namespace VolTr
{

/// A polynomial that holds in a box, written about a shift point: its value at p is that of the shifted
/// polynomial at p - argShift. So a translation costs nothing and changes no coefficient. The box is in the
/// coordinates of p.
class QZMATH_API CLimitedPolynom
{
public:
    /// \param polynomial a polynomial in p - shift
    /// \param support    where it holds
    /// \param shift      three coordinates; null means zeros
    CLimitedPolynom(CPolynom const & polynomial, CParallelepiped const & support, double const * shift);
    virtual ~CLimitedPolynom();
    CLimitedPolynom(CLimitedPolynom const &);
    CLimitedPolynom(CLimitedPolynom &&) noexcept;
    CLimitedPolynom & operator=(CLimitedPolynom const &);
    CLimitedPolynom & operator=(CLimitedPolynom &&) noexcept;

    CPolynom const & getShiftedPolynomRef() const { return m_shiftedPolynom; }
    CPolynom & getShiftedPolynomRefMod() { return m_shiftedPolynom; }
    CParallelepiped const & getSupportRef() const { return m_support; }
    CParallelepiped & getSupportRefMod() { return m_support; }
    double const * getArgShift3() const { return m_argShift; }
    double * getArgShift3Mod() { return m_argShift; }

    /// Value of the polynomial at `point` (three coordinates), also outside the support.
    double eval(double const * point) const;

    /// f(x, y, z) becomes f(s0 x, s1 y, s2 z). The factors must be above 0; a negative one leaves a box with
    /// its bounds exchanged.
    void scaleArgument(double const * s);
    /// f(x) becomes f(x + c), three components; only shift and support move. Null does nothing.
    void substituteArgPlusConst(double const * c);
    /// Writes the function about another shift, three components, without changing its values; null means the
    /// origin. Expands the polynomial, see `CPolynom::substituteArgPlusConst`.
    void changeShift(double const * s);
    /// `changeShift` with scratch memory for a whole loop; what the buffers hold is lost.
    void changeShiftWithBuffers(double const * s, CPolynom * b1, CPolynom * b2);

private:
    CPolynom m_shiftedPolynom;
    CParallelepiped m_support;
    double m_argShift[3];
};

/// A sum of polynomials on boxes: the general form of kernels, their derivatives and products of them. Pieces
/// may overlap and then add up.
///
/// All pieces are written about one common shift, that of the first piece: later ones are expanded about it
/// when they are added. A translation moves the shift and the boxes only. The common support is the union of
/// the boxes; without pieces it is the empty box from the greatest to the lowest finite `double`.
///
/// A value with deep copy, safe to read from many threads. Running out of memory passes
/// as the standard exception.
class QZMATH_API CPiecewisePolynom
{
public:
    /// The zero function: no pieces.
    CPiecewisePolynom();
    CPiecewisePolynom(CLimitedPolynom const & term);
    virtual ~CPiecewisePolynom();
    CPiecewisePolynom(CPiecewisePolynom const &);
    /// Leaves `other` without pieces.
    CPiecewisePolynom(CPiecewisePolynom && other) noexcept;
    CPiecewisePolynom & operator=(CPiecewisePolynom const &);
    CPiecewisePolynom & operator=(CPiecewisePolynom && other) noexcept;

    /// The box that holds the supports of all pieces.
    CParallelepiped const & getCommonSupportRef() const { return m_commonSupport; }
    /// The greatest degree of a piece, 0 without pieces.
    int maxPower() const { return m_maxPower; }
    int termsNumber() const { return static_cast<int>(m_terms.size()); }
    /// Piece 0 to `termsNumber() - 1`; another index throws `std::out_of_range`.
    CLimitedPolynom const & getTerm(int term) const { return m_terms.at(static_cast<std::size_t>(term)); }

    /// Adds a piece, written about the common shift unless it is the first.
    void addTerm(CLimitedPolynom const & term);

    /// Value at `point` (three coordinates): the sum over the pieces that contain it.
    ///
    /// A box contains the point if it contains p + 1e-10 on every axis, bounds included. So a common face of
    /// two neighbours belongs to the upper piece alone, also when rounding puts the point a little below it.
    double eval(double const * point) const;
    /// Integral over space.
    double integrateOnSupport() const;

    /// Adds the pieces of `other`, which may be this object.
    CPiecewisePolynom & operator+=(CPiecewisePolynom const & other);
    /// Multiplies every piece.
    CPiecewisePolynom & operator*=(double factor);

    /// f(x) becomes f(x + c), three components; no coefficient changes. Null does nothing.
    void substituteArgPlusConst(double const * c);
    /// Writes the function about another common shift, three components, without changing its values.
    void changeShift(double const * const s);
    /// f(x, y, z) becomes f(s0 x, s1 y, s2 z). The factors must be above 0; a negative one leaves boxes with
    /// their bounds exchanged.
    void scaleArgument(double const * s);

    /// A diagnosis: are all pieces written about the common shift, is the common support the tight one, and
    /// is the greatest degree right?
    bool checkClassInvariants() const;

private:
    friend QZMATH_API CPiecewisePolynom operator*(CPiecewisePolynom const & a, CPiecewisePolynom const & b);

    bool debugCheckShiftTheSame() const;
    bool debugCheckCommonSupportIsOk() const;
    bool debugCheckMaxPower() const;
    void changeCommonShift(double const * const s);
    void appendTerm(CLimitedPolynom && term, CPolynom * b1, CPolynom * b2);

    std::vector<CLimitedPolynom> m_terms;
    CParallelepiped m_commonSupport;
    double m_commonShift[3]; // of no meaning before the first piece
    int m_maxPower;
};

QZMATH_API CPiecewisePolynom operator+(CPiecewisePolynom const & a, CPiecewisePolynom const & b);

/// The pointwise product: one piece for each pair of pieces whose boxes overlap with a volume. It is written
/// about the shift of the operand of the greater `maxPower()`, at equal power of the one with more pieces,
/// else of `a`.
QZMATH_API CPiecewisePolynom operator*(CPiecewisePolynom const & a, CPiecewisePolynom const & b);

} // namespace VolTr
