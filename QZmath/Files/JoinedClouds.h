// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Files/Export.h>
#include <QZmath/Files/PointCloud.h>

#include <cstddef>
#include <string>
#include <vector>

namespace QZmath
{

/// Several clouds behind each other, in one.
class QZMATH_FILES_API JoinedClouds
{
public:
    /// Takes the points of a file over. \param name of it, for the notes
    void add(PointCloud && cloud, std::string const & name);
    /// The note on colours of some files only.
    static char const * noteOnColors();
    /// Whether files with points have colours, and files without.
    bool hasColors() const { return m_withColors > 0; }
    bool lacksColors() const { return m_withColors < m_ends.size(); }
    /// What only some of the files had is settled: positions are in `double` if those of any file are,
    /// missing normals are zero and marks 0, and colours are dropped with a note. Call once, at the end.
    PointCloud take();

    /// Points up to and with each file.
    std::vector<std::size_t> const & ends() const { return m_ends; }

private:
    PointCloud m_cloud;
    std::vector<std::size_t> m_ends;
    std::size_t m_withNormals = 0, m_withColors = 0, m_withBoundary = 0; // files
};

} // namespace QZmath
