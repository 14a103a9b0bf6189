// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Backend/Parallel.h>
#include <QZmath/Reconstruction/Mesh/SampleIndex.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>
#include <utility>
#include <vector>

using namespace QZmath::Stages;

namespace
{

// Clouds that are hard on an index: even ones, many points on one spot, on a few lattice places with many
// ties, and with outliers a million sizes away.
std::vector<float> cloudOf(std::string const & kind, std::size_t count)
{
    std::mt19937 random(5);
    std::uniform_real_distribution<float> unit(-1, 1);
    std::vector<float> positions;
    for (std::size_t n = 0; n < 3 * count; ++n) {
        float value = unit(random);
        if (kind == "heaps")
            value = n / 3 % 4 == 0 ? value : 0.25f;
        if (kind == "lattice")
            value = std::round(3 * value) / 3;
        if (kind == "outliers" && n / 3 % 97 == 0)
            value *= 1e6f;
        positions.push_back(value);
    }
    return positions;
}

class SampleIndexOf : public testing::TestWithParam<std::pair<char const *, std::size_t>>
{};

} // namespace

TEST_P(SampleIndexOf, aCloudAnswersAsBruteForceDoes)
{
    std::vector<float> const positions = cloudOf(GetParam().first, GetParam().second);
    std::size_t const count = positions.size() / 3;
    std::mt19937 random(7);
    std::uniform_real_distribution<double> unit(-1.2, 1.2);
    QzBackend::LoopTeam::run(2, nullptr, [&](QzBackend::LoopTeam & team) {
        SampleIndex const index(positions.data(), count, team);
        std::vector<std::pair<double, std::int32_t>> few;
        for (int question = 0; question < 300; ++question) {
            Vec place{{unit(random), unit(random), unit(random)}};
            if (question % 3 == 0)
                place = {{0.25, 0.25, 0.25}};
            double const radius =
                std::vector<double>{0.05, 0.4, 1.0 / 3, 1e9}[static_cast<std::size_t>(question) % 4];
            std::int32_t const hint =
                count == 0 ? SampleIndex::none : static_cast<std::int32_t>(random() % count);
            std::vector<std::pair<double, std::int32_t>> within;
            for (std::size_t n = 0; n < count; ++n) {
                double const distance = (Vec::of(&positions[3 * n]) - place).squared();
                if (distance <= radius * radius)
                    within.emplace_back(distance, static_cast<std::int32_t>(n));
            }
            std::sort(within.begin(), within.end());
            SampleIndex::Nearest const nearest =
                index.nearest(place, radius, question % 2 ? hint : SampleIndex::none);
            ASSERT_EQ(nearest.sample, within.empty() ? SampleIndex::none : within[0].second);
            ASSERT_EQ(index.anyWithin(place, radius, hint) == SampleIndex::none, within.empty());
            std::vector<std::pair<double, std::int32_t>> found;
            index.forEachWithin(place, radius, [&](std::int32_t sample, double distance) {
                found.emplace_back(distance, sample);
            });
            std::sort(found.begin(), found.end());
            ASSERT_EQ(found, within);
            index.nearestFew(place, 5, radius, few);
            within.resize(std::min<std::size_t>(within.size(), 5));
            ASSERT_EQ(few, within);
        }
    });
}

INSTANTIATE_TEST_SUITE_P(Clouds, SampleIndexOf,
                         testing::Values(std::pair("even", 0), std::pair("even", 1), std::pair("even", 9),
                                         std::pair("even", 3000), std::pair("heaps", 5000),
                                         std::pair("lattice", 3000), std::pair("outliers", 2000)));

// Also where all points are one: a question must not look at each of them.
TEST(SampleIndex, staysFastOnOneSpot)
{
    std::vector<float> const positions(3 * 300000, 0.5f);
    QzBackend::LoopTeam::run(1, nullptr, [&](QzBackend::LoopTeam & team) {
        SampleIndex const index(positions.data(), positions.size() / 3, team);
        std::vector<std::pair<double, std::int32_t>> few;
        for (int question = 0; question < 20000; ++question) {
            Vec const place{{0.001 * question, 0, 0}};
            ASSERT_EQ(index.nearest(place, 100).sample, 0);
            index.nearestFew(place, 3, 100, few);
            ASSERT_EQ(few.back().second, 2);
        }
    });
}
