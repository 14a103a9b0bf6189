// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Foundation/PointCloudView.h>
#include <QZmath/Foundation/TriangleMesh.h>

#include <string>
#include <utility>
#include <vector>

namespace QZmath
{

/// A mesh with what is to be shown and told of it. A plain value that owns texts only. Texts are UTF-8 and
/// shown as they are, whatever they hold; bytes that are no UTF-8 become replacement characters.
struct MeshScene
{
    /// A table of names and values.
    struct Table
    {
        std::string title;
        std::vector<std::pair<std::string, std::string>> rows;
    };

    TriangleMesh const * mesh = nullptr; ///< kept alive by the caller; normals are made where it has none
    /// Distance of each vertex to the nearest sample, in units of the cloud; null: not known. `mesh`'s number
    /// of vertices.
    std::vector<float> const * distances = nullptr;
    PointCloudView samples; ///< in units of the cloud, without the mesh's origin taken off; size 0: none
    std::string title;      ///< one line, such as the name of a file
    std::string subtitle;   ///< one line below it; empty: the number of triangles
    std::vector<std::string> notes; ///< sentences that whoever looks at the mesh should know
    std::vector<Table> report;
};

} // namespace QZmath
