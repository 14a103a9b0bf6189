// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/VolTriang/OctreeFuncBasis.h>
#include <QZmath/VolTriang/OctreeFuncLinComb.h>
#include <QZmath/VolTriang/ProductPiecewisePolynom.h>

#include <array>
#include <memory>

namespace VolTr
{

// The reconstruction runs on separable kernels throughout.
using Kernel = CProductPiecewisePolynom;
using Basis = COctreeFuncBasisTmpl<Kernel>;
using Combination = COctreeFuncLinCombTmpl<Kernel>;

// One basis and one combination per axis: the first partial derivatives.
using GradientBasis = std::array<std::unique_ptr<Basis>, 3>;
using VectorField = std::array<std::unique_ptr<Combination>, 3>;

} // namespace VolTr
