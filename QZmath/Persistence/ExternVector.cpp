// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Persistence/ExternVector.h>

#include <QZsys/TemporaryFile.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <limits>
#include <list>
#include <memory>
#include <new>
#include <unordered_map>
#include <utility>

#include <sys/types.h>

namespace VescaExtVec
{

namespace
{

class TF_BadAllocation : public std::bad_alloc
{
    char const * what() const noexcept override { return "bad allocation"; }
};

// Runs something that allocates, so that exhausted memory has the same text as all other failures.
template <class Action>
decltype(auto) allocating(Action action)
{
    try {
        return action();
    } catch (std::bad_alloc const &) {
        throw TF_BadAllocation();
    }
}

// Holds one element in memory. Keeps its buffer and its cell when it becomes free.
struct TF_Slot
{
    bool modified = false;
    std::size_t index = 0;
    int refCount = -1; // -1: free
    std::unique_ptr<ElementCell> cell;
    std::unique_ptr<char[]> buffer;
};

} // namespace

// What a handle points to. While its slot lives, the slot owns it; a cell whose slot was taken away under
// its holders stays with the vector till they have all released it.
class ElementCell
{
public:
    TF_Slot * slot = nullptr; // null: dead
    int deadHolds = 0;
};

ExternVectorVoidInterface::~ExternVectorVoidInterface() = default;

namespace
{

// Transfers bypass the buffers of the standard library: what is written is in the hands of the system when
// the call returns, so errors are not late, and a write amid a pass does not cost the buffer that was read
// ahead.
class FileVectorVoid : public ExternVectorVoidInterface
{
public:
    explicit FileVectorVoid(std::size_t elementSize) : m_elementSize(elementSize) {}
    FileVectorVoid(FileVectorVoid const &) = delete;
    FileVectorVoid & operator=(FileVectorVoid const &) = delete;

    ~FileVectorVoid() override
    {
        if (m_file)
            std::fclose(m_file);
    }

    void reserve(std::size_t n) override
    {
        if (n <= m_capacity)
            return;
        if (n > static_cast<std::size_t>(std::numeric_limits<off_t>::max()) / m_elementSize)
            throw TF_BadAllocation();
        if (!m_file)
            createFile();
        writeBytes("", 1, n * m_elementSize - 1);
        m_capacity = n;
    }

    void resize(std::size_t n, void const * fill) override
    {
        if (n > m_capacity) {
            if (n > st_maxGrownSize)
                throw TF_BadAllocation();
            reserve(std::max(n, std::min(2 * m_capacity, st_maxGrownSize)));
        }
        if (n <= m_size) {
            bury([n](TF_Slot const & slot) { return slot.index >= n; });
        } else if (fill) {
            fillElements(n - m_size, fill);
        }
        // Without a fill there is nothing to do: the file reaches beyond n, and what it holds is to stay.
        m_size = n;
    }

    std::size_t size() const override { return m_size; }
    std::size_t capacity() const override { return m_capacity; }

    void clear() override
    {
        bury([](TF_Slot const &) { return true; });
        m_slots.clear();
        m_size = 0;
        m_capacity = 0;
        m_window.reset();
        m_windowCount = 0;
        m_nextRead = 0;
        std::FILE * const file = std::exchange(m_file, nullptr);
        if (file && std::fclose(file) != 0)
            throw TF_BadAllocation();
    }

    void * lockElement(std::size_t index, ElementHandle * handle) override
    {
        if (index >= m_size)
            throw TF_BadAllocation();
        TF_Slot * slot = nullptr;
        for (TF_Slot & candidate : m_slots) {
            if (candidate.refCount >= 0 && candidate.index == index)
                return hold(candidate, handle);
            if (candidate.refCount < 0 && !slot)
                slot = &candidate;
        }
        if (!slot)
            slot = allocating([this] { return &m_slots.emplace_front(); });
        if (!slot->buffer || !slot->cell)
            equip(*slot);
        readElement(index, slot->buffer.get());
        // The slot is taken only now, so that it is free still if anything above has failed.
        slot->index = index;
        slot->modified = false;
        slot->refCount = 0;
        return hold(*slot, handle);
    }

    void addElementRef(ElementHandle * handle) override
    {
        ElementCell * const cell = *handle;
        if (!cell)
            return;
        if (!cell->slot)
            ++cell->deadHolds;
        else if (cell->slot->refCount > 0)
            ++cell->slot->refCount;
    }

    void releaseElement(bool modified, ElementHandle * handle) override
    {
        ElementCell * const cell = *handle;
        if (!cell)
            return;
        if (!cell->slot) {
            if (--cell->deadHolds == 0)
                m_deadCells.erase(cell);
            return;
        }
        TF_Slot & slot = *cell->slot;
        if (slot.refCount < 1)
            return;
        slot.modified |= modified;
        if (slot.refCount > 1) {
            --slot.refCount;
            return;
        }
        if (slot.modified)
            writeElement(slot.index, slot.buffer.get());
        slot.refCount = -1;
    }

private:
    static constexpr std::size_t st_maxGrownSize = 0x7fffffff;

    void createFile()
    {
        m_file = VsUt::openTemporaryFile("Vesca_FileVectorVoid");
        if (!m_file)
            throw TF_BadAllocation();
        m_size = 0;
    }

    static std::unique_ptr<char[]> allocateBytes(std::size_t count)
    {
        if (count > static_cast<std::size_t>(std::numeric_limits<std::ptrdiff_t>::max()))
            throw TF_BadAllocation();
        return allocating([count] { return std::unique_ptr<char[]>(new char[count]); });
    }

    void fillElements(std::size_t count, void const * fill)
    {
        std::size_t const perBlock = std::min(count, std::max<std::size_t>(st_blockBytes / m_elementSize, 1));
        std::unique_ptr<char[]> block;
        void const * source = fill;
        if (perBlock > 1) {
            block = allocateBytes(perBlock * m_elementSize);
            for (std::size_t k = 0; k < perBlock; ++k)
                std::memcpy(block.get() + k * m_elementSize, fill, m_elementSize);
            source = block.get();
        }
        m_windowCount = 0;
        for (std::size_t done = 0; done < count;) {
            std::size_t const now = std::min(count - done, perBlock);
            writeBytes(source, now * m_elementSize, (m_size + done) * m_elementSize);
            done += now;
        }
    }

    void equip(TF_Slot & slot)
    {
        if (!slot.buffer)
            slot.buffer = allocateBytes(m_elementSize);
        if (!slot.cell) {
            slot.cell = allocating([] { return std::make_unique<ElementCell>(); });
            slot.cell->slot = &slot;
        }
    }

    static void * hold(TF_Slot & slot, ElementHandle * handle)
    {
        ++slot.refCount;
        *handle = slot.cell.get();
        return slot.buffer.get();
    }

    // Frees the slots in use that are concerned, and leaves dead cells to their holders.
    template <class IsConcerned>
    void bury(IsConcerned isConcerned)
    {
        for (TF_Slot & slot : m_slots) {
            if (slot.refCount < 0 || !isConcerned(slot))
                continue;
            ElementCell * const cell = slot.cell.get();
            std::unique_ptr<ElementCell> & grave = allocating([&]() -> auto & { return m_deadCells[cell]; });
            grave = std::move(slot.cell);
            cell->slot = nullptr;
            cell->deadHolds = slot.refCount;
            slot.refCount = -1;
        }
    }

    // Elements in ascending order come from a window that is read ahead, others directly.
    void readElement(std::size_t index, char * element)
    {
        bool const isNext = index == m_nextRead;
        if (index - m_windowBegin >= m_windowCount && isNext)
            readAhead(index);
        if (index - m_windowBegin < m_windowCount)
            std::memcpy(element, m_window.get() + (index - m_windowBegin) * m_elementSize, m_elementSize);
        else if (readBytes(element, m_elementSize, index * m_elementSize) < m_elementSize)
            throw TF_BadAllocation();
        m_nextRead = index + 1;
    }

    // Leaves the window empty where it is not worth it, or there is no memory or nothing to read for it.
    void readAhead(std::size_t index)
    {
        std::size_t const perWindow = st_blockBytes / m_elementSize;
        m_windowCount = 0;
        if (perWindow < 2)
            return;
        if (!m_window)
            m_window.reset(new (std::nothrow) char[perWindow * m_elementSize]);
        if (!m_window)
            return;
        std::size_t const wanted = std::min(perWindow, m_size - index) * m_elementSize;
        m_windowBegin = index;
        m_windowCount = readBytes(m_window.get(), wanted, index * m_elementSize) / m_elementSize;
    }

    void writeElement(std::size_t index, char const * element)
    {
        writeBytes(element, m_elementSize, index * m_elementSize);
        if (index - m_windowBegin < m_windowCount)
            std::memcpy(m_window.get() + (index - m_windowBegin) * m_elementSize, element, m_elementSize);
    }

    // Gives the number of bytes that could be read.
    std::size_t readBytes(char * bytes, std::size_t count, std::size_t offset)
    {
        return VsUt::readFileAt(m_file, bytes, count, offset);
    }

    void writeBytes(void const * bytes, std::size_t count, std::size_t offset)
    {
        if (!VsUt::writeFileAt(m_file, bytes, count, offset)) {
            m_windowCount = 0; // what it holds may have been written in part
            throw TF_BadAllocation();
        }
    }

    static constexpr std::size_t st_blockBytes = 65536; // written at once by a fill, or read ahead

    std::size_t m_elementSize;
    std::size_t m_size = 0;
    std::size_t m_capacity = 0;
    std::FILE * m_file = nullptr;
    std::unique_ptr<char[]> m_window; // elements as they stand in the file
    std::size_t m_windowBegin = 0;
    std::size_t m_windowCount = 0;
    std::size_t m_nextRead = 0; // the element behind the last one read
    std::list<TF_Slot> m_slots;
    std::unordered_map<ElementCell *, std::unique_ptr<ElementCell>> m_deadCells;
};

} // namespace

ExternVectorVoidInterface * CreateExternVectorVoid(std::uint64_t elementSize)
{
    if (elementSize == 0 || elementSize > std::numeric_limits<std::size_t>::max())
        throw TF_BadAllocation();
    return allocating([elementSize] { return new FileVectorVoid(static_cast<std::size_t>(elementSize)); });
}

} // namespace VescaExtVec
