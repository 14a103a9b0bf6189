// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/Foundation/Functor.h>
#include <QZmath/Foundation/Point3D.h>

#include <cstddef>
#include <cstdint>

/// The records of the polygoniser are plain: public fields, no virtual function, flat
/// copies that own nothing.

/// Vertex of the surface. The polygoniser leaves the normal zero.
struct jbVertex
{
    REmath::Point3D_d position;
    REmath::Point3D_d normal;
};

/// Growing list of vertices. A copy shares the items and is valid until the next `add` to any of the copies.
struct QZMATH_API jbVertices
{
    int count = 0;
    int capacity = 0;
    /// From `malloc`'s family, `free` gives them back; in a `jbProcess` this is done by `freeprocess`.
    jbVertex * items = nullptr;

    /// Appends a vertex and returns its index. The capacity starts at 10 and doubles; `std::bad_alloc` when
    /// memory or the range of `int` is exhausted, with the list unchanged.
    int add(jbVertex vertex);
};

/// Point with the value of the function, the result of a search.
struct jbTest
{
    REmath::Point3D_d point;
    double value = 0;
    /// 1 when the search succeeded.
    int ok = 0;
};

/// Corner of the lattice of cubes with its function value, in the chain of a hash bucket.
struct jbCornerlist
{
    int i = 0;
    int j = 0;
    int k = 0;
    /// What the function said of the point: 0 usable, anything else not to be crossed.
    int flag = 0;
    double value = 0;
    jbCornerlist * next = nullptr;
};

/// Cube seen by the walk, in the chain of a hash bucket.
struct jbCenterlist
{
    int i = 0;
    int j = 0;
    int k = 0;
    jbCenterlist * next = nullptr;
};

/// Lattice edge with its surface vertex, in the chain of a hash bucket. The
/// lexicographically smaller end is first.
struct jbEdgelist
{
    int i1 = 0;
    int j1 = 0;
    int k1 = 0;
    int i2 = 0;
    int j2 = 0;
    int k2 = 0;
    int vertex = 0;
    jbEdgelist * next = nullptr;
};

/// Cube of the lattice; corner n, 0 to 7, lies at (i + bit 2 of n, j + bit 1 of n, k + bit 0 of n).
struct jbCube
{
    int i = 0;
    int j = 0;
    int k = 0;
    jbCornerlist * corners[8] = {};
};

/// Stack of cubes.
struct jbCubes
{
    jbCube cube;
    jbCubes * next = nullptr;
};

/// Polygoniser of implicit functions: turns the border between the points where a function is positive and
/// those where it is not into a triangle mesh.
///
/// `polygonize` follows the component that it finds at a start point, from each cube to those across the
/// faces that the surface crosses; `marchingcubes` looks into every cube of a box. Six tetrahedra share the
/// diagonal of a cube from corner 1 to corner 6. They cut the faces of neighbouring cubes alike, so the mesh
/// of any continuous function whose surface stays within the bounds is closed, oriented and manifold.
/// Vertices lie on edges of tetrahedra, at most 1/2048 of the edge from where the function changes sign.
/// Seen from the side of the positive values, triangles are counter-clockwise.
///
/// The function object is called with a point and the address of a flag (the address may be null). It returns
/// the value at the point and sets the flag to 0 when the point is usable, to anything else when it must not
/// be crossed; a NaN value counts as not positive. The sink is called with three vertex indices and the
/// vertex list of the moment; every vertex is in the list before the first triangle that uses it. A sink that
/// returns 0 refuses to go on.
///
/// Cost: each lattice corner near the surface is evaluated once and each crossed edge bisected once, in
/// memory of about 200 bytes per corner, taken in large blocks. Exceptions of the function and the sink pass
/// through `polygonize` and `marchingcubes`, after all memory was freed; `std::bad_alloc` is thrown on
/// exhausted memory.
///
/// One object serves one call at a time, on the caller's thread. Different objects are independent of each
/// other: the random numbers of the start search come from a generator of the object's own, seeded alike at
/// the start of each call, so the same input gives the same triangles in the same order on every platform.
///
/// The single steps are public. A caller of theirs sets `function`, `size`, `bounds` and `start` (and
/// `triangleProcessor` for `dotet`) first and calls `freeprocess` at the end; arguments of the steps are not
/// checked unless stated. Copies are flat: a copy of an object between calls is independent, a copy of one
/// whose tables are alive shares them, and only one of the two may go on.
class QZMATH_API jbProcess
{
public:
    using Function = REmath::Functor2<double, REmath::Point3D_d const &, int *>;
    using TriangleProcessor = REmath::Functor4<int, int, int, int, jbVertices>;

    Function * function = nullptr;
    TriangleProcessor * triangleProcessor = nullptr;
    /// Edge length of a cube.
    double size = 0;
    /// `size / 100`; nothing reads it.
    double delta = 0;
    /// The walk stays on cubes whose index is within plus and minus this limit, per axis.
    int bounds[3] = {0, 0, 0};
    REmath::Point3D_d start;
    /// Cubes to visit.
    jbCubes * cubes = nullptr;
    jbVertices vertices;
    /// Hash tables of the cubes seen, the corners evaluated, the edges with a vertex.
    /// They grow with the surface.
    jbCenterlist ** centers = nullptr;
    jbCornerlist ** corners = nullptr;
    jbEdgelist ** edges = nullptr;

    jbProcess() = default;

    /// Polygonises the component of the surface that passes near a start point.
    ///
    /// A positive and a non-positive point are searched at random around `startPoint`, the surface point
    /// between them becomes `start`, and the walk visits, depth first, the cubes that the surface enters, as
    /// long as their indices stay within `bounds` and all their corners are usable.
    ///
    /// \param cubeSize edge length of the cubes. With 0 or NaN all corners coincide, and little or nothing is
    ///        produced; the work stays within the bounds.
    /// \param cubeBounds three numbers; with a negative one only the first cube is visited
    /// \return 0 when done, 1 when no start was found in 10000 attempts per sign, 2 when the sink refused
    ///         a triangle
    int polygonize(Function & implicitFunction, double cubeSize, int * cubeBounds,
                   REmath::Point3D_d startPoint, TriangleProcessor & sink);

    /// Polygonises everything in a box: all components, at the cost of evaluating every corner. Flags are
    /// not heeded, and the sink's refusal only drops the second triangle of a tetrahedron. The lattice
    /// reaches one cube past a box whose side is a multiple of `cubeSize`. Corner memory is that of two
    /// layers across z. No cube is visited where a quotient of box side and `cubeSize` is -1 or less, or not
    /// in the range of `int` (also for NaN).
    /// \return 0
    int marchingcubes(Function & implicitFunction, double cubeSize, REmath::Point3D_d low,
                      REmath::Point3D_d high, TriangleProcessor & sink);

    /// Searches a usable point of sign 1 (value above 0) or 0 around `from`, in a cube that starts at `size`
    /// and widens by 0.05 % with each of at most 10000 attempts.
    jbTest find(int sign, REmath::Point3D_d from);

    /// The surface point between two points of different sign by ten bisections.
    /// `value1` is the value at `p1`.
    REmath::Point3D_d converge(REmath::Point3D_d p1, REmath::Point3D_d p2, double value1);

    /// Passes the zero, one or two triangles of the tetrahedron over four corners of a cube to the sink.
    /// Returns 0 when the sink refused one.
    int dotet(jbCube * cube, int a, int b, int c, int d);

    /// Pushes the neighbour at (i, j, k) of `old` across `face` (0 to 5: -x, +x, -y, +y, -z, +z in index
    /// space) with the shared corners `c1` to `c4` of `old`, unless the surface does not cross the face, the
    /// neighbour is out of bounds or seen already, or one of its corners is not usable.
    void testface(int i, int j, int k, jbCube * old, int face, int c1, int c2, int c3, int c4);

    /// The corner at (i, j, k), evaluated at its first use. The pointer is valid until `freeprocess`.
    jbCornerlist * setcorner(int i, int j, int k);

    /// Marks a cube as seen. Returns 1 when it was before, 0 otherwise.
    int setcenter(int i, int j, int k);

    /// Stores the vertex of the edge between two lattice points, in whatever order they are given.
    void setedge(int i1, int j1, int k1, int i2, int j2, int k2, int vertex);

    /// The vertex of an edge, or -1.
    int getedge(int i1, int j1, int k1, int i2, int j2, int k2);

    /// The vertex between two corners of different sign, made at its first use.
    int vertid(jbCornerlist * c1, jbCornerlist * c2);

    /// Position of a lattice point, `start - (index - 0.5) * size` on each axis: the
    /// lattice runs against the axes.
    REmath::Point3D_d setpoint(int i, int j, int k);

    /// Frees the tables, the stack and the vertices, and makes the object as new for the next steps.
    void freeprocess();

private:
    struct Block;
    struct Corner;
    class Release;

    /// Piece of zeroed memory that lives until `freeprocess`.
    void * allocate(std::size_t bytes);
    void begin(Function & implicitFunction, double cubeSize, TriangleProcessor & sink);
    double random();
    template <class Entry, class Hash>
    static void reserveBucket(Entry **& table, std::size_t & mask, std::size_t count, Hash hash);
    bool isOutside(int i, int j, int k) const;
    static jbCube neighbour(int i, int j, int k, jbCube const & old, int face, int const (&shared)[4]);
    void push(jbCube const & cube);
    void pushUsable(jbCube & cube);
    void walkAcross(jbCube const & old, int signs, int face);
    Corner * findCorner(int i, int j, int k) const;
    bool isListedCenter(int i, int j, int k) const;
    int makeVertex(jbCornerlist const & c1, jbCornerlist const & c2);
    int latticeEdgeVertex(jbCube const & cube, int a, int b);
    template <class VertexOfEdge>
    int cutTetrahedron(int signs, int const (&corner)[4], VertexOfEdge vertexOfEdge);
    int cutCube(jbCube const & cube, int signs, bool stopAtRefusal);

    std::size_t m_centerMask = 0;
    std::size_t m_cornerMask = 0;
    std::size_t m_edgeMask = 0;
    std::size_t m_centerCount = 0;
    std::size_t m_cornerCount = 0;
    std::size_t m_edgeCount = 0;
    Block * m_blocks = nullptr;
    char * m_blockRest = nullptr;
    std::size_t m_blockRestBytes = 0;
    std::size_t m_nextBlockBytes = 0;
    jbCubes * m_freeCubes = nullptr;
    std::uint32_t m_randomState = 1;
};
