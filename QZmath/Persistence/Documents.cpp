// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Persistence/Documents.h>

#include <QZmath/Backend/Checksum.h>
#include <QZmath/Persistence/ComponentHeaderDetail.h>
#include <QZsys/Messages.h>
#include <QZsys/PendingFiles.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

#include <sys/types.h>

namespace VsF
{

namespace
{

constexpr char sealMark[8] = {'Q', 'Z', 'S', 'e', 'a', 'l', 'e', 'd'};
constexpr std::uint32_t sealForm = 1;
constexpr std::size_t sealMarkOffset = ComponentHeader::reservedOffset;
constexpr std::size_t sealFormOffset = 60;
constexpr std::size_t placeOffset = 64;
constexpr std::size_t isLastOffset = 68;
constexpr std::size_t dataSumOffset = 72;
constexpr std::size_t chainOffset = 76;
constexpr std::size_t headerSumOffset = 124;

std::uint32_t headerSum(ComponentHeader const & header)
{
    return QzBackend::crc32(0, header.bytes.data(), headerSumOffset);
}

bool hasSealMark(ComponentHeader const & header)
{
    return std::memcmp(header.bytes.data() + sealMarkOffset, sealMark, sizeof sealMark) == 0;
}

bool hasReserve(ComponentHeader const & header)
{
    return std::all_of(header.bytes.begin() + ComponentHeader::reservedOffset, header.bytes.end(),
                       [](unsigned char byte) { return byte == 0; });
}

[[noreturn]] void throwCannot(char const * what, std::string const & path, std::string const & why)
{
    throw CVescaException(std::string("cannot ") + what + " " + VsUt::quotable(path) + ": " + why);
}

// Sums what a file has from a place on, by blocks.
class FileSum
{
public:
    // False when the file ends before.
    bool add(std::FILE * file, std::int64_t count)
    {
        while (count > 0) {
            std::size_t const wanted =
                static_cast<std::size_t>(std::min<std::int64_t>(count, std::int64_t(m_block.size())));
            if (std::fread(m_block.data(), wanted, 1, file) != 1)
                return false;
            m_sum = QzBackend::crc32(m_sum, m_block.data(), wanted);
            count -= static_cast<std::int64_t>(wanted);
        }
        return true;
    }
    std::uint32_t take() { return std::exchange(m_sum, 0); }

private:
    std::uint32_t m_sum = 0;
    std::vector<unsigned char> m_block = std::vector<unsigned char>(std::size_t(1) << 18);
};

// Sums what a filter writes through it, as long as it only appends. Between the components nobody writes.
class SummingStream : public IVescaBinaryStream
{
public:
    SummingStream(std::FILE * file, bool sums) : m_file(file), m_sums(sums) {}

    void beginComponent(std::int64_t position)
    {
        m_begin = m_end = m_position = position;
        m_sum = 0;
        m_onlyAppended = true;
        m_isOpen = true;
    }
    void endComponent() { m_isOpen = false; }
    std::int64_t position() const { return m_position; }
    std::int64_t end() const { return m_end; }
    // Nothing when the filter went back and wrote.
    std::optional<std::uint32_t> sum() const { return m_onlyAppended ? std::optional(m_sum) : std::nullopt; }

    void readData(std::uint64_t size, void * buffer) override
    {
        m_file.readData(size, buffer);
        m_position += static_cast<std::int64_t>(size);
    }
    void skipReadData(long offset) override
    {
        m_file.skipReadData(offset);
        m_position += offset;
    }
    void writeData(std::uint64_t size, void const * buffer) override
    {
        if (!m_isOpen || m_position < m_begin)
            throw CVescaException("only filters write to a document, each its component");
        m_file.writeData(size, buffer);
        if (m_position == m_end && m_sums)
            m_sum = QzBackend::crc32(m_sum, buffer, size);
        else
            m_onlyAppended = false;
        m_position += static_cast<std::int64_t>(size);
        m_end = std::max(m_end, m_position);
    }
    std::int64_t getPosition() override { return m_position; }

private:
    CFileBinaryStream m_file;
    bool m_sums; // no sum is asked for otherwise
    std::int64_t m_begin = 0;
    std::int64_t m_end = 0; // behind the last byte written
    std::int64_t m_position = 0;
    std::uint32_t m_sum = 0;
    bool m_onlyAppended = true;
    bool m_isOpen = false;
};

// Reads a document without understanding its components.
class DocumentCheck
{
public:
    explicit DocumentCheck(std::FILE * file) : m_file(file)
    {
        if (::fseeko(file, 0, SEEK_END) != 0 || (m_fileSize = ::ftello(file)) < 0)
            throw CVescaException("cannot read the document: " + VsUt::systemReason(errno));
        std::rewind(file);
    }

    // True for a document with checksums that is whole, false for one without; throws otherwise.
    bool isVerified()
    {
        bool isSealed = false;
        bool isLast = false;
        for (m_place = 1; !isLast; ++m_place) {
            if (m_at == m_fileSize) {
                if (isSealed || m_place == 1)
                    damaged(isSealed ? "is missing at the end" : "is missing: the document is empty");
                return false;
            }
            if (!readHeader(isSealed))
                return false;
            if (m_place == 1)
                isSealed = hasSealMark(m_header) || (m_header.hasMark() && !hasReserve(m_header));
            if (isSealed) {
                checkHeader();
                isLast = m_header.load<std::uint32_t>(isLastOffset) != 0;
                checkData();
            } else if (!m_header.hasMark() || !m_header.hasSize()) {
                return false; // a rest without a header, or what the loader will refuse
            } else if (!hasReserve(m_header)) {
                damaged("has a checksum, and those before have none");
            } else if (m_header.size() > m_fileSize - m_at) {
                return false;
            } else {
                m_at += m_header.size();
                ::fseeko(m_file, m_at, SEEK_SET);
            }
        }
        if (m_at != m_fileSize)
            damaged("stands behind the last one");
        return true;
    }

private:
    [[noreturn]] void damaged(std::string const & reason) const
    {
        throw CDocumentError(m_place, "component " + std::to_string(m_place) + " " + reason);
    }

    // False where the rest is too short for a header and does not have to be one.
    bool readHeader(bool isSealed)
    {
        std::int64_t const length = std::int64_t(ComponentHeader::length);
        if (m_fileSize - m_at >= length) {
            read(m_header.bytes.data(), ComponentHeader::length);
            m_at += length;
            return true;
        }
        std::size_t const rest = static_cast<std::size_t>(m_fileSize - m_at);
        ComponentHeader begun;
        read(begun.bytes.data(), rest);
        m_header = ComponentHeader();
        m_header.setMark();
        std::size_t const compared = std::min(rest, ComponentHeader::sizeOffset);
        if (isSealed || std::memcmp(begun.bytes.data(), m_header.bytes.data(), compared) == 0)
            damaged("ends within its header");
        return false;
    }

    void checkHeader()
    {
        if (!m_header.hasMark() || !hasSealMark(m_header) ||
            m_header.load<std::uint32_t>(headerSumOffset) != headerSum(m_header) || !m_header.hasSize())
            damaged("has a damaged header");
        std::uint32_t const form = m_header.load<std::uint32_t>(sealFormOffset);
        if (form != sealForm)
            damaged("has checksums of the form " + std::to_string(form) + ", which is unknown");
        std::uint32_t const place = m_header.load<std::uint32_t>(placeOffset);
        if (place != m_place)
            damaged("is not in its place: the one here was component " + std::to_string(place));
        if (m_header.load<std::uint32_t>(chainOffset) != m_chain)
            damaged("was not saved together with what stands before it");
        m_chain = m_header.load<std::uint32_t>(headerSumOffset);
    }

    void checkData()
    {
        std::string const name = "(" + m_header.describe().substr(4) + ") ";
        if (m_header.size() > m_fileSize - m_at)
            damaged(name + "ends within its data");
        errno = 0;
        if (!m_sum.add(m_file, m_header.size()))
            throwUnreadable();
        if (m_sum.take() != m_header.load<std::uint32_t>(dataSumOffset))
            damaged(name + "has data that are not what was saved");
        m_at += m_header.size();
    }

    void read(void * bytes, std::size_t count)
    {
        errno = 0;
        if (count > 0 && std::fread(bytes, count, 1, m_file) != 1)
            throwUnreadable();
    }

    [[noreturn]] void throwUnreadable() const
    {
        throw CVescaException("the document could not be read: " + VsUt::systemReason(errno));
    }

    std::FILE * m_file;
    std::int64_t m_fileSize = 0;
    std::int64_t m_at = 0;
    std::uint32_t m_place = 1;
    std::uint32_t m_chain = 0;
    ComponentHeader m_header;
    FileSum m_sum;
};

CFileWrapClose openDocument(std::string const & path)
{
    std::error_code error;
    bool const isRegular = std::filesystem::is_regular_file(path, error);
    if (!isRegular)
        throwCannot("read", path, error ? VsUt::systemReason(error.value()) : "it is no regular file");
    CFileWrapClose file(std::fopen(path.c_str(), "rbe"));
    if (!file.FilePtr())
        throwCannot("read", path, VsUt::systemReason(errno));
    return file;
}

} // namespace

CDocumentError::CDocumentError(std::uint32_t component, std::string const & reason)
    : CUnknownFormatError("the document cannot be loaded: " + reason), m_component(component)
{}

CDocumentError::~CDocumentError() = default;
char const * CDocumentError::what() const noexcept { return GetReason(); }

struct CDocumentSaver::SState
{
    enum Stage
    {
        open,
        broken,
        committed
    };

    SState(std::string const & documentPath, DocumentChecksums checksums)
        : path(documentPath), isSealed(checksums == documentWithChecksums)
    {}

    // The header with the size at last, and the seal.
    void completeHeader(bool isLast)
    {
        if (place == 0)
            return;
        if (isSealed) {
            std::copy(std::begin(sealMark), std::end(sealMark), header.bytes.begin() + sealMarkOffset);
            header.store(sealFormOffset, sealForm);
            header.store(placeOffset, place);
            header.store(isLastOffset, std::uint32_t(isLast));
            header.store(dataSumOffset, dataSum);
            header.store(chainOffset, chain);
            chain = headerSum(header);
            header.store(headerSumOffset, chain);
        }
        moveTo(headerAt);
        CFileBinaryStream(file.FilePtr()).writeData(header.bytes.size(), header.bytes.data());
        moveTo(stream->end());
    }

    void moveTo(std::int64_t position)
    {
        if (::fseeko(file.FilePtr(), position, SEEK_SET) != 0)
            throwCannot("write", path, VsUt::systemReason(errno));
    }

    std::uint32_t sumOfData(std::int64_t size)
    {
        if (std::optional<std::uint32_t> const sum = stream->sum())
            return *sum;
        FileSum sum;
        moveTo(stream->end() - size);
        if (!sum.add(file.FilePtr(), size))
            throwCannot("read back", path, VsUt::systemReason(errno));
        moveTo(stream->end());
        return sum.take();
    }

    std::string path;
    bool isSealed;
    VsUt::CPendingFiles files;
    CFileWrapClose file{nullptr}; // closed before the pending file goes
    std::unique_ptr<SummingStream> stream;
    Stage stage = open;
    ComponentHeader header; // of the component saved last
    std::int64_t headerAt = 0;
    std::uint32_t place = 0; // of that component, 0 for none
    std::uint32_t dataSum = 0;
    std::uint32_t chain = 0;
};

CDocumentSaver::CDocumentSaver(std::string const & path, DocumentChecksums checksums)
    : m_state(std::make_unique<SState>(path, checksums))
{
    std::string const place = m_state->files.create(path);
    if (!std::filesystem::is_regular_file(place))
        throwCannot("write", path, "it is no regular file");
    m_state->file = CFileWrapClose(std::fopen(place.c_str(), "w+be"));
    if (!m_state->file.FilePtr())
        throwCannot("write", path, VsUt::systemReason(errno));
    m_state->stream = std::make_unique<SummingStream>(m_state->file.FilePtr(), m_state->isSealed);
}

CDocumentSaver::~CDocumentSaver() = default;

IVescaBinaryStream & CDocumentSaver::GetStream() { return *m_state->stream; }

std::int64_t CDocumentSaver::Save(std::unique_ptr<IComponentFilter> filter)
{
    SState & state = *m_state;
    if (!filter || &filter->GetStream() != state.stream.get() || state.stage != SState::open)
        throw std::logic_error("a document is saved by filters of its stream, until it is complete");
    ComponentHeader header(*filter);
    state.stage = SState::broken; // unless all goes well
    state.completeHeader(false);
    state.headerAt = state.stream->end();
    CFileBinaryStream(state.file.FilePtr()).writeData(header.bytes.size(), header.bytes.data());
    std::int64_t const begin = state.headerAt + static_cast<std::int64_t>(header.bytes.size());
    state.stream->beginComponent(begin);
    std::int64_t const saved = filter->Save();
    state.stream->endComponent();
    std::int64_t const written = state.stream->end() - begin;
    if (saved != written || state.stream->position() != state.stream->end())
        throw CVescaException("the filter of " + header.describe() + " reported " + std::to_string(saved) +
                              " bytes, wrote " + std::to_string(written) + " and stopped at " +
                              std::to_string(state.stream->position() - begin));
    header.store(ComponentHeader::sizeOffset, static_cast<std::uint64_t>(saved));
    state.header = header;
    state.dataSum = state.isSealed ? state.sumOfData(saved) : 0;
    ++state.place;
    state.stage = SState::open;
    return saved + static_cast<std::int64_t>(ComponentHeader::length);
}

void CDocumentSaver::Commit()
{
    SState & state = *m_state;
    if (state.place == 0 || state.stage == SState::committed)
        throw std::logic_error("a document is committed once, with at least one component");
    if (state.stage == SState::broken)
        throw CVescaException("the document is not saved: its saving broke off");
    state.stage = SState::broken;
    state.completeHeader(true);
    errno = 0;
    if (!VsUt::CPendingFiles::sync(state.file.FilePtr()))
        throwCannot("write", state.path, VsUt::systemReason(errno));
    state.file.release();
    state.files.commit();
    state.stage = SState::committed;
}

struct CDocumentLoader::SState
{
    explicit SState(CFileWrapClose const & document)
        : file(document), stream(file.FilePtr()), isVerified(DocumentCheck(file.FilePtr()).isVerified())
    {
        std::rewind(file.FilePtr());
    }

    CFileWrapClose file;
    CFileBinaryStream stream;
    bool isVerified;
    std::uint32_t place = 1;
};

CDocumentLoader::CDocumentLoader(std::string const & path) : CDocumentLoader(openDocument(path)) {}

CDocumentLoader::CDocumentLoader(CFileWrapClose const & file)
    : m_state(file.FilePtr() ? std::make_unique<SState>(file) : throw CVescaException("there is no document"))
{}

CDocumentLoader::~CDocumentLoader() = default;

bool CDocumentLoader::IsVerified() const { return m_state->isVerified; }
IVescaBinaryStream & CDocumentLoader::GetStream() { return m_state->stream; }

std::int64_t CDocumentLoader::Load(std::unique_ptr<IComponentFilter> filter, IDeltaStateLogger & logger,
                                   ISaveLoadLog * log, std::wstring const & skipWarning)
{
    std::uint32_t const place = m_state->place++;
    if (filter && &filter->GetStream() != &m_state->stream)
        throw std::logic_error("a document is loaded by filters of its stream");
    try {
        if (!filter)
            return CInnerHeaderWrapper(m_state->stream, log, skipWarning).Load(logger);
        return CInnerHeaderWrapper(filter.release(), log, skipWarning).Load(logger);
    } catch (CDocumentError const &) {
        throw; // of a document within this one
    } catch (CUnknownFormatError const & error) {
        throw CDocumentError(place, "component " + std::to_string(place) + ": " + error.GetReason());
    }
}

} // namespace VsF
