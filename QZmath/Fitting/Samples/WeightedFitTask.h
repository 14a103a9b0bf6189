// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Fitting/RobustRegression.h>

#include <algorithm>
#include <vector>

/// What the fits of curves for the robust solver have in common.
class WeightedFitTask : public IRegressionAnalysisTask
{
public:
    int fitInitial(std::vector<double> & residuals) final
    {
        return fitWeighted(std::vector<double>(residuals.size(), 1.0), residuals);
    }

    int fitWeighted(std::vector<double> const & weights, std::vector<double> & residuals) final
    {
        // No weight at all is the sign of a perfect fit before.
        if (!weights.empty() && *std::max_element(weights.begin(), weights.end()) == 0)
            return 0;
        if (!fit(weights))
            return fitFailed;
        findResiduals(residuals);
        return 0;
    }

protected:
    static constexpr int fitFailed = 9;

private:
    virtual bool fit(std::vector<double> const & weights) = 0;
    virtual void findResiduals(std::vector<double> & residuals) const = 0;
};
