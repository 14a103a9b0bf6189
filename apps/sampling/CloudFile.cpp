// SPDX-License-Identifier: Apache-2.0
#include <apps/sampling/CloudFile.h>

#include <QZsys/Exceptions.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string_view>
#include <system_error>
#include <vector>

#include <unistd.h>

namespace qz_sampling
{

namespace
{

std::string extensionOf(std::string const & fileName)
{
    std::string extension = std::filesystem::path(fileName).extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
    return extension;
}

// Collects bytes and passes them to a file in large pieces.
class Writer
{
public:
    explicit Writer(std::FILE * file) : m_file(file) { m_buffer.reserve(pieceBytes + 256); }

    void text(std::string_view characters) { append(characters.data(), characters.size()); }
    void number(float value)
    {
        char digits[64];
        auto const end = std::to_chars(digits, digits + sizeof digits, value).ptr;
        append(digits, static_cast<std::size_t>(end - digits));
    }
    void numbers(float const * values)
    {
        for (int axis = 0; axis < 3; ++axis) {
            text(axis > 0 ? " " : "");
            number(values[axis]);
        }
    }
    // Little-endian whatever the processor's order is.
    void bytes(float value)
    {
        std::uint32_t bits = 0;
        std::memcpy(&bits, &value, sizeof bits);
        char const ordered[4] = {static_cast<char>(bits & 0xff), static_cast<char>(bits >> 8 & 0xff),
                                 static_cast<char>(bits >> 16 & 0xff), static_cast<char>(bits >> 24 & 0xff)};
        append(ordered, sizeof ordered);
    }
    void byte(std::uint8_t value)
    {
        char const single = static_cast<char>(value);
        append(&single, 1);
    }
    void flush()
    {
        if (std::fwrite(m_buffer.data(), 1, m_buffer.size(), m_file) != m_buffer.size())
            m_isGood = false;
        m_buffer.clear();
    }
    bool isGood() const { return m_isGood; }

private:
    static constexpr std::size_t pieceBytes = std::size_t{1} << 16;

    void append(char const * characters, std::size_t count)
    {
        m_buffer.insert(m_buffer.end(), characters, characters + count);
        if (m_buffer.size() >= pieceBytes)
            flush();
    }

    std::FILE * m_file;
    std::vector<char> m_buffer;
    bool m_isGood = true;
};

void writePly(Cloud const & cloud, Writer & writer)
{
    bool const hasMarks = !cloud.boundaryMarks.empty();
    writer.text("ply\nformat binary_little_endian 1.0\nelement vertex " + std::to_string(cloud.size()) +
                "\n");
    for (char const * const property : {"x", "y", "z", "nx", "ny", "nz"})
        writer.text(std::string("property float ") + property + "\n");
    writer.text(hasMarks ? "property uchar boundary\nend_header\n" : "end_header\n");
    for (std::size_t point = 0; point < cloud.size(); ++point) {
        for (std::size_t axis = 0; axis < 3; ++axis)
            writer.bytes(cloud.positions[3 * point + axis]);
        for (std::size_t axis = 0; axis < 3; ++axis)
            writer.bytes(cloud.normals[3 * point + axis]);
        if (hasMarks)
            writer.byte(cloud.boundaryMarks[point]);
    }
}

void writeText(Cloud const & cloud, Writer & writer, char const * beforePoint, char const * beforeNormal)
{
    for (std::size_t point = 0; point < cloud.size(); ++point) {
        writer.text(beforePoint);
        writer.numbers(cloud.positions.data() + 3 * point);
        writer.text(beforeNormal);
        writer.numbers(cloud.normals.data() + 3 * point);
        writer.text("\n");
    }
}

struct CloseFile
{
    void operator()(std::FILE * file) const { std::fclose(file); }
};

} // namespace

bool isCloudFileName(std::string const & fileName)
{
    std::string const extension = extensionOf(fileName);
    return extension == ".ply" || extension == ".obj" || extension == ".xyz" || extension == ".txt";
}

void writeCloud(Cloud const & cloud, std::string const & fileName)
{
    std::string const extension = extensionOf(fileName);
    std::string const partialName = fileName + ".part" + std::to_string(getpid());
    std::unique_ptr<std::FILE, CloseFile> file(std::fopen(partialName.c_str(), "wbx"));
    if (file == nullptr)
        throw CVescaTextException("Cannot write \"" + fileName +
                                  "\": " + std::generic_category().message(errno));

    Writer writer(file.get());
    if (extension == ".ply")
        writePly(cloud, writer);
    else if (extension == ".obj")
        writeText(cloud, writer, "v ", "\nvn ");
    else
        writeText(cloud, writer, "", " ");
    writer.flush();
    bool const isWritten = writer.isGood() && std::fclose(file.release()) == 0;

    std::error_code renameError;
    if (isWritten)
        std::filesystem::rename(partialName, fileName, renameError);
    if (!isWritten || renameError) {
        std::error_code ignored;
        std::filesystem::remove(partialName, ignored);
        throw CVescaTextException(
            "Cannot write \"" + fileName + "\"" +
            (renameError ? ": " + renameError.message() : ": the file system refused the data"));
    }
}

} // namespace qz_sampling
