// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Persistence/ComponentFilters.h>

#include <Persistence/TestFilters.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

namespace
{

using namespace VsF;
using namespace qz_test;

class Components : public testing::Test
{
protected:
    CFileWrapClose file{std::tmpfile()};
    CFileBinaryStream stream{file.FilePtr()};
    Log log;
    Logger logger;

    void rewind() { std::rewind(file.FilePtr()); }

    Bytes contents()
    {
        std::fseek(file.FilePtr(), 0, SEEK_END);
        Bytes bytes(std::size_t(stream.getPosition()));
        rewind();
        stream.readData(bytes.size(), bytes.data());
        return bytes;
    }

    void setContents(Bytes const & bytes)
    {
        file = CFileWrapClose(std::tmpfile());
        stream = CFileBinaryStream(file.FilePtr());
        stream.writeData(bytes.size(), bytes.data());
        rewind();
    }

    Blob * blob(std::string name, int version, Bytes data)
    {
        return new Blob(stream, std::move(name), version, std::move(data));
    }

    std::int64_t save(IComponentFilter * filter) { return CInnerHeaderWrapper(filter, &log, L"skip").Save(); }
    std::int64_t load(IComponentFilter * filter)
    {
        return CInnerHeaderWrapper(filter, &log, L"skip").Load(logger);
    }
};

// What is unknown, which the text that programs compare does not say.
template <class Action>
std::string reasonOf(Action action)
{
    try {
        action();
    } catch (CUnknownFormatError const & error) {
        EXPECT_STREQ(error.what(), "Vesca exception");
        return error.GetReason();
    }
    return "nothing was thrown";
}

TEST_F(Components, HeaderIsWrittenByteForByte)
{
    EXPECT_EQ(save(blob("A block mark of 29 characters", -0x01020304, {10, 11, 12})), 131);
    EXPECT_EQ(stream.getPosition(), 131);
    Bytes expected(128);
    std::memcpy(expected.data(), "VsCmpWrp", 8);
    expected[10] = 3;
    unsigned char const version[4] = {0xFC, 0xFC, 0xFD, 0xFE};
    std::memcpy(&expected[18], version, 4);
    std::memcpy(&expected[22], "A block mark of 29 characters", 29);
    expected.insert(expected.end(), {10, 11, 12});
    EXPECT_EQ(contents(), expected);

    rewind();
    EXPECT_THROW(save(blob("This block mark has 30 letters", 1, {})), CVescaException);
    EXPECT_THROW(save(blob(std::string("a\0b", 3), 1, {})), CVescaException);
    EXPECT_EQ(contents(), expected);
}

TEST_F(Components, OtherNamesAndVersionsAreSkippedWithAWarning)
{
    save(blob("Known", 3, Bytes(1000, 1)));
    save(blob("Known", 2, Bytes(20, 2)));
    rewind();
    EXPECT_EQ(load(blob("Known", 2, {})), 1128);
    EXPECT_EQ(load(blob("Know", 2, {})), 148);
    EXPECT_EQ(log.lines, (std::vector<std::wstring>{L"skip", L"skip"}));
    rewind();
    EXPECT_EQ(CInnerHeaderWrapper(blob("", 3, {}), nullptr, L"no log").Load(logger), 1128);
    CInnerHeaderWrapper skipper(stream, &log, L"");
    EXPECT_EQ(skipper.Load(logger), 148);
    EXPECT_EQ(log.lines.size(), 2u);
    EXPECT_THROW(skipper.Load(logger), CVescaException); // the end
}

TEST_F(Components, WrongUseAndWrongLengthsThrow)
{
    EXPECT_THROW(CInnerHeaderWrapper(nullptr, nullptr, L""), std::logic_error);
    try {
        CInnerHeaderWrapper(stream, nullptr, L"").Save();
        ADD_FAILURE();
    } catch (std::exception const & error) {
        EXPECT_STREQ(error.what(), "Internal logic error CInnerHeaderWrapper");
    }
    Blob * const broken = blob("Blob", 1, Bytes(12, 3));
    CInnerHeaderWrapper wrapper(broken, &log, L"skip");
    broken->breaksOff = true;
    EXPECT_THROW(wrapper.Save(), CFileWriteError);
    EXPECT_EQ(contents().size(), 128u);
    rewind();
    EXPECT_EQ(reasonOf([&] { wrapper.Load(logger); }),
              "the component \"Blob\" of version 1 has no size: its saving broke off");
    rewind();
    broken->breaksOff = false;
    wrapper.Save();
    rewind();
    broken->leaves = 2;
    EXPECT_EQ(reasonOf([&] { wrapper.Load(logger); }),
              "the component \"Blob\" of version 1 was read as 10 bytes, its header announces 12");
    EXPECT_EQ(stream.getPosition(), 138);
    rewind();
    stream.writeData(9, "VsCmp\x1bWrp");
    rewind();
    EXPECT_EQ(reasonOf([&] { wrapper.Load(logger); }), "\"VsCmp\\x1bWrp\" begins no component");
}

TEST_F(Components, SizesBeyondTwoGibibytesArePatchedAndSkipped)
{
    struct Sparse : Blob
    {
        Sparse(CFileBinaryStream & target, std::FILE * where) : Blob(target, "Sparse", 1, {}), file(where) {}
        std::int64_t OnSave() override
        {
            fseeko(file, (off_t(5) << 30) - 1, SEEK_CUR);
            std::fputc(1, file);
            return std::int64_t(5) << 30;
        }
        std::FILE * file;
    };
    std::int64_t const expected = (std::int64_t(5) << 30) + 128;
    EXPECT_EQ(save(new Sparse(stream, file.FilePtr())), expected);
    EXPECT_EQ(save(blob("Next", 1, {4})), 129);
    rewind();
    EXPECT_EQ(load(blob("Next", 1, {})), expected);
    EXPECT_EQ(load(blob("Next", 1, {4})), 129);
}

TEST_F(Components, StreamReportsTheEnd)
{
    setContents({1, 2, 3});
    unsigned char bytes[4];
    stream.readData(3, bytes);
    stream.readData(0, nullptr);
    stream.skipReadData(0);
    EXPECT_THROW(stream.readData(1, bytes), CVescaException);
    stream.skipReadData(-3);
    EXPECT_THROW(stream.skipReadData(4), CVescaException);
    EXPECT_EQ(stream.getPosition(), 0);
    EXPECT_THROW(stream.skipReadData(-1), CVescaException);
    stream.skipReadData(3);
    EXPECT_EQ(stream.getPosition(), 3);

    CFileWrapClose full(std::fopen("/dev/full", "wb"));
    std::setvbuf(full.FilePtr(), nullptr, _IONBF, 0);
    EXPECT_THROW(CFileBinaryStream(full.FilePtr()).writeData(1, bytes), CVescaException);
}

TEST_F(Components, RestIsSkippedByteByByteOrAtOnce)
{
    struct Slow : CFileBinaryStream
    {
        using CFileBinaryStream::CFileBinaryStream;
    };
    setContents(Bytes(70000, 1));
    Slow slow(file.FilePtr());
    for (IVescaBinaryStream * source : std::initializer_list<IVescaBinaryStream *>{&stream, &slow}) {
        rewind();
        source->skipReadData(1);
        CSkipTillTheEnd rest(*source, &log, L"rest", L"skipped");
        for (int const left : {69999, 0})
            EXPECT_EQ(rest.Load(logger), left);
    }
    EXPECT_EQ(log.lines.size(), 4u);
    CFileWrapClose zeros(std::fopen("/dev/zero", "rb"));
    CFileBinaryStream endless(zeros.FilePtr());
    EXPECT_THROW(CSkipTillTheEnd(endless, &log, L"", L"skipped").Load(logger), CFileReadError);
}

TEST_F(Components, FiltersWithoutDataAreTheirHeader)
{
    using Case = std::tuple<IComponentFilter *, std::string, int, std::int64_t>;
    auto const stub = [this] { return new CComponentFilterStub(L"nothing", stream); };
    for (auto const & [filter, mark, version, length] :
         {Case(new CSkipTillTheEnd(stream, &log, L"nothing", L""), "SkipTillEnd", 0, 128),
          Case(stub(), "STUB", 0, 128), Case(new CInnerHeaderWrapper(stub(), &log, L""), "Wrap", 1, 256)}) {
        setContents({});
        CInnerHeaderWrapper wrapper(filter, &log, L"skip");
        EXPECT_EQ(wrapper.GetComponentName(), L"nothing");
        EXPECT_EQ(wrapper.Save(), length);
        Bytes const saved = contents();
        EXPECT_STREQ(reinterpret_cast<char const *>(&saved[22]), mark.c_str());
        EXPECT_EQ(saved[18], version);
        rewind();
        EXPECT_EQ(wrapper.Load(logger), length);
        logger.FinalizeLoading();
    }
    EXPECT_TRUE(log.lines.empty() && logger.ends == 1); // only the first end counts
}

TEST(FileWrapClose, CopiesCloseOnceInEitherOrder)
{
    for (bool firstOneFirst : {false, true}) {
        auto first = std::make_unique<CFileWrapClose>(std::tmpfile());
        auto second = std::make_unique<CFileWrapClose>(*first);
        (firstOneFirst ? first : second).reset();
        CFileWrapClose & left = *(firstOneFirst ? second : first);
        CFileWrapClose moved(std::move(left));
        CFileWrapClose const copy = moved;
        EXPECT_TRUE(!left.FilePtr() && copy.FilePtr());
        for (int times = 0; times < 2; ++times)
            moved.release();
        EXPECT_EQ(copy.FilePtr(), nullptr);
    }
}

} // namespace
