// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/VolTriang/Bricks/BrickFunction.h>
#include <QZmath/VolTriang/Stages/ImplicitFunction.h>

namespace VolTr
{

/// The implicit function in bricks, as the accelerated path finds it.
class QZMATH_SISTER_API BrickedFunction final : public ImplicitFunction
{
public:
    explicit BrickedFunction(BrickFunction function);

    void add(COctree const & octree, int depth, std::function<double(int)> const & valueOf) override;
    std::unique_ptr<Evaluator> makeEvaluator(double extent) const override;
    double meanAtSamples(StageContext const & context) const override;
    bool polygonise(LevelSet const & levelSet, StageContext const & context,
                    TriangleSink & sink) const override;

private:
    class PointEvaluator;

    BrickFunction m_function;
};

} // namespace VolTr
