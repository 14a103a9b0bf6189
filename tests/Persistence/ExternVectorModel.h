// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Persistence/ExternVector.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <functional>
#include <map>
#include <memory>
#include <new>
#include <utility>
#include <vector>

#include <sys/resource.h>

/// An external vector beside a model in memory, for the tests and for the fuzzer.
namespace qz_test
{

using VescaExtVec::ElementHandle;
using Vector = VescaExtVec::ExternVectorVoidInterface;
using Bytes = std::vector<unsigned char>;

inline std::unique_ptr<Vector> makeVector(std::uint64_t elementSize)
{
    return std::unique_ptr<Vector>(VescaExtVec::CreateExternVectorVoid(elementSize));
}

template <class Action>
bool runsOutOfMemory(Action action)
{
    try {
        action();
    } catch (std::bad_alloc const & error) {
        EXPECT_STREQ(error.what(), "bad allocation");
        return true;
    }
    return false;
}

inline Bytes readElement(Vector & vector, std::size_t index, std::size_t elementSize)
{
    ElementHandle handle;
    auto const * const memory = static_cast<unsigned char const *>(vector.lockElement(index, &handle));
    Bytes bytes(memory, memory + elementSize);
    vector.releaseElement(false, &handle);
    return bytes;
}

/// Caps the size of files of this process for a scope.
class FileSizeLimit
{
public:
    explicit FileSizeLimit(rlim_t bytes)
    {
        getrlimit(RLIMIT_FSIZE, &m_old);
        m_oldHandler = std::signal(SIGXFSZ, SIG_IGN);
        rlimit const limit{std::min(bytes, m_old.rlim_max), m_old.rlim_max};
        EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    }
    ~FileSizeLimit()
    {
        setrlimit(RLIMIT_FSIZE, &m_old);
        std::signal(SIGXFSZ, m_oldHandler);
    }

private:
    rlimit m_old;
    void (*m_oldHandler)(int);
};

/// What the vector is to hold: the elements of its file, also those beyond the end, and what is locked. What
/// happens to it is drawn from `random`.
class ExternVectorModel
{
public:
    struct Lock
    {
        ElementHandle handle;
        unsigned char * memory;
        int holds;
        bool modified;
        Bytes bytes;
    };

    ExternVectorModel(std::size_t elementSize, std::function<unsigned()> random)
        : m_vector(makeVector(elementSize)), m_elementSize(elementSize), m_random(std::move(random))
    {}

    void step(bool mayFail)
    {
        // With failing writes, growing always fills: what a broken fill left beyond the end shows otherwise.
        bool const fails = mayFail && m_random() % 4 == 0;
        FileSizeLimit const limit(fails ? m_random() % (m_elementSize * (m_vector->capacity() + 4))
                                        : RLIM_INFINITY);
        auto const choice = m_random() % 100;
        if (choice < 35)
            lockOne();
        else if (choice < 55)
            modifyOne();
        else if (choice < 85)
            releaseOne(fails);
        else if (choice < 98)
            resize(m_random() % 40, mayFail || m_random() % 2 == 0, fails);
        else if (choice < 99)
            reserve(m_random() % 60, fails);
        else
            clear();
        ASSERT_EQ(m_vector->size(), m_size);
        ASSERT_GE(m_vector->capacity(), m_size);
    }

    void checkAll()
    {
        for (std::size_t index = 0; index < m_size; ++index) {
            auto const lock = m_locks.find(index);
            Bytes const & expected = lock == m_locks.end() ? m_file[index] : lock->second.bytes;
            ASSERT_EQ(readElement(*m_vector, index, m_elementSize), expected) << "element " << index;
        }
    }

private:
    void lockOne()
    {
        if (!m_deadHandles.empty() && m_random() % 4 == 0) {
            m_vector->addElementRef(&m_deadHandles.back());
            m_deadHandles.push_back(m_deadHandles.back());
        }
        std::size_t const index = m_random() % (m_size + 1);
        ElementHandle handle;
        if (index == m_size || m_locks.size() > 4) {
            ASSERT_TRUE(runsOutOfMemory([&] { m_vector->lockElement(m_size, &handle); }));
            return;
        }
        auto const found = m_locks.find(index);
        if (found != m_locks.end() && m_random() % 2) {
            m_vector->addElementRef(&found->second.handle);
            ++found->second.holds;
            return;
        }
        auto * memory = static_cast<unsigned char *>(m_vector->lockElement(index, &handle));
        Lock & lock = m_locks.try_emplace(index, Lock{handle, memory, 0, false, m_file[index]}).first->second;
        ++lock.holds;
        ASSERT_TRUE(lock.memory == memory && lock.handle == handle);
        ASSERT_EQ(Bytes(memory, memory + m_elementSize), lock.bytes);
    }

    void modifyOne()
    {
        if (m_locks.empty())
            return;
        Lock & lock = anyLock()->second;
        lock.bytes = randomElement();
        std::copy(lock.bytes.begin(), lock.bytes.end(), lock.memory);
        lock.modified = true; // some release says so
    }

    void releaseOne(bool fails)
    {
        if (!m_deadHandles.empty() && m_random() % 4 == 0) {
            m_vector->releaseElement(true, &m_deadHandles.back());
            m_deadHandles.pop_back();
        } else if (!m_locks.empty()) {
            auto const found = anyLock();
            Lock & lock = found->second;
            bool const failed =
                runsOutOfMemory([&] { m_vector->releaseElement(lock.modified, &lock.handle); });
            ASSERT_TRUE(!failed || (fails && lock.holds == 1));
            if (failed || --lock.holds > 0)
                return;
            if (lock.modified)
                m_file[found->first] = lock.bytes;
            m_locks.erase(found);
        }
    }

    void resize(std::size_t n, bool withFill, bool fails)
    {
        Bytes const fill = randomElement();
        std::size_t const oldCapacity = m_vector->capacity();
        bool const failed = runsOutOfMemory([&] { m_vector->resize(n, withFill ? fill.data() : nullptr); });
        m_file.resize(m_vector->capacity(), Bytes(m_elementSize));
        ASSERT_TRUE(!failed || fails);
        if (failed)
            return;
        ASSERT_EQ(m_vector->capacity(), n > oldCapacity ? std::max(n, 2 * oldCapacity) : oldCapacity);
        if (withFill)
            for (std::size_t index = m_size; index < n; ++index)
                m_file[index] = fill;
        m_size = n;
        bury(n);
    }

    void reserve(std::size_t n, bool fails)
    {
        bool const failed = runsOutOfMemory([&] { m_vector->reserve(n); });
        ASSERT_TRUE(!failed || fails);
        ASSERT_TRUE(failed || m_vector->capacity() >= n);
        m_file.resize(m_vector->capacity(), Bytes(m_elementSize));
    }

    void clear()
    {
        m_vector->clear();
        ASSERT_EQ(m_vector->capacity(), 0u);
        m_size = 0;
        m_file.clear();
        bury(0);
    }

    void bury(std::size_t end)
    {
        for (auto lock = m_locks.lower_bound(end); lock != m_locks.end(); lock = m_locks.erase(lock))
            for (; lock->second.holds > 0; --lock->second.holds)
                m_deadHandles.push_back(lock->second.handle);
    }

    std::map<std::size_t, Lock>::iterator anyLock()
    {
        return std::next(m_locks.begin(), std::ptrdiff_t(m_random() % m_locks.size()));
    }

    Bytes randomElement()
    {
        Bytes bytes(m_elementSize);
        std::generate(bytes.begin(), bytes.end(),
                      [value = m_random()]() mutable { return static_cast<unsigned char>(value++ % 256); });
        return bytes;
    }

    std::unique_ptr<Vector> m_vector;
    std::size_t m_elementSize;
    std::size_t m_size = 0;
    std::vector<Bytes> m_file;
    std::map<std::size_t, Lock> m_locks;
    std::vector<ElementHandle> m_deadHandles;
    std::function<unsigned()> m_random;
};

} // namespace qz_test
