// SPDX-License-Identifier: Apache-2.0
//
// The memory of the polygoniser's walk: what it knows of corners, cubes and edges, found again by hashing.
#include <QZmath/VolTriang/jbProcess.h>

#include <QZmath/VolTriang/Polygoniser/CornerRecord.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <new>
#include <tuple>
#include <utility>

using namespace CubeCut;

namespace
{

constexpr int firstVertexCapacity = 10;
constexpr std::size_t firstTableSize = 1024;
constexpr std::size_t firstBlockBytes = std::size_t{1} << 14;
constexpr std::size_t largestBlockBytes = std::size_t{1} << 20;

// Points of one block of 4 x 4 x 4 share a hash up to the low 6 bits, which tell them apart: the walk stays
// in one place for long, and so do its memory accesses.
std::uint64_t hashBlock(std::uint32_t i, std::uint32_t j, std::uint32_t k)
{
    std::uint64_t const mixed =
        (i >> 2) * 0x9E3779B97F4A7C15U ^ (j >> 2) * 0xC2B2AE3D27D4EB4FU ^ (k >> 2) * 0x165667B19E3779F9U;
    return (mixed ^ mixed >> 29) * 0xBF58476D1CE4E5B9U >> 24;
}

std::size_t hashPoint(int i, int j, int k)
{
    auto const x = static_cast<std::uint32_t>(i);
    auto const y = static_cast<std::uint32_t>(j);
    auto const z = static_cast<std::uint32_t>(k);
    return hashBlock(x, y, z) << 6 | ((x & 3) << 4 | (y & 3) << 2 | (z & 3));
}

// The seven directions of the edges of the tetrahedra differ in the parities of their three steps.
std::size_t hashEdge(int i1, int j1, int k1, int i2, int j2, int k2)
{
    std::size_t const direction =
        static_cast<std::size_t>(((i1 ^ i2) & 1) << 2 | ((j1 ^ j2) & 1) << 1 | ((k1 ^ k2) & 1));
    return hashPoint(i1, j1, k1) << 3 | direction;
}

void orderEnds(int & i1, int & j1, int & k1, int & i2, int & j2, int & k2)
{
    if (std::tie(i2, j2, k2) < std::tie(i1, j1, k1)) {
        std::swap(i1, i2);
        std::swap(j1, j2);
        std::swap(k1, k2);
    }
}

// Of two points in lexicographic order, which may be far apart.
int edgeDirectionBetween(int i1, int j1, int k1, int i2, int j2, int k2)
{
    auto const step = [](int from, int to) {
        return static_cast<int>(std::clamp<std::int64_t>(std::int64_t{to} - from, -2, 2));
    };
    return edgeDirection(step(i1, i2), step(j1, j2), step(k1, k2));
}

// Takes the first entry of one chain and puts it in front of another.
template <class Entry>
void moveToHead(Entry *& from, Entry *& to)
{
    Entry * const moved = from;
    from = moved->next;
    moved->next = to;
    to = moved;
}

} // namespace

// Blocks and what is cut from them are aligned to cache lines as far as sizes allow.
struct alignas(64) jbProcess::Block
{
    Block * next;
};

int jbVertices::add(jbVertex vertex)
{
    if (count >= capacity) {
        if (capacity > std::numeric_limits<int>::max() / 2)
            throw std::bad_alloc();
        int const larger = capacity > 0 ? capacity * 2 : firstVertexCapacity;
        void * const memory = std::realloc(items, static_cast<std::size_t>(larger) * sizeof(jbVertex));
        if (memory == nullptr)
            throw std::bad_alloc();
        items = static_cast<jbVertex *>(memory);
        capacity = larger;
    }
    items[count] = vertex;
    return count++;
}

void * jbProcess::allocate(std::size_t bytes)
{
    if (bytes > m_blockRestBytes) {
        std::size_t const blockBytes = std::max(m_nextBlockBytes, firstBlockBytes);
        auto * const block = static_cast<Block *>(std::aligned_alloc(alignof(Block), blockBytes));
        if (block == nullptr)
            throw std::bad_alloc();
        block->next = m_blocks;
        m_blocks = block;
        m_blockRest = reinterpret_cast<char *>(block) + sizeof(Block);
        m_blockRestBytes = blockBytes - sizeof(Block);
        m_nextBlockBytes = std::min(2 * blockBytes, largestBlockBytes);
    }
    void * const memory = m_blockRest;
    m_blockRest += bytes;
    m_blockRestBytes -= bytes;
    return memory;
}

// Makes the table at its first use and doubles it when it has become half full.
template <class Entry, class Hash>
void jbProcess::reserveBucket(Entry **& table, std::size_t & mask, std::size_t count, Hash hash)
{
    if (table != nullptr && 2 * count <= mask)
        return;
    std::size_t const largerSize = table != nullptr ? 2 * (mask + 1) : firstTableSize;
    auto ** const larger = static_cast<Entry **>(std::calloc(largerSize, sizeof(Entry *)));
    if (larger == nullptr)
        throw std::bad_alloc();
    if (table != nullptr) {
        for (std::size_t bucket = 0; bucket <= mask; ++bucket) {
            // Reversed first, so that newer entries stay before older ones: each bucket splits into two of
            // its own.
            Entry * reversed = nullptr;
            for (Entry * entry = table[bucket]; entry != nullptr;)
                moveToHead(entry, reversed);
            while (reversed != nullptr) {
                std::size_t const target = hash(*reversed) & (largerSize - 1);
                moveToHead(reversed, larger[target]);
            }
        }
        std::free(table);
    }
    table = larger;
    mask = largerSize - 1;
}

jbProcess::Corner * jbProcess::findCorner(int i, int j, int k) const
{
    if (corners == nullptr)
        return nullptr;
    jbCornerlist * entry = corners[hashPoint(i, j, k) & m_cornerMask];
    while (entry != nullptr && (entry->i != i || entry->j != j || entry->k != k))
        entry = entry->next;
    return static_cast<Corner *>(entry);
}

jbCornerlist * jbProcess::setcorner(int i, int j, int k)
{
    if (Corner * const known = findCorner(i, j, k))
        return known;
    int flag = 0;
    double const value = (*function)(setpoint(i, j, k), &flag);
    reserveBucket(corners, m_cornerMask, m_cornerCount,
                  [](jbCornerlist const & entry) { return hashPoint(entry.i, entry.j, entry.k); });
    jbCornerlist *& head = corners[hashPoint(i, j, k) & m_cornerMask];
    head = new (allocate(sizeof(Corner))) Corner(jbCornerlist{i, j, k, flag, value, head});
    ++m_cornerCount;
    return head;
}

bool jbProcess::isListedCenter(int i, int j, int k) const
{
    if (centers == nullptr)
        return false;
    jbCenterlist const * entry = centers[hashPoint(i, j, k) & m_centerMask];
    while (entry != nullptr && (entry->i != i || entry->j != j || entry->k != k))
        entry = entry->next;
    return entry != nullptr;
}

int jbProcess::setcenter(int i, int j, int k)
{
    Corner * const corner = findCorner(i, j, k);
    if ((corner != nullptr && corner->isCubeSeen != 0) || isListedCenter(i, j, k))
        return 1;
    if (corner != nullptr) {
        corner->isCubeSeen = 1;
        return 0;
    }
    reserveBucket(centers, m_centerMask, m_centerCount,
                  [](jbCenterlist const & entry) { return hashPoint(entry.i, entry.j, entry.k); });
    jbCenterlist *& head = centers[hashPoint(i, j, k) & m_centerMask];
    head = new (allocate(sizeof(jbCenterlist))) jbCenterlist{i, j, k, head};
    ++m_centerCount;
    return 0;
}

void jbProcess::setedge(int i1, int j1, int k1, int i2, int j2, int k2, int vertex)
{
    orderEnds(i1, j1, k1, i2, j2, k2);
    int const direction = edgeDirectionBetween(i1, j1, k1, i2, j2, k2);
    Corner * const corner = direction >= 0 ? findCorner(i1, j1, k1) : nullptr;
    if (corner != nullptr) {
        corner->edgeVertices[direction] = vertex;
        return;
    }
    reserveBucket(edges, m_edgeMask, m_edgeCount, [](jbEdgelist const & entry) {
        return hashEdge(entry.i1, entry.j1, entry.k1, entry.i2, entry.j2, entry.k2);
    });
    jbEdgelist *& head = edges[hashEdge(i1, j1, k1, i2, j2, k2) & m_edgeMask];
    head = new (allocate(sizeof(jbEdgelist))) jbEdgelist{i1, j1, k1, i2, j2, k2, vertex, head};
    ++m_edgeCount;
}

int jbProcess::getedge(int i1, int j1, int k1, int i2, int j2, int k2)
{
    orderEnds(i1, j1, k1, i2, j2, k2);
    int const direction = edgeDirectionBetween(i1, j1, k1, i2, j2, k2);
    Corner const * const corner = direction >= 0 ? findCorner(i1, j1, k1) : nullptr;
    if (corner != nullptr && corner->edgeVertices[direction] != Corner::noVertex)
        return corner->edgeVertices[direction];
    if (edges == nullptr)
        return Corner::noVertex;
    for (jbEdgelist const * entry = edges[hashEdge(i1, j1, k1, i2, j2, k2) & m_edgeMask]; entry != nullptr;
         entry = entry->next) {
        if (entry->i1 == i1 && entry->j1 == j1 && entry->k1 == k1 && entry->i2 == i2 && entry->j2 == j2 &&
            entry->k2 == k2)
            return entry->vertex;
    }
    return Corner::noVertex;
}

void jbProcess::freeprocess()
{
    std::free(centers);
    std::free(corners);
    std::free(edges);
    std::free(vertices.items);
    while (m_blocks != nullptr) {
        Block * const next = m_blocks->next;
        std::free(m_blocks);
        m_blocks = next;
    }
    centers = nullptr;
    corners = nullptr;
    edges = nullptr;
    vertices = jbVertices();
    cubes = nullptr;
    m_freeCubes = nullptr;
    m_centerMask = m_cornerMask = m_edgeMask = 0;
    m_centerCount = m_cornerCount = m_edgeCount = 0;
    m_blockRest = nullptr;
    m_blockRestBytes = 0;
    m_nextBlockBytes = 0;
}
