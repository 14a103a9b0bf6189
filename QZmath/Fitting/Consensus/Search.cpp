// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Fitting/Consensus/Search.h>

#include <algorithm>
#include <cstring>

namespace REmath::Detail
{

namespace
{

// Samples between two looks at whether a trial is lost.
constexpr std::size_t blockSize = 128;
// Samples on which a trial is judged where the distance is to be found.
constexpr std::size_t previewSize = 128;
constexpr int mostRounds = 5;
// Objects that chance makes of the background must be fewer than this on the average.
constexpr double expectedByChance = 0.01;

// Logarithms of the whole numbers and of their factorials up to the number of samples, with log 0
// taken as 0.
struct CountLogarithms
{
    CountLogarithms()
    {
        for (std::size_t i = 1; i <= SampleSet::mostSamples; ++i) {
            of[i] = std::log(static_cast<double>(i));
            ofFactorial[i] = ofFactorial[i - 1] + of[i];
        }
    }

    static CountLogarithms const & table()
    {
        static CountLogarithms const logarithms;
        return logarithms;
    }

    double ofBinomial(std::size_t n, std::size_t k) const
    {
        return ofFactorial[n] - ofFactorial[k] - ofFactorial[n - k];
    }

    std::array<double, SampleSet::mostSamples + 1> of{}, ofFactorial{};
};

// Counts of squared distances in four steps for each octave, which are eight for each octave of the distance.
class DistanceHistogram
{
public:
    static constexpr std::int64_t stepCount = 320;

    void add(double square)
    {
        // Steps by the exponent and two bits behind the point. NaN, of either sign, lies above all numbers.
        std::uint64_t bits;
        std::memcpy(&bits, &square, sizeof(bits));
        auto const step = static_cast<std::int64_t>(bits << 1 >> 51) - lowest;
        ++m_counts[static_cast<std::size_t>(std::clamp<std::int64_t>(step, 0, stepCount - 1))];
    }
    int count(std::int64_t step) const { return m_counts[static_cast<std::size_t>(step)]; }

    static double upperSquare(std::int64_t step)
    {
        auto const bits = static_cast<std::uint64_t>(step + 1 + lowest) << 50;
        double square;
        std::memcpy(&square, &bits, sizeof(square));
        return square;
    }

    // Distances and their logarithms at the ends of the steps.
    struct Steps
    {
        Steps()
        {
            for (std::size_t step = 0; step < stepCount; ++step) {
                distance[step] = std::sqrt(upperSquare(static_cast<std::int64_t>(step)));
                logarithm[step] = std::log(distance[step]);
            }
        }
        static Steps const & table()
        {
            static Steps const steps;
            return steps;
        }
        std::array<double, stepCount> distance{}, logarithm{};
    };

private:
    // The last step ends at 16, beyond all that lies in the box of the units; the first one at 2^-76, beyond
    // the rounding of the units.
    static constexpr std::int64_t lowest = (1023 + 4) * 4 - stepCount;

    std::array<int, stepCount> m_counts{};
};

// Squares of the distances of four samples from the one with number i on, exact ones or rough.
template <bool exact, class Shape>
[[gnu::always_inline]] inline void measureFour(Shape const & shape, SampleSet const & samples, std::size_t i,
                                               Lanes & squares)
{
    Lanes x, y, z;
    std::memcpy(&x, samples.x() + i, sizeof(x));
    std::memcpy(&y, samples.y() + i, sizeof(y));
    std::memcpy(&z, samples.z() + i, sizeof(z));
    if constexpr (exact)
        shape.squaredDistance(x, y, z, squares);
    else
        shape.roughSquaredDistance(x, y, z, squares);
}

// `shape` is a copy: its numbers stay in registers.
template <class Shape>
[[gnu::always_inline]] inline double gainInLanes(Shape const shape, SampleSet const & samples,
                                                 std::size_t begin, std::size_t end, double inverse)
{
    Lanes sum{}, squares;
    for (std::size_t i = begin; i < end; i += 4) {
        measureFour<false>(shape, samples, i, squares);
        Lanes const left = 1.0 - squares * inverse;
        sum += left > 0.0 ? left : Lanes{}; // nothing for NaN
    }
    return sumOf(sum);
}

template <bool exact, class Shape>
[[gnu::always_inline]] inline void measureInLanes(Shape const shape, SampleSet const & samples,
                                                  std::size_t count, double * output)
{
    Lanes squares;
    for (std::size_t i = 0; i < count; i += 4) {
        measureFour<exact>(shape, samples, i, squares);
        std::memcpy(output + i, &squares, sizeof(squares));
    }
}

#if defined(__x86_64__)
template <class Shape>
[[gnu::target("avx2")]] double gainWide(Shape const & shape, SampleSet const & samples, std::size_t begin,
                                        std::size_t end, double inverse)
{
    return gainInLanes(shape, samples, begin, end, inverse);
}

template <bool exact, class Shape>
[[gnu::target("avx2")]] void measureWide(Shape const & shape, SampleSet const & samples, std::size_t count,
                                         double * output)
{
    measureInLanes<exact>(shape, samples, count, output);
}
#endif

} // namespace

template <class Shape>
ConsensusSearch<Shape>::ConsensusSearch(SampleSet const & samples, SampleRandom & random)
    : m_samples(samples), m_random(random), m_squares((samples.size() + 3) / 4 * 4)
{
    m_inliers.reserve(samples.size());
}

template <class Shape>
void ConsensusSearch<Shape>::run(double distance, double confidence, int mostTrials)
{
    m_given = distance;
    double bestOfTrials = 0;
    int needed = mostTrials;
    for (m_trials = 0; m_trials < needed; ++m_trials) {
        Shape shape;
        if (!drawShape(shape))
            continue;
        double const score = trialScore(shape, bestOfTrials);
        if (!(score > bestOfTrials))
            continue;
        bestOfTrials = score;
        improve(shape);
        needed = trialsNeeded(confidence, mostTrials);
    }
}

// False when the sample has no object, as one with equal points.
template <class Shape>
bool ConsensusSearch<Shape>::drawShape(Shape & shape)
{
    Point3D_d sample[Shape::sampleSize];
    std::size_t drawn[Shape::sampleSize];
    for (std::size_t i = 0; i < Shape::sampleSize; ++i) {
        drawn[i] = m_random.below(m_samples.size());
        if (std::find(drawn, drawn + i, drawn[i]) != drawn + i)
            return false;
        sample[i] = m_samples.sample(drawn[i]);
    }
    return shape.through(sample) && shape.greatestDistance() > m_given;
}

// 0 when the trial was given up.
template <class Shape>
double ConsensusSearch<Shape>::trialScore(Shape const & shape, double scoreToBeat)
{
    std::size_t const size = m_samples.size();
    if (m_given == 0) {
        Candidate candidate{shape};
        std::size_t const seen = std::min(size, previewSize);
        measure<false>(shape, seen);
        findContrast(candidate, seen);
        return candidate.score;
    }
    double const mean = scoreToBeat / static_cast<double>(size);
    double sum = 0;
    for (std::size_t begin = 0; begin < size; begin += blockSize) {
        std::size_t const end = std::min(begin + blockSize, size);
        sum += gain(shape, begin, end);
        // Once in thirty thousand times an object as good as the best falls four deviations behind.
        double const seen = static_cast<double>(end);
        if (sum + 4 * std::sqrt(mean * (1 - mean) * seen) < mean * seen)
            return 0;
    }
    return sum;
}

// Fits the object to its inliers for as long as that gains.
template <class Shape>
void ConsensusSearch<Shape>::improve(Shape const & shape)
{
    Candidate candidate{shape};
    // An object through the sample alone is worse than its support: more points are asked at first.
    double widening = m_given > 0 ? 2 : 1;
    for (int round = 0; judge(candidate); ++round) {
        if (candidate.score > m_best.score)
            m_best = candidate;
        else if (round > 1)
            return;
        collectWithin(widening * candidate.distance);
        if (round == mostRounds || m_inliers.size() <= Shape::sampleSize || !candidate.shape.fit(m_inliers))
            return;
        widening = 1;
    }
}

// Score, distance and support among all samples. False when there is no support.
template <class Shape>
bool ConsensusSearch<Shape>::judge(Candidate & candidate)
{
    std::size_t const size = m_samples.size();
    measure<true>(candidate.shape, size);
    if (m_given == 0)
        findContrast(candidate, size);
    else
        candidate.distance = m_given;
    double const square = candidate.distance * candidate.distance;
    candidate.support = 0;
    for (std::size_t i = 0; i < size; ++i)
        candidate.support += m_squares[i] <= square;
    if (m_given > 0) {
        double sum = 0;
        for (std::size_t i = 0; i < size; ++i)
            sum += m_squares[i] <= square ? 1 - m_squares[i] / square : 0.0;
        candidate.score = sum;
    }
    return candidate.score > 0 && candidate.shape.greatestDistance() > candidate.distance;
}

// Of the samples measured last.
template <class Shape>
void ConsensusSearch<Shape>::collectWithin(double distance)
{
    m_inliers.clear();
    for (std::size_t i = 0; i < m_samples.size(); ++i) {
        if (m_squares[i] <= distance * distance)
            m_inliers.push_back(m_samples.sample(i));
    }
}

template <class Shape>
std::vector<Point3D_d> const & ConsensusSearch<Shape>::collectInliers()
{
    measure<true>(m_best.shape, m_samples.size());
    collectWithin(m_best.distance);
    return m_inliers;
}

// Of the points within the distance, as many as the background has there are no support.
template <class Shape>
int ConsensusSearch<Shape>::trialsNeeded(double confidence, int mostTrials) const
{
    if (!(m_best.score > 0))
        return mostTrials;
    constexpr double fewest = 10;
    double const chance = m_best.shape.chance(m_samples.extents()).within(m_best.distance);
    double const share = static_cast<double>(m_best.support) / static_cast<double>(m_samples.size());
    double const hit = std::pow(std::max((share - chance) / (1 - chance), 1e-6), Shape::sampleSize);
    double const needed = std::log(1 - confidence) / std::log1p(-hit);
    return static_cast<int>(std::min(static_cast<double>(mostTrials), std::max(fewest, std::ceil(needed))));
}

// The sum of 1 - (d / distance)² over the samples within the distance.
template <class Shape>
double ConsensusSearch<Shape>::gain(Shape const & shape, std::size_t begin, std::size_t end) const
{
    double const inverse = 1 / (m_given * m_given);
#if defined(__x86_64__)
    if (hasWideLanes())
        return gainWide(shape, m_samples, begin, end, inverse);
#endif
    return gainInLanes(shape, m_samples, begin, end, inverse);
}

template <class Shape>
template <bool exact>
void ConsensusSearch<Shape>::measure(Shape const & shape, std::size_t count)
{
#if defined(__x86_64__)
    if (hasWideLanes()) {
        measureWide<exact>(shape, m_samples, count, m_squares.data());
        return;
    }
#endif
    measureInLanes<exact>(shape, m_samples, count, m_squares.data());
}

// The distance at which the share of the first samples, as measured last, within it exceeds that of the
// background most, by the bound of W. Hoeffding (Probability inequalities for sums of bounded random
// variables, 1963) for the logarithm of the probability that the background does that: the score. A score of
// 0 when none stands out.
template <class Shape>
void ConsensusSearch<Shape>::findContrast(Candidate & candidate, std::size_t count)
{
    candidate.score = 0;
    DistanceHistogram histogram;
    for (std::size_t i = 0; i < count; ++i)
        histogram.add(m_squares[i]);

    CountLogarithms const & logarithms = CountLogarithms::table();
    auto const & steps = DistanceHistogram::Steps::table();
    NearbyChance const chance = candidate.shape.chance(m_samples.extents());
    double const logFactors[2] = {std::log(chance.factors[0]), std::log(chance.factors[1])};
    double const greatest = candidate.shape.greatestDistance();
    std::size_t const others = count - Shape::sampleSize; // the sample itself is on the object
    std::size_t within = 0;
    for (std::size_t step = 0; step < DistanceHistogram::stepCount; ++step) {
        int const added = histogram.count(static_cast<std::int64_t>(step));
        if (added == 0)
            continue;
        within += static_cast<std::size_t>(added);
        double const distance = std::max(steps.distance[step], m_samples.rounding());
        double const likelihood = chance.within(distance);
        if (!(likelihood < 0.5) || !(distance < greatest))
            break;
        if (within <= Shape::sampleSize)
            continue;
        std::size_t const near = within - Shape::sampleSize, far = others - near;
        if (static_cast<double>(near) <= likelihood * static_cast<double>(others))
            continue;
        double const logDistance =
            distance > steps.distance[step] ? std::log(distance) : steps.logarithm[step];
        double const logLikelihood =
            std::min(0.0, logDistance + logFactors[0]) + std::min(0.0, logDistance + logFactors[1]);
        double const logOthers = logarithms.of[others];
        double const score = static_cast<double>(near) * (logarithms.of[near] - logOthers - logLikelihood) +
                             static_cast<double>(far) *
                                 (logarithms.of[far] - logOthers + likelihood + likelihood * likelihood / 2);
        if (score > candidate.score) {
            candidate.score = score;
            candidate.distance = distance;
        }
    }
}

template <class Shape>
bool ConsensusSearch<Shape>::isMeaningful(std::size_t others) const
{
    constexpr std::size_t sampleSize = Shape::sampleSize;
    std::size_t const size = m_samples.size();
    if (!(m_best.score > 0) || others <= sampleSize || size <= sampleSize)
        return false;
    CountLogarithms const & logarithms = CountLogarithms::table();
    double const likelihood = m_best.shape.chance(m_samples.extents()).within(m_best.distance);
    double const choices =
        logarithms.ofBinomial(size, sampleSize) + (m_given > 0 ? 0.0 : logarithms.of[size]);
    std::size_t const near = others - sampleSize;
    return choices + logarithms.ofBinomial(size - sampleSize, near) +
               static_cast<double>(near) * std::log(likelihood) <
           std::log(expectedByChance);
}

template class ConsensusSearch<ConsensusLine>;
template class ConsensusSearch<ConsensusPlane>;
template class ConsensusSearch<ConsensusCircle>;

} // namespace REmath::Detail
