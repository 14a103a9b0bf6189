// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <functional>
#include <memory>

namespace VolTr
{

class COctree;
class TriangleSink;
struct LevelSet;
struct StageContext;

/// A function of space. Many threads may evaluate it at the same time, each with an evaluator of its own; a
/// point has the same bits with any evaluator.
class QZMATH_SISTER_API EvaluableFunction
{
public:
    /// Evaluates on one thread; remembers where it was, so that points near the last ones cost less. The
    /// function must outlive it.
    class Evaluator
    {
    public:
        virtual ~Evaluator() = default;
        /// Value at a point in model coordinates; 0 far from all nodes.
        virtual double value(double const * point) = 0;
        /// Partial derivatives at a point, per model unit.
        virtual void gradient(double const * point, double * out3) = 0;
    };

    virtual ~EvaluableFunction();

    /// \param extent size of the places, in model units, at which the points dwell
    virtual std::unique_ptr<Evaluator> makeEvaluator(double extent) const = 0;
};

/// The function X whose level set is the surface, in the form in which a path found it: a sum of kernels over
/// the nodes of an octree, which must outlive it.
class QZMATH_SISTER_API ImplicitFunction : public EvaluableFunction
{
public:
    ~ImplicitFunction() override;

    /// Adds the function that is about `valueOf(node)` around each node of a depth: a sum of the depth's
    /// kernels. Not while others evaluate; evaluators made before must not be used again.
    virtual void add(COctree const & octree, int depth, std::function<double(int)> const & valueOf) = 0;

    /// Mean over the samples, each with its weight of the density step; 0 when the weights sum up to 0. The
    /// same to the bit for any number of threads. Moves the progress over its whole range.
    virtual double meanAtSamples(StageContext const & context) const = 0;

    /// Hands what the parameters want of a level set to a sink, on the calling thread: the component that is
    /// met from the start point, or all near samples.
    /// \return false, and the reason in the report, when no surface was found at the start point
    virtual bool polygonise(LevelSet const & levelSet, StageContext const & context,
                            TriangleSink & sink) const = 0;
};

} // namespace VolTr
