// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/Foundation/TriangleMesh.h>

#include <cstdint>

namespace QzBackend
{
class LoopTeam;
}

namespace QZmath::Stages
{

class SampleIndex;

/// Gives each vertex the mean colour of the samples that it rests on, taken in linear light: weighted with a
/// quadratic B-spline over 1.5 times `width` around it, or as far as it takes to reach a few samples. Samples
/// whose normals look the other way are left out, so that the sides of a thin wall keep their colours. A
/// vertex farther than 4.5 widths from all samples has the colour of the nearest.
///
/// \param sampleColors  3 a sample, sRGB
/// \param sampleNormals 3 a sample, or null
/// \param width         in model units
QZMATH_SISTER_API void colourVertices(TriangleMesh & mesh, SampleIndex const & samples,
                                      std::uint8_t const * sampleColors, float const * sampleNormals,
                                      double width, QzBackend::LoopTeam & team, double until = 0);

/// Gives each vertex the number of samples per unit of area around it, from the discs that hold 64 samples.
/// Within about 10 % where samples are spread at random; half of that at a rim; and falling with the square
/// of the distance where the surface runs away from the samples.
///
/// \param sampleNormals 3 a sample, or null; keeps the sides of a thin wall apart
/// \param leafCell      samples within a tenth of it count as spread over that
QZMATH_SISTER_API void measureDensity(TriangleMesh & mesh, SampleIndex const & samples,
                                      float const * sampleNormals, double leafCell,
                                      QzBackend::LoopTeam & team, double until = 0);

} // namespace QZmath::Stages
