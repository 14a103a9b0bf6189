// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Lattice.h>

#include <QZsys/Exceptions.h>

namespace VolTr
{

void CInt3::throwIncorrectAxis() { throw CVescaTextException("CInt3::coordMod incorrect argument"); }

} // namespace VolTr
