// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/LinSys/LinSysVariableManager.h>
#include <QZmath/LinSys/VPLSstorageRows.h>

#include <cstddef>
#include <vector>

namespace REmath
{

/// A system storage that keeps the free matrix row by row; the row adapter decides what a row is. Exists for
/// `float` and `double` with the three adapters of `VPLSstorageRows.h`.
///
/// Free vertices may be defined in any order. Rows are kept in full also when the system is declared
/// symmetric, so equations are to be added in full. An equation goes through a dense array of one element per
/// free vertex: adding it is O(free vertices) and allocates nothing but its row. That suits moderate sizes;
/// large systems are for `CCSRSstorage`.
///
/// Beside the misuse that `CLinSysVariableManager` names, the system is spoiled by a vertex that is defined
/// after `AllocateMatrix()`, and by an equation that comes when rows have been made for fewer free vertices
/// than there are.
template <class T, template <class> class Row>
class QZMATH_API CVPLSstorage : public CLinSysVariableManager<T>
{
public:
    // Copied but never moved: a storage left without its rows would claim equations that it does not hold.
    CVPLSstorage() = default;
    CVPLSstorage(CVPLSstorage const &) = default;
    CVPLSstorage & operator=(CVPLSstorage const &) = default;
    /// A deep copy, which takes further equations as its original does.
    CVPLSstorage * Copy() const override;

    /// Makes the rows, one for each free vertex; all vertices are to be defined by then. The first equation
    /// does the same. Does nothing when the rows are there or the system is spoiled.
    void AllocateMatrix();
    bool IsMatrixAllocated() const { return !m_rows.empty(); }

    /// A row of the free matrix as it is stored, null when there is no such row. The next equation may change
    /// it.
    typename Row<T>::RowType const * getRow(int row) const
    {
        return hasRow(row) ? &m_rows[static_cast<std::size_t>(row)] : nullptr;
    }

private:
    T onScalarProductByMatrixRow(int row, int size, T const * vector) const override;
    T onGetFreeVertCoeff(int row, int column) const override;
    bool onIsSymmetric() const override;
    void onDefineFixedVertex(int vertex) override;
    void onDefineFreeVertex(int vertex) override;
    void onSetSymmetric(bool symmetric) override;
    void onAddEquationFreePart(CVertexLinearCombination<T> const & equation, int row) override;
    bool areFreeVariablesDefined() const override;

    bool isClosedByCaller() const;
    bool hasRow(int row) const { return row >= 0 && static_cast<std::size_t>(row) < m_rows.size(); }

    std::vector<T> m_scratchRow; ///< one element per free vertex
    std::vector<typename Row<T>::RowType> m_rows;
    bool m_symmetric = false;
};

extern template class CVPLSstorage<float, CStdVectorAsVPLSstorageRow>;
extern template class CVPLSstorage<double, CStdVectorAsVPLSstorageRow>;
extern template class CVPLSstorage<float, CShiftedVectorAsVPLstorageRow>;
extern template class CVPLSstorage<double, CShiftedVectorAsVPLstorageRow>;
extern template class CVPLSstorage<float, CSparseVectorAsVPLSstorageRow>;
extern template class CVPLSstorage<double, CSparseVectorAsVPLSstorageRow>;

} // namespace REmath
