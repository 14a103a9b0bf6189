// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Foundation/LinearTransform.h>

namespace REmath::Detail
{

/// The map `outer` after `inner`. The products of a sum come first and the shift last, in the mirrored order
/// of `invertOrtho`: an inverse of that kind takes the shift of its map back to exactly 0.
RElinearTransform compose(RElinearTransform const & outer, RElinearTransform const & inner);

/// Whether every element is within `max(|a| + |b|, 1)` times the ε of `float` of the identity's.
bool isNearIdentity(RElinearTransform const & transform);

} // namespace REmath::Detail
