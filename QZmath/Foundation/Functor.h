// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>

namespace REmath
{

/// Polymorphic function object of fixed argument types, for callbacks across the border of the library.
/// Derive from the form of the right arity (`Functor2<double, Point3D_d const &, int *>`) and override the
/// call operator. The operator is `const` since one object may be called from several places; state that a
/// callback changes is referred to by pointer.
template <class R, class... Args>
class QZMATH_API FunctorBase
{
public:
    virtual ~FunctorBase() = default;
    /// Whether the function object carries a target to forward to; one that computes by itself does not.
    virtual bool isBound() const { return m_target != nullptr; }
    virtual R operator()(Args... args) const = 0;

protected:
    FunctorBase() = default;
    FunctorBase(FunctorBase const &) = default;
    FunctorBase & operator=(FunctorBase const &) = default;

    /// Target of a forwarding function object, not owned; null in one that computes by itself.
    void * m_target = nullptr;
};

template <class R>
using Functor0 = FunctorBase<R>;
template <class R, class A1>
using Functor1 = FunctorBase<R, A1>;
template <class R, class A1, class A2>
using Functor2 = FunctorBase<R, A1, A2>;
template <class R, class A1, class A2, class A3>
using Functor3 = FunctorBase<R, A1, A2, A3>;
template <class R, class A1, class A2, class A3, class A4>
using Functor4 = FunctorBase<R, A1, A2, A3, A4>;
template <class R, class A1, class A2, class A3, class A4, class A5>
using Functor5 = FunctorBase<R, A1, A2, A3, A4, A5>;
template <class R, class A1, class A2, class A3, class A4, class A5, class A6>
using Functor6 = FunctorBase<R, A1, A2, A3, A4, A5, A6>;
template <class R, class A1, class A2, class A3, class A4, class A5, class A6, class A7>
using Functor7 = FunctorBase<R, A1, A2, A3, A4, A5, A6, A7>;

} // namespace REmath
