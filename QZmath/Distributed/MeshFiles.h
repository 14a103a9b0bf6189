// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Distributed/Communicator.h>
#include <QZmath/Distributed/DistributedReconstruction.h>
#include <QZmath/Distributed/Export.h>
#include <QZmath/Files/PendingFiles.h>

#include <memory>
#include <string>

class CProgressCounter;

namespace QZmath::Distributed
{

/// Writes a mesh that is spread over ranks.
///
/// A path is that of one binary PLY file, which all ranks write together by MPI-IO and which has the same
/// bytes as the file of one process with the whole mesh: corners are `int`, or `uint` from 2^31 vertices on.
/// A path that ends in "/" is a folder, which is made where there is none, with a file of each rank that has
/// triangles: "part-00000.ply" and so on. Each of these is a mesh of its own; vertices that its triangles
/// share with other ranks are in each of their files.
///
/// Files stand beside their places until `commit`, see `PendingFiles`; what is not committed is removed by
/// the destructor. All calls but the destructor are collective.
class QZMATH_DISTRIBUTED_API MeshFiles
{
public:
    /// Makes a file beside the one of that path, so that it shows early whether it can be written; of a
    /// folder this is only looked at. The communicator has to stay alive.
    /// \throws RankError when the system refuses, or a run on more ranks has left parts in the folder
    MeshFiles(Communicator const & communicator, std::string const & path);
    ~MeshFiles();
    MeshFiles(MeshFiles const &) = delete;
    MeshFiles & operator=(MeshFiles const &) = delete;

    /// Takes up to 16 MB a rank beside the mesh, for a folder as much as the rank's part of the mesh.
    /// \param progress of this rank; may be null
    /// \throws RankError   the disk is full, the file cannot hold so many vertices, or arrays do not fit
    /// \throws CUserIntrException on all ranks
    void write(MeshPart const & mesh, CProgressCounter * progress = nullptr);

    /// Moves the files to their places when all ranks have written theirs.
    void commit();

private:
    void writeTogether(MeshPart const & mesh, CProgressCounter * progress);
    void writePart(MeshPart const & mesh, CProgressCounter * progress);

    Communicator const & m_communicator;
    std::string m_path;
    bool m_isFolder;
    bool m_isNewFolder = false; ///< on rank 0
    std::string m_pendingPath;
    std::unique_ptr<PendingFiles> m_files;
};

/// Writes a mesh and moves it to its place.
QZMATH_DISTRIBUTED_API void writeMesh(Communicator const & communicator, MeshPart const & mesh,
                                      std::string const & path, CProgressCounter * progress = nullptr);

} // namespace QZmath::Distributed
