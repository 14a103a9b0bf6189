// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Foundation/Coord3DRefs.h>

#include <cstddef>

namespace REmath
{

ICoord3DRefs::~ICoord3DRefs() = default;

template <class Container>
CPtVecAdapder<Container>::CPtVecAdapder(Container const & points) : m_points(&points)
{}

template <class Container>
CPtVecAdapder<Container>::~CPtVecAdapder() = default;

template <class Container>
int CPtVecAdapder<Container>::getPointsNumber() const
{
    return static_cast<int>(m_points->size());
}

template <class Container>
float const * CPtVecAdapder<Container>::getPointCoords(int index) const
{
    return (*m_points)[static_cast<std::size_t>(index)].asArray();
}

template class CPtVecAdapder<std::vector<Point3D>>;

} // namespace REmath
