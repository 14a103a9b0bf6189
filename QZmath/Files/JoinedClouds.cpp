// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Files/JoinedClouds.h>

#include <utility>

namespace QZmath
{

namespace
{

void widen(PointCloud & cloud)
{
    cloud.positions64.assign(cloud.positions.begin(), cloud.positions.end());
    cloud.positions = decltype(cloud.positions)();
}

// Appends rows, or as many zeros where a file has none of the kind and others have.
template <class T>
void append(std::vector<T> & all, std::size_t before, std::vector<T> const & more, std::size_t added,
            std::size_t width)
{
    if (all.empty() && more.empty())
        return;
    all.resize(before * width);
    all.insert(all.end(), more.begin(), more.end());
    all.resize((before + added) * width);
}

} // namespace

void JoinedClouds::add(PointCloud && cloud, std::string const & name)
{
    std::size_t const before = m_cloud.size();
    std::size_t const added = cloud.size();
    m_ends.push_back(before + added);
    m_withNormals += !cloud.normals.empty();
    m_withColors += !cloud.colors.empty();
    m_withBoundary += !cloud.boundary.empty();
    for (std::string const & note : cloud.notes)
        m_cloud.notes.push_back(name + ": " + note);
    if (before == 0) {
        cloud.notes = std::move(m_cloud.notes);
        m_cloud = std::move(cloud);
        return;
    }
    if (m_cloud.positions64.empty() && cloud.positions64.empty()) {
        m_cloud.positions.insert(m_cloud.positions.end(), cloud.positions.begin(), cloud.positions.end());
    } else {
        if (m_cloud.positions64.empty())
            widen(m_cloud);
        if (cloud.positions64.empty())
            widen(cloud);
        m_cloud.positions64.insert(m_cloud.positions64.end(), cloud.positions64.begin(),
                                   cloud.positions64.end());
    }
    append(m_cloud.normals, before, cloud.normals, added, 3);
    append(m_cloud.colors, before, cloud.colors, added, 3);
    append(m_cloud.boundary, before, cloud.boundary, added, 1);
}

char const * JoinedClouds::noteOnColors()
{
    return "only some of the files have colours, so the mesh gets none";
}

PointCloud JoinedClouds::take()
{
    if (m_withColors > 0 && m_withColors < m_ends.size()) {
        m_cloud.colors = decltype(m_cloud.colors)();
        m_cloud.notes.push_back(noteOnColors());
    }
    return std::move(m_cloud);
}

} // namespace QZmath
