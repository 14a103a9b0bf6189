// SPDX-License-Identifier: Apache-2.0

// Any bytes as a document of components: what loading makes of them is compared with a second reading that
// works on the array of bytes alone. Both must accept the same files, with the same data at the same places,
// and whatever was loaded completely comes back byte for byte when it is saved, where the bytes mean
// anything. The check of whole documents goes over all of them first.

#include <QZmath/Persistence/Documents.h>

#include "Input.h"

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

using qz_fuzz::failed;

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

// What has no checksums may be refused too, when its reserve is in use; nothing else happens.
void checkDocument(CFileWrapClose const & file)
{
    try {
        VsF::CDocumentLoader loader(file);
        if (loader.GetStream().getPosition() != 0)
            failed("not at the beginning");
    } catch (VsF::CDocumentError const &) {
    }
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
    checkDocument(file);
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
