// SPDX-License-Identifier: Apache-2.0

// Any bytes as a document of components: what loading makes of them is compared with a second reading that
// works on the array of bytes alone. Both must accept the same files, with the same data at the same places,
// and whatever was loaded completely comes back byte for byte when it is saved, where the bytes mean
// anything. The check of whole documents must find the checksums that the second reading finds.

#include <QZmath/Persistence/Documents.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <sys/mman.h>
#include <unistd.h>

namespace
{

using Bytes = std::vector<unsigned char>;
constexpr int greatestDepth = 3;

[[noreturn]] void failed(char const * what)
{
    std::fprintf(stderr, "%s\n", what);
    std::abort();
}

struct Logger : VsF::IDeltaStateLogger
{
private:
    VsF::DocumentNewObjectProcessStatus OnProcessNewObject(VsF::INewObjEvent &) override
    {
        return VsF::newObjectAccepted;
    }
    void OnFinalizeLoading() override {}
};

// A byte with a count, and as many bytes (name "Blob", version 2), or as many groups behind a header each
// ("Group", version -1).
struct Filter : VsF::IComponentFilter
{
    Filter(IVescaBinaryStream & source, bool group, int level) : stream(source), isGroup(group), depth(level)
    {}

    Bytes data;
    std::vector<std::unique_ptr<VsF::CInnerHeaderWrapper>> parts;

private:
    // At the greatest depth there is no filter for parts, and they are skipped.
    void addPart()
    {
        if (depth < greatestDepth)
            parts.push_back(std::make_unique<VsF::CInnerHeaderWrapper>(
                new Filter(stream, depth % 2 == 0, depth + 1), nullptr, L""));
        else
            parts.push_back(std::make_unique<VsF::CInnerHeaderWrapper>(stream, nullptr, L""));
    }
    std::int64_t OnSave() override
    {
        auto const count = static_cast<unsigned char>(isGroup ? parts.size() : data.size());
        stream.writeData(1, &count);
        stream.writeData(data.size(), data.data());
        std::int64_t sum = 1 + static_cast<std::int64_t>(data.size());
        for (auto const & part : parts)
            sum += part->Save();
        return sum;
    }
    std::int64_t OnLoad(VsF::IDeltaStateLogger & logger) override
    {
        unsigned char count = 0;
        stream.readData(1, &count);
        if (!isGroup) {
            data.resize(count);
            stream.readData(count, data.data());
            return 1 + static_cast<std::int64_t>(count);
        }
        std::int64_t sum = 1;
        for (unsigned k = 0; k < count; ++k) {
            addPart();
            sum += parts.back()->Load(logger);
        }
        return sum;
    }
    std::wstring OnGetComponentName() const override { return L""; }
    std::string OnGetBlockMark() const override { return isGroup ? "Group" : "Blob"; }
    int OnGetVersion() const override { return isGroup ? -1 : 2; }
    IVescaBinaryStream & OnGetStream() override { return stream; }

    IVescaBinaryStream & stream;
    bool isGroup;
    int depth;
};

// The same by the layout of the bytes. `meaning` is what a saving would write: 0 where bytes mean nothing.
struct Reading
{
    Bytes const & bytes;
    Bytes meaning;
    bool skipsAny = false;

    std::optional<std::uint64_t> filter(std::uint64_t at, bool isGroup, int depth)
    {
        if (at >= bytes.size())
            return {};
        std::uint64_t end = at + 1;
        for (unsigned k = 0; isGroup && k < bytes[at]; ++k) {
            std::optional<std::uint64_t> const next = component(end, depth % 2 == 0, depth + 1);
            if (!next)
                return {};
            end = *next;
        }
        if (!isGroup)
            end += bytes[at];
        return end <= bytes.size() ? std::optional(end) : std::nullopt;
    }

    std::optional<std::uint64_t> component(std::uint64_t at, bool isGroup, int depth)
    {
        if (bytes.size() < at + 128 || std::memcmp(&bytes[at], "VsCmpWrp", 9) != 0)
            return {};
        std::uint64_t size = 0, version = 0;
        for (unsigned k = 8; k-- > 0;)
            size = size << 8 | bytes[at + 10 + k];
        for (unsigned k = 4; k-- > 0;)
            version = version << 8 | bytes[at + 18 + k];
        if (size >> 63)
            return {};
        std::uint64_t const data = at + 128;
        std::string const name = isGroup ? "Group" : "Blob";
        if (depth <= greatestDepth && version == (isGroup ? 0xFFFFFFFFu : 2u) &&
            std::memcmp(&bytes[at + 22], name.c_str(), name.size() + 1) == 0) {
            meaning[at + 9] = 0;
            std::fill(&meaning[at + 22] + name.size(), &meaning[at] + 128, static_cast<unsigned char>(0));
            std::optional<std::uint64_t> const end = filter(data, isGroup, depth);
            return end && *end - data == size ? end : std::nullopt;
        }
        skipsAny = true;
        return size <= bytes.size() - data ? std::optional(data + size) : std::nullopt;
    }
};

std::uint32_t word(Bytes const & bytes, std::uint64_t at)
{
    return std::uint32_t(bytes[at]) | std::uint32_t(bytes[at + 1]) << 8 | std::uint32_t(bytes[at + 2]) << 16 |
           std::uint32_t(bytes[at + 3]) << 24;
}

// By the polynomial, bit by bit.
std::uint32_t sumOf(Bytes const & bytes, std::uint64_t at, std::uint64_t size)
{
    std::uint32_t sum = ~0u;
    for (std::uint64_t k = at; k < at + size; ++k) {
        sum ^= bytes[k];
        for (int bit = 0; bit < 8; ++bit)
            sum = sum >> 1 ^ (sum & 1 ? 0xEDB88320u : 0u);
    }
    return ~sum;
}

// Is this, to the last byte, a document with sound checksums?
bool isSealed(Bytes const & bytes)
{
    std::uint32_t before = 0;
    std::uint64_t at = 0;
    for (std::uint32_t place = 1;; ++place) {
        if (bytes.size() - at < 128 || std::memcmp(&bytes[at], "VsCmpWrp", 9) != 0 ||
            std::memcmp(&bytes[at + 52], "QZSealed\1\0\0", 12) != 0 || word(bytes, at + 64) != place ||
            word(bytes, at + 76) != before || word(bytes, at + 124) != sumOf(bytes, at, 124))
            return false;
        std::uint64_t const size = word(bytes, at + 10) | std::uint64_t(word(bytes, at + 14)) << 32;
        if (size > bytes.size() - at - 128 || word(bytes, at + 72) != sumOf(bytes, at + 128, size))
            return false;
        before = word(bytes, at + 124);
        bool const isLast = word(bytes, at + 68) != 0;
        at += 128 + size;
        if (isLast)
            return at == bytes.size();
    }
}

// Damage may be seen in what has no checksums, too, but nothing else happens.
void checkDocument(CFileWrapClose const & file, Bytes const & bytes)
{
    bool isVerified = false;
    try {
        VsF::CDocumentLoader loader(file);
        isVerified = loader.IsVerified();
        if (loader.GetStream().getPosition() != 0)
            failed("not at the beginning");
    } catch (VsF::CDocumentError const &) {
    }
    if (isVerified != isSealed(bytes))
        failed("verified what is damaged, or refused what is sound");
}

CFileWrapClose openMemoryFile()
{
    int const descriptor = ::memfd_create("document", 0);
    std::FILE * const file = descriptor < 0 ? nullptr : ::fdopen(descriptor, "w+b");
    if (!file)
        failed("no memory file");
    return CFileWrapClose(file);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size)
{
    CFileWrapClose const file = openMemoryFile();
    CFileBinaryStream stream(file.FilePtr());
    stream.writeData(size, data);
    std::rewind(file.FilePtr());
    Logger logger;

    Bytes const bytes(data, data + size);
    checkDocument(file, bytes);
    std::rewind(file.FilePtr());
    Reading reading{bytes, bytes};
    std::optional<std::uint64_t> const end = reading.component(0, true, 0);
    auto const document = new Filter(stream, true, 0);
    VsF::CInnerHeaderWrapper wrapper(document, nullptr, L"");
    try {
        std::int64_t const loaded = wrapper.Load(logger);
        if (!end || static_cast<std::uint64_t>(loaded) != *end || stream.getPosition() != loaded)
            failed("loaded what is none, or not all");
    } catch (CVescaException const &) {
        if (end)
            failed("refused what is sound");
        return 0;
    }
    VsF::CSkipTillTheEnd rest(stream, nullptr, L"", L"");
    if (static_cast<std::uint64_t>(rest.Load(logger)) != size - *end)
        failed("wrong length of the rest");
    if (reading.skipsAny)
        return 0;
    CFileWrapClose const copy = openMemoryFile();
    stream = CFileBinaryStream(copy.FilePtr());
    if (wrapper.Save() != static_cast<std::int64_t>(*end))
        failed("saved another length");
    Bytes saved(*end);
    std::rewind(copy.FilePtr());
    stream.readData(saved.size(), saved.data());
    if (!std::equal(saved.begin(), saved.end(), reading.meaning.begin()))
        failed("saved other bytes");
    return 0;
}
