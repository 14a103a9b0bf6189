// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Persistence/ComponentFilters.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <typeinfo>
#include <utility>

namespace VsF
{

namespace
{

constexpr std::size_t headerSize = 128;
constexpr std::size_t sizeOffset = 10;
constexpr std::size_t versionOffset = 18;
constexpr std::size_t blockMarkOffset = 22;
constexpr std::size_t blockMarkSize = 30;
constexpr std::int64_t maxDataSize =
    std::numeric_limits<std::int64_t>::max() - static_cast<std::int64_t>(headerSize);
constexpr char mark[] = "VsCmpWrp";

using TF_HeaderBytes = std::array<unsigned char, headerSize>;

template <class Unsigned>
void storeLittleEndian(Unsigned value, unsigned char * bytes)
{
    for (std::size_t k = 0; k < sizeof(Unsigned); ++k)
        bytes[k] = static_cast<unsigned char>(value >> (8 * k));
}

template <class Unsigned>
Unsigned loadLittleEndian(unsigned char const * bytes)
{
    Unsigned value = 0;
    for (std::size_t k = 0; k < sizeof(Unsigned); ++k)
        value |= Unsigned{bytes[k]} << (8 * k);
    return value;
}

void warnOfSkip(ISaveLoadLog * log, std::wstring const & text)
{
    if (log && !text.empty())
        log->WriteLogMess(CStringWarning(text), logWarning);
}

} // namespace

CFileReadError::~CFileReadError() = default;
CFileWriteError::~CFileWriteError() = default;
CUnknownFormatError::~CUnknownFormatError() = default;

CStringWarning::CStringWarning(std::wstring message) : m_message(std::move(message)) {}

CStringWarning::~CStringWarning() = default;
std::wstring CStringWarning::getMessage() const { return m_message; }

ISaveLoadLog::~ISaveLoadLog() = default;
INewObjEvent::~INewObjEvent() = default;
IDeltaStateLogger::~IDeltaStateLogger() = default;

void IDeltaStateLogger::FinalizeLoading()
{
    if (!std::exchange(m_bFinalized, true))
        OnFinalizeLoading();
}

IComponentFilter::~IComponentFilter() = default;

struct CInnerHeaderWrapper::SWrapData
{
    TF_HeaderBytes bytes{};

    std::int64_t size() const
    {
        return static_cast<std::int64_t>(loadLittleEndian<std::uint64_t>(bytes.data() + sizeOffset));
    }
    std::int32_t version() const
    {
        return static_cast<std::int32_t>(loadLittleEndian<std::uint32_t>(bytes.data() + versionOffset));
    }
    bool hasBlockMark(std::string const & blockMark) const
    {
        auto const begin = bytes.begin() + blockMarkOffset;
        auto const end = std::find(begin, begin + blockMarkSize, 0);
        return end != begin + blockMarkSize && std::string(begin, end) == blockMark;
    }
};

CInnerHeaderWrapper::CInnerHeaderWrapper(IComponentFilter * subFilter, ISaveLoadLog * log,
                                         std::wstring skipWarning)
    : m_subFilter(subFilter), m_stream(nullptr), m_log(log), m_skipWarning(std::move(skipWarning))
{
    if (!subFilter)
        throw std::logic_error("Error: attempt to CInnerHeaderWrapper wraps empty sub-filter.");
    m_stream = &subFilter->GetStream();
}

CInnerHeaderWrapper::CInnerHeaderWrapper(IVescaBinaryStream & stream, ISaveLoadLog * log,
                                         std::wstring skipWarning)
    : m_stream(&stream), m_log(log), m_skipWarning(std::move(skipWarning))
{}

CInnerHeaderWrapper::~CInnerHeaderWrapper() = default;

std::int64_t CInnerHeaderWrapper::getWrapHeaderSize() { return static_cast<std::int64_t>(headerSize); }

std::int64_t CInnerHeaderWrapper::OnSave()
{
    if (!m_subFilter)
        throw CVescaTextException("Internal logic error CInnerHeaderWrapper");
    SaveComponentHeader();
    std::int64_t const saved = m_subFilter->Save();
    if (saved < 0 || saved > maxDataSize)
        throw CFileWriteError();
    FillSavedBytes(saved);
    return saved + getWrapHeaderSize();
}

void CInnerHeaderWrapper::SaveComponentHeader()
{
    std::string const blockMark = m_subFilter->GetBlockMark();
    if (blockMark.size() >= blockMarkSize || blockMark.find('\0') != std::string::npos)
        throw CVescaException("Block mark does not fit into the header of a component: " + blockMark);
    SWrapData header;
    std::memcpy(header.bytes.data(), mark, sizeof mark);
    storeLittleEndian(~std::uint64_t{0}, header.bytes.data() + sizeOffset);
    storeLittleEndian(static_cast<std::uint32_t>(m_subFilter->GetVersion()),
                      header.bytes.data() + versionOffset);
    std::copy(blockMark.begin(), blockMark.end(), header.bytes.begin() + blockMarkOffset);
    m_stream->writeData(headerSize, header.bytes.data());
}

void CInnerHeaderWrapper::FillSavedBytes(std::int64_t saved)
{
    std::array<unsigned char, sizeof(std::uint64_t)> size;
    storeLittleEndian(static_cast<std::uint64_t>(saved), size.data());
    long const backToSize = static_cast<long>(saved) + static_cast<long>(headerSize - sizeOffset);
    m_stream->skipReadData(-backToSize);
    m_stream->writeData(size.size(), size.data());
    m_stream->skipReadData(backToSize - static_cast<long>(size.size()));
}

std::int64_t CInnerHeaderWrapper::OnLoad(IDeltaStateLogger & logger)
{
    SWrapData header;
    m_stream->readData(headerSize, header.bytes.data());
    if (!RecognizeCompHeader(header))
        throw CUnknownFormatError();
    std::int64_t const size = header.size();
    if (isForSubFilter(header)) {
        if (m_subFilter->Load(logger) != size)
            throw CUnknownFormatError();
    } else {
        SkipData(size);
    }
    return size + getWrapHeaderSize();
}

bool CInnerHeaderWrapper::RecognizeCompHeader(SWrapData & header)
{
    return std::memcmp(header.bytes.data(), mark, sizeof mark) == 0 && header.size() >= 0 &&
           header.size() <= maxDataSize;
}

bool CInnerHeaderWrapper::isForSubFilter(SWrapData const & header) const
{
    return m_subFilter && header.hasBlockMark(m_subFilter->GetBlockMark()) &&
           header.version() == m_subFilter->GetVersion();
}

void CInnerHeaderWrapper::SkipData(std::int64_t size)
{
    m_stream->skipReadData(static_cast<long>(size));
    warnOfSkip(m_log, m_skipWarning);
}

std::wstring CInnerHeaderWrapper::OnGetComponentName() const
{
    return m_subFilter ? m_subFilter->GetComponentName() : std::wstring();
}

std::string CInnerHeaderWrapper::OnGetBlockMark() const { return "Wrap"; }
int CInnerHeaderWrapper::OnGetVersion() const { return 1; }
IVescaBinaryStream & CInnerHeaderWrapper::OnGetStream() { return *m_stream; }

CSkipTillTheEnd::CSkipTillTheEnd(IVescaBinaryStream & stream, ISaveLoadLog * log,
                                 std::wstring const & componentName, std::wstring const & skipWarning)
    : m_stream(stream), m_log(log), m_componentName(componentName), m_skipWarning(skipWarning)
{}

CSkipTillTheEnd::~CSkipTillTheEnd() = default;

std::int64_t CSkipTillTheEnd::OnSave() { return 0; }

std::int64_t CSkipTillTheEnd::OnLoad(IDeltaStateLogger &)
{
    constexpr std::uint64_t limit = 5000000000;
    std::uint64_t count = 0;
    if (typeid(m_stream) == typeid(CFileBinaryStream)) {
        count = static_cast<CFileBinaryStream &>(m_stream).skipToEnd(limit);
    } else {
        try {
            for (char scratch; count < limit; ++count)
                m_stream.readData(1, &scratch);
        } catch (CVescaException const &) {
            // the end
        }
    }
    if (count >= limit)
        throw CFileReadError();
    WriteLogSkipInfo();
    return static_cast<std::int64_t>(count);
}

void CSkipTillTheEnd::WriteLogSkipInfo() { warnOfSkip(m_log, m_skipWarning); }
std::wstring CSkipTillTheEnd::OnGetComponentName() const { return m_componentName; }
std::string CSkipTillTheEnd::OnGetBlockMark() const { return "SkipTillEnd"; }
int CSkipTillTheEnd::OnGetVersion() const { return 0; }
IVescaBinaryStream & CSkipTillTheEnd::OnGetStream() { return m_stream; }

CComponentFilterStub::CComponentFilterStub(std::wstring const & componentName, IVescaBinaryStream & stream)
    : m_componentName(componentName), m_stream(stream)
{}

CComponentFilterStub::~CComponentFilterStub() = default;
std::int64_t CComponentFilterStub::OnSave() { return 0; }
std::int64_t CComponentFilterStub::OnLoad(IDeltaStateLogger &) { return 0; }
std::wstring CComponentFilterStub::OnGetComponentName() const { return m_componentName; }
std::string CComponentFilterStub::OnGetBlockMark() const { return "STUB"; }
int CComponentFilterStub::OnGetVersion() const { return 0; }
IVescaBinaryStream & CComponentFilterStub::OnGetStream() { return m_stream; }

IGraphObjectSelector * IGraphObjectSelector::CreateTotal()
{
    class CLocalTotalSelector : public IGraphObjectSelector
    {
        bool OnIsActiveAndSelected(CGraphObject const & object) const override { return object.isActive(); }
        IGraphObjectSelector * OnCopy() const override { return new CLocalTotalSelector; }
    };
    return new CLocalTotalSelector;
}

IGraphObjectSelector::~IGraphObjectSelector() = default;

} // namespace VsF
