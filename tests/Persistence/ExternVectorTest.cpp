// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Persistence/ExternVector.h>

#include <gtest/gtest.h>
#include <support/TestFolder.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <sys/resource.h>

namespace
{

using VescaExtVec::ElementHandle;
using Vector = VescaExtVec::ExternVectorVoidInterface;
using Bytes = std::vector<unsigned char>;

std::unique_ptr<Vector> makeVector(std::uint64_t elementSize)
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

Bytes readElement(Vector & vector, std::size_t index, std::size_t elementSize)
{
    ElementHandle handle;
    auto const * const memory = static_cast<unsigned char const *>(vector.lockElement(index, &handle));
    Bytes bytes(memory, memory + elementSize);
    vector.releaseElement(false, &handle);
    return bytes;
}

void writeElement(Vector & vector, std::size_t index, Bytes const & bytes)
{
    ElementHandle handle;
    std::memcpy(vector.lockElement(index, &handle), bytes.data(), bytes.size());
    vector.releaseElement(true, &handle);
}

// Caps the size of files of this process for a scope.
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

// What the vector is to hold: the elements of its file, also those beyond the end, and what is locked.
class Model
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

    Model(std::size_t elementSize, unsigned seed)
        : m_vector(makeVector(elementSize)), m_elementSize(elementSize), m_random(seed)
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
        std::generate(bytes.begin(), bytes.end(), [this] { return static_cast<unsigned char>(m_random()); });
        return bytes;
    }

    std::unique_ptr<Vector> m_vector;
    std::size_t m_elementSize;
    std::size_t m_size = 0;
    std::vector<Bytes> m_file;
    std::map<std::size_t, Lock> m_locks;
    std::vector<ElementHandle> m_deadHandles;
    std::mt19937 m_random;
};

class ExternVectorModel : public testing::TestWithParam<bool>
{};

TEST_P(ExternVectorModel, RandomOperationsAgree)
{
    for (std::size_t elementSize : {1u, 3u, 8u, 100u, 4096u, 5000u}) {
        Model model(elementSize, unsigned(elementSize));
        for (int step = 0; step < 4000; ++step) {
            ASSERT_NO_FATAL_FAILURE(model.step(GetParam())) << elementSize << " bytes, step " << step;
            if (step % 100 == 0) {
                ASSERT_NO_FATAL_FAILURE(model.checkAll()) << elementSize << " bytes, step " << step;
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Disk, ExternVectorModel, testing::Bool(),
                         [](auto const & full) { return full.param ? "full" : "free"; });

TEST(ExternVector, LengthsThatNoFileCanHaveAreRefused)
{
    EXPECT_TRUE(runsOutOfMemory([] { makeVector(0); }));
    std::unique_ptr<Vector> const vector = makeVector(16);
    EXPECT_TRUE(runsOutOfMemory([&] { vector->resize(0x80000000u); }));
    for (std::size_t const absurd : {std::size_t(1) << 60, ~std::size_t(0)})
        EXPECT_TRUE(runsOutOfMemory([&] { vector->reserve(absurd); }));
    vector->reserve(0);
    EXPECT_EQ(vector->capacity(), 0u);
    EXPECT_TRUE(runsOutOfMemory([] { makeVector(std::uint64_t(1) << 63)->reserve(1); }));
    vector->resize(2);
    EXPECT_EQ(readElement(*vector, 1, 16), Bytes(16));
}

TEST(ExternVector, ElementsBeyondThreeGibibytes)
{
    constexpr std::size_t mebibyte = std::size_t(1) << 20;
    std::unique_ptr<Vector> const vector = makeVector(mebibyte);
    vector->resize(3 * 1024 + 2);
    auto const element = [](std::size_t index) {
        return Bytes(mebibyte, static_cast<unsigned char>(index % 251));
    };
    std::size_t const written[] = {0, 2047, 2048, 3073};
    for (std::size_t index : written)
        writeElement(*vector, index, element(index));
    for (std::size_t index : written)
        EXPECT_EQ(readElement(*vector, index, mebibyte), element(index));
    EXPECT_EQ(readElement(*vector, 3072, mebibyte), Bytes(mebibyte));
}

TEST(ExternVector, FileLiesInTheNamedFolderAndHasNoName)
{
    namespace fs = std::filesystem;
    auto folder = std::make_unique<qz_test::TestFolder>();
    std::string const path = folder->path("");
    char const * const before = std::getenv("TMPDIR");
    std::string const kept = before ? before : "";
    setenv("TMPDIR", path.c_str(), 1);
    std::unique_ptr<Vector> vector = makeVector(8);
    auto const expectOpenFiles = [&](int expected) {
        int count = 0;
        for (auto const & entry : fs::directory_iterator("/proc/self/fd")) {
            std::error_code error;
            count += fs::read_symlink(entry.path(), error).string().rfind(path, 0) == 0;
        }
        EXPECT_EQ(count, expected);
        EXPECT_TRUE(folder->files().empty());
    };
    expectOpenFiles(0);
    vector->resize(10);
    expectOpenFiles(1);
    vector->clear();
    expectOpenFiles(0);
    vector->resize(10);
    vector = makeVector(8);
    expectOpenFiles(0);
    folder.reset();
    EXPECT_TRUE(runsOutOfMemory([&] { vector->resize(1); }));
    before ? setenv("TMPDIR", kept.c_str(), 1) : unsetenv("TMPDIR");
    vector->resize(1); // the folder is there now
    EXPECT_EQ(vector->size(), 1u);
}

} // namespace
