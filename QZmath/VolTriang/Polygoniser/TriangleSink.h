// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace VolTr
{

/// Takes a mesh as a polygoniser makes it.
class TriangleSink
{
public:
    virtual ~TriangleSink() = default;
    /// A new vertex, before the first triangle that uses it; indices count from 0.
    virtual void addVertex(double const * position) = 0;
    virtual void addTriangle(int a, int b, int c) = 0;
    /// The mesh is complete.
    virtual void finish() = 0;
};

} // namespace VolTr
