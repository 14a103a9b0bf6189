// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <apps/io/ByteSource.h>
#include <apps/io/PointCloud.h>

#include <string>

class CProgressCounter;

namespace qz_io
{

/// The formats of oriented clouds.
enum class CloudFormat
{
    ply,  ///< ascii and binary of both byte orders: x y z nx ny nz, `boundary` if present; others are skipped
    obj,  ///< `v` and `vn`; a face with normal indices says which normal is whose, else they run in parallel
    text, ///< six columns x y z nx ny nz, or seven with a boundary mark; `#` begins a comment
};

/// Whether a cloud has to come with normals.
enum class InputNormals
{
    required,
    optional, ///< without them `PointCloud::normals` stays empty; text files have three columns then
};

/// The format by the ending of the file's name: .ply, .obj, or .xyz, .xyzn, .asc, .txt. Throws `InputError`
/// for others.
CloudFormat cloudFormatOf(std::string const & path);

/// Reads a cloud. Throws `InputError` on whatever is wrong with the form, be it hostile: counts of a header
/// are compared with the size of the source before memory is taken, so memory stays within a small multiple
/// of that size. Values are not judged, see `checkCloud`. Positions go to `progress`, which may be null and
/// may interrupt.
PointCloud readCloud(ByteSource & source, CloudFormat format, CProgressCounter * progress,
                     InputNormals normals = InputNormals::required);

/// The same from a file, with the format by its name.
PointCloud readCloud(std::string const & path, CProgressCounter * progress,
                     InputNormals normals = InputNormals::required);

} // namespace qz_io
