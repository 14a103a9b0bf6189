// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>

#include <cstdio>
#include <vector>

namespace REmath
{

/// A sparse vector: the non-zero elements and their positions, in ascending order of positions. Exists for
/// `float` and `double`. A value with deep copy. Concurrent reading is safe.
///
/// Whoever appends through `SetElementNoIdxSearch`, or loads a file of unknown origin, answers for the order:
/// with positions that do not ascend, `GetElement` may miss elements that are there.
template <class T>
class QZMATH_API CSparseVectorTmpl
{
public:
    CSparseVectorTmpl() = default;
    /// The non-zero elements of an array, see `AssignByVector`.
    CSparseVectorTmpl(int size, T const * array);
    virtual ~CSparseVectorTmpl() = default;

    /// The element at `position`, 0 when none is stored. O(log n) in the number of stored elements.
    T operator[](int position) const { return GetElement(position); }
    T GetElement(int position) const;

    int GetNOfNonZeroElements() const { return static_cast<int>(m_positions.size()); }
    /// The position of stored element `k`, counted from 0; -1 when there is no such one.
    int GetNonZeroPos(int k) const { return isStored(k) ? m_positions[static_cast<std::size_t>(k)] : -1; }
    /// Value and position of stored element `k`; 0 and -1 when there is no such one.
    void GetNonZeroElementAndPos(int k, T & value, int & position) const
    {
        bool const stored = isStored(k);
        value = stored ? m_values[static_cast<std::size_t>(k)] : T(0);
        position = stored ? m_positions[static_cast<std::size_t>(k)] : -1;
    }

    /// The first and the last position; 0x7FFFFFFF and -1 for an empty vector.
    int GetMinNonZeroIdx() const { return m_positions.empty() ? 0x7FFFFFFF : m_positions.front(); }
    int GetMaxNonZeroIdx() const { return m_positions.empty() ? -1 : m_positions.back(); }

    /// Makes room for `count` elements; does nothing below 1.
    void ReserveNonZeroElem(int count);

    /// Appends an element, also a zero one. `position` is to be above all that are stored; this is not
    /// tested. Amortised O(1).
    void SetElementNoIdxSearch(int position, T value);

    /// Takes the elements of an array that differ from 0 (a NaN does) with their indices. O(size), and one
    /// allocation of the needed length when there is no room yet.
    void AssignByVector(int size, T const * array);

    void Reset();
    void Clear() { Reset(); }

    /// Writes the number of elements (4 bytes), the positions (4 bytes each) and the values (`sizeof(T)`
    /// each) at the place where the file stands, in the machine's byte order. False when a write fails.
    bool SaveToFile(std::FILE * file) const;

    /// Replaces the contents by what `SaveToFile` wrote and leaves the file behind it. False when a read
    /// fails, the file ends early or the number of elements is negative. The positions are taken as they are.
    ///
    /// After a body that ends early the vector has the announced number of elements, those not read being 0;
    /// a large number that the file does not bear out is cut down to little more than what could be read.
    /// Memory is never taken beyond a small multiple of what the file holds, also for a stream that cannot
    /// tell its length.
    bool LoadFromFile(std::FILE * file);

protected:
    /// Where the element at `position` is stored; -1 when it is not.
    int GetCompactIdx(int position) const;

    /// Is the value exactly 0?
    bool IsElementZero(double value) const { return value == 0.0; }

private:
    bool isStored(int k) const { return k >= 0 && k < GetNOfNonZeroElements(); }
    bool readBody(std::FILE * file, int count);

    std::vector<int> m_positions;
    std::vector<T> m_values;
};

extern template class CSparseVectorTmpl<float>;
extern template class CSparseVectorTmpl<double>;

} // namespace REmath
