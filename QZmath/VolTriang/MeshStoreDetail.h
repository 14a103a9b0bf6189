// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>

#include <cstddef>
#include <cstdint>

namespace VolTr
{

/// The arrays of a mesh, beside the interface of a target that keeps one: a sink that knows what it hands
/// over writes there, on many threads, and nobody keeps a second copy. A target that is one gets no single
/// vertices and triangles then.
class QZMATH_SISTER_API MeshStore
{
public:
    virtual ~MeshStore() = default;
    /// There will be about so many triangles: an upper bound mostly. Takes addresses, not yet memory.
    virtual void expect(std::size_t triangles) = 0;
    /// Room for so many triangles in all, three corners each. Those that were there stay.
    virtual std::int32_t * triangles(std::size_t count) = 0;
    /// Room for so many vertices, three coordinates each.
    virtual float * positions(std::size_t count) = 0;
    /// Likewise; called when normals were asked for.
    virtual float * normals(std::size_t count) = 0;
};

} // namespace VolTr
