// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/LinSys/LinSysFailure.h>
#include <QZmath/LinSys/VertexLinearCombination.h>

class CProgressCounter;

/// Interfaces of linear systems. Every template of this file exists for `float` and `double`.
///
/// A system is stated over vertices, integers of the caller's choice that name one scalar each. Free vertices
/// are solved for, fixed ones are given. Row k of the free matrix F holds the coefficients of the free
/// vertices in equation k, row k of the fixed matrix G those of the fixed vertices; with the fixed positions
/// p, the solution x fulfils F x = -G p. Indices of vertices, of either kind, count from 0 in order of
/// definition.
///
/// Misuse never throws: it spoils the system. A spoiled system stays so until it is assigned to, takes no
/// further equation and is not correctly defined.
namespace REmath
{

/// Where the positions of fixed vertices come from.
template <class T>
class QZMATH_API IVertexPosInformer
{
public:
    virtual ~IVertexPosInformer() = default;
    virtual T GetVertexPosition(int vertex) const = 0;
};

/// Where the positions of solved vertices go.
template <class T>
class QZMATH_API IEqSysResultReciever
{
public:
    virtual ~IEqSysResultReciever() = default;
    virtual void SetVertexPosition(int vertex, T position) = 0;
};

/// What a solver core sees of a system. Concurrent reading is safe as long as nobody builds the system.
template <class T>
class QZMATH_API ILinearSystemReadOnly
{
private:
    virtual bool onIsCorrectlyDefinedSystem() const = 0;
    virtual void onSetSingleRightPart(T * rightPart, IVertexPosInformer<T> const & informer) const = 0;
    virtual int onGetEquationsNumber() const = 0;
    virtual T onScalarProductByMatrixRow(int row, int size, T const * vector) const = 0;
    virtual T onGetFreeVertCoeff(int row, int column) const = 0;
    virtual void onSetSingleSolution(T const * solution, IEqSysResultReciever<T> & reciever) const = 0;
    virtual bool onIsSymmetric() const = 0;
    virtual bool onIsPositiveDefinite() const = 0;

public:
    virtual ~ILinearSystemReadOnly() = default;

    /// The free matrix is declared symmetric: only its upper triangle needs storing.
    virtual bool isSymmetric() const;
    /// The caller promises that the free matrix is positive definite.
    virtual bool isPositiveDefinite() const;

    /// Not spoiled, and as many equations as free vertices.
    bool IsCorrectlyDefinedSystem() const { return onIsCorrectlyDefinedSystem(); }
    /// Equations stored so far.
    int GetEquationsNumber() const { return onGetEquationsNumber(); }
    /// One element of the free matrix; 0 when it is not stored.
    T GetFreeVertCoeff(int row, int column) const { return onGetFreeVertCoeff(row, column); }
    /// Writes -G p to the `GetEquationsNumber()` elements of `rightPart`. The informer is asked once for each
    /// fixed vertex, in the order of their indices.
    void SetSingleRightPart(T * rightPart, IVertexPosInformer<T> const & informer) const
    {
        onSetSingleRightPart(rightPart, informer);
    }
    /// The product of a row of the free matrix with a vector of `size` elements, one per free vertex.
    T ScalarProductByMatrixRow(int row, int size, T const * vector) const
    {
        return onScalarProductByMatrixRow(row, size, vector);
    }
    /// Hands the `GetEquationsNumber()` elements of a solution to the receiver, in the order of free indices.
    void SetSingleSolution(T const * solution, IEqSysResultReciever<T> & reciever) const
    {
        onSetSingleSolution(solution, reciever);
    }

protected:
    ILinearSystemReadOnly() = default;
    ILinearSystemReadOnly(ILinearSystemReadOnly const &) = default;
    ILinearSystemReadOnly & operator=(ILinearSystemReadOnly const &) = default;
};

/// A system that can be built. Built by one thread at a time.
template <class T>
class QZMATH_API ILinearSystemStorage : public ILinearSystemReadOnly<T>
{
private:
    virtual bool onIsSpoiled() const = 0;
    virtual int onGetFreeVariablesNumber() const = 0;
    virtual int onGetFixedVariablesIndex(int vertex) const = 0;
    virtual int onGetFreeVariablesIndex(int vertex) const = 0;
    virtual int onGetFixedVertexByIndex(int index) const = 0;
    virtual int onGetFreeVertexByIndex(int index) const = 0;
    virtual int onGetFixedVariablesNumber() const = 0;
    virtual T onGetFixedVertCoeff(int row, int fixedIndex) const = 0;
    virtual void onDefineFixedVertex(int vertex) = 0;
    virtual void onDefineFreeVertex(int vertex) = 0;
    virtual void onSpoil() = 0;
    virtual void onAddEquation(CVertexLinearCombination<T> const & equation) = 0;
    virtual void onSetSymmetric(bool symmetric) = 0;
    virtual void onSetPositiveDefinite(bool positiveDefinite) = 0;
    virtual void onSetFixedVertCoeff(int row, int fixedIndex, T value) = 0;

public:
    /// A new object of the most derived type, owned by the caller.
    virtual ILinearSystemStorage * Copy() const = 0;

    using ILinearSystemReadOnly<T>::GetFreeVertCoeff;

    bool IsSpoiled() const { return onIsSpoiled(); }
    int GetFreeVariablesNumber() const { return onGetFreeVariablesNumber(); }
    int GetFixedVariablesNumber() const { return onGetFixedVariablesNumber(); }
    /// The index of a vertex among the free or the fixed ones; -1 when it is not one of them.
    int GetFreeVariablesIndex(int vertex) const { return onGetFreeVariablesIndex(vertex); }
    int GetFixedVariablesIndex(int vertex) const { return onGetFixedVariablesIndex(vertex); }
    /// The vertex at an index among the free or the fixed ones; -1 when there is none.
    int GetFreeVertexByIndex(int index) const { return onGetFreeVertexByIndex(index); }
    int GetFixedVertexByIndex(int index) const { return onGetFixedVertexByIndex(index); }
    /// One element of the fixed matrix.
    T GetFixedVertCoeff(int row, int fixedIndex) const { return onGetFixedVertCoeff(row, fixedIndex); }
    void SetFixedVertCoeff(int row, int fixedIndex, T value) { onSetFixedVertCoeff(row, fixedIndex, value); }
    void DefineFixedVertex(int vertex) { onDefineFixedVertex(vertex); }
    void DefineFreeVertex(int vertex) { onDefineFreeVertex(vertex); }
    /// Marks the system as misused, for good.
    void Spoil() { onSpoil(); }
    /// Adds the next row: equation k in order of addition is row k.
    void AddEquation(CVertexLinearCombination<T> const & equation) { onAddEquation(equation); }
    /// Declares the free matrix symmetric; to be called before the first equation.
    void setSymmetric(bool symmetric) { onSetSymmetric(symmetric); }
    void setPositiveDefinite(bool positiveDefinite) { onSetPositiveDefinite(positiveDefinite); }

protected:
    ILinearSystemStorage() = default;
    ILinearSystemStorage(ILinearSystemStorage const &) = default;
    ILinearSystemStorage & operator=(ILinearSystemStorage const &) = default;
};

/// A solver as a client holds it: state a system once, solve it for as many sets of fixed positions as
/// wished.
///
/// Promises about the matrix come first, then the vertices, then one equation for each free vertex. When
/// `IsCorrectlyDefinedSystem` says that the statement is whole, `SolveSystem` can be called again and again,
/// as it leaves the system as it was. A position is a single number, so points in space are solved as three
/// right parts. Used by one thread at a time.
template <class T>
class QZMATH_API IVertexPosLinearSystem : public LinSysFailureReporter
{
public:
    virtual ~IVertexPosLinearSystem() = default;
    virtual void DefineFreeVertex(int vertex);
    virtual void DefineFixedVertex(int vertex);
    /// A new solver of the same class with a copy of the system, owned by the caller.
    virtual IVertexPosLinearSystem * Copy() const = 0;

private:
    virtual bool OnSolveSystem(int nRightParts, IVertexPosInformer<T> const ** informers,
                               IEqSysResultReciever<T> ** recievers, CProgressCounter * progress) = 0;
    virtual void OnDefineFixedVertex(int vertex) = 0;
    virtual void OnDefineFreeVertex(int vertex) = 0;
    virtual void OnAddEquation(CVertexLinearCombination<T> const & equation) = 0;
    virtual bool OnIsCorrectlyDefinedSystem() const = 0;
    virtual bool OnIsSpoiled() const = 0;
    virtual void onSetSymmetric(bool symmetric) = 0;
    virtual bool onIsSymmetric() const = 0;
    virtual bool onIsPositiveDefinite() const = 0;
    virtual void onSetPositiveDefinite(bool positiveDefinite) = 0;
    virtual T onGetFreeVertCoeff(int row, int column) const = 0;
    virtual void onSetFixedVertCoeff(int row, int fixedIndex, T value) = 0;

public:
    /// Solves for `nRightParts` sets of fixed positions. `informers` and `recievers` are parallel arrays of
    /// that many pointers; `progress` may be null. Gives true on success; after a failure the receivers may
    /// have got some of the solutions or none, and `lastFailure` tells why.
    bool SolveSystem(int nRightParts, IVertexPosInformer<T> const ** informers,
                     IEqSysResultReciever<T> ** recievers, CProgressCounter * progress);
    void AddEquation(CVertexLinearCombination<T> const & equation) { OnAddEquation(equation); }
    bool IsCorrectlyDefinedSystem() const { return OnIsCorrectlyDefinedSystem(); }
    bool IsSpoiled() const { return OnIsSpoiled(); }
    void setSymmetric(bool symmetric) { onSetSymmetric(symmetric); }
    bool isSymmetric() const { return onIsSymmetric(); }
    bool isPositiveDefinite() const { return onIsPositiveDefinite(); }
    void setPositiveDefinite(bool positiveDefinite) { onSetPositiveDefinite(positiveDefinite); }
    T GetFreeVertCoeff(int row, int column) const { return onGetFreeVertCoeff(row, column); }
    void SetFixedVertCoeff(int row, int fixedIndex, T value) { onSetFixedVertCoeff(row, fixedIndex, value); }
};

extern template class IVertexPosInformer<float>;
extern template class IVertexPosInformer<double>;
extern template class IEqSysResultReciever<float>;
extern template class IEqSysResultReciever<double>;
extern template class ILinearSystemReadOnly<float>;
extern template class ILinearSystemReadOnly<double>;
extern template class ILinearSystemStorage<float>;
extern template class ILinearSystemStorage<double>;
extern template class IVertexPosLinearSystem<float>;
extern template class IVertexPosLinearSystem<double>;

} // namespace REmath
