// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Distributed/Communicator.h>

#include <support/TestFolder.h>

#include <optional>
#include <string>

namespace qz_test
{

/// A folder that all ranks see. Made and removed by all at the same time.
class RankFolder
{
public:
    explicit RankFolder(QZmath::Distributed::Communicator const & ranks) : m_ranks(ranks)
    {
        if (ranks.rank() == 0)
            m_folder.emplace();
        m_path = ranks.broadcast(m_folder ? m_folder->path("") : std::string(), 0);
    }
    ~RankFolder() { MPI_Barrier(m_ranks.get()); }
    RankFolder(RankFolder const &) = delete;
    RankFolder & operator=(RankFolder const &) = delete;

    std::string path(std::string const & name) const { return m_path + name; }
    /// Written by rank 0, there for all when it returns.
    std::string write(std::string const & name, std::string const & bytes) const
    {
        if (m_folder)
            m_folder->write(name, bytes);
        MPI_Barrier(m_ranks.get());
        return path(name);
    }
    /// Of rank 0; null on the others.
    TestFolder const * onFirst() const { return m_folder ? &*m_folder : nullptr; }

private:
    QZmath::Distributed::Communicator const & m_ranks;
    std::optional<TestFolder> m_folder;
    std::string m_path;
};

} // namespace qz_test
