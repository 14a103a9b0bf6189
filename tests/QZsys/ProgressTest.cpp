// SPDX-License-Identifier: Apache-2.0
#include "QZsys/TaskSupport.h"

#include <QZsys/Exceptions.h>

#include <gtest/gtest.h>
#include <support/Recorders.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <initializer_list>
#include <limits>
#include <memory>
#include <random>
#include <stdexcept>
#include <thread>

namespace
{

using qz_test::ProgressRecorder;

double const notANumber = std::numeric_limits<double>::quiet_NaN();
double const infinity = std::numeric_limits<double>::infinity();

std::function<void()> throwing(char const * text)
{
    return [text] { throw std::runtime_error(text); };
}

} // namespace

// The model keeps the chain of relative parts and folds it from the inside out at each step, where the
// counter keeps absolute ranges from the outside in.
TEST(Progress, RandomTreesOfSubPhasesFollowTheModelAndNeverFall)
{
    std::mt19937 random(4711);
    std::uniform_real_distribution<double> wide(-0.2, 1.2), unit(0.0, 1.0);
    auto const argument = [&] {
        double const kind = unit(random);
        return kind < 0.05 ? notANumber : kind < 0.07 ? infinity : kind < 0.09 ? -infinity : wide(random);
    };
    auto const clamped = [](double value) { return std::isnan(value) ? 0.0 : std::clamp(value, 0.0, 1.0); };
    for (int tree = 0; tree < 200; ++tree) {
        ProgressRecorder counter;
        std::vector<std::pair<long double, long double>> chain{{0.0L, 1.0L}};
        std::vector<std::unique_ptr<CPrgCntSubPhase>> open;
        open.push_back(std::make_unique<CPrgCntSubPhase>(&counter, 0, 100, 1, true));
        long double expected = 0.0L;
        auto const reach = [&](long double inside) {
            for (auto part = chain.rbegin(); part != chain.rend(); ++part)
                inside = part->first + inside * (part->second - part->first);
            expected = std::max(expected, inside);
        };
        for (int step = 0; step < 200; ++step) {
            double const choice = unit(random);
            if (choice < 0.35 && open.size() < 12) {
                double const start = argument(), length = argument() * unit(random);
                open.push_back(std::make_unique<CPrgCntSubPhase>(&counter, start, length, 3, false));
                long double const begin = clamped(start);
                chain.push_back({begin, std::min(1.0L, begin + clamped(length))});
                reach(0.0L);
            } else if (choice < 0.65 && open.size() > 1) {
                reach(1.0L);
                chain.pop_back();
                open.pop_back();
            } else {
                double const position = argument();
                counter.SetPosFloat(position);
                reach(clamped(position));
            }
            ASSERT_NEAR(static_cast<double>(expected), counter.getPosFloat(), 1e-13);
            ASSERT_EQ(counter.positions.back(), counter.getPosFloat());
        }
        while (!open.empty())
            open.pop_back();
        EXPECT_EQ(1.0, counter.getPosFloat());
        EXPECT_TRUE(counter.isMonotone());
    }
}

TEST(Progress, ACounterServesOneRunAfterAnother)
{
    CProgressCounter counter;
    for (bool const interrupted : {false, true, false}) {
        CPrgCntSubPhase first(&counter, 0.0, 0.5, 1, true);
        EXPECT_EQ(0.0, counter.getPosFloat());
        counter.SetPosFloat(0.5);
        counter.SetPosFloat(0.0); // inside a phase this is no new run
        EXPECT_EQ(0.25, counter.getPosFloat());
        if (interrupted) {
            counter.interrupt();
            EXPECT_THROW(counter.SetPosFloat(0.9), CUserIntrException);
            continue;
        }
        first.Finish();
        CPrgCntSubPhase(&counter, 0.5, 0.5, 1, true).Finish();
        EXPECT_EQ(1.0, counter.getPosFloat());
    }
}

TEST(Progress, InterruptionComesOnceFromThreadsAndSignalHandlers)
{
    static CProgressCounter counter;
    for (int round = 0; round < 20; ++round) {
        std::thread user([&] {
            while (counter.getPosFloat() < 0.01)
                std::this_thread::yield();
            counter.interrupt();
        });
        EXPECT_EQ("user interruption", thrownBy([&] {
                      CPrgCntSubPhase run(&counter, 0.0, 1.0, 0, true);
                      for (int step = 1;; ++step)
                          CPrgCntSubPhase row(&counter, 1.0 - 1.0 / step, 0.0, 1, true);
                  }));
        user.join();
        EXPECT_NO_THROW(counter.SetPosFloat(0.0));
    }
    auto const formerHandler = std::signal(SIGUSR1, [](int) { counter.interrupt(); });
    std::raise(SIGUSR1);
    std::raise(SIGUSR1);
    std::signal(SIGUSR1, formerHandler);
    VsPCnt::CMultiPhaseManager phases(&counter);
    EXPECT_THROW(phases.StartPhase("a"), CUserIntrException);
    EXPECT_NO_THROW(phases.StartPhase("a"));
}

TEST(Progress, ThrowingHooksLeaveNothingOpenAndClosingKeepsTheFirst)
{
    ProgressRecorder counter;
    CPrgCntSubPhase whole(&counter, 0.0, 1.0, 1, true);
    auto const position = [&](double value) { return thrownBy([&] { counter.SetPosFloat(value); }); };
    counter.inPosition = throwing("hook");
    EXPECT_EQ("hook", position(0.1));
    EXPECT_EQ("hook", thrownBy([&] { CPrgCntSubPhase part(&counter, 0.5, 0.1, 1, true); }));
    counter.inPosition = nullptr;
    EXPECT_EQ("", position(0.75));
    EXPECT_EQ(0.75, counter.getPosFloat()); // the failed part is not open
    {
        CPrgCntSubPhase outer(&counter, 0.8, 0.2, 1, true);
        CPrgCntSubPhase inner(&counter, 0.0, 0.5, 1, true);
        counter.inPosition = throwing("inner");
        inner.Finish();
        counter.inPosition = throwing("outer");
    }
    counter.inPosition = nullptr;
    EXPECT_EQ("inner", position(1.0));
    EXPECT_EQ("", position(1.0));
    // What closing meets while another exception passes must not reach the next run.
    EXPECT_EQ("first", thrownBy([&] {
                  CPrgCntSubPhase part(&counter, 0.0, 1.0, 1, true);
                  counter.inPosition = throwing("second");
                  throw std::runtime_error("first");
              }));
    counter.inPosition = nullptr;
    EXPECT_EQ("", position(1.0));
}

TEST(Progress, SubPhasesMayBeClosedInAnyOrderAndOutliveTheCounter)
{
    auto counter = std::make_unique<ProgressRecorder>();
    auto outer = std::make_unique<CPrgCntSubPhase>(counter.get(), 0.0, 0.5, 1, true);
    auto inner = std::make_unique<CPrgCntSubPhase>(counter.get(), 0.0, 0.5, 1, true);
    outer.reset();
    EXPECT_EQ(0.5, counter->getPosFloat());
    inner.reset(); // closed with its outer one
    EXPECT_EQ(3u, counter->positions.size());
    for (CProgressCounter * observer :
         std::initializer_list<CProgressCounter *>{nullptr, counter.release()}) {
        CPrgCntSubPhase orphan(observer, 0.7, 0.1, 1, true);
        VsPCnt::CMultiPhaseManager phases(observer);
        VsPCnt::CMultiPhaseManagerSingleSubPhase scope(&phases, "never registered"), noManager(nullptr, "a");
        delete observer;
    }
}

TEST(Progress, PhasesShareTheRangeByWeight)
{
    std::mt19937 random(99);
    std::uniform_real_distribution<double> weight(-5.0, 50.0);
    for (int round = 0; round < 100; ++round) {
        std::vector<double> weights(1 + random() % 9);
        for (double & w : weights)
            w = weight(random) * (round % 10 == 0 ? 1e306 : 1.0);
        if (round % 3 == 0)
            weights.back() = round % 2 ? notANumber : infinity;
        ProgressRecorder counter;
        CPrgCntSubPhase outer(&counter, 0.5, 0.5, 1, true);
        VsPCnt::CMultiPhaseManager phases(&counter);
        long double sum = 0.0L, before = 0.0L;
        for (std::size_t i = 0; i < weights.size(); ++i) {
            for (double const given : {3.0, weights[i]}) // the later one counts
                phases.RegisterPhase("phase " + std::to_string(i), given);
            weights[i] = std::isfinite(weights[i]) ? std::max(weights[i], 0.0) : 0.0;
            sum += weights[i];
        }
        for (std::size_t i = 0; i < weights.size(); ++i) {
            VsPCnt::CMultiPhaseManagerSingleSubPhase phase(&phases, "phase " + std::to_string(i));
            counter.SetPosFloat(0.5);
            long double const share =
                sum > 0.0L ? weights[i] / sum : 1.0L / static_cast<long double>(weights.size());
            ASSERT_NEAR(static_cast<double>(0.5L + 0.5L * (before + share / 2)), counter.getPosFloat(),
                        1e-12);
            before += share;
        }
        EXPECT_NEAR(1.0, counter.getPosFloat(), 1e-15);
        EXPECT_TRUE(counter.isMonotone());
    }
}

TEST(Progress, PhasesShowNamesOnlyWhenAskedAndSurviveMisuse)
{
    ProgressRecorder counter;
    VsPCnt::CMultiPhaseManager phases(&counter);
    phases.FinishCurrentPhase();
    phases.RegisterPhase("a", 1);
    phases.RegisterPhase("b", 3);
    phases.StartPhase("a");
    phases.showPhaseName();
    counter.inName = throwing("name");
    EXPECT_EQ("name", thrownBy([&] { phases.StartPhase("b"); }));
    EXPECT_EQ(0.25, counter.getPosFloat()); // "a" was closed, "b" is not open
    counter.inName = nullptr;
    {
        VsPCnt::CMultiPhaseManagerSingleSubPhase unknown(&phases, "c");
        EXPECT_EQ(0.25, counter.getPosFloat());
        phases.StartPhase("b"); // "c" is closed by this, so its scope has nothing left to close
    }
    counter.SetPosFloat(0.5);
    EXPECT_EQ(0.625, counter.getPosFloat());
    EXPECT_EQ((std::vector<std::string>{"b", "c", "b"}), counter.names);
}

TEST(Progress, LongJobPositionRisesForEver)
{
    int const largest = std::numeric_limits<int>::max();
    for (double const overrun : {0.3, 0.0, 1e300, notANumber, -1.0}) {
        for (int const expected : {-5, 1, 7, 1000, largest}) {
            double former = VsPCnt::prgCntLongJobPosition(-3, expected, overrun);
            EXPECT_EQ(0.0, former);
            for (long step = 1; step <= largest; step += 1 + step / 5) {
                int const current = static_cast<int>(step);
                double const position = VsPCnt::prgCntLongJobPosition(current, expected, overrun);
                ASSERT_LT(former, position) << current << " of " << expected;
                ASSERT_LT(position, 1.0);
                former = VsPCnt::prgCntLongJobPosition(current - 1, expected, overrun);
                ASSERT_LT(former, position);
            }
            EXPECT_NEAR(0.8, VsPCnt::prgCntLongJobPosition(std::max(expected, 1), expected, overrun), 0.05);
        }
    }
}
