// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>

#include <vector>

/// Sorts the values, downwards for a negative `direction` and else upwards; NaN counts as greater than any
/// number. `period` has no part in it. Always true. O(n log n).
QZMATH_API bool ArrangePointsOnLine(std::vector<float> & values, int direction, int period);

/// Checks that the values, positions on a circle of length `period`, run round it once in the sense of
/// `direction` (+1 or -1) when the list is read cyclically, and repairs places where they do not.
///
/// The sense of a step from a to b, its cyclic successor, is decided by a vote: each other value says whether
/// it lies between a and b, more than 0.01 from both or exactly at b, which speaks for a step from the
/// greater to the smaller number having sense +1 and any other sense -1; a value elsewhere says the contrary.
/// The majority has it. A step of at most 0.01 has no sense.
///
/// About a value from which a step in the wrong sense leads, a window is widened by one value backwards and
/// forwards in turn until the steps from both of its ends are right. Unless the value lies between these ends
/// in the sense asked for, more than 0.01 from both, the inner values are replaced: they count upwards from
/// the window's start in equal steps d / (1 + d), which is below 1, for a window of d units from end to end
/// (`period` + |d| if it runs against `direction`), and wrap at `period`. So windows that lack room for steps
/// of nearly 1 per value cannot be repaired, nor can most lists of `direction` -1.
///
/// True, without changes, for a list in order. False, with the list as it was, when a window grows round the
/// whole list or the repaired list is still not in order; also with fewer than three values (nobody votes; an
/// empty list is in order), values that are not finite, or another `direction`. O(n log n), and O(n) for
/// each repaired value.
QZMATH_API bool ArrangePointsOnCircle(std::vector<float> & values, int direction, int period);
