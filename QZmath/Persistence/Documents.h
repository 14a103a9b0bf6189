// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/Persistence/BinaryStream.h>
#include <QZmath/Persistence/ComponentFilters.h>

#include <cstdint>
#include <memory>
#include <string>

/// Whole documents in files of their own: saved so that the old one is there until the new one is, and with
/// checksums, so that damage is found before a filter sees it.
///
/// The checksums lie in the bytes that the header of a component has in reserve, and loaders that know
/// nothing of them read past them:
///
/// | offset | size | field |
/// |---|---|---|
/// | 52 | 8 | "QZSealed" |
/// | 60 | 4 | form of these fields, 1 |
/// | 64 | 4 | place of the component in the document, from 1 |
/// | 68 | 4 | 1 in the last component, 0 in the others |
/// | 72 | 4 | CRC-32 of the data |
/// | 76 | 4 | the field at 124 of the component before, 0 in the first one |
/// | 80 | 44 | zero |
/// | 124 | 4 | CRC-32 of the bytes 0 to 123 of the header |
namespace VsF
{

/// A document is not what was saved, or not what its filters read; `what()` says which component and why.
class QZMATH_API CDocumentError : public CUnknownFormatError
{
public:
    CDocumentError(std::uint32_t component, std::string const & reason);
    ~CDocumentError() override;
    char const * what() const noexcept override;
    /// Place of the component in the document, from 1.
    std::uint32_t GetComponent() const noexcept { return m_component; }

private:
    std::uint32_t m_component;
};

enum DocumentChecksums
{
    documentWithoutChecksums = 0, ///< zeros in reserve, as `CInnerHeaderWrapper` writes them
    documentWithChecksums = 1
};

/// Saves a document to a file, which appears when all is complete and on the disk: until then, and whatever
/// happens to the process or the machine, an old document stays as it is. See `VsUt::CPendingFiles` for
/// links, permissions and what is left of a process that was killed.
///
/// Failures are `CVescaException`. A saver that failed cannot commit. Takes O(1) memory; the time is that of
/// writing and of one checksum. A component is read back once when its filter went back in it, as those do
/// that save components within it. Not thread-safe.
class QZMATH_API CDocumentSaver
{
public:
    /// Throws where no regular file can be.
    explicit CDocumentSaver(std::string const & path, DocumentChecksums checksums = documentWithChecksums);
    /// Without a commit before, nothing has happened.
    ~CDocumentSaver();
    CDocumentSaver(CDocumentSaver const &) = delete;
    CDocumentSaver & operator=(CDocumentSaver const &) = delete;

    /// What the filters save to. Nobody else can write to it.
    IVescaBinaryStream & GetStream();

    /// Saves a component behind those before, with its header; gives the number of bytes. What the filter
    /// throws passes through. A filter that writes before its component, or reports another number of bytes
    /// than it wrote, gives `CVescaException`; none, or one with another stream, `std::logic_error`.
    std::int64_t Save(std::unique_ptr<IComponentFilter> filter);

    /// Puts the document in its place. To be called once, with at least one component; `std::logic_error`
    /// otherwise.
    void Commit();

private:
    struct SState;
    std::unique_ptr<SState> m_state;
};

/// Loads a document. One with checksums is checked from beginning to end before this is made, in O(n) time
/// with O(1) memory; one without loads as ever. Not thread-safe.
class QZMATH_API CDocumentLoader
{
public:
    /// Throws `CVescaException` when the file cannot be read, `CDocumentError` when it is empty or damaged.
    /// What is changed within 32 neighbouring bits is found, as are bytes and components that were lost,
    /// added or exchanged; of greater changes one in 2^32 is not.
    explicit CDocumentLoader(std::string const & path);
    /// The same for an open file that can go back, from its beginning.
    explicit CDocumentLoader(CFileWrapClose const & file);
    ~CDocumentLoader();
    CDocumentLoader(CDocumentLoader const &) = delete;
    CDocumentLoader & operator=(CDocumentLoader const &) = delete;

    /// Had the document checksums, so that it is what was saved? False says that nothing is known.
    bool IsVerified() const;

    /// What the filters load from; stands at the first component, and may be used without `Load` too.
    IVescaBinaryStream & GetStream();

    /// Loads the next component by its filter, or skips it, as `CInnerHeaderWrapper` does; null always skips.
    /// `CDocumentError` when there is no component, or the filter takes more or less than there is; what the
    /// filter and the stream throw passes through. Gives the number of bytes with the header.
    std::int64_t Load(std::unique_ptr<IComponentFilter> filter, IDeltaStateLogger & logger,
                      ISaveLoadLog * log = nullptr, std::wstring const & skipWarning = {});

private:
    struct SState;
    std::unique_ptr<SState> m_state;
};

} // namespace VsF
