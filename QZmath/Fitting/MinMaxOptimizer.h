// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/Foundation/Functor.h>
#include <QZmath/Foundation/Point3D.h>

#include <cstddef>
#include <memory>
#include <vector>

namespace REmath
{

/// The problem of CMinMaxOptimizer: criteria over a box in space, a start, and optionally a projector onto an
/// admissible set. Refers to the criteria and the projector, which belong to the caller and must outlive it.
class QZMATH_API CMinMaxTask
{
public:
    using Function = Functor1<double, Point3D_d const &>;

    /// Moves points onto the admissible set.
    class QZMATH_API IProjector
    {
    public:
        virtual ~IProjector();
        virtual void Project(Point3D_d & point) const = 0;
    };

    /// No criteria, no projector, everything else at the origin.
    CMinMaxTask();
    CMinMaxTask(CMinMaxTask const & other);
    CMinMaxTask & operator=(CMinMaxTask const & other);
    ~CMinMaxTask();

    /// Appends a criterion; null is ignored.
    void AddFunctor(Function const * function);
    int NFunctions() const { return static_cast<int>(m_functions.size()); }
    /// The criterion of number `index`, from 0; the index is not checked.
    Function const & FnByIdx(int index) const { return *m_functions[static_cast<std::size_t>(index)]; }

    Point3D_d const & GetInitApprox() const { return m_initApprox; }
    void SetInitApprox(Point3D_d const & point) { m_initApprox = point; }
    Point3D_d const & GetLimitMin() const { return m_limitMin; }
    void SetLimitMin(Point3D_d const & point) { m_limitMin = point; }
    Point3D_d const & GetLimitMax() const { return m_limitMax; }
    void SetLimitMax(Point3D_d const & point) { m_limitMax = point; }
    IProjector const * GetProjector() const { return m_projector; }
    void SetProjector(IProjector const * projector) { m_projector = projector; }

private:
    std::vector<Function const *> m_functions;
    Point3D_d m_initApprox;
    Point3D_d m_limitMin;
    Point3D_d m_limitMax;
    IProjector const * m_projector = nullptr;
};

/// How far CMinMaxOptimizer goes.
class QZMATH_API CMinMaxParams
{
public:
    CMinMaxParams() = default;

    /// The defaults that stand at the accessors.
    void SetDefault();

    /// Least gain of a step that counts, in units of the criteria; 1e-5.
    double GetTolerance() const { return m_tolerance; }
    void SetTolerance(double tolerance) { m_tolerance = tolerance; }
    /// Greatest number of steps; 4.
    int GetMaxIter() const { return m_maxIter; }
    void SetMaxIter(int maxIter) { m_maxIter = maxIter; }
    /// Step lengths tried before a step is given up; 3.
    int GetMaxGradientMoveAttempts() const { return m_maxGradientMoveAttempts; }
    void SetMaxGradientMoveAttempts(int attempts) { m_maxGradientMoveAttempts = attempts; }
    /// Factor from one length tried to the next; 0.5.
    double GetGradientScale() const { return m_gradientScale; }
    void SetGradientScale(double scale) { m_gradientScale = scale; }
    /// Difference step of the gradients as a multiple of the **squared** diagonal of the box; 1e-5.
    double GetGradCalcRelDelta() const { return m_gradCalcRelDelta; }
    void SetGradCalcRelDelta(double delta) { m_gradCalcRelDelta = delta; }

private:
    double m_tolerance = 1e-5;
    int m_maxIter = 4;
    int m_maxGradientMoveAttempts = 3;
    double m_gradientScale = 0.5;
    double m_gradCalcRelDelta = 1e-5;
};

/// Maximises the smallest of several functions over a box: looks for the point where the worst of some
/// criteria is as good as can be.
///
/// A short ascent. Each step goes along the gradient of the worst function (of the next worse one when the
/// gradient's square is at most 1e-8), as far as 98 percent of the way to the box, and not beyond the point
/// where, by the gradients, a better function that falls meets it while it rises; then it tries shorter
/// lengths until the minimum has grown by more than the tolerance. Near a ridge where two functions cross,
/// the gradient of one alone leads a little ahead only, so the result there is near the optimum, not at it.
///
/// Gradients are forward differences with one step for all axes, at least 1e-5; so functions are evaluated up
/// to this much outside the box, and a start outside the box is not brought into it. At the start, a function
/// value of NaN counts as no value; no step goes to a point where a function is NaN, or that is not finite.
class QZMATH_API CMinMaxOptimizer
{
public:
    /// Refers to both, which must outlive the optimizer. The box is read here, for the difference step, and
    /// everything else in `Run`.
    CMinMaxOptimizer(CMinMaxTask const & task, CMinMaxParams const & params);
    CMinMaxOptimizer(CMinMaxOptimizer const & other);
    CMinMaxOptimizer & operator=(CMinMaxOptimizer const & other);
    ~CMinMaxOptimizer();

    /// The start, or a point at which the smallest function is greater. Evaluates every function once, and
    /// for each step every function once per length tried, and at most three times for a gradient. Has no
    /// state of its own, so that several threads can run it at once if the functions allow; passes on what
    /// they throw.
    void Run(Point3D_d & result) const;

private:
    class Impl;
    std::unique_ptr<Impl> m_impl;
};

} // namespace REmath
