// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <cstddef>

namespace VolTr
{

/// A piece of a mesh that is known but not made yet. Vertices and triangles are made when asked for, by many
/// threads at the same time.
class TriangleRun
{
public:
    struct Triangle
    {
        int corners[3];
        int verticesBefore; ///< that come before the triangle, those of earlier pieces among them
    };
    /// Triangles are made in parts of at most so many.
    static constexpr int mostInPart = 1024;

    virtual int vertices() const = 0;
    virtual int triangles() const = 0;
    virtual int parts() const = 0;
    /// The first triangle of a part; for `parts()` the number of all.
    virtual int firstOf(int part) const = 0;
    /// Positions of vertices first to end - 1, counted in this piece, three coordinates each.
    virtual void makeVertices(int first, int end, double * positions) const = 0;
    /// The triangles of a part; their corners count over the whole mesh.
    virtual void makeTriangles(int part, Triangle * out) const = 0;

protected:
    ~TriangleRun() = default;
};

/// Takes a mesh as a polygoniser makes it.
class QZMATH_SISTER_API TriangleSink
{
public:
    virtual ~TriangleSink() = default;
    /// About so many vertices will come.
    virtual void expectVertices(std::size_t) {}
    /// A new vertex, before the first triangle that uses it; indices count from 0.
    virtual void addVertex(double const * position) = 0;
    virtual void addTriangle(int a, int b, int c) = 0;
    /// All of a piece, as if it came vertex by vertex and triangle by triangle.
    virtual void addRun(TriangleRun const & run) = 0;
    /// The mesh is complete.
    virtual void finish() = 0;
};

} // namespace VolTr
