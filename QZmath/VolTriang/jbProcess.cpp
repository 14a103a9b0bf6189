// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/jbProcess.h>

#include <QZmath/VolTriang/Polygoniser/CornerRecord.h>
#include <QZmath/VolTriang/Polygoniser/CubeTables.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <memory>
#include <new>
#include <utility>

using namespace CubeCut;
using REmath::Point3D_d;

namespace
{

constexpr int findAttempts = 10000;
constexpr double findWidening = 1.0005;
constexpr int bisectionSteps = 11;

bool isPositive(jbCornerlist const * corner) { return corner->value > 0; }

// Bit n is set when corner n is positive.
int signsOf(jbCube const & cube)
{
    int signs = 0;
    for (int n = 0; n < 8; ++n)
        signs |= (isPositive(cube.corners[n]) ? 1 : 0) << n;
    return signs;
}

int steps(double length, double size)
{
    double const quotient = length / size;
    // Also false for NaN. The margin leaves room for the index one past the last corner.
    bool const isCountable = quotient > -1 && quotient < std::numeric_limits<int>::max() - 2;
    return isCountable ? static_cast<int>(quotient) : -1;
}

struct FreeMemory
{
    void operator()(void * memory) const { std::free(memory); }
};

} // namespace

// Frees everything at the end of a call, in whatever way it ends.
class jbProcess::Release
{
public:
    explicit Release(jbProcess & process) : m_process(process) {}
    ~Release() { m_process.freeprocess(); }
    Release(Release const &) = delete;
    Release & operator=(Release const &) = delete;

private:
    jbProcess & m_process;
};

void jbProcess::begin(Function & implicitFunction, double cubeSize, TriangleProcessor & sink)
{
    freeprocess();
    function = &implicitFunction;
    triangleProcessor = &sink;
    size = cubeSize;
    delta = cubeSize / 100;
    m_randomState = 1;
}

// The 15 upper bits of a linear congruential generator modulo 2^31, as a number from 0 to 1.
double jbProcess::random()
{
    m_randomState = m_randomState * 214013U + 2531011U;
    return (m_randomState >> 16 & 0x7fff) / 32767.0;
}

jbTest jbProcess::find(int sign, Point3D_d from)
{
    jbTest result;
    double range = size;
    for (int attempt = 0; attempt < findAttempts; ++attempt) {
        result.point.x() = (random() - 0.5) * range + from.x();
        result.point.y() = (random() - 0.5) * range + from.y();
        result.point.z() = (random() - 0.5) * range + from.z();
        int flag = 0;
        result.value = (*function)(result.point, &flag);
        if ((result.value > 0 ? 1 : 0) == sign && flag == 0) {
            result.ok = 1;
            return result;
        }
        range *= findWidening;
    }
    return result;
}

Point3D_d jbProcess::converge(Point3D_d p1, Point3D_d p2, double value1)
{
    Point3D_d positive = value1 >= 0 ? p1 : p2;
    Point3D_d negative = value1 >= 0 ? p2 : p1;
    for (int step = 1;; ++step) {
        Point3D_d const middle = (positive + negative) * 0.5;
        if (step == bisectionSteps)
            return middle;
        int flag = 0;
        if ((*function)(middle, &flag) > 0)
            positive = middle;
        else
            negative = middle;
    }
}

Point3D_d jbProcess::setpoint(int i, int j, int k)
{
    return {start.x() - (i - 0.5) * size, start.y() - (j - 0.5) * size, start.z() - (k - 0.5) * size};
}

int jbProcess::makeVertex(jbCornerlist const & c1, jbCornerlist const & c2)
{
    jbVertex vertex;
    vertex.position = converge(setpoint(c1.i, c1.j, c1.k), setpoint(c2.i, c2.j, c2.k), c1.value);
    return vertices.add(vertex);
}

int jbProcess::vertid(jbCornerlist * c1, jbCornerlist * c2)
{
    int const known = getedge(c1->i, c1->j, c1->k, c2->i, c2->j, c2->k);
    if (known != Corner::noVertex)
        return known;
    int const index = makeVertex(*c1, *c2);
    setedge(c1->i, c1->j, c1->k, c2->i, c2->j, c2->k, index);
    return index;
}

// As `vertid`, for corners of a cube that are records of this object and the ends of a tetrahedron's edge.
int jbProcess::latticeEdgeVertex(jbCube const & cube, int a, int b)
{
    EdgePlace const & place = edgePlaces.places[a][b];
    int & vertex = static_cast<Corner *>(cube.corners[place.first])->edgeVertices[place.direction];
    if (vertex == Corner::noVertex)
        vertex = makeVertex(*cube.corners[a], *cube.corners[b]);
    return vertex;
}

template <class VertexOfEdge>
int jbProcess::cutTetrahedron(int signs, int const (&corner)[4], VertexOfEdge vertexOfEdge)
{
    Crossings const & crossings = crossingTable.bySigns[signs];
    int edgeVertex[6];
    for (int n = 0; n < crossings.number; ++n) {
        int const edge = crossings.edges[n];
        edgeVertex[edge] = vertexOfEdge(corner[tetrahedronEdges[edge][0]], corner[tetrahedronEdges[edge][1]]);
    }
    for (int const(&triangle)[3] : triangles[signs]) {
        if (triangle[0] == 0)
            break;
        if ((*triangleProcessor)(edgeVertex[triangle[0] - 1], edgeVertex[triangle[1] - 1],
                                 edgeVertex[triangle[2] - 1], vertices) == 0)
            return 0;
    }
    return 1;
}

int jbProcess::dotet(jbCube * cube, int a, int b, int c, int d)
{
    int const corner[4] = {a, b, c, d};
    int signs = 0;
    for (int const number : corner)
        signs = 2 * signs + (isPositive(cube->corners[number]) ? 1 : 0);
    return cutTetrahedron(signs, corner, [&](int first, int second) {
        return vertid(cube->corners[first], cube->corners[second]);
    });
}

int jbProcess::cutCube(jbCube const & cube, int signs, bool stopAtRefusal)
{
    for (int const(&corner)[4] : tetrahedra) {
        int const goesOn = cutTetrahedron(signsAt(signs, corner), corner, [&](int first, int second) {
            return latticeEdgeVertex(cube, first, second);
        });
        if (goesOn == 0 && stopAtRefusal)
            return 0;
    }
    return 1;
}

// The cube at (i, j, k) across a face of `old`, with the four corners that they share.
jbCube jbProcess::neighbour(int i, int j, int k, jbCube const & old, int face, int const (&shared)[4])
{
    jbCube cube;
    cube.i = i;
    cube.j = j;
    cube.k = k;
    for (int const number : shared)
        cube.corners[number ^ 1 << faceBit[face]] = old.corners[number];
    return cube;
}

bool jbProcess::isOutside(int i, int j, int k) const
{
    // The largest index is kept out as well, since a cube's far corners lie one further.
    constexpr std::int64_t largest = std::numeric_limits<int>::max() - 1;
    int const index[3] = {i, j, k};
    for (int axis = 0; axis < 3; ++axis) {
        if (std::abs(std::int64_t{index[axis]}) > std::min(std::int64_t{bounds[axis]}, largest))
            return true;
    }
    return false;
}

void jbProcess::push(jbCube const & cube)
{
    jbCubes * entry = m_freeCubes;
    if (entry != nullptr)
        m_freeCubes = entry->next;
    else
        entry = static_cast<jbCubes *>(allocate(sizeof(jbCubes)));
    cubes = new (entry) jbCubes{cube, cubes};
}

// Completes the corners of a cube and pushes it, if all of them are usable.
void jbProcess::pushUsable(jbCube & cube)
{
    for (int n = 0; n < 8; ++n) {
        if (cube.corners[n] == nullptr)
            cube.corners[n] = setcorner(cube.i + (n >> 2 & 1), cube.j + (n >> 1 & 1), cube.k + (n & 1));
    }
    for (jbCornerlist const * const corner : cube.corners) {
        if (corner->flag != 0)
            return;
    }
    push(cube);
}

void jbProcess::testface(int i, int j, int k, jbCube * old, int face, int c1, int c2, int c3, int c4)
{
    bool const sign = isPositive(old->corners[c1]);
    bool const isCrossed = isPositive(old->corners[c2]) != sign || isPositive(old->corners[c3]) != sign ||
                           isPositive(old->corners[c4]) != sign;
    if (!isCrossed || isOutside(i, j, k) || setcenter(i, j, k) != 0)
        return;
    jbCube cube = neighbour(i, j, k, *old, face, {c1, c2, c3, c4});
    pushUsable(cube);
}

// As `testface`, for a cube whose corners are records of this object.
void jbProcess::walkAcross(jbCube const & old, int signs, int face)
{
    int const sharedSigns = signsAt(signs, faces[face].corners);
    if (sharedSigns == 0 || sharedSigns == 15)
        return;
    int const i = old.i + faces[face].step[0];
    int const j = old.j + faces[face].step[1];
    int const k = old.k + faces[face].step[2];
    int const(&shared)[4] = faces[face].corners;
    if (isOutside(i, j, k))
        return;
    jbCube cube = neighbour(i, j, k, old, face, shared);
    if (cube.corners[0] == nullptr)
        cube.corners[0] = findCorner(i, j, k);
    if (cube.corners[0] != nullptr && static_cast<Corner *>(cube.corners[0])->isCubeSeen != 0)
        return;
    if (cube.corners[0] == nullptr)
        cube.corners[0] = setcorner(i, j, k);
    static_cast<Corner *>(cube.corners[0])->isCubeSeen = 1;
    pushUsable(cube);
}

int jbProcess::polygonize(Function & implicitFunction, double cubeSize, int * cubeBounds,
                          Point3D_d startPoint, TriangleProcessor & sink)
{
    begin(implicitFunction, cubeSize, sink);
    Release const release(*this);
    std::copy(cubeBounds, cubeBounds + 3, bounds);
    start = startPoint;

    jbTest const inside = find(1, start);
    jbTest const outside = find(0, start);
    if (inside.ok == 0 || outside.ok == 0)
        return 1;
    start = converge(inside.point, outside.point, inside.value);

    jbCube first;
    for (int n = 0; n < 8; ++n)
        first.corners[n] = setcorner(n >> 2 & 1, n >> 1 & 1, n & 1);
    setcenter(0, 0, 0);
    push(first);

    while (cubes != nullptr) {
        jbCube const cube = cubes->cube;
        int const signs = signsOf(cube);
        if (cutCube(cube, signs, true) == 0)
            return 2;
        jbCubes * const top = cubes;
        cubes = top->next;
        top->next = m_freeCubes;
        m_freeCubes = top;
        for (int face = 0; face < 6; ++face)
            walkAcross(cube, signs, face);
    }
    return 0;
}

int jbProcess::marchingcubes(Function & implicitFunction, double cubeSize, Point3D_d low, Point3D_d high,
                             TriangleProcessor & sink)
{
    begin(implicitFunction, cubeSize, sink);
    Release const release(*this);
    std::fill(std::begin(bounds), std::end(bounds), 0);
    // The jitter keeps lattice points off special values of the function, such as a
    // plane through the box corner.
    start.x() = high.x() - size * 0.5 - random() * size * 0.001;
    start.y() = high.y() - size * 0.5 - random() * size * 0.001;
    start.z() = high.z() - size * 0.5 - random() * size * 0.001;

    int const nx = steps(high.x() - low.x(), size);
    int const ny = steps(high.y() - low.y(), size);
    int const nz = steps(high.z() - low.z(), size);
    if (nx < 0 || ny < 0 || nz < 0)
        return 0;

    // A row of cubes touches two layers of corners across k, so only these are kept, as one plain array.
    std::size_t const rowCorners = static_cast<std::size_t>(nx) + 2;
    std::size_t const layerCorners = rowCorners * (static_cast<std::size_t>(ny) + 2);
    if (layerCorners > std::numeric_limits<std::size_t>::max() / (2 * sizeof(Corner)))
        throw std::bad_alloc();
    std::unique_ptr<Corner, FreeMemory> const layers(
        static_cast<Corner *>(std::calloc(2 * layerCorners, sizeof(Corner))));
    if (layers == nullptr)
        throw std::bad_alloc();
    auto const cornerAt = [&](int i, int j, int k) {
        std::size_t const layer = static_cast<std::size_t>(k & 1) * layerCorners;
        return layers.get() + layer + static_cast<std::size_t>(j) * rowCorners + static_cast<std::size_t>(i);
    };

    for (int k = 0; k <= nz; ++k) {
        for (int j = 0; j <= ny; ++j) {
            for (int i = 0; i <= nx; ++i) {
                jbCube cube;
                cube.i = i;
                cube.j = j;
                cube.k = k;
                for (int n = 0; n < 8; ++n) {
                    int const ci = i + (n >> 2 & 1);
                    int const cj = j + (n >> 1 & 1);
                    int const ck = k + (n & 1);
                    Corner * const corner = cornerAt(ci, cj, ck);
                    // Every other corner was met in a cube before this one.
                    bool const isNew = (ci > i || i == 0) && (cj > j || j == 0) && (ck > k || k == 0);
                    if (isNew) {
                        int flag = 0;
                        double const value = (*function)(setpoint(ci, cj, ck), &flag);
                        new (corner) Corner(jbCornerlist{ci, cj, ck, flag, value, nullptr});
                    }
                    cube.corners[n] = corner;
                }
                int const signs = signsOf(cube);
                if (signs != 0 && signs != 255)
                    cutCube(cube, signs, false);
            }
        }
    }
    return 0;
}
