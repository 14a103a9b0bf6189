// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Distributed/Field/ImplicitField.h>

#include <QZmath/Distributed/Cloud/CloudTravel.h>
#include <QZmath/Distributed/Field/FieldIteration.h>
#include <QZmath/Distributed/Field/RankLattice.h>

#include <QZmath/Backend/Parallel.h>
#include <QZmath/Reconstruction/Reconstruction.h>
#include <QZmath/VolTriang/Bricks/BrickSystem.h>
#include <QZmath/VolTriang/Stages/BrickSplat.h>
#include <QZmath/VolTriang/Stages/PathChoice.h>

#include <QZsys/Exceptions.h>
#include <QZsys/Progress.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace QZmath::Distributed
{

using QzBackend::LoopTeam;
using VolTr::BrickLevel;
using VolTr::BrickSystem;

namespace
{

VolTr::CVolTriangulationParams parametersOf(DistributedOptions const & options, int depth)
{
    VolTr::CVolTriangulationParams params = ReconstructionOptions::acceleratedCore();
    params.setOctreeDepth(depth);
    params.setClosed(true); // what is to be open is cut off behind the extraction
    params.setAllComponents(true);
    params.setReach(options.trimDistance >= 0.0 ? options.trimDistance : 0.0);
    params.setLargestGap(0.0);
    params.setRefine(options.refine);
    params.setEstimateResultNormals(options.vertexNormals);
    if (options.tolerance > 0.0)
        params.setSolverTolerance(options.tolerance);
    return params;
}

// The one-variable factor of the kernel, the same on each axis.
VolTr::CSingleVarLimitedPolynom const & factorOf(VolTr::Kernel const & kernel)
{
    return kernel.getSummand(0).getMultiplier(0);
}

std::string withDigits(double number)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.2g", number);
    return text;
}

} // namespace

ImplicitField::ImplicitField(Communicator const & ranks, Partition const & partition, RankCloud const & cloud,
                             VolTr::TreeCube const & cube, DistributedOptions const & options, int depth,
                             int threads, DistributedReport & report, CProgressCounter * progress)
    : m_ranks(ranks), m_partition(partition), m_cloud(cloud), m_samples(cloud), m_cube(cube),
      m_options(options), m_threads(threads), m_report(report), m_progress(progress),
      m_params(parametersOf(options, depth)),
      m_kernel(VolTr::makeReconstructionKernel(m_params.getKernelScaleFactor()))
{}

ImplicitField::~ImplicitField() = default;

VolTr::StageContext ImplicitField::context()
{
    return {m_samples,  m_params, *m_octree,    *m_basis, m_density.weights.empty() ? nullptr : &m_density,
            m_progress, nullptr,  m_coreReport, m_threads};
}

void ImplicitField::release()
{
    m_function.reset();
    m_density = VolTr::SampleDensity();
}

void ImplicitField::buildTree()
{
    m_ranks.together([&] {
        m_octree.emplace(&m_samples, m_cube, m_params.getOctreeDepth(), m_progress, m_params.getUseCenter(),
                         m_params.getDetalizationLevel());
        m_basis.emplace(m_kernel, &*m_octree, 0);
    });
}

void ImplicitField::estimateDensity()
{
    if (!m_params.getVariableDensity())
        return;
    int const delta = std::max(m_params.getDensityEstimationDepthDelta(), 0);
    int const depth = std::max(m_octree->getNodeDepthEnd() - delta - 1, m_octree->getNodeDepthBegin());
    std::vector<float> & weights = m_density.weights;
    double sum = 0.0;
    m_ranks.together([&] {
        if (m_cloud.size() > 0)
            weights = VolTr::countAroundSamples(m_samples, *m_octree, *m_basis, depth, m_threads, m_progress);
        for (std::size_t sample = 0; sample < weights.size(); ++sample)
            sum += m_cloud.isOwn[sample] != 0 ? static_cast<double>(weights[sample]) : 0.0;
    });
    // The unit is free. A power of two leaves the digits of the weights alone, so that they do not depend on
    // the way in which the mean was summed.
    double const mean = m_ranks.sum(sum) / static_cast<double>(std::max<std::int64_t>(1, m_cloud.total));
    int exponent = 0;
    std::frexp(mean, &exponent);
    float const scale =
        mean > 0.0 && std::isfinite(mean) ? static_cast<float>(std::ldexp(1.0, -exponent)) : 1.0f;
    m_density.averageDensity = static_cast<float>(mean * static_cast<double>(scale));
    for (float & weight : weights)
        weight = weight > 0.0f ? 1.0f / (weight * scale) : 0.0f;
    // The margin has neighbours enough for own samples only.
    spreadToCopies(m_ranks, m_cloud, m_partition, m_cube, m_octree->getLeafCellDepth(), weights);
}

void ImplicitField::splat()
{
    LoopTeam::run(m_threads, nullptr, [&](LoopTeam & team) {
        m_lattice =
            std::make_unique<RankLattice>(m_ranks, m_partition, *m_octree, m_cloud.margins.surface, team);
    });
    m_octree->releaseNodes();
    m_ranks.together([&] {
        if (m_cloud.size() == 0) {
            m_field.assign(m_lattice->lattice().nodesNumber(), {0.0, 0.0, 0.0});
            return;
        }
        VolTr::StageContext const stage = context();
        LoopTeam::run(m_threads, m_progress, [&](LoopTeam & team) {
            m_field = VolTr::splatOnBricks(stage, m_lattice->lattice(), m_cloud.isOwn.data(), team);
        });
    });
    m_lattice->collect(m_field);
    m_report.unknowns = m_ranks.sum(m_lattice->ownNodesNumber());
    m_report.replicatedDepths = m_lattice->replicatedLevels();
    m_report.replicatedUnknowns = m_lattice->replicatedNodes();
    m_report.bytesPerIteration = m_ranks.greatest(m_lattice->bytesPerProduct());
    m_report.messagesPerIteration = m_ranks.greatest(m_lattice->messagesPerProduct());
}

std::vector<float> ImplicitField::solve()
{
    std::size_t const nodes = m_lattice->lattice().nodesNumber();
    BrickSystem::Vector amplitudes;
    IterationResult result;
    LoopTeam::run(m_threads, nullptr, [&](LoopTeam & team) {
        std::array<BrickSystem::Vector, 3> values;
        std::unique_ptr<BrickSystem> system;
        // The solution follows the scale of the field, which `float` may not hold.
        double greatest = 0.0;
        for (std::array<double, 3> const & value : m_field) {
            for (double const component : value)
                greatest = std::max(greatest, std::fabs(component));
        }
        greatest = m_ranks.greatest(greatest);
        double const scale = greatest > 0.0 ? 1.0 / greatest : 1.0;
        m_ranks.together([&] {
            for (std::size_t axis = 0; axis < 3; ++axis) {
                values[axis].assign(nodes + VolTr::brickEdge, 0.0f);
                for (std::size_t index = 0; index < nodes; ++index)
                    values[axis][index] = static_cast<float>(m_field[index][axis] * scale);
            }
            m_field = decltype(m_field)();
            system = std::make_unique<BrickSystem>(m_lattice->lattice(), factorOf(m_kernel),
                                                   VolTr::bestBrickPasses(), *m_lattice, team);
        });
        amplitudes = system->rightPart(values, team);
        values = {};
        double const tolerance = m_params.getSolverTolerance();
        auto const goOn = [&](double residual) {
            if (m_progress == nullptr)
                return true;
            try {
                m_progress->SetPosFloat(std::log(std::max(residual, tolerance)) /
                                        std::log(std::min(tolerance, 0.5)));
            } catch (CUserIntrException const &) {
                return false;
            }
            return true;
        };
        result = solveField(m_ranks, *m_lattice, *system, amplitudes, tolerance, m_options.maxIterations,
                            team, goOn);
        for (int depth = m_lattice->lattice().firstDepth(); depth < m_lattice->lattice().endDepth();
             ++depth) {
            BrickLevel const & level = m_lattice->lattice().level(depth);
            float const factor = static_cast<float>(system->amplitudeOfUnknown(depth));
            for (std::size_t index = level.firstNode.front();
                 index < level.firstNode.back() && result.hasConverged; ++index)
                amplitudes[index] *= factor;
        }
    });
    m_report.iterations = result.iterations;
    m_report.relativeResidual = result.relativeResidual;
    if (!result.hasConverged)
        throw RankError(RankError::Kind::failed, 0,
                        "the iteration has not converged: after " + std::to_string(result.iterations) +
                            " steps the relative residual is " + withDigits(result.relativeResidual));
    return amplitudes;
}

void ImplicitField::take(std::vector<float> amplitudes)
{
    m_lattice->spread(amplitudes);
    m_ranks.together(
        [&] { m_function.emplace(m_lattice->lattice(), *m_octree, factorOf(m_kernel), amplitudes); });
    m_lattice.reset();
}

void ImplicitField::findIsoValue()
{
    int const cells = m_octree->getCellsNumberOnDeepestLevel();
    int const cellsPerPiece = 1024;
    int const pieces = (cells + cellsPerPiece - 1) / cellsPerPiece;
    struct Sums
    {
        double values = 0.0;
        double weights = 0.0;
    };
    std::vector<Sums> sums(static_cast<std::size_t>(pieces));
    m_ranks.together([&] {
        LoopTeam::run(m_threads, m_progress, [&](LoopTeam & team) {
            team.forEach(
                pieces,
                [&](int piece) {
                    VolTr::BrickFunction::Hint hint;
                    Sums own;
                    for (int cell = piece * cellsPerPiece;
                         cell < std::min(cells, (piece + 1) * cellsPerPiece); ++cell) {
                        for (int const * it = m_octree->getSamplesBegin(cell);
                             it != m_octree->getSamplesEnd(cell); ++it) {
                            std::size_t const sample = static_cast<std::size_t>(*it);
                            if (m_cloud.isOwn[sample] == 0)
                                continue;
                            float const * const at = m_cloud.positions.data() + 3 * sample;
                            double const point[3] = {at[0], at[1], at[2]};
                            double const weight = m_density.weights.empty()
                                                      ? 1.0
                                                      : static_cast<double>(m_density.weights[sample]);
                            own.weights += weight;
                            own.values += m_function->eval(point, hint) * weight;
                        }
                    }
                    sums[static_cast<std::size_t>(piece)] = own;
                },
                1.0);
        });
    });
    Sums total;
    for (Sums const & piece : sums) {
        total.values += piece.values;
        total.weights += piece.weights;
    }
    double const values = m_ranks.sum(total.values);
    double const weights = m_ranks.sum(total.weights);
    m_isoValue = weights != 0.0 ? values / weights : 0.0;
    m_report.isoValue = m_isoValue;
}

} // namespace QZmath::Distributed
