// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Lattice.h>

#include <QZsys/Exceptions.h>

namespace VolTr
{

int CInt3::coord(int axis) const { return const_cast<CInt3 *>(this)->coordMod(axis); }

int & CInt3::coordMod(int axis)
{
    if (axis < 0 || axis > 2)
        throw CVescaTextException("CInt3::coordMod incorrect argument");
    return m_coords[axis];
}

} // namespace VolTr
