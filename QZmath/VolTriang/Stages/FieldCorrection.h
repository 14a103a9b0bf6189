// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace VolTr
{

class ImplicitFunction;
struct StageContext;

/// Brings the values of the function at the samples nearer to the iso-value: one value cannot serve all
/// samples, since the function is the smoothed indicator of the solid, and ripples between its nodes.
///
/// From the fifth deepest depth on, from coarse to fine, the residual at the samples is averaged around each
/// node and taken off with the kernels of the depth, times a share. The share is found by leaving samples
/// out: what the others predict of a sample's residual is compared with what it has. Where the residual is
/// noise, the share is 0 and nothing happens.
void correctField(StageContext const & context, ImplicitFunction & function, double isoValue);

} // namespace VolTr
