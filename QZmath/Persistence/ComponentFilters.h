// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/Persistence/BinaryStream.h>
#include <QZmath/Persistence/GraphObject.h>
#include <QZsys/Exceptions.h>

#include <cstdint>
#include <memory>
#include <string>

/// Saving and loading of documents by components. Each component stands behind a header of 128 bytes with its
/// name, version and size, so that a reader that does not know it can skip it:
///
/// | offset | size | field |
/// |---|---|---|
/// | 0 | 10 | "VsCmpWrp" and two zero bytes |
/// | 10 | 8 | number of data bytes behind the header, signed; -1 in a file whose saving broke off |
/// | 18 | 4 | version, signed |
/// | 22 | 30 | name, at most 29 characters, ended by a zero byte |
/// | 52 | 76 | zero |
///
/// Integers are little-endian. The data of a component may hold components. A stream and all that works on it
/// belong to one thread. Files are not trusted: loading throws for whatever is wrong with a header.
namespace VsF
{

class QZMATH_API CFileReadError : public CVescaException
{
public:
    ~CFileReadError() override;
};

class QZMATH_API CFileWriteError : public CVescaException
{
public:
    ~CFileWriteError() override;
};

/// What is read is no component, or not as long as its header says.
class QZMATH_API CUnknownFormatError : public CVescaException
{
public:
    CUnknownFormatError() = default;
    explicit CUnknownFormatError(std::string reason);
    ~CUnknownFormatError() override;
    /// "Vesca exception", whatever the reason: programs compare it.
    char const * what() const noexcept override;
    /// What is unknown, for people; "Vesca exception" where nobody said.
    char const * GetReason() const noexcept { return CVescaException::what(); }
};

/// A warning that is its text.
class QZMATH_API CStringWarning : public IVescaWarning
{
public:
    explicit CStringWarning(std::wstring message);
    ~CStringWarning() override;
    std::wstring getMessage() const override;

private:
    std::wstring m_message;
};

enum LogLevel
{
    logDetail = 0,
    logInformation = 1,
    logWarning = 2, ///< a component was skipped
    logError = 3
};

/// Takes what saving and loading have to tell.
class QZMATH_API ISaveLoadLog
{
public:
    virtual ~ISaveLoadLog();
    void WriteLogMess(IVescaWarning const & warning, LogLevel level) { OnWriteLogMess(warning, level); }

private:
    virtual void OnWriteLogMess(IVescaWarning const & warning, LogLevel level) = 0;
};

/// Says that loading has made an object; applications derive their kinds of it.
class QZMATH_API INewObjEvent
{
public:
    virtual ~INewObjEvent();
};

enum DocumentNewObjectProcessStatus
{
    newObjectAccepted = 0,
    newObjectRejected = 1
};

/// Takes the objects that loading makes, on behalf of the document.
class QZMATH_API IDeltaStateLogger
{
public:
    virtual ~IDeltaStateLogger();
    DocumentNewObjectProcessStatus ProcessNewObject(INewObjEvent & event)
    {
        return OnProcessNewObject(event);
    }
    /// To be called when all is loaded. Only the first call has an effect.
    void FinalizeLoading();

private:
    virtual DocumentNewObjectProcessStatus OnProcessNewObject(INewObjEvent & event) = 0;
    virtual void OnFinalizeLoading() = 0;

    bool m_bFinalized = false;
};

/// Saves and loads one component of a document through one stream. Derive from it and implement the private
/// virtual functions; what they throw passes through to the caller of `Save` or `Load`.
class QZMATH_API IComponentFilter
{
public:
    virtual ~IComponentFilter();

    /// Writes the component where the stream stands; gives the number of bytes written.
    std::int64_t Save() { return OnSave(); }
    /// Reads the component where the stream stands; gives the number of bytes read.
    std::int64_t Load(IDeltaStateLogger & logger) { return OnLoad(logger); }
    /// Name for people.
    std::wstring GetComponentName() const { return OnGetComponentName(); }
    /// Name in the header: at most 29 characters, none of them zero.
    std::string GetBlockMark() const { return OnGetBlockMark(); }
    /// A reader with any other version skips the component.
    int GetVersion() const { return OnGetVersion(); }
    IVescaBinaryStream & GetStream() { return OnGetStream(); }

private:
    virtual std::int64_t OnSave() = 0;
    virtual std::int64_t OnLoad(IDeltaStateLogger & logger) = 0;
    virtual std::wstring OnGetComponentName() const = 0;
    virtual std::string OnGetBlockMark() const = 0;
    virtual int OnGetVersion() const = 0;
    virtual IVescaBinaryStream & OnGetStream() = 0;
};

/// Puts the header before the component of another filter, and skips what that filter does not know.
///
/// `Save` needs a stream that can be read back over by `skipReadData` with a negative offset, because the
/// size is known only behind the data. If the wrapped filter throws, the file keeps the size -1 in the
/// header, which no reader accepts. A block mark that does not fit the header throws `CVescaException` before
/// anything is written; a filter that reports a negative number of bytes, `CFileWriteError`.
///
/// `Load` throws `CUnknownFormatError` when there is no header, its size is negative, or the wrapped filter
/// read another number of bytes than the header announces; `CVescaException` when the stream ends. A
/// component of other name or version is skipped without reading it: then the warning goes to the log, if
/// there is a log and the text is not empty. Both give the number of bytes with the header.
class QZMATH_API CInnerHeaderWrapper : public IComponentFilter
{
public:
    /// Takes ownership of `subFilter`, also when this throws; null throws `std::logic_error`. The stream is
    /// that of `subFilter`. `log` may be null, and must outlive this otherwise.
    CInnerHeaderWrapper(IComponentFilter * subFilter, ISaveLoadLog * log, std::wstring skipWarning);
    /// Skips whatever component comes. `Save` throws.
    CInnerHeaderWrapper(IVescaBinaryStream & stream, ISaveLoadLog * log, std::wstring skipWarning);
    ~CInnerHeaderWrapper() override;

    /// Is there a filter that a component could be for?
    bool IsTryLoad() const { return m_subFilter != nullptr; }

    /// 128 bytes.
    static std::int64_t getWrapHeaderSize();

private:
    struct SWrapData;

    std::int64_t OnSave() override;
    std::int64_t OnLoad(IDeltaStateLogger & logger) override;
    std::wstring OnGetComponentName() const override;
    std::string OnGetBlockMark() const override;
    int OnGetVersion() const override;
    IVescaBinaryStream & OnGetStream() override;

    void SaveComponentHeader();
    void FillSavedBytes(std::int64_t saved);
    static bool RecognizeCompHeader(SWrapData & header);
    bool isForSubFilter(SWrapData const & header) const;
    void SkipData(std::int64_t size);

    std::unique_ptr<IComponentFilter> m_subFilter;
    IVescaBinaryStream * m_stream;
    ISaveLoadLog * m_log;
    std::wstring m_skipWarning;
};

/// Reads on to the end of the stream, for a rest that has no header to say its size. `Load` gives the number
/// of bytes passed; it throws `CFileReadError` when no end has come after 5,000,000,000 bytes. `Save` writes
/// nothing.
///
/// The end is where `readData` throws a `CVescaException`. Bytes are read one by one, save for a
/// `CFileBinaryStream`, which reads blocks.
class QZMATH_API CSkipTillTheEnd : public IComponentFilter
{
public:
    /// Stream and log, which may be null, must outlive this.
    CSkipTillTheEnd(IVescaBinaryStream & stream, ISaveLoadLog * log, std::wstring const & componentName,
                    std::wstring const & skipWarning);
    ~CSkipTillTheEnd() override;

private:
    std::int64_t OnSave() override;
    std::int64_t OnLoad(IDeltaStateLogger & logger) override;
    std::wstring OnGetComponentName() const override;
    std::string OnGetBlockMark() const override;
    int OnGetVersion() const override;
    IVescaBinaryStream & OnGetStream() override;

    void WriteLogSkipInfo();

    IVescaBinaryStream & m_stream;
    ISaveLoadLog * m_log;
    std::wstring m_componentName;
    std::wstring m_skipWarning;
};

/// Holds the place of a component that has no data: saves and loads 0 bytes.
class QZMATH_API CComponentFilterStub : public IComponentFilter
{
public:
    CComponentFilterStub(std::wstring const & componentName, IVescaBinaryStream & stream);
    ~CComponentFilterStub() override;

private:
    std::int64_t OnSave() override;
    std::int64_t OnLoad(IDeltaStateLogger & logger) override;
    std::wstring OnGetComponentName() const override;
    std::string OnGetBlockMark() const override;
    int OnGetVersion() const override;
    IVescaBinaryStream & OnGetStream() override;

    std::wstring m_componentName;
    IVescaBinaryStream & m_stream;
};

/// Says which objects of a scene are to be saved.
class QZMATH_API IGraphObjectSelector
{
public:
    bool IsActiveAndSelected(CGraphObject const & object) const { return OnIsActiveAndSelected(object); }
    /// A new selector of the same kind, owned by the caller.
    IGraphObjectSelector * Copy() const { return OnCopy(); }
    /// False for null.
    bool operator()(CGraphObject const * object) const { return object && IsActiveAndSelected(*object); }

    /// A new selector of every active object, owned by the caller.
    static IGraphObjectSelector * CreateTotal();

private:
    virtual bool OnIsActiveAndSelected(CGraphObject const & object) const = 0;
    virtual IGraphObjectSelector * OnCopy() const = 0;

public:
    virtual ~IGraphObjectSelector();
};

} // namespace VsF
