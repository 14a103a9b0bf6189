// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Files/Export.h>
#include <QZmath/Files/PointReader.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>

class CProgressCounter;

namespace QZmath
{

/// What one of several processes reads of a file: the points whose first byte lies in a range. Ranges side by
/// side give each point once, in the order of the file. Only text, LAS and PLY can be read so, the last one
/// when it is binary with rows of equal size or has nothing but vertices; others are read as a whole by the
/// one whose range has the first byte.
struct PointShare
{
    std::uint64_t begin = 0, end = std::numeric_limits<std::uint64_t>::max();
    /// What all ranges found together, when that is known: the scale of colours depends on it, whether there
    /// are any, and what columns are.
    bool isSettled = false;
    float greatestColor = 0;
    unsigned columnMarks = 0;

    // What was found.

    bool isCut = false;      ///< the points are those of the range
    float foundColor = 0;    ///< greatest number of a colour whose scale depends on it
    unsigned foundMarks = 0; ///< bits on what the values of columns of text are
    bool isUnsure = false;   ///< the other ranges decide what the columns are: nothing of them has been taken
    std::size_t withheld = 0; ///< points that count as deleted

    /// Points that the file promises without saying how many bytes they take: those of all ranges together
    /// have to be compared with the sum over the ranges.
    enum class Promise
    {
        none,
        vertices, ///< by the header, known to each range; more may follow, which do not count
        lines     ///< each range knows of those in it
    };
    Promise promise = Promise::none;
    std::int64_t promised = 0;

    /// Counts the lines before the range, for messages.
    bool countsLines = false;
};

/// The sentence on a file that ends too early.
std::string truncatedElement(std::string const & name, std::uint64_t promised, std::uint64_t found);
std::string truncatedLines(std::int64_t promised, std::size_t found);

/// Whether a range has to be read again, `isSettled`, when it is known what all have found.
QZMATH_FILES_API bool isDecidedByOthers(PointShare const & share, float greatestColor, unsigned columnMarks);

/// Reads a range of a file. A cloud without points is no error.
QZMATH_FILES_API PointCloud readPointShare(std::string const & path, ReadOptions const & options,
                                           PointShare & share, CProgressCounter * progress);

/// Settles what only all ranges of a file show: `pointsBefore` those of this one, `points` there are in all,
/// `promised` were by all; takes off what is too much. \throws InputError when there are too few
QZMATH_FILES_API void settleShare(std::string const & path, PointShare const & share, PointCloud & cloud,
                                  std::int64_t pointsBefore, std::int64_t points, std::int64_t promised);

} // namespace QZmath
