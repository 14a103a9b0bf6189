// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Persistence/Documents.h>

#include <Persistence/TestFilters.h>
#include <support/TestFolder.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <signal.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

using namespace VsF;
using namespace qz_test;
using testing::AllOf;
using testing::HasSubstr;

std::vector<std::string> const st_contents = {"123456789", "", "within", std::string(70, '\x55')};

Bytes bytesOf(std::string const & text) { return {text.begin(), text.end()}; }

// Holds a component with a header of its own, whose size is patched.
struct Group : Blob
{
    Group(IVescaBinaryStream & target, Bytes inner)
        : Blob(target, "Group", 7, {}), part(new Blob(target, "Inner", 1, std::move(inner)), nullptr, L"")
    {}
    std::int64_t OnSave() override { return part.Save(); }
    std::int64_t OnLoad(IDeltaStateLogger & logger) override { return part.Load(logger); }
    CInnerHeaderWrapper part;
};

std::unique_ptr<IComponentFilter> filterOf(std::size_t place, std::string const & content,
                                           IVescaBinaryStream & stream)
{
    if (place == 2)
        return std::make_unique<Group>(stream, bytesOf(content));
    return std::make_unique<Blob>(stream, "Part" + std::to_string(place), 1, bytesOf(content));
}

void save(std::string const & path, std::vector<std::string> const & contents,
          DocumentChecksums checksums = documentWithChecksums)
{
    CDocumentSaver saver(path, checksums);
    for (std::size_t place = 0; place < contents.size(); ++place)
        saver.Save(filterOf(place, contents[place], saver.GetStream()));
    saver.Commit();
}

CFileWrapClose inMemory(std::string & bytes)
{
    return CFileWrapClose(fmemopen(bytes.data(), bytes.size(), "rb"));
}

// The component that is said to be damaged, 0 for a verified document, -1 for one without checksums.
int verdict(std::string bytes)
{
    try {
        return CDocumentLoader(inMemory(bytes)).IsVerified() ? 0 : -1;
    } catch (CDocumentError const & error) {
        EXPECT_THAT(error.what(), HasSubstr("component " + std::to_string(error.GetComponent())));
        return int(error.GetComponent());
    }
}

class Documents : public testing::Test
{
protected:
    TestFolder folder;
    std::string const path = folder.path("document");
    Logger logger;

    std::string saved(std::vector<std::string> const & contents,
                      DocumentChecksums checksums = documentWithChecksums)
    {
        save(path, contents, checksums);
        return folder.contents("document");
    }

    // Loads all with the loader's stream, by one that knows of checksums or by the wrappers of old.
    void expectLoads(bool isVerified)
    {
        CDocumentLoader loader(path);
        EXPECT_EQ(loader.IsVerified(), isVerified);
        for (std::size_t place = 0; place < st_contents.size(); ++place)
            loader.Load(filterOf(place, st_contents[place], loader.GetStream()), logger);
        EXPECT_THROW(loader.Load(nullptr, logger), CVescaException);
        CFileWrapClose const file(std::fopen(path.c_str(), "rb"));
        CFileBinaryStream stream(file.FilePtr());
        for (std::size_t place = 0; place < st_contents.size(); ++place) {
            auto filter = filterOf(place, st_contents[place], stream);
            auto const * blob = static_cast<Blob *>(filter.get());
            CInnerHeaderWrapper wrapper(filter.release(), nullptr, L"");
            wrapper.Load(logger);
            EXPECT_TRUE(place == 2 || blob->loaded) << place;
        }
    }
};

TEST_F(Documents, ChecksumsLieInTheReserveOfTheHeaders)
{
    std::string sealed = saved(st_contents);
    expectLoads(true);
    std::string const plain = saved(st_contents, documentWithoutChecksums);
    expectLoads(false);
    EXPECT_EQ(sealed.substr(52, 8), "QZSealed");
    EXPECT_EQ(sealed.substr(60, 12), std::string("\1\0\0\0\1\0\0\0\0\0\0\0", 12));
    EXPECT_EQ(sealed.substr(72, 4), "\x26\x39\xf4\xcb") << "the sum that CRC-32 is known by";
    EXPECT_EQ(sealed.substr(124, 4), sealed.substr(128 + 9 + 76, 4));

    CFileWrapClose const file(std::tmpfile());
    CFileBinaryStream stream(file.FilePtr());
    std::int64_t size = 0;
    for (std::size_t place = 0; place < st_contents.size(); ++place) {
        auto filter = filterOf(place, st_contents[place], stream);
        CInnerHeaderWrapper wrapper(filter.release(), nullptr, L"");
        sealed.replace(std::size_t(size) + 52, 76, 76, '\0');
        size += wrapper.Save();
    }
    std::string described(std::size_t(size), ' ');
    std::rewind(file.FilePtr());
    stream.readData(described.size(), described.data());
    EXPECT_EQ(plain, described);
    EXPECT_EQ(sealed, described);
}

TEST_F(Documents, EveryBitEveryEndAndEveryExchangeIsFound)
{
    std::string const sound = saved(st_contents);
    std::vector<std::string> parts;
    std::vector<int> partOf; // of each byte, and of what would follow
    std::size_t at = 0;
    for (std::size_t place = 0; place < st_contents.size(); ++place) {
        std::size_t const length = 128 + st_contents[place].size() + (place == 2 ? 128 : 0);
        parts.push_back(sound.substr(at, length));
        partOf.insert(partOf.end(), length, int(place) + 1);
        at += length;
    }
    ASSERT_EQ(at, sound.size());
    ASSERT_EQ(verdict(sound), 0);

    std::string bytes = sound;
    for (std::size_t bit = 0; bit < 8 * sound.size(); ++bit) {
        bytes[bit / 8] = char(sound[bit / 8] ^ (1 << bit % 8));
        ASSERT_EQ(verdict(bytes), partOf[bit / 8]) << "bit " << bit;
        bytes[bit / 8] = sound[bit / 8];
    }
    for (std::size_t size = 0; size < sound.size(); ++size)
        ASSERT_EQ(verdict(sound.substr(0, size)), partOf[size]) << "of " << size << " bytes";

    std::vector<std::string> others = st_contents;
    others[0][0] = 'x';
    std::string const other = saved(others);
    std::string const firstOfOther = other.substr(0, parts[0].size());
    std::string const lastOfOther = other.substr(other.size() - parts[3].size());
    std::string const plain = saved(st_contents, documentWithoutChecksums);
    struct
    {
        std::string document;
        int component;
    } const exchanges[] = {
        {parts[1] + parts[0] + parts[2] + parts[3], 1},                       // swapped
        {parts[0] + parts[2] + parts[1] + parts[3], 2},                       //
        {parts[0] + parts[2] + parts[3], 2},                                  // lost
        {parts[1] + parts[2] + parts[3], 1},                                  //
        {parts[0] + parts[1] + parts[1] + parts[2], 3},                       // doubled
        {firstOfOther + parts[1] + parts[2] + parts[3], 2},                   // of another document
        {parts[0] + parts[1] + parts[2] + lastOfOther, 4},                    //
        {sound + parts[3], 5},                                                // added
        {sound + '\0', 5},                                                    //
        {sound.substr(0, 52) + std::string(76, '\0') + sound.substr(128), 2}, // a sum wiped out
        {plain.substr(0, 100) + "x" + plain.substr(101), 1},                  // what is in reserve is used
        {"", 1},
        {"VsCm", 1},
        {plain, -1},
        {plain + "rest", -1}, // what another component than those known has behind it
        {plain.substr(0, plain.size() - 1), -1},
        {"no component at all", -1},
        {std::string(1000, 'x'), -1},
    };
    for (auto const & [document, component] : exchanges)
        EXPECT_EQ(verdict(document), component) << testing::PrintToString(document);
}

TEST_F(Documents, FailuresLeaveTheOldDocumentAndNothingElse)
{
    std::string const old = saved({"old"});
    CFileWrapClose const elsewhere(std::tmpfile());
    CFileBinaryStream foreign(elsewhere.FilePtr());
    struct Odd : Blob
    {
        Odd(IVescaBinaryStream & target, std::function<std::int64_t(IVescaBinaryStream &)> saving)
            : Blob(target, "Odd", 1, {}), action(std::move(saving))
        {}
        std::int64_t OnSave() override { return action(GetStream()); }
        std::function<std::int64_t(IVescaBinaryStream &)> action;
    };
    auto const saveOdd = [](std::function<std::int64_t(IVescaBinaryStream &)> saving) {
        return [saving](CDocumentSaver & saver) {
            saver.Save(std::make_unique<Odd>(saver.GetStream(), saving));
        };
    };
    std::function<void(CDocumentSaver &)> const failures[] = {
        saveOdd([](IVescaBinaryStream &) -> std::int64_t { throw CFileWriteError(); }),
        saveOdd([](IVescaBinaryStream & stream) { return stream.writeData(3, "odd"), 4; }),
        saveOdd([](IVescaBinaryStream & stream) { return stream.writeData(3, "odd"), -1; }),
        saveOdd([](IVescaBinaryStream & stream) {
            stream.writeData(3, "odd");
            stream.skipReadData(-1);
            return 3;
        }),
        saveOdd([](IVescaBinaryStream & stream) {
            stream.skipReadData(-8);
            stream.writeData(8, "oddities");
            return 0;
        }),
        [](CDocumentSaver & saver) { saver.GetStream().writeData(3, "odd"); },
        [](CDocumentSaver & saver) {
            saver.Save(std::make_unique<Blob>(saver.GetStream(), std::string(30, 'x'), 1, Bytes{}));
        },
        [&](CDocumentSaver & saver) { saver.Save(filterOf(0, "", foreign)); },
        [](CDocumentSaver & saver) { saver.Save(nullptr); },
        [](CDocumentSaver &) { throw std::logic_error("forgot to commit"); },
    };
    int number = 0;
    for (auto const & failure : failures) {
        SCOPED_TRACE(number++);
        {
            CDocumentSaver saver(path);
            saver.Save(filterOf(0, "new", saver.GetStream()));
            EXPECT_ANY_THROW(failure(saver));
            if (number <= 5) {
                EXPECT_THROW(saver.Commit(), CVescaException);
                EXPECT_THROW(saver.Save(filterOf(0, "new", saver.GetStream())), std::logic_error);
            }
        }
        EXPECT_EQ(folder.contents("document"), old);
        EXPECT_EQ(folder.files().size(), 1u);
    }
    EXPECT_THROW(CDocumentSaver(path).Commit(), std::logic_error);
    for (std::string const & place : {folder.path(""), folder.path("no/folder"), std::string("/dev/null")})
        EXPECT_THROW(CDocumentSaver{place}, CVescaException) << place;
    for (std::string const & place : {folder.path(""), folder.path("none"), std::string("/dev/zero")})
        EXPECT_THROW(CDocumentLoader{place}, CVescaException) << place;
    try {
        CDocumentLoader loader(path);
        loader.Load(filterOf(0, "ol", loader.GetStream()), logger);
        ADD_FAILURE();
    } catch (CDocumentError const & error) {
        EXPECT_THAT(error.what(), AllOf(HasSubstr("component 1"), HasSubstr("2 bytes"), HasSubstr("3")));
    }
}

// The state of the files changes in system calls only: a process that is killed before each of them, and
// behind the last one, has been killed everywhere.
TEST_F(Documents, DeathAnywhereInASaveLeavesOneOfTheTwo)
{
    std::vector<std::string> const larger = {std::string(20000, 'n'), "b", "c", "d"};
    std::string const after = saved(larger);
    std::string const before = saved(st_contents);
    int olds = 0, news = 0;
    for (int stops = 0;; ++stops) {
        pid_t const child = fork();
        if (child == 0) {
            if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0)
                _exit(77);
            raise(SIGSTOP);
            save(path, larger);
            _exit(0);
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        if (WIFEXITED(status) && WEXITSTATUS(status) == 77)
            GTEST_SKIP() << "no process may be traced here";
        for (int stop = 0; stop < stops && WIFSTOPPED(status); ++stop) {
            ASSERT_EQ(ptrace(PTRACE_SYSCALL, child, nullptr, nullptr), 0);
            ASSERT_EQ(waitpid(child, &status, 0), child);
        }
        bool const hasEnded = WIFEXITED(status);
        if (!hasEnded) {
            kill(child, SIGKILL);
            waitpid(child, &status, 0);
        }
        std::string const found = folder.contents("document");
        ASSERT_TRUE(found == before || found == after) << "killed at stop " << stops;
        ++(found == before ? olds : news);
        if (hasEnded)
            break;
        if (found == after)
            save(path, st_contents);
    }
    EXPECT_GT(olds, 20);
    EXPECT_GT(news, 1);
    EXPECT_EQ(folder.contents("document"), after);
}

} // namespace
