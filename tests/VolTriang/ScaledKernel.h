// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/VolTriang/Kernels.h>
#include <QZmath/VolTriang/ProductPiecewisePolynom.h>

namespace qz_test
{

/// The kernel of the reconstruction, `width` times as wide as the unscaled one.
inline VolTr::CProductPiecewisePolynom scaledKernel(double width)
{
    auto kernel = VolTr::makeApproxGaussian<VolTr::CProductPiecewisePolynom>();
    double const scale[3] = {1.0 / width, 1.0 / width, 1.0 / width};
    kernel.scaleArgument(scale);
    return kernel;
}

} // namespace qz_test
