// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/VolTriang/Stages/ImplicitFunction.h>
#include <QZmath/VolTriang/Stages/PipelineTypes.h>

#include <atomic>
#include <memory>
#include <mutex>

namespace VolTr
{

/// The partial derivatives of the functions of a basis: one basis per axis.
GradientBasis makeGradientBasis(Basis const & basis);

/// The implicit function as a combination over the nodes of the octree, as the exact path finds it.
class CombinationFunction final : public ImplicitFunction
{
public:
    /// The basis of the combination must outlive the function.
    explicit CombinationFunction(std::unique_ptr<Combination> function);

    void add(COctree const & octree, int depth, std::function<double(int)> const & valueOf) override;
    std::unique_ptr<Evaluator> makeEvaluator(double extent) const override;
    double meanAtSamples(StageContext const & context) const override;
    bool polygonise(LevelSet const & levelSet, StageContext const & context,
                    TriangleSink & sink) const override;

private:
    class PointEvaluator;

    // Made when the first evaluator asks: three times as large as the function.
    VectorField const & gradient() const;

    std::unique_ptr<Combination> m_function;
    mutable std::atomic<bool> m_isGradientMade{false};
    mutable std::mutex m_gradientMutex;
    mutable GradientBasis m_gradBasis;
    mutable VectorField m_gradient;
};

} // namespace VolTr
