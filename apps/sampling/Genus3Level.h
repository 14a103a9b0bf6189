// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Foundation/Point3D.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>

/// The function whose zeros are the shape "genus3": z² - thickness * h(x, y), where h falls to 0 at the
/// circle around a disk and at those around three holes in it. Each circle contributes a factor that rises
/// from 0 at the circle to 1 far from it, so that the thickness is about even.
namespace qz_sampling::genus3
{

constexpr double discRadius = 1.2;
constexpr double slabHalfWidth = 0.285; ///< beyond the greatest |z| of the surface

/// The function is at most so steep ...
constexpr double slopeBound = 1.05;
/// ... so a step along a line to the next place worth a look is what the level allows, and at least this.
constexpr double minStep = 0.004;

/// The second derivative across z is at least so large, and along any line at most so far from 0: a grid of
/// 4001 x 4001 places in the ball finds -2.07 to 3.03 across z, and along z it is 2.
constexpr double leastCurvatureAcross = -2.4;
constexpr double curvatureBound = 3.5;

double levelAt(REmath::Point3D_d const & point);
REmath::Point3D_d gradientAt(REmath::Point3D_d const & point);

constexpr std::size_t st_lanes = 8; ///< two vectors of the widest kind that pays for roots

/// Walks along as many lines at a time. Each stands at a place, from which it goes on by itself for as long
/// as the level keeps its sign and the end is not reached.
struct Walks
{
    double origin[3][st_lanes];
    double along[3][st_lanes];
    double position[st_lanes]; ///< The place is at `origin + along * position`.
    double end[st_lanes];      ///< of the line; -infinity for one that is to stop at every place
    double passed[st_lanes];   ///< position of the place before
    double before[st_lanes];   ///< level at the place before
    double level[st_lanes];    ///< level at the place, with the bits of `levelAt`, when the walk has stopped
};

/// Where the level calls for it, goes to the next place.
inline double nextPosition(double position, double level)
{
    return position + std::max(std::abs(level) / slopeBound, minStep);
}

/// Goes one step along each line, and returns a bit for each line that has stopped. 20 cycles a line, where
/// `levelAt` waits 90 for its roots and quotients.
unsigned walk(Walks & walks);

} // namespace qz_sampling::genus3
