// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>

#include <cstddef>
#include <memory>

/// The part of an element that `CfpHeap` manages: its key and its place. Derive elements from it.
///
/// A copy carries the place too. The copy of an element that is in a heap claims a place that is not its own:
/// call `setOutofHeap` on it before any heap sees it.
class QZMATH_API CfpHeapMem
{
public:
    double getHeapKey() const { return m_key; }
    /// Changes the key only. For an element inside a heap, call `CfpHeap::update` next, or use the form of
    /// `update` that takes the key.
    void setHeapKey(double key) { m_key = key; }

    /// Index in the heap's array, -1 outside.
    int getHeapPos() const { return m_heapPos; }
    /// For the heap itself; a place set from elsewhere breaks the heap that holds the element.
    void setHeapPos(int heapPos) { m_heapPos = heapPos; }

    bool inHeap() const { return m_heapPos != -1; }
    void setOutofHeap() { m_heapPos = -1; }

private:
    double m_key = 0.0;
    int m_heapPos = -1;
};

/// Binary max-heap of elements that know their own place, so that one can be updated or removed in O(log n)
/// without a search.
///
/// Holds pointers only: the caller owns the elements and keeps them alive while they are inside; the
/// destructor leaves them as they are. An element belongs to at most one heap, which is not checked. Keys are
/// not to be NaN. Null pointers are not allowed where an element is taken. Only the growth of the array
/// allocates and can throw (`std::bad_alloc`), and then nothing has changed but the key given to `insert`.
/// Not thread-safe.
class QZMATH_API CfpHeap
{
public:
    CfpHeap();
    /// A heap whose array holds `size` null entries. They stand there until `at` overwrites them; no other
    /// operation may meet them. To make room for elements use `reserve`.
    explicit CfpHeap(std::size_t size);
    CfpHeap(CfpHeap const &) = delete;
    CfpHeap & operator=(CfpHeap const &) = delete;
    ~CfpHeap();

    /// Adds an element that is in no heap. O(log n).
    void insert(CfpHeapMem * element);
    /// Sets the key, then adds. O(log n).
    void insert(CfpHeapMem * element, double key);

    /// Restores the order after the key of `element` was changed from outside. Does nothing when it is in no
    /// heap. O(log n).
    void update(CfpHeapMem * element);
    /// Sets the key and restores the order. Does nothing, also not to the key, when `element` is in no heap.
    void update(CfpHeapMem * element, double key);

    /// Removes and returns an element of greatest key, null when the heap is empty. O(log n).
    CfpHeapMem * extract();

    /// Removes `element` and returns it; null when it is in no heap. O(log n).
    CfpHeapMem * remove(CfpHeapMem * element);

    /// Sorts the array by falling keys, so that `at` runs from the greatest to the least. Equal keys come in
    /// no fixed order. The heap stays usable. O(n log n).
    void sort();

    void reserve(std::size_t capacity);

    /// The entry at an index of the array, which must exist: this is not checked. An entry replaced through
    /// the reference must bear the right place and fit the order.
    CfpHeapMem *& at(std::size_t index);
    CfpHeapMem * at(std::size_t index) const;
    /// An element of greatest key. The heap must not be empty: this is not checked.
    CfpHeapMem *& front();
    CfpHeapMem * front() const;

    std::size_t size() const;
    bool empty() const;

private:
    class CBody;
    std::unique_ptr<CBody> m_body;
};
