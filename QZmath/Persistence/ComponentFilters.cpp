// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Persistence/ComponentFilters.h>

#include <QZmath/Persistence/ComponentHeaderDetail.h>

#include <stdexcept>
#include <typeinfo>
#include <utility>

namespace VsF
{

namespace
{

void warnOfSkip(ISaveLoadLog * log, std::wstring const & text)
{
    if (log && !text.empty())
        log->WriteLogMess(CStringWarning(text), logWarning);
}

} // namespace

CFileReadError::~CFileReadError() = default;
CFileWriteError::~CFileWriteError() = default;

CUnknownFormatError::CUnknownFormatError(std::string reason) : CVescaException(std::move(reason)) {}
CUnknownFormatError::~CUnknownFormatError() = default;
char const * CUnknownFormatError::what() const noexcept { return "Vesca exception"; }

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

struct CInnerHeaderWrapper::SWrapData : ComponentHeader
{
    using ComponentHeader::ComponentHeader;
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

std::int64_t CInnerHeaderWrapper::getWrapHeaderSize()
{
    return static_cast<std::int64_t>(ComponentHeader::length);
}

std::int64_t CInnerHeaderWrapper::OnSave()
{
    if (!m_subFilter)
        throw CVescaTextException("Internal logic error CInnerHeaderWrapper");
    SaveComponentHeader();
    std::int64_t const saved = m_subFilter->Save();
    if (saved < 0 || saved > ComponentHeader::maxDataSize)
        throw CFileWriteError();
    FillSavedBytes(saved);
    return saved + getWrapHeaderSize();
}

void CInnerHeaderWrapper::SaveComponentHeader()
{
    SWrapData const header(*m_subFilter);
    m_stream->writeData(header.bytes.size(), header.bytes.data());
}

void CInnerHeaderWrapper::FillSavedBytes(std::int64_t saved)
{
    SWrapData header;
    header.store(SWrapData::sizeOffset, static_cast<std::uint64_t>(saved));
    long const sizeOfSize = static_cast<long>(sizeof(std::uint64_t));
    long const backToSize =
        static_cast<long>(saved) + static_cast<long>(SWrapData::length - SWrapData::sizeOffset);
    m_stream->skipReadData(-backToSize);
    m_stream->writeData(sizeof(std::uint64_t), header.bytes.data() + SWrapData::sizeOffset);
    m_stream->skipReadData(backToSize - sizeOfSize);
}

std::int64_t CInnerHeaderWrapper::OnLoad(IDeltaStateLogger & logger)
{
    SWrapData header;
    m_stream->readData(header.bytes.size(), header.bytes.data());
    if (!RecognizeCompHeader(header))
        throw CUnknownFormatError(header.whyUnknown());
    std::int64_t const size = header.size();
    if (isForSubFilter(header)) {
        std::int64_t const loaded = m_subFilter->Load(logger);
        if (loaded != size)
            throw CUnknownFormatError(header.describe() + " was read as " + std::to_string(loaded) +
                                      " bytes, its header announces " + std::to_string(size));
    } else {
        SkipData(size);
    }
    return size + getWrapHeaderSize();
}

bool CInnerHeaderWrapper::RecognizeCompHeader(SWrapData & header)
{
    return header.hasMark() && header.hasSize();
}

bool CInnerHeaderWrapper::isForSubFilter(SWrapData const & header) const
{
    return m_subFilter && header.blockMark() == m_subFilter->GetBlockMark() &&
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
