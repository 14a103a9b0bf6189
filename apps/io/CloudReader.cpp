// SPDX-License-Identifier: Apache-2.0
#include <apps/io/CloudReader.h>

#include <apps/io/CloudReaderDetail.h>
#include <apps/io/FileEnding.h>
#include <apps/io/InputError.h>

#include <QZsys/Progress.h>

#include <charconv>
#include <cstdlib>
#include <string>

namespace qz_io
{

void ReadingProgress::report()
{
    std::uint64_t const interval = 1 << 16;
    m_next = m_source.position() + interval;
    m_counter->SetPosFloat(static_cast<double>(m_source.position()) / static_cast<double>(m_source.size()));
}

bool parseNumber(std::string_view word, double & value)
{
    if (!word.empty() && word.front() == '+')
        word.remove_prefix(1);
    auto const [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
    if (error == std::errc::invalid_argument || end != word.data() + word.size())
        return false;
    if (error == std::errc::result_out_of_range) // rare: lets the C library decide between 0 and an infinity
        value = std::strtod(std::string(word).c_str(), nullptr);
    return true;
}

bool parseNumber(std::string_view word, long long & value)
{
    auto const [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
    return error == std::errc() && end == word.data() + word.size();
}

CloudFormat cloudFormatOf(std::string const & path)
{
    std::string const ending = fileEnding(path);
    if (ending == ".ply")
        return CloudFormat::ply;
    if (ending == ".obj")
        return CloudFormat::obj;
    if (ending == ".xyz" || ending == ".xyzn" || ending == ".asc" || ending == ".txt")
        return CloudFormat::text;
    throw InputError("unknown input format \"" + ending + "\" of " + path +
                     "; known are .ply, .obj, .xyz, .xyzn, .asc and .txt");
}

PointCloud readCloud(ByteSource & source, CloudFormat format, CProgressCounter * progress,
                     InputNormals normals)
{
    switch (format) {
    case CloudFormat::ply:
        return readPly(source, progress, normals);
    case CloudFormat::obj:
        return readObj(source, progress, normals);
    case CloudFormat::text:
        break;
    }
    return readText(source, progress, normals);
}

PointCloud readCloud(std::string const & path, CProgressCounter * progress, InputNormals normals)
{
    ByteSource source(path); // that the file is missing matters more than that its format is unknown
    CloudFormat const format = cloudFormatOf(path);
    try {
        return readCloud(source, format, progress, normals);
    } catch (InputError const & error) {
        throw InputError(path + ": " + error.what());
    }
}

} // namespace qz_io
