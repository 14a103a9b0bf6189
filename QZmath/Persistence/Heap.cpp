// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Persistence/Heap.h>

#include <QZsys/IndexDetail.h>

#include <algorithm>
#include <vector>

class CfpHeap::CBody
{
public:
    std::vector<CfpHeapMem *> entries;

    void put(CfpHeapMem * element, std::size_t index)
    {
        entries[index] = element;
        element->setHeapPos(static_cast<int>(index));
    }

    // Moves the element at `index` towards the root. At equal keys it stays below.
    void siftUp(std::size_t const start)
    {
        CfpHeapMem * const element = entries[start];
        double const key = element->getHeapKey();
        std::size_t index = start;
        while (index > 0) {
            std::size_t const parent = (index - 1) / 2;
            if (!(key > entries[parent]->getHeapKey()))
                break;
            put(entries[parent], index);
            index = parent;
        }
        if (index != start)
            put(element, index);
    }

    // Moves the element at `index` towards the leaves. At equal keys the left child comes first.
    //
    // Keys stand in the elements, all over the memory: those of the level after next are asked for while the
    // next level is compared.
    void siftDown(std::size_t const start)
    {
        CfpHeapMem ** const array = entries.data();
        CfpHeapMem * const element = array[start];
        double const key = element->getHeapKey();
        std::size_t const count = entries.size();
        std::size_t index = start;
        for (std::size_t left = 2 * index + 1; left < count; left = 2 * index + 1) {
            if (2 * left + 4 < count)
                fetchGrandchildren(array, left);
            std::size_t const right = left + (left + 1 < count);
            std::size_t const greater = left + (array[right]->getHeapKey() > array[left]->getHeapKey());
            if (!(array[greater]->getHeapKey() > key))
                break;
            put(array[greater], index);
            index = greater;
        }
        if (index != start)
            put(element, index);
    }

    // The same for an element that comes from the end of the array, and so belongs far down again: the
    // greater children rise along the whole way to a leaf, and the element climbs back from there (Wegener,
    // "Bottom-up heapsort", 1993). Keys fall along the way, so it stops at the same place.
    void siftDownFromEnd(std::size_t const start)
    {
        CfpHeapMem ** const array = entries.data();
        CfpHeapMem * const element = array[start];
        std::size_t const count = entries.size();
        std::size_t index = start;
        std::size_t left = 2 * index + 1;
        __builtin_prefetch(element, 1);
        for (; left + 1 < count; left = 2 * index + 1) {
            if (2 * left + 4 < count)
                fetchGrandchildren(array, left);
            // Of the sixteen pointers that the next round but one fetches through.
            if (8 * left + 15 < count) {
                __builtin_prefetch(array + 8 * left + 7);
                __builtin_prefetch(array + 8 * left + 15);
            }
            std::size_t const greater = left + (array[left + 1]->getHeapKey() > array[left]->getHeapKey());
            put(array[greater], index);
            index = greater;
        }
        if (left < count) {
            put(array[left], index);
            index = left;
        }
        double const key = element->getHeapKey();
        while (index > start) {
            std::size_t const parent = (index - 1) / 2;
            if (array[parent]->getHeapKey() > key)
                break;
            put(array[parent], index);
            index = parent;
        }
        put(element, index);
    }

private:
    // The four entries below the children at `left` and behind it.
    static void fetchGrandchildren(CfpHeapMem * const * array, std::size_t left)
    {
        for (std::size_t next = 2 * left + 1; next <= 2 * left + 4; ++next)
            __builtin_prefetch(array[next], 1);
    }
};

CfpHeap::CfpHeap() : m_body(std::make_unique<CBody>()) {}

CfpHeap::CfpHeap(std::size_t size) : CfpHeap() { m_body->entries.resize(size); }

CfpHeap::~CfpHeap() = default;

void CfpHeap::insert(CfpHeapMem * element)
{
    m_body->entries.push_back(element);
    element->setHeapPos(static_cast<int>(m_body->entries.size() - 1));
    m_body->siftUp(m_body->entries.size() - 1);
}

void CfpHeap::insert(CfpHeapMem * element, double key)
{
    element->setHeapKey(key);
    insert(element);
}

void CfpHeap::update(CfpHeapMem * element)
{
    if (!element->inHeap())
        return;
    std::size_t const index = VsUt::asIndex(element->getHeapPos());
    if (index > 0 && element->getHeapKey() > m_body->entries[(index - 1) / 2]->getHeapKey())
        m_body->siftUp(index);
    else
        m_body->siftDown(index);
}

void CfpHeap::update(CfpHeapMem * element, double key)
{
    if (!element->inHeap())
        return;
    element->setHeapKey(key);
    update(element);
}

CfpHeapMem * CfpHeap::extract()
{
    std::vector<CfpHeapMem *> & entries = m_body->entries;
    if (entries.empty())
        return nullptr;
    CfpHeapMem * const root = entries.front();
    entries.front() = entries.back();
    entries.pop_back();
    if (!entries.empty())
        m_body->siftDownFromEnd(0);
    root->setOutofHeap();
    return root;
}

CfpHeapMem * CfpHeap::remove(CfpHeapMem * element)
{
    if (element->getHeapPos() < 0)
        return nullptr;
    std::size_t const index = VsUt::asIndex(element->getHeapPos());
    CfpHeapMem * const last = m_body->entries.back();
    m_body->entries.pop_back();
    if (index < m_body->entries.size()) {
        m_body->put(last, index);
        if (element->getHeapKey() > last->getHeapKey())
            m_body->siftDownFromEnd(index);
        else
            m_body->siftUp(index);
    }
    element->setOutofHeap();
    return element;
}

void CfpHeap::sort()
{
    std::vector<CfpHeapMem *> & entries = m_body->entries;
    std::sort(entries.begin(), entries.end(), [](CfpHeapMem const * left, CfpHeapMem const * right) {
        return right->getHeapKey() < left->getHeapKey();
    });
    for (std::size_t index = 0; index < entries.size(); ++index)
        entries[index]->setHeapPos(static_cast<int>(index));
}

void CfpHeap::reserve(std::size_t capacity) { m_body->entries.reserve(capacity); }

CfpHeapMem *& CfpHeap::at(std::size_t index) { return m_body->entries[index]; }
CfpHeapMem * CfpHeap::at(std::size_t index) const { return m_body->entries[index]; }
CfpHeapMem *& CfpHeap::front() { return m_body->entries.front(); }
CfpHeapMem * CfpHeap::front() const { return m_body->entries.front(); }
std::size_t CfpHeap::size() const { return m_body->entries.size(); }
bool CfpHeap::empty() const { return m_body->entries.empty(); }
