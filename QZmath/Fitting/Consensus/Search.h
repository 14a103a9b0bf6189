// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Fitting/Consensus/SampleSet.h>

#include <array>
#include <vector>

namespace REmath::Detail
{

/// The search for one object among the samples: trials, early ends and local optimisation.
template <class Shape>
class ConsensusSearch
{
public:
    struct Candidate
    {
        Shape shape;
        double distance = 0; ///< of the inliers, in units
        double score = 0;    ///< comparable among candidates of one search
        std::size_t support = 0;
    };

    ConsensusSearch(SampleSet const & samples, SampleRandom & random);

    /// Looks for the object with the most support within `distance`, or, if that is 0, with the support that
    /// stands out most against the background, whatever the distance.
    void run(double distance, double confidence, int mostTrials);

    Candidate const & best() const { return m_best; }
    int trials() const { return m_trials; }

    /// Would clouds at random seldom have an object with as much support as `others`, with all the samples
    /// and distances that there are to choose from? `others` are the inliers without those that leave it
    /// open what the object is.
    bool isMeaningful(std::size_t others) const;
    bool isMeaningful() const { return isMeaningful(m_best.support); }

    /// The samples within the distance of the best object.
    std::vector<Point3D_d> const & collectInliers();

private:
    bool drawShape(Shape & shape);
    double trialScore(Shape const & shape, double scoreToBeat);
    void improve(Shape const & shape);
    bool judge(Candidate & candidate);
    void collectWithin(double distance);
    int trialsNeeded(double confidence, int mostTrials) const;

    double gain(Shape const & shape, std::size_t begin, std::size_t end) const;
    template <bool exact>
    void measure(Shape const & shape, std::size_t count);
    void findContrast(Candidate & candidate, std::size_t count);

    SampleSet const & m_samples;
    SampleRandom & m_random;
    double m_given = 0; ///< 0: to be found
    int m_trials = 0;
    Candidate m_best;
    std::vector<Point3D_d> m_inliers;
    std::vector<double> m_squares; ///< of the distances from the last object measured
};

extern template class ConsensusSearch<ConsensusLine>;
extern template class ConsensusSearch<ConsensusPlane>;
extern template class ConsensusSearch<ConsensusCircle>;

} // namespace REmath::Detail
