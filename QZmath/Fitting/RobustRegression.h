// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>

#include <vector>

/// A model that `CRobustRegressionSolver` fits to samples. The task owns the samples and the parameters,
/// makes the weighted fits and tells when two successive fits are the same; it knows nothing of outliers.
class QZMATH_API IRegressionAnalysisTask
{
public:
    virtual ~IRegressionAnalysisTask();
    /// Number of parameters of the model. For the caller's information; the solver does not ask.
    virtual int parameterCount() = 0;
    virtual unsigned int sampleCount() = 0;
    /// Makes the first fit, in which all samples count the same, and fills `residuals`, one for each sample:
    /// its distance from the model, never negative. The vector comes in the right size. Gives 0, or a code of
    /// the task's own when there is no fit.
    virtual int fitInitial(std::vector<double> & residuals) = 0;
    /// Fits again, with a weight from 0 to 1 for each sample, and fills and gives what `fitInitial` does. All
    /// weights can be 0.
    virtual int fitWeighted(std::vector<double> const & weights, std::vector<double> & residuals) = 0;
    /// Puts the present parameters into `parameters`, whose size it sets.
    virtual void storeParameters(std::vector<double> & parameters) = 0;
    /// Whether the present parameters agree, within the task's own tolerance, with those stored before.
    virtual bool isConverged(std::vector<double> const & parameters) = 0;
};

/// Iteratively reweighted least squares with the weights of Geman and McClure, cut off at two scales (D.
/// Geman, D. McClure: Statistical methods for tomographic image reconstruction, 1987; P. Huber: Robust
/// Statistics, 1981).
///
/// The scale of the residuals is estimated as 1.4826 times their median, which is the standard deviation for
/// normally distributed errors, and half of the samples can be outliers before it breaks down. It never falls
/// below the scale of the first fit, however well later ones fit: else the weights would collapse onto a few
/// samples. A sample with residual r gets the weight 1 / (1 + (r / scale)²)², and 0 from r = 2 scale on or
/// when r is NaN.
///
/// A round costs one fit and a median by selection, expected O(n). The solver keeps its vectors: a second run
/// over as many samples allocates nothing. The task must outlive it. Not thread-safe; throws only what the
/// task throws.
class QZMATH_API CRobustRegressionSolver
{
public:
    CRobustRegressionSolver(IRegressionAnalysisTask & task);

    /// Fits until the task reports convergence, at most 49 times after the first fit. Running out of rounds
    /// is a success; the task then holds the last fit. Gives 0, or the first other code of the task. When all
    /// residuals of the first fit are 0, all weights are; what such a fit means is the task's decision. Can
    /// be called again, and starts anew each time.
    int solveRegression();

    /// Weights of the last fit, one for each sample: which samples carry the result. All 1 when only the
    /// first fit was made; empty before the first run.
    std::vector<double> const & suppWeights() const { return m_suppWeights; }

private:
    void updateVariance();
    void calculateSuppWeights();

    IRegressionAnalysisTask & m_task;
    double m_sigma = -1;      // scale of the residuals; negative: not yet known
    double m_sigmaFloor = -1; // that of the first fit
    std::vector<double> m_residuals;
    std::vector<double> m_sortBuffer;
    std::vector<double> m_suppWeights;
    int m_suppCount = 0; // samples of weight above 0
    std::vector<double> m_previousParameters;
};
