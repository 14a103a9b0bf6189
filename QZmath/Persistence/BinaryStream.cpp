// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Persistence/BinaryStream.h>

#include <QZsys/Exceptions.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include <sys/types.h>

namespace
{

[[noreturn]] void throwReadError()
{
    throw CVescaException("Unexpected end of file. Probably corrupted data.");
}

[[noreturn]] void throwWriteError()
{
    throw CVescaException(
        "Impossible write to file. Probably not enough free disk space or unexpected internal error.");
}

} // namespace

IVescaBinaryStream::~IVescaBinaryStream() = default;

CFileBinaryStream::CFileBinaryStream(std::FILE * file) : m_file(file) {}

CFileBinaryStream::~CFileBinaryStream() = default;

void CFileBinaryStream::readData(std::uint64_t size, void * buffer)
{
    if (size != 0 && std::fread(buffer, size, 1, m_file) != 1)
        throwReadError();
}

void CFileBinaryStream::skipReadData(long offset)
{
    if (offset == 0)
        return;
    // A step has to write out what was written before, and may find that this fails.
    bool const wasBroken = std::ferror(m_file) != 0;
    auto const throwError = [&] {
        if (!wasBroken && std::ferror(m_file) != 0)
            throwWriteError();
        throwReadError();
    };
    if (offset < 0) {
        if (::fseeko(m_file, offset, SEEK_CUR) != 0)
            throwError();
        return;
    }
    // Seeking over the end succeeds; only the last byte of the skipped ones tells whether they are there. A
    // file that is open for writing only has none to show, and is moved in trust.
    off_t const start = ::ftello(m_file);
    if (start < 0 || ::fseeko(m_file, offset - 1, SEEK_CUR) != 0)
        throwError();
    errno = 0;
    bool const hasLastByte = std::fgetc(m_file) != EOF;
    bool const cannotTell = !hasLastByte && errno == EBADF;
    if (!hasLastByte)
        std::clearerr(m_file);
    bool const moved = ::fseeko(m_file, cannotTell ? 1 : 0, SEEK_CUR) == 0;
    if (!moved || (!hasLastByte && !cannotTell)) {
        ::fseeko(m_file, start, SEEK_SET);
        throwReadError();
    }
}

void CFileBinaryStream::writeData(std::uint64_t size, void const * buffer)
{
    if (size != 0 && std::fwrite(buffer, size, 1, m_file) != 1)
        throwWriteError();
}

std::int64_t CFileBinaryStream::getPosition() { return ::ftello(m_file); }

std::uint64_t CFileBinaryStream::skipToEnd(std::uint64_t limit)
{
    char scratch[16384];
    std::uint64_t passed = 0;
    while (passed < limit) {
        std::size_t const wanted =
            static_cast<std::size_t>(std::min<std::uint64_t>(sizeof scratch, limit - passed));
        std::size_t const count = std::fread(scratch, 1, wanted, m_file);
        passed += count;
        if (count < wanted)
            break;
    }
    return passed;
}

class CFileWrapClose::CSharedFile
{
public:
    explicit CSharedFile(std::FILE * file) : m_file(file) {}
    CSharedFile(CSharedFile const &) = delete;
    CSharedFile & operator=(CSharedFile const &) = delete;
    ~CSharedFile() { close(); }

    std::FILE * get() const { return m_file; }

    void close()
    {
        if (std::FILE * const file = std::exchange(m_file, nullptr))
            std::fclose(file);
    }

private:
    std::FILE * m_file;
};

CFileWrapClose::CFileWrapClose(std::FILE * file)
    : m_shared(file ? std::make_shared<CSharedFile>(file) : nullptr)
{}

CFileWrapClose::~CFileWrapClose() = default;

std::FILE * CFileWrapClose::FilePtr() const { return m_shared ? m_shared->get() : nullptr; }

void CFileWrapClose::release()
{
    if (m_shared)
        m_shared->close();
    m_shared.reset();
}
