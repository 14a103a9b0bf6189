// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Distributed/Communicator.h>
#include <QZmath/Distributed/Export.h>
#include <QZmath/Files/PointCloud.h>
#include <QZmath/Files/PointReader.h>

#include <cstdint>
#include <string>
#include <vector>

class CProgressCounter;

namespace QZmath::Distributed
{

/// What a rank has read of a cloud in files.
struct FileShares
{
    PointCloud cloud;               ///< without notes
    std::int64_t firstNumber = 0;   ///< of its points among those of all files, in their order
    std::int64_t points = 0;        ///< of all ranks
    std::vector<std::string> notes; ///< on what was guessed or left out, of all ranks
};

/// Reads a cloud that is spread over files: each rank about as many bytes, those of the first files on the
/// first ranks. Collective.
///
/// Text, LAS, and PLY that is binary or has vertices only are read by several ranks where their bytes fall to
/// them; other files, and pipes, as a whole by the rank to which their first byte falls. Every file must be
/// open to every rank. A rank may get no points.
///
/// Missing normals of one file are an error where they are needed. Colours are dropped, with a note, unless
/// all files have some. What a file's text columns are is guessed by each rank from its own lines and the
/// first ones.
///
/// \param progress of this rank; may be null
/// \throws RankError on all ranks; its cause names the file
/// \throws CUserIntrException on all ranks
QZMATH_DISTRIBUTED_API FileShares readFileShares(Communicator const & communicator,
                                                 std::vector<std::string> const & paths,
                                                 ReadOptions const & options,
                                                 CProgressCounter * progress = nullptr,
                                                 bool needsNormals = true);

} // namespace QZmath::Distributed
