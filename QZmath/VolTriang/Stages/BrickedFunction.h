// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/VolTriang/Bricks/BrickFunction.h>
#include <QZmath/VolTriang/Stages/ImplicitFunction.h>

namespace VolTr
{

/// Evaluates a function in bricks that somebody else keeps.
class QZMATH_SISTER_API BrickEvaluation final : public EvaluableFunction
{
public:
    explicit BrickEvaluation(BrickFunction const & function) : m_function(function) {}

    std::unique_ptr<Evaluator> makeEvaluator(double extent) const override;

private:
    BrickFunction const & m_function;
};

/// The implicit function in bricks, as the accelerated path finds it.
class QZMATH_SISTER_API BrickedFunction final : public ImplicitFunction
{
public:
    explicit BrickedFunction(BrickFunction function);

    BrickFunction const & bricks() const { return m_function; }

    void add(COctree const & octree, int depth, std::function<double(int)> const & valueOf) override;
    std::unique_ptr<Evaluator> makeEvaluator(double extent) const override;
    double meanAtSamples(StageContext const & context) const override;
    bool polygonise(LevelSet const & levelSet, StageContext const & context,
                    TriangleSink & sink) const override;

private:
    BrickFunction m_function;
};

} // namespace VolTr
