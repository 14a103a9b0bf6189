// SPDX-License-Identifier: Apache-2.0

// Any bytes as a list of calls of an external vector, of which every answer is compared with a vector in
// memory. At most 16 locks are held at a time, so that the list of locked elements stays short.

#include <QZmath/Persistence/ExternVector.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <new>
#include <vector>

namespace
{

using Bytes = std::vector<unsigned char>;

[[noreturn]] void failed(char const * what)
{
    std::fprintf(stderr, "%s\n", what);
    std::abort();
}

// Takes numbers off the input; zeros when it is used up.
class Input
{
public:
    Input(std::uint8_t const * bytes, std::size_t size) : m_next(bytes), m_end(bytes + size) {}

    bool isEmpty() const { return m_next == m_end; }
    unsigned byte() { return isEmpty() ? 0u : *m_next++; }
    unsigned word()
    {
        unsigned const high = byte();
        return high << 8 | byte();
    }

private:
    std::uint8_t const * m_next;
    std::uint8_t const * m_end;
};

// What a caller keeps of a lock. A dead one belongs to an element that was cut off since.
struct Lock
{
    VescaExtVec::ElementHandle handle = nullptr;
    unsigned char * memory = nullptr;
    std::size_t index = 0;
    int holds = 0;
    bool isDead = false;
};

// An element in memory, for as long as it is locked.
struct Element
{
    Bytes bytes;
    int holds = 0;
    bool isModified = false;
};

class Model
{
public:
    explicit Model(std::size_t elementSize)
        : m_vector(VescaExtVec::CreateExternVectorVoid(elementSize)), m_elementSize(elementSize)
    {}

    void step(Input & input)
    {
        Lock & lock = m_locks[input.byte() % m_locks.size()];
        switch (input.byte() % 8) {
        case 0:
            reserve(input.word() % greatestSize);
            break;
        case 1:
            resize(input.word() % greatestSize, nullptr);
            break;
        case 2: {
            Bytes const fill(m_elementSize, static_cast<unsigned char>(input.byte()));
            resize(input.word() % greatestSize, fill.data());
            break;
        }
        case 3:
            if (input.byte() % 16 == 0)
                clear();
            break;
        case 4:
        case 5:
            take(lock, input.word());
            break;
        case 6:
            change(lock, static_cast<unsigned char>(input.byte()));
            break;
        default:
            release(lock, input.byte() % 2 == 1);
        }
        if (m_vector->size() != m_size || m_vector->capacity() < m_size)
            failed("wrong size");
    }

    // The elements one after the other, which reads ahead.
    void compareAll()
    {
        for (std::size_t index = 0; index < m_size; ++index) {
            Lock lock;
            take(lock, index);
            release(lock, false);
        }
    }

private:
    static constexpr std::size_t greatestSize = 600;

    void reserve(std::size_t count)
    {
        m_vector->reserve(count);
        if (m_vector->capacity() < count)
            failed("reserved too little");
    }

    // What a growth without a fill brings to light is what stood there before: zeros where nothing did.
    void resize(std::size_t size, unsigned char const * fill)
    {
        m_vector->resize(size, fill);
        if (size * m_elementSize > m_file.size())
            m_file.resize(size * m_elementSize, 0);
        for (std::size_t index = m_size; fill != nullptr && index < size; ++index)
            std::copy_n(fill, m_elementSize, fileBytes(index));
        cutOff(size);
    }

    void clear()
    {
        m_vector->clear();
        m_file.clear();
        cutOff(0);
    }

    void cutOff(std::size_t size)
    {
        m_size = size;
        m_inMemory.erase(m_inMemory.lower_bound(size), m_inMemory.end());
        for (Lock & lock : m_locks)
            lock.isDead |= lock.index >= size;
    }

    void take(Lock & lock, std::size_t index)
    {
        if (lock.holds > 0) {
            m_vector->addElementRef(&lock.handle);
            ++lock.holds;
            if (!lock.isDead)
                ++m_inMemory.at(lock.index).holds;
            return;
        }
        VescaExtVec::ElementHandle handle = nullptr;
        try {
            void * const memory = m_vector->lockElement(index, &handle);
            if (index >= m_size)
                failed("locked an element that there is not");
            lock = {handle, static_cast<unsigned char *>(memory), index, 1, false};
        } catch (std::bad_alloc const &) {
            if (index < m_size)
                failed("refused an element that there is");
            return;
        }
        Element & element = m_inMemory[index];
        if (element.holds++ == 0)
            element.bytes.assign(fileBytes(index), fileBytes(index) + std::ptrdiff_t(m_elementSize));
        for (Lock const & other : m_locks)
            if (other.holds > 0 && !other.isDead && other.index == index && other.memory != lock.memory)
                failed("two places for one element");
        if (!std::equal(element.bytes.begin(), element.bytes.end(), lock.memory))
            failed("another content");
    }

    // The last release writes what anyone has said to be modified.
    void release(Lock & lock, bool isModified)
    {
        if (lock.holds == 0)
            return;
        m_vector->releaseElement(isModified, &lock.handle);
        --lock.holds;
        if (lock.isDead)
            return;
        Element & element = m_inMemory.at(lock.index);
        element.isModified |= isModified;
        if (--element.holds > 0)
            return;
        if (element.isModified)
            std::copy(element.bytes.begin(), element.bytes.end(), fileBytes(lock.index));
        m_inMemory.erase(lock.index);
    }

    void change(Lock & lock, unsigned char value)
    {
        if (lock.holds == 0 || lock.isDead)
            return;
        std::memset(lock.memory, value, m_elementSize);
        m_inMemory.at(lock.index).bytes.assign(m_elementSize, value);
        m_inMemory.at(lock.index).isModified = true;
        m_vector->addElementRef(&lock.handle);
        m_vector->releaseElement(true, &lock.handle);
    }

    Bytes::iterator fileBytes(std::size_t index)
    {
        return m_file.begin() + static_cast<std::ptrdiff_t>(index * m_elementSize);
    }

    std::unique_ptr<VescaExtVec::ExternVectorVoidInterface> m_vector;
    std::size_t m_elementSize;
    std::size_t m_size = 0;
    Bytes m_file; // also of what lies behind the end
    std::map<std::size_t, Element> m_inMemory;
    std::array<Lock, 16> m_locks;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * bytes, std::size_t size)
{
    Input input(bytes, size);
    Model model(1 + input.word() % 700);
    while (!input.isEmpty())
        model.step(input);
    model.compareAll();
    return 0;
}
