// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Files/Errors.h>
#include <QZmath/Files/Export.h>
#include <QZmath/Files/PointCloud.h>

#include <cstddef>
#include <iosfwd>
#include <string>

class CProgressCounter;

namespace QZmath
{

/// The formats of point clouds.
enum class PointFormat
{
    automatic, ///< by the ending of the file's name, or by the first bytes where there is no name
    /// Ascii and binary of both byte orders. Of the element `vertex`: x y z; nx ny nz; red green blue, also
    /// with `diffuse_` before or as r g b; `boundary`; of any type and in any order. Others are skipped.
    ply,
    /// `v` with or without a colour behind, and `vn`; a face with normal indices says which normal is whose,
    /// else they run in parallel.
    obj,
    /// A point per line, see `ReadOptions::columns`. Commas, semicolons, tabulators and blanks separate; `#`
    /// and `//` begin a comment; lines of names before the first point, a byte order mark and the line with
    /// the number of points that begins a .pts file are understood.
    text,
    /// Ascii, binary and compressed. Fields x y z, normal_x normal_y normal_z, rgb or rgba, `boundary`.
    /// Points that are not a number, as organised clouds have them, are left out.
    pcd,
    /// LAS 1.0 to 1.4, point formats 0 to 10, uncompressed, with scale, offset and colours. Positions come
    /// in `double`. Points with the mark "withheld" are left out.
    las
};

struct ReadOptions
{
    PointFormat format = PointFormat::automatic;
    /// Of text files: what their columns are, in this order, separated by commas: x y z, nx ny nz, r g b,
    /// boundary, intensity, or _ for what is not wanted; columns behind the last one named are not looked at.
    /// Empty: what a line of names before the points says, or a guess by their number and values, which fails
    /// or leaves a note where it is not safe. Other files take no notice of it.
    std::string columns;
};

/// The format by the ending of a name, in any case: .ply, .obj, .pcd, .las, or .xyz, .xyzn, .asc, .txt, .csv,
/// .pts. `automatic` for "-". Throws `InputError` for others; where a program is known that converts them, it
/// is named.
QZMATH_FILES_API PointFormat pointFormatOf(std::string const & path);

/// Throws `InputError` when `ReadOptions::columns` could not be this.
QZMATH_FILES_API void checkColumns(std::string const & columns);

/// Reads a cloud from a file, a pipe, or, as "-", from standard input.
///
/// Whatever is wrong with the form is an `InputError`, be the input hostile or not: counts of a header are
/// compared with the size of the file before memory is taken, and where the size is not known, memory grows
/// with what has been read. So memory stays within a small multiple of the input's size, of a compressed
/// cloud within a hundred times. Values are not judged: they may be infinite, or no numbers. O(n).
///
/// Large inputs are read on all threads. Several threads may read at the same time. The same bytes give the
/// same cloud, whatever the locale and the number of threads.
///
/// \param progress from 0 to 1; may be null, may interrupt
/// \throws InputError of what cannot be read
/// \throws CUserIntrException when the progress counter was interrupted
/// \throws std::bad_alloc
QZMATH_FILES_API PointCloud readPoints(std::string const & path, ReadOptions const & options = {},
                                       CProgressCounter * progress = nullptr);

/// The same from a stream, which is read to its end or to that of the points; no seeking.
QZMATH_FILES_API PointCloud readPoints(std::istream & stream, ReadOptions const & options = {},
                                       CProgressCounter * progress = nullptr);

/// The same from memory.
QZMATH_FILES_API PointCloud readPointsFromMemory(void const * bytes, std::size_t size,
                                                 ReadOptions const & options = {},
                                                 CProgressCounter * progress = nullptr);

} // namespace QZmath
