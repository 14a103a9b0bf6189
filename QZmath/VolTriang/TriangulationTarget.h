// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>

namespace VolTr
{

/// The mesh that a reconstruction fills, implemented by the caller. It is called on the thread of
/// `CVolumetricTriangulator::run` only. Every vertex is announced once, with rising indices from 0, before
/// the first triangle that uses it.
class QZMATH_API ITriangulationTarget
{
public:
    ITriangulationTarget() : m_vertexNumber(0) {}
    virtual ~ITriangulationTarget();

private:
    virtual void onAddNewVertex(int index, double const * coords, double const * normal) = 0;
    virtual void onAddNewVertex(int index, float const * coords, float const * normal) = 0;
    virtual void onAddNewTriangle(int a, int b, int c) = 0;

public:
    /// Adds a vertex: its index, three coordinates and three components of its normal, a unit
    /// vector or zero when normals were not asked for. The library calls this form; the pointers
    /// are valid during the call only.
    void addNewVertex(int index, double const * coords, double const * normal)
    {
        ++m_vertexNumber;
        onAddNewVertex(index, coords, normal);
    }
    /// Adds a vertex in single precision. Not used by the library; for others who feed a target.
    void addNewVertex(int index, float const * coords, float const * normal)
    {
        ++m_vertexNumber;
        onAddNewVertex(index, coords, normal);
    }
    /// Adds a triangle over three vertices announced before, counter-clockwise as seen from the side to which
    /// the normals of the samples point.
    void addNewTriangle(int a, int b, int c) { onAddNewTriangle(a, b, c); }

    /// How many vertices were added so far, those of a failed or interrupted run included.
    int debugCurrentVertexNumber() const { return m_vertexNumber; }

private:
    int m_vertexNumber;
};

} // namespace VolTr
