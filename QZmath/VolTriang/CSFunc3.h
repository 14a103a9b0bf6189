// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/VolTriang/PiecewisePolynom.h>
#include <QZmath/VolTriang/ProductPiecewisePolynom.h>

namespace VolTr
{

/// A kernel placed in space: the function N K(s (p - c)) of a point p, with the kernel K, the argument scale
/// s, the normalisation N and the centre c.
///
/// A small value that points to a shared kernel, which the caller keeps alive; it may be made by the million.
/// The centre is held twice: in model coordinates, and as a place of the octree's finest lattice, by which
/// scalar products are looked up.
template <class TKernel>
class QZMATH_API CCSFunc3Tmpl
{
public:
    /// \param kernel        not owned
    /// \param shift         the centre c, three model coordinates
    /// \param shiftInt      the centre on the finest lattice, three values
    /// \param scale         s, above 0
    /// \param normalization N
    /// \param nodeDepth     depth of the octree node on which the function stands
    CCSFunc3Tmpl(TKernel const * kernel, double * const shift, int * const shiftInt, double scale,
                 double normalization, int nodeDepth)
        : m_kernel(kernel), m_argumentShift{shift[0], shift[1], shift[2]}, m_argumentShiftInt{shiftInt[0],
                                                                                              shiftInt[1],
                                                                                              shiftInt[2]},
          m_argumentScale(scale), m_normalizationScale(normalization), m_nodeDepth(nodeDepth)
    {}
    virtual ~CCSFunc3Tmpl();
    CCSFunc3Tmpl(CCSFunc3Tmpl const &) = default;
    CCSFunc3Tmpl & operator=(CCSFunc3Tmpl const &) = default;

    /// Value at `point`, three coordinates.
    double eval(double const * const point) const;

    TKernel const & getkernelRef() const { return *m_kernel; }
    double const * getArgumentShift() const { return m_argumentShift; }
    double * getArgumentShiftMod() { return m_argumentShift; }
    int const * getArgumentShiftInt() const { return m_argumentShiftInt; }
    int * getArgumentShiftIntMod() { return m_argumentShiftInt; }
    double getArgumentScale() const { return m_argumentScale; }
    double getNormalizationScale() const { return m_normalizationScale; }
    int getNodeDepth() const { return m_nodeDepth; }

private:
    TKernel const * m_kernel;
    double m_argumentShift[3];
    int m_argumentShiftInt[3];
    double m_argumentScale;
    double m_normalizationScale;
    int m_nodeDepth;
};

extern template class CCSFunc3Tmpl<CPiecewisePolynom>;
extern template class CCSFunc3Tmpl<CProductPiecewisePolynom>;

} // namespace VolTr
