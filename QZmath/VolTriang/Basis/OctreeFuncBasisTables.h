// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/VolTriang/Basis/KernelEvaluator.h>
#include <QZmath/VolTriang/Octree.h>
#include <QZmath/VolTriang/OctreeFuncBasis.h>

#include <vector>

namespace VolTr
{

/// The tables of a basis, by depth. Depths without nodes have scale 0, normalisation 0 and a box of zeros.
template <class TKernel>
class COctreeFuncBasisImpl
{
public:
    COctreeFuncBasisImpl(TKernel const & sampleKernel, COctree const * tree, int level);
    virtual ~COctreeFuncBasisImpl();

    /// Kernel value at a point for a node at `center` of a depth, before the normalisation.
    double evalKernel(double const * center, int depth, double const * point) const
    {
        double const scale = 0.0 - argumentScales[static_cast<std::size_t>(depth)];
        double const argument[3] = {(center[0] - point[0]) * scale, (center[1] - point[1]) * scale,
                                    (center[2] - point[2]) * scale};
        return evaluator.eval(argument);
    }

    COctree const * octree;
    TKernel sample;
    std::vector<double> argumentScales;
    std::vector<double> normalizations;
    std::vector<CParallelepiped> scaledSupports;
    int derivativeLevel;
    CKernelEvaluator<TKernel> evaluator;
};

} // namespace VolTr
