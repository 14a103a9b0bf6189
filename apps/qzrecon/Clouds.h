// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Files/PointCloud.h>

#include <cstddef>
#include <string>
#include <vector>

namespace qz_recon
{

/// Several clouds behind each other, in one.
class JoinedClouds
{
public:
    /// Takes the points of a file over. \param name of it, for the notes
    void add(QZmath::PointCloud && cloud, std::string const & name);
    /// What only some of the files had is settled: positions are in `double` if those of any file are,
    /// missing normals are zero and marks 0, and colours are dropped with a note. Call once, at the end.
    QZmath::PointCloud take();

    /// Points up to and with each file.
    std::vector<std::size_t> const & ends() const { return m_ends; }

private:
    QZmath::PointCloud m_cloud;
    std::vector<std::size_t> m_ends;
    std::size_t m_withNormals = 0, m_withColors = 0, m_withBoundary = 0; // files
};

} // namespace qz_recon
