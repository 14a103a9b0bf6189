// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Foundation/TriangleMesh.h>
#include <QZmath/VolTriang/MeshStoreDetail.h>
#include <QZmath/VolTriang/TriangulationTarget.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace QZmath
{

/// Takes the mesh of the core, one by one or, where the core can, in its own arrays.
class MeshTarget final : public VolTr::ITriangulationTarget, public VolTr::MeshStore
{
public:
    MeshTarget(TriangleMesh & mesh, bool withNormals) : m_mesh(mesh), m_withNormals(withNormals) {}

    void expect(std::size_t triangles) override { m_mesh.triangles.reserve(3 * triangles); }
    std::int32_t * triangles(std::size_t count) override { return roomIn(m_mesh.triangles, count); }
    float * positions(std::size_t count) override { return roomIn(m_mesh.positions, count); }
    float * normals(std::size_t count) override { return roomIn(m_mesh.normals, count); }

private:
    template <class Number>
    static Number * roomIn(std::vector<Number> & triples, std::size_t count)
    {
        triples.resize(3 * count);
        return triples.data();
    }
    template <class Number>
    void add(Number const * coords, Number const * normal)
    {
        for (int axis = 0; axis < 3; ++axis)
            m_mesh.positions.push_back(static_cast<float>(coords[axis]));
        for (int axis = 0; axis < 3 && m_withNormals; ++axis)
            m_mesh.normals.push_back(static_cast<float>(normal[axis]));
    }
    void onAddNewVertex(int, double const * coords, double const * normal) override { add(coords, normal); }
    void onAddNewVertex(int, float const * coords, float const * normal) override { add(coords, normal); }
    void onAddNewTriangle(int a, int b, int c) override
    {
        m_mesh.triangles.insert(m_mesh.triangles.end(), {a, b, c});
    }

    TriangleMesh & m_mesh;
    bool m_withNormals;
};

} // namespace QZmath
