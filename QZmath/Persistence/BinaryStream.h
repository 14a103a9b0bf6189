// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>

#include <cstdint>
#include <cstdio>
#include <memory>

/// A stream of raw bytes with one position for reading and writing. Failures are `CVescaException`. Not
/// thread-safe.
class QZMATH_API IVescaBinaryStream
{
public:
    /// Reads exactly `size` bytes.
    virtual void readData(std::uint64_t size, void * buffer) = 0;
    /// Moves the position by `offset` bytes, back when it is negative.
    virtual void skipReadData(long offset) = 0;
    virtual void writeData(std::uint64_t size, void const * buffer) = 0;
    /// Bytes from the beginning.
    virtual std::int64_t getPosition() = 0;
    virtual ~IVescaBinaryStream();
};

/// A stream over a file that the caller opened, and closes after the last use of the stream. Copies share the
/// file and its position.
///
/// Reading and skipping throw `CVescaException` with "Unexpected end of file. Probably corrupted data." when
/// the bytes are not there, writing with "Impossible write to file. Probably not enough free disk space or
/// unexpected internal error.", and so does skipping when bytes that were written before do not get to the
/// file. A size or offset of 0 does nothing, also at the end or for a broken file. The file buffers: whether
/// the last bytes have reached the disk is known only once it was flushed or closed.
class QZMATH_API CFileBinaryStream : public IVescaBinaryStream
{
public:
    explicit CFileBinaryStream(std::FILE * file);

    void readData(std::uint64_t size, void * buffer) override;
    /// A step over the end of a regular file throws and leaves the position. Other files cannot tell.
    void skipReadData(long offset) override;
    void writeData(std::uint64_t size, void const * buffer) override;
    /// -1 when the file has no position, as a pipe.
    std::int64_t getPosition() override;
    ~CFileBinaryStream() override;

    /// Reads on to the end of the file, but at most `limit` bytes, and gives the number of bytes passed.
    std::uint64_t skipToEnd(std::uint64_t limit);

    std::FILE * Deprecated_GetFilePtr() const { return m_file; }

private:
    std::FILE * m_file;
};

/// Closes a file at the end of a scope. Null is harmless. Copies share the file, and the last of them closes
/// it, unless one was told to `release` it before: then `FilePtr()` is null for all. Not thread-safe.
class QZMATH_API CFileWrapClose
{
public:
    explicit CFileWrapClose(std::FILE * file);
    CFileWrapClose(CFileWrapClose const &) = default;
    /// Leaves the other one with null.
    CFileWrapClose(CFileWrapClose &&) noexcept = default;
    CFileWrapClose & operator=(CFileWrapClose const &) = default;
    CFileWrapClose & operator=(CFileWrapClose &&) noexcept = default;
    virtual ~CFileWrapClose();

    std::FILE * FilePtr() const;
    /// Closes the file now. What the closing reports is lost: flush the file before to know.
    void release();

private:
    class CSharedFile;
    std::shared_ptr<CSharedFile> m_shared;
};
