// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/VolTriang/Polygoniser/TriangleSink.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace VolTr
{

class EvaluableFunction;
class ITriangulationTarget;
class MeshStore;
class SampleSurface;
struct StageContext;

/// Keeps the mesh until it is complete, moves its vertices onto the samples and hands it to the caller's
/// target, in the order in which it came.
///
/// Where moves would fold the mesh, so that a face that looked the way of the samples around it looks the
/// other way, the moves of its vertices are halved, and again if need be. All vertices are moved and judged
/// at the same time, so the result does not depend on threads.
///
/// Memory: 24 bytes a vertex where the target is a `MeshStore`, which keeps the triangles from the begin on,
/// and the moves where it will keep the moved positions. For other targets 12 bytes a vertex, with normals
/// 24, and 12 a triangle more; what was handed over is freed as it goes.
class QZMATH_SISTER_API RefiningSink final : public TriangleSink
{
public:
    struct Moves
    {
        double movedShare = 0.0; ///< of the vertices
        double greatest = 0.0;   ///< in model units
        double rms = 0.0;
        int halved = 0; ///< vertices that would have folded a face
    };

    RefiningSink(SampleSurface const & surface, EvaluableFunction const & function, double edge,
                 StageContext const & context, ITriangulationTarget & target, int expectedTriangles);

    /// Of a mesh that is a part of a larger one: asked in each round of the unfolding, with a mark on the
    /// vertices whose moves are to be halved. Adds the marks that other parts set on vertices of this one,
    /// and says whether any part has set some.
    using MarkExchange = std::function<bool(std::vector<char> &)>;
    void setMarkExchange(MarkExchange exchange) { m_exchange = std::move(exchange); }

    void addVertex(double const * position) override;
    void addTriangle(int a, int b, int c) override;
    void addRun(TriangleRun const & run) override;
    void expectVertices(std::size_t number) override;
    void finish() override {}
    /// Moves, and hands over. Separate from the end of the walk, so that what the walk needed is gone by
    /// then. Asks the function only when normals are wanted.
    void complete();

    int vertexCount() const { return static_cast<int>(m_vertices.size()); }
    int triangleCount() const { return static_cast<int>(m_triangleCount); }
    /// After `complete`.
    Moves const & moves() const { return m_moves; }

private:
    /// A list that grows without copies of what it has, and is freed piece by piece.
    template <class T>
    class Pieces
    {
    public:
        /// What is new has no values yet.
        void resize(std::size_t size)
        {
            while (m_pieces.size() * pieceSize < size)
                m_pieces.emplace_back(new T[pieceSize]);
            m_size = size;
        }
        T & operator[](std::size_t index) { return m_pieces[index / pieceSize][index % pieceSize]; }
        T const & operator[](std::size_t index) const
        {
            return m_pieces[index / pieceSize][index % pieceSize];
        }
        std::size_t size() const { return m_size; }
        bool empty() const { return m_size == 0; }
        /// The element was the last one of its piece that anybody needs.
        void release(std::size_t index)
        {
            if (index % pieceSize == pieceSize - 1)
                m_pieces[index / pieceSize].reset();
        }

    private:
        static constexpr std::size_t pieceSize = 1 << 14;
        std::vector<std::unique_ptr<T[]>> m_pieces;
        std::size_t m_size = 0;
    };

    using Offset = std::array<float, 3>;
    using Corners = std::array<std::int32_t, 3>;

    std::int32_t * cornersOf(std::size_t triangle);
    float * offsetOf(std::size_t vertex);
    float const * offsetOf(std::size_t vertex) const;
    void growTo(std::size_t vertices, std::size_t triangles);
    double walkPosition() const;
    void move();
    void unfold();
    void summarise();
    void handOver();
    void handOverToStore();
    std::array<double, 3> moved(int vertex) const;

    SampleSurface const & m_surface;
    EvaluableFunction const & m_function;
    double m_edge;
    StageContext const & m_context;
    ITriangulationTarget & m_target;
    int m_expectedTriangles;
    MeshStore * const m_store; // null for other targets
    Pieces<std::array<double, 3>> m_vertices;
    std::size_t m_triangleCount = 0;
    std::int32_t * m_stored = nullptr; // the triangles in the store
    Pieces<Corners> m_triangles;       // without one
    float * m_storedOffsets = nullptr; // where the positions will be
    Pieces<Offset> m_offsets;
    float * m_storedNormals = nullptr;
    Pieces<Offset> m_normals; // empty when none are wanted
    Moves m_moves;
    MarkExchange m_exchange;
};

} // namespace VolTr
