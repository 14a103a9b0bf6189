// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/LinSys/LinearSystem.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

namespace REmath
{

/// Numbers of vertices in order of arrival, with look-up both ways.
///
/// Identifiers that lie dense, whatever their order, are kept in a table: adding and finding one costs a few
/// nanoseconds and about four bytes. Scattered ones go into an ordered map, until they fill up enough for a
/// table.
class QZMATH_API CVertexNumbering
{
public:
    /// Gives `vertex` the next index. It must not have one yet.
    void add(int vertex);

    /// The index of `vertex`, -1 when it has none.
    int find(int vertex) const
    {
        std::int64_t const offset = std::int64_t{vertex} - m_tableBegin;
        if (offset >= 0 && offset < static_cast<std::int64_t>(m_table.size()))
            return m_table[static_cast<std::size_t>(offset)];
        return m_scattered.empty() ? -1 : findScattered(vertex);
    }

    /// The vertex at `index`, -1 when there is none.
    int at(int index) const
    {
        return index >= 0 && index < size() ? m_vertices[static_cast<std::size_t>(index)] : -1;
    }

    int size() const { return static_cast<int>(m_vertices.size()); }

    /// No further index fits into an `int`.
    bool isFull() const;

private:
    int findScattered(int vertex) const;
    bool isDenseEnough(std::int64_t begin, std::int64_t end) const;
    void rebuildTable(std::int64_t begin, std::int64_t end);

    std::vector<int> m_vertices;    ///< vertex of each index
    std::vector<int> m_table;       ///< index of each vertex from `m_tableBegin` on, -1 for none
    std::int64_t m_tableBegin = 0;  ///< vertex of the table's first entry
    std::map<int, int> m_scattered; ///< index of each vertex; empty while the table is in use
};

/// Keeps the books of a system: who is who among the vertices, what the fixed ones contribute to each
/// equation, how many equations there are, and whether the caller has gone wrong. From these it makes right
/// parts and hands out solutions. The one thing left to a subclass is where the free coefficients of an
/// equation go.
///
/// Fixed coefficients stand in a dense matrix with a row per free and a column per fixed vertex, which the
/// first equation makes. So all vertices are to be defined before it. Without fixed vertices there is no such
/// matrix, nothing shuts the list, and free vertices may still come: whether there is room for them is up to
/// the subclass.
///
/// Wrong, and therefore spoiling, are: a vertex that is known already, of either kind; a vertex that comes
/// too late, when both matrices exist; an equation too many, one that names nobody free or somebody unknown,
/// one for which the fixed matrix has become too small; a fixed coefficient for a place that is not there;
/// and `imitateAddEquation` for any but the next row.
template <class T>
class QZMATH_API CLinSysVariableManager : public ILinearSystemStorage<T>
{
public:
    ~CLinSysVariableManager() override = default;

protected:
    CLinSysVariableManager() = default;
    CLinSysVariableManager(CLinSysVariableManager const &) = default;
    CLinSysVariableManager & operator=(CLinSysVariableManager const &) = default;

    /// Counts an equation whose free part the subclass has stored by other means; `row` must be the number of
    /// equations so far. Writes no fixed coefficient: those come through `SetFixedVertCoeff`.
    void imitateAddEquation(int row);

private:
    bool onIsCorrectlyDefinedSystem() const override;
    void onSetSingleRightPart(T * rightPart, IVertexPosInformer<T> const & informer) const override;
    int onGetEquationsNumber() const override;
    void onSetSingleSolution(T const * solution, IEqSysResultReciever<T> & reciever) const override;
    bool onIsPositiveDefinite() const override;

    bool onIsSpoiled() const override;
    int onGetFreeVariablesNumber() const override;
    int onGetFixedVariablesIndex(int vertex) const override;
    int onGetFreeVariablesIndex(int vertex) const override;
    int onGetFixedVertexByIndex(int index) const override;
    int onGetFreeVertexByIndex(int index) const override;
    int onGetFixedVariablesNumber() const override;
    T onGetFixedVertCoeff(int row, int fixedIndex) const override;

protected:
    // A subclass that closes the list of vertices earlier overrides these.
    void onDefineFixedVertex(int vertex) override;
    void onDefineFreeVertex(int vertex) override;

private:
    void onSpoil() override;
    void onAddEquation(CVertexLinearCombination<T> const & equation) override;
    void onSetPositiveDefinite(bool positiveDefinite) override;
    void onSetFixedVertCoeff(int row, int fixedIndex, T value) override;

public:
    CLinSysVariableManager * Copy() const override = 0;

private:
    /// Stores the free terms of the equation as row `row` of the free matrix.
    virtual void onAddEquationFreePart(CVertexLinearCombination<T> const & equation, int row) = 0;
    /// Storage for the free matrix has been made.
    virtual bool areFreeVariablesDefined() const = 0;

    void allocateFixedVariableMatrix();
    void onAddEquationFixedPart(CVertexLinearCombination<T> const & equation, int row);
    bool areFixedVariablesDefined() const;
    bool areVariablesDefined() const;
    bool isInFixedMatrix(int row, int fixedIndex) const;
    std::size_t placeInFixedMatrix(int row, int fixedIndex) const;

    bool m_spoiled = false;
    CVertexNumbering m_freeVertices;
    CVertexNumbering m_fixedVertices;
    std::vector<T> m_fixedMatrix; ///< by rows
    int m_fixedMatrixRows = 0;
    int m_fixedMatrixColumns = 0;
    int m_equationsNumber = 0;
    bool m_positiveDefinite = false;
};

extern template class CLinSysVariableManager<float>;
extern template class CLinSysVariableManager<double>;

} // namespace REmath
