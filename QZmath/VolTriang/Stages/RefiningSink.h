// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/VolTriang/Polygoniser/TriangleSink.h>

#include <array>
#include <cstddef>
#include <vector>

namespace VolTr
{

class ImplicitFunction;
class ITriangulationTarget;
class SampleSurface;
struct StageContext;

/// Keeps the mesh until it is complete, moves its vertices onto the samples and hands it to the caller's
/// target, in the order in which it came.
///
/// Where moves would fold the mesh, so that a face that looked the way of the samples around it looks the
/// other way, the moves of its vertices are halved, and again if need be. All vertices are moved and judged
/// at the same time, so the result does not depend on threads.
///
/// Memory: 60 bytes a vertex, with normals 72.
class RefiningSink final : public TriangleSink
{
public:
    struct Moves
    {
        double movedShare = 0.0; ///< of the vertices
        double greatest = 0.0;   ///< in model units
        double rms = 0.0;
        int halved = 0; ///< vertices that would have folded a face
    };

    RefiningSink(SampleSurface const & surface, ImplicitFunction const & function, double edge,
                 StageContext const & context, ITriangulationTarget & target, int expectedTriangles);

    void addVertex(double const * position) override;
    void addTriangle(int a, int b, int c) override;
    void finish() override {}
    /// Moves, and hands over. Separate from the end of the walk, so that what the walk needed is gone by
    /// then.
    void complete();

    int vertexCount() const { return static_cast<int>(m_vertices.size()); }
    int triangleCount() const { return static_cast<int>(m_triangles.size()); }
    /// After `complete`.
    Moves const & moves() const { return m_moves; }

private:
    /// A list that grows without copies of what it has.
    template <class T>
    class Pieces
    {
    public:
        void add(T const & value)
        {
            if (m_size % pieceSize == 0) {
                m_pieces.emplace_back();
                m_pieces.back().reserve(pieceSize);
            }
            m_pieces.back().push_back(value);
            ++m_size;
        }
        T & operator[](std::size_t index) { return m_pieces[index / pieceSize][index % pieceSize]; }
        T const & operator[](std::size_t index) const
        {
            return m_pieces[index / pieceSize][index % pieceSize];
        }
        std::size_t size() const { return m_size; }

    private:
        static constexpr std::size_t pieceSize = 1 << 14;
        std::vector<std::vector<T>> m_pieces;
        std::size_t m_size = 0;
    };

    using Offset = std::array<float, 3>;

    void move();
    void unfold();
    void summarise();
    void handOver();
    std::array<double, 3> moved(int vertex) const;

    SampleSurface const & m_surface;
    ImplicitFunction const & m_function;
    double m_edge;
    StageContext const & m_context;
    ITriangulationTarget & m_target;
    int m_expectedTriangles;
    Pieces<std::array<double, 3>> m_vertices;
    Pieces<std::array<int, 3>> m_triangles;
    std::vector<Offset> m_offsets;
    std::vector<Offset> m_normals; // empty when none are wanted
    Moves m_moves;
};

} // namespace VolTr
