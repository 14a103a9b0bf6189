// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Persistence/Documents.h>

#include <Persistence/TestFilters.h>
#include <support/TestFolder.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <signal.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

using namespace VsF;
using namespace qz_test;
using Contents = std::vector<std::string>;

Contents const st_contents = {"123456789", "", "within", std::string(70, '\x55')};
std::size_t const st_group = 2; // this one stands within another component, whose size is patched

std::unique_ptr<IComponentFilter> filterOf(std::size_t place, std::string const & content,
                                           IVescaBinaryStream & stream)
{
    auto blob = std::make_unique<Blob>(stream, "Part" + std::to_string(place), 1,
                                       Bytes(content.begin(), content.end()));
    if (place == st_group)
        return std::make_unique<CInnerHeaderWrapper>(blob.release(), nullptr, L"");
    return blob;
}

void save(std::string const & path, Contents const & contents,
          DocumentChecksums checksums = documentWithChecksums)
{
    CDocumentSaver saver(path, checksums);
    for (std::size_t place = 0; place < contents.size(); ++place)
        saver.Save(filterOf(place, contents[place], saver.GetStream()));
    saver.Commit();
}

// The component that is said to be damaged, 0 for a verified document, -1 for one without checksums.
int verdict(std::string bytes)
{
    try {
        CFileWrapClose const file(fmemopen(bytes.data(), bytes.size(), "rb"));
        return CDocumentLoader(file).IsVerified() ? 0 : -1;
    } catch (CDocumentError const & error) {
        std::string const component = "component " + std::to_string(error.GetComponent());
        EXPECT_THAT(error.what(), testing::HasSubstr(component));
        return int(error.GetComponent());
    }
}

class Documents : public testing::Test
{
protected:
    TestFolder folder;
    std::string const path = folder.path("document");
    Logger logger;

    std::string saved(Contents const & contents, DocumentChecksums checksums = documentWithChecksums)
    {
        save(path, contents, checksums);
        return folder.contents("document");
    }
};

TEST_F(Documents, ChecksumsLieInTheReserveAndNothingElseDiffers)
{
    std::string sealed = saved(st_contents);
    EXPECT_EQ(sealed.substr(52, 20), std::string("QZSealed\1\0\0\0\1\0\0\0\0\0\0\0", 20));
    EXPECT_EQ(sealed.substr(72, 4), "\x26\x39\xf4\xcb") << "the sum that CRC-32 is known by";
    EXPECT_EQ(sealed.substr(124, 4), sealed.substr(128 + 9 + 76, 4));
    for (bool isSealed : {true, false}) {
        std::string const bytes = saved(st_contents, DocumentChecksums(isSealed));
        CDocumentLoader loader(path);
        EXPECT_EQ(loader.IsVerified(), isSealed);
        for (std::size_t place = 0; place < st_contents.size(); ++place) {
            sealed.replace(std::size_t(loader.GetStream().getPosition()) + 52, 76, 76, '\0');
            auto filter = filterOf(place, st_contents[place], loader.GetStream());
            auto const * const blob = dynamic_cast<Blob *>(filter.get());
            CInnerHeaderWrapper wrapper(filter.release(), nullptr, L""); // as a program of old
            wrapper.Load(logger);
            EXPECT_TRUE(!blob || blob->loaded);
        }
        EXPECT_EQ(loader.GetStream().getPosition(), std::int64_t(bytes.size()));
        EXPECT_TRUE(isSealed || bytes == sealed);
    }
}

TEST_F(Documents, EveryBitEveryEndAndEveryExchangeIsFound)
{
    std::string const sound = saved(st_contents), plain = saved(st_contents, documentWithoutChecksums);
    std::string const other = saved({"x23456789", "", "within", "other"});
    Contents parts;
    std::vector<int> partOf; // of each byte
    for (std::size_t place = 0; place < st_contents.size(); ++place) {
        std::size_t const length = 128 + st_contents[place].size() + (place == st_group ? 128 : 0);
        parts.push_back(sound.substr(partOf.size(), length));
        partOf.insert(partOf.end(), length, int(place) + 1);
    }
    std::string bytes = sound;
    for (std::size_t bit = 0; bit < 8 * sound.size(); ++bit) {
        bytes[bit / 8] = char(sound[bit / 8] ^ (1 << bit % 8));
        ASSERT_EQ(verdict(bytes), partOf[bit / 8]) << "bit " << bit;
        bytes[bit / 8] = sound[bit / 8];
    }
    for (std::size_t size = 0; size < sound.size(); ++size)
        ASSERT_EQ(verdict(sound.substr(0, size)), partOf[size]) << "of " << size << " bytes";
    std::pair<std::string, int> const documents[] = {
        {sound, 0},
        {parts[1] + parts[0] + parts[2] + parts[3], 1},                        // swapped
        {parts[0] + parts[2] + parts[3], 2},                                   // lost
        {parts[0] + parts[1] + parts[1] + parts[2], 3},                        // doubled
        {other.substr(0, parts[0].size()) + sound.substr(parts[0].size()), 2}, // of another document
        {parts[0] + parts[1] + parts[2] + other.substr(other.size() - 133), 4},
        {sound + parts[3], 5},                                                // added
        {sound.substr(0, 52) + std::string(76, '\0') + sound.substr(128), 2}, // a sum wiped out
        {plain.substr(0, 100) + "x" + plain.substr(101), 1},                  // what is in reserve is used
        {plain, -1},
        {plain + "rest", -1},
        {plain.substr(0, plain.size() - 1), -1},
        {"no component at all", -1},
        {std::string(1000, 'x'), -1},
    };
    for (auto const & [document, component] : documents)
        EXPECT_EQ(verdict(document), component) << testing::PrintToString(document);
}

TEST_F(Documents, FailuresLeaveTheOldDocumentAndNothingElse)
{
    struct Odd : Blob
    {
        using Blob::Blob;
        std::int64_t OnSave() override
        {
            GetStream().writeData(data.size(), data.data());
            GetStream().skipReadData(GetVersion());
            GetStream().writeData(data.size() - 3, data.data());
            return 3;
        }
    };
    std::string const old = saved({"old"});
    for (auto const & [step, size] : {std::pair(0, 4u), {-1, 3u}, {-14, 10u}, {-500, 3u}}) {
        {
            CDocumentSaver saver(path);
            saver.Save(filterOf(0, "new", saver.GetStream()));
            EXPECT_THROW(saver.Save(std::make_unique<Odd>(saver.GetStream(), "Odd", step, Bytes(size))),
                         CVescaException);
            EXPECT_THROW(saver.Commit(), CVescaException);
        }
        EXPECT_EQ(folder.contents("document"), old);
        EXPECT_EQ(folder.files().size(), 1u);
    }
    CDocumentSaver saver(path), other(path);
    EXPECT_THROW(saver.GetStream().writeData(3, "odd"), CVescaException);
    EXPECT_THROW(saver.Save(nullptr), std::logic_error);
    EXPECT_THROW(saver.Save(filterOf(0, "", other.GetStream())), std::logic_error);
    EXPECT_THROW(saver.Commit(), std::logic_error);
    for (std::string const & place : {folder.path(""), folder.path("no/folder"), std::string("/dev/null")}) {
        EXPECT_THROW(CDocumentSaver{place}, CVescaException) << place;
        EXPECT_THROW(CDocumentLoader{place}, CVescaException) << place;
    }
    CDocumentLoader loader(path);
    EXPECT_THROW(loader.Load(filterOf(0, "ol", loader.GetStream()), logger), CDocumentError);
}

// The state of the files changes in system calls only: a process that is killed before and behind each of
// them has been killed everywhere.
TEST_F(Documents, DeathAnywhereInASaveLeavesOneOfTheTwo)
{
    Contents const larger = {std::string(20000, 'n'), "b"};
    std::string const after = saved(larger), before = saved(st_contents);
    int olds = 0, news = 0;
    bool hasEnded = false;
    for (int stops = 0; !hasEnded; ++stops) {
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
        if (WIFEXITED(status))
            GTEST_SKIP() << "no process may be traced here";
        for (int stop = 0; stop < stops && WIFSTOPPED(status); ++stop) {
            ASSERT_EQ(ptrace(PTRACE_SYSCALL, child, nullptr, nullptr), 0);
            ASSERT_EQ(waitpid(child, &status, 0), child);
        }
        hasEnded = WIFEXITED(status);
        if (!hasEnded) {
            kill(child, SIGKILL);
            waitpid(child, &status, 0);
        }
        std::string const found = folder.contents("document");
        ASSERT_TRUE(found == before || found == after) << "killed at stop " << stops;
        ++(found == before ? olds : news);
        if (found == after && !hasEnded)
            save(path, st_contents);
    }
    EXPECT_GT(olds, 20);
    EXPECT_GT(news, 1);
    EXPECT_EQ(folder.contents("document"), after);
}

} // namespace
