// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Reconstruction/Mesh/Attributes.h>

#include <QZmath/Reconstruction/Mesh/MeshTopology.h>
#include <QZmath/Reconstruction/Mesh/Ranges.h>
#include <QZmath/Reconstruction/Mesh/SampleIndex.h>

#include <algorithm>
#include <array>
#include <cmath>

namespace QZmath::Stages
{

namespace
{

double const pi = 3.14159265358979323846;
std::size_t const verticesPerPiece = 256;
std::size_t const fewSamples = 5;     // the last of which has no weight
double const supportRadius = 1.5;     // of the B-spline, in widths
double const greatestSpread = 3;      // of the support, where samples are few
std::size_t const discSamples = 64;   // that a density is measured with
std::size_t const samplesPerDisc = 8; // of which one is the centre of a disc
std::size_t const meanOver = 7;       // discs, the last of which has no weight
double const emptyDisc = 4;           // samples that chance hardly ever leaves out of a disc

using Neighbours = std::vector<std::pair<double, std::int32_t>>;

double linearLight(double value) // 0 to 1
{
    return value <= 0.04045 ? value / 12.92 : std::pow((value + 0.055) / 1.055, 2.4);
}

// Between the numbers of sRGB and the light that they stand for.
struct ColourScale
{
    std::array<double, 256> light;
    std::array<double, 255> limits; // light above which the next number is nearer

    ColourScale()
    {
        for (std::size_t n = 0; n < light.size(); ++n)
            light[n] = linearLight(static_cast<double>(n) / 255);
        for (std::size_t n = 0; n < limits.size(); ++n)
            limits[n] = linearLight((static_cast<double>(n) + 0.5) / 255);
    }
    std::uint8_t numberOf(double value) const
    {
        return static_cast<std::uint8_t>(std::upper_bound(limits.begin(), limits.end(), value) -
                                         limits.begin());
    }
};

// Quadratic B-spline.
double splineAt(double distance)
{
    double const rest = std::max(0.0, 1.5 - distance);
    return distance < 0.5 ? 0.75 - distance * distance : 0.5 * rest * rest;
}

struct LightSum
{
    double weight = 0;
    Vec light;
    std::size_t samples = 0;

    void add(double share, Vec const & sample)
    {
        weight += share;
        light = light + sample * share;
        ++samples;
    }
};

// Bounds how far off the nearest samples of a place are by those of the place before.
struct NearbyBound
{
    Vec last;
    double reach = std::numeric_limits<double>::max(); // of the last one's

    double at(Vec const & place) const { return (reach + (place - last).length()) * (1 + 1e-9); }
    void set(Vec const & place, double squared)
    {
        last = place;
        reach = std::sqrt(squared);
    }
};

bool lookAlike(float const * a, float const * b)
{
    return a == nullptr || b == nullptr || a[0] * b[0] + a[1] * b[1] + a[2] * b[2] >= 0;
}

} // namespace

void colourVertices(TriangleMesh & mesh, SampleIndex const & samples, std::uint8_t const * sampleColors,
                    float const * sampleNormals, double width, QzBackend::LoopTeam & team, double until)
{
    mesh.colors.assign(3 * mesh.vertexCount(), 0);
    if (samples.size() == 0)
        return;
    ColourScale const scale;
    auto const lightOf = [&](std::int32_t sample) {
        std::uint8_t const * numbers = sampleColors + 3 * at(sample);
        return Vec{{scale.light[numbers[0]], scale.light[numbers[1]], scale.light[numbers[2]]}};
    };
    double const radius = supportRadius * width;
    std::vector<Neighbours> buffers(static_cast<std::size_t>(team.threads()));
    std::size_t const pieces = (mesh.vertexCount() + verticesPerPiece - 1) / verticesPerPiece;
    team.forEachOnSlot(
        static_cast<int>(pieces),
        [&](int slot, int piece) {
            Neighbours & few = buffers[static_cast<std::size_t>(slot)];
            std::size_t const begin = static_cast<std::size_t>(piece) * verticesPerPiece;
            bool isSparse = false;
            NearbyBound bound;
            for (std::size_t v = begin; v < std::min(mesh.vertexCount(), begin + verticesPerPiece); ++v) {
                Vec const place = vertexOf(mesh, static_cast<std::int32_t>(v));
                float const * normal = mesh.normals.empty() ? nullptr : &mesh.normals[3 * v];
                LightSum alike, all;
                auto const add = [&](std::int32_t sample, double weight) {
                    Vec const light = lightOf(sample);
                    all.add(weight, light);
                    if (lookAlike(normal,
                                  sampleNormals == nullptr ? nullptr : sampleNormals + 3 * at(sample)))
                        alike.add(weight, light);
                };
                // Where samples are few, the first question is for those; the answer is the same.
                auto const askForFew = [&] {
                    samples.nearestFew(place, fewSamples, std::min(bound.at(place), greatestSpread * radius),
                                       few);
                    if (few.size() == fewSamples)
                        bound.set(place, few.back().first);
                    isSparse = few.size() < fewSamples || few.back().first > radius * radius;
                };
                if (isSparse)
                    askForFew();
                if (!isSparse) {
                    samples.forEachWithin(place, radius, [&](std::int32_t sample, double squared) {
                        add(sample, splineAt(std::sqrt(squared) / width));
                    });
                    if (all.samples < fewSamples)
                        askForFew();
                }
                if (isSparse) {
                    all = alike = LightSum();
                    double const spread = few.size() == fewSamples
                                              ? std::sqrt(few.back().first) / supportRadius
                                              : greatestSpread * width;
                    for (auto const & [squared, sample] : few)
                        add(sample, splineAt(std::sqrt(squared) / spread));
                }
                LightSum sum = alike.weight > 0 ? alike : all;
                if (!(sum.weight > 0)) {
                    sum = LightSum();
                    sum.add(1, lightOf(samples.nearest(place, std::numeric_limits<double>::max()).sample));
                }
                for (std::size_t n = 0; n < 3; ++n)
                    mesh.colors[3 * v + n] = scale.numberOf(sum.light[n] / sum.weight);
            }
        },
        until);
}

void measureDensity(TriangleMesh & mesh, SampleIndex const & samples, float const * sampleNormals,
                    double leafCell, QzBackend::LoopTeam & team, double until)
{
    mesh.density.assign(mesh.vertexCount(), 0);
    if (samples.size() == 0)
        return;
    double const everywhere = std::numeric_limits<double>::max();
    // Discs around one of several samples, which stand next to each other in the index.
    std::size_t const discs = (samples.size() + samplesPerDisc - 1) / samplesPerDisc;
    std::vector<float> centres(3 * discs);
    std::vector<double> densities(discs);
    std::vector<Neighbours> buffers(static_cast<std::size_t>(team.threads()));
    team.forEachOnSlot(
        static_cast<int>(discs),
        [&](int slot, int disc) {
            Neighbours & around = buffers[static_cast<std::size_t>(slot)];
            std::int32_t const centre = samples.sampleAt(static_cast<std::size_t>(disc) * samplesPerDisc);
            Vec const place = samples.positionOf(centre);
            place.store(&centres[3 * static_cast<std::size_t>(disc)]);
            samples.nearestFew(place, discSamples + 1, everywhere, around);
            auto const normalOf = [&](std::int32_t sample) {
                return sampleNormals == nullptr ? nullptr : sampleNormals + 3 * at(sample);
            };
            double alike = 0;
            for (auto const & [squared, sample] : around)
                alike += lookAlike(normalOf(centre), normalOf(sample));
            // The centre does not count, and the sample at the edge of the disc is there for certain.
            double const least = 0.1 * leafCell;
            densities[static_cast<std::size_t>(disc)] =
                std::max(1.0, alike - 2) / (pi * std::max(least * least, around.back().first));
        },
        0.5 * until);

    SampleIndex const index(centres.data(), discs, team);
    team.forEachOnSlot(
        static_cast<int>((mesh.vertexCount() + verticesPerPiece - 1) / verticesPerPiece),
        [&](int slot, int piece) {
            Neighbours & around = buffers[static_cast<std::size_t>(slot)];
            std::size_t const begin = static_cast<std::size_t>(piece) * verticesPerPiece;
            std::int32_t hint = SampleIndex::none;
            NearbyBound bound;
            for (std::size_t v = begin; v < std::min(mesh.vertexCount(), begin + verticesPerPiece); ++v) {
                Vec const place = vertexOf(mesh, static_cast<std::int32_t>(v));
                index.nearestFew(place, meanOver, bound.at(place), around);
                bound.set(place, around.back().first);
                double sum = 0;
                double weights = 0;
                for (auto const & [squared, disc] : around) {
                    double const rest = 1 - std::sqrt(squared / around.back().first);
                    double const weight = around.size() == meanOver && around.back().first > 0 ? rest : 1;
                    sum += weight * densities[at(disc)];
                    weights += weight;
                }
                if (!(weights > 0)) { // all as far
                    sum = densities[at(around[0].second)];
                    weights = 1;
                }
                SampleIndex::Nearest const nearest = samples.nearest(place, everywhere, hint);
                hint = nearest.sample;
                mesh.density[v] =
                    static_cast<float>(std::min(sum / weights, emptyDisc / (pi * nearest.squaredDistance)));
            }
        },
        until);
}

} // namespace QZmath::Stages
