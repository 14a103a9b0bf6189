// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Stages/FieldCorrection.h>

#include <QZmath/Backend/Parallel.h>
#include <QZmath/VolTriang/Octree.h>
#include <QZmath/VolTriang/ReconstructionReport.h>
#include <QZmath/VolTriang/Stages/ImplicitFunction.h>
#include <QZmath/VolTriang/Stages/LogLine.h>
#include <QZmath/VolTriang/Stages/MomentLattice.h>
#include <QZmath/VolTriang/Stages/SampleDensity.h>
#include <QZmath/VolTriang/Stages/SampleFeet.h>
#include <QZmath/VolTriang/Stages/StageContext.h>
#include <QZmath/VolTriang/VolTriangulationParams.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <vector>

namespace VolTr
{

namespace
{

int const correctedDepths = 5;
int const greatestTests = 40000; // samples that are left out
int const samplesPerTask = 256;

using Team = QzBackend::LoopTeam;

class Correction
{
public:
    Correction(StageContext const & context, ImplicitFunction & function, double isoValue, Team & team)
        : m_context(context), m_function(function), m_isoValue(isoValue), m_team(team),
          m_feet(context, function, isoValue, team, 0.2), m_residuals(m_feet.order.size()),
          m_extent(4.0 * context.octree.getCellSize(context.octree.getNodeDepthEnd() - 1))
    {}

    void run()
    {
        COctree const & octree = m_context.octree;
        int const end = octree.getNodeDepthEnd();
        int const begin = std::max(octree.getNodeDepthBegin(), end - correctedDepths);
        for (int depth = begin; depth < end; ++depth) {
            findResiduals();
            double const share = correctDepth(depth);
            logValues(m_context.log, "Field correction, depth and share", depth, share);
            m_context.report.refinement.correctionShares.push_back(share);
            m_team.setPosition(0.2 + 0.8 * (depth + 1 - begin) / (end - begin));
        }
    }

private:
    float weightOf(int sample) const
    {
        return m_context.density != nullptr ? m_context.density->weights[static_cast<std::size_t>(sample)]
                                            : 1.0f;
    }

    template <class Body>
    void forSamples(Body const & body)
    {
        int const samples = static_cast<int>(m_residuals.size());
        m_team.forEachOnSlot((samples + samplesPerTask - 1) / samplesPerTask, [&](int slot, int task) {
            for (int n = task * samplesPerTask; n < std::min(samples, (task + 1) * samplesPerTask); ++n)
                body(slot, static_cast<std::size_t>(n));
        });
    }

    void findResiduals()
    {
        std::vector<std::unique_ptr<ImplicitFunction::Evaluator>> evaluators(
            static_cast<std::size_t>(m_team.threads()));
        forSamples([&](int slot, std::size_t n) {
            auto & evaluator = evaluators[static_cast<std::size_t>(slot)];
            if (evaluator == nullptr)
                evaluator = m_function.makeEvaluator(m_extent);
            float const * const coords = m_context.samples.getSampleCoords3(m_feet.order[n]);
            double const point[3] = {coords[0], coords[1], coords[2]};
            m_residuals[n] = static_cast<float>(evaluator->value(point) - m_isoValue);
        });
    }

    // Nodes of the lattice are those of the depth.
    LatticeFrame frameOf(int depth) const
    {
        COctree const & octree = m_context.octree;
        double const cell = octree.getCellSize(depth);
        std::array<double, 3> origin;
        for (std::size_t axis = 0; axis < 3; ++axis)
            origin[axis] = octree.getBoxMin()[axis] - (m_context.params.getUseCenter() ? 0.0 : 0.5 * cell);
        return LatticeFrame(origin, cell);
    }

    bool placeOf(LatticeFrame const & frame, std::size_t n, double * place3) const
    {
        float const * const coords = m_context.samples.getSampleCoords3(m_feet.order[n]);
        double foot[3];
        for (std::size_t axis = 0; axis < 3; ++axis)
            foot[axis] = double(coords[axis]) + m_feet.offsets[n][axis];
        return frame.placeOf(foot, place3);
    }

    double correctDepth(int depth)
    {
        LatticeFrame const frame = frameOf(depth);
        MomentLattice lattice; // per node: weight, weight times residual
        lattice.build(
            static_cast<int>(m_residuals.size()), MomentLattice::Payload::plain,
            [&](int n, double * place) {
                float const weight = weightOf(m_feet.order[static_cast<std::size_t>(n)]);
                return weight > 0.0f && std::isfinite(weight) &&
                       std::isfinite(m_residuals[static_cast<std::size_t>(n)]) &&
                       placeOf(frame, static_cast<std::size_t>(n), place);
            },
            [&](MomentLattice::Entry const & entry, std::array<int, 3> const &, Moments & moments) {
                std::size_t const n = static_cast<std::size_t>(entry.point);
                moments.of[0] = weightOf(m_feet.order[n]);
                moments.of[1] = moments.of[0] * m_residuals[n];
            },
            m_team);
        double const share = leftOutShare(frame, lattice);
        if (!(share > 0.0))
            return 0.0;
        COctree const & octree = m_context.octree;
        int const shift = octree.getLeafCellDepth() - depth;
        m_function.add(octree, depth, [&](int node) {
            CInt3 const & at = octree.getNode(node).shift();
            Moments const sums = lattice.nodeAt({at.x() >> shift, at.y() >> shift, at.z() >> shift});
            return sums.of[0] > 0.0f ? -share * sums.of[1] / sums.of[0] : 0.0;
        });
        return share;
    }

    // The best factor, 0 to 1, between what the others say of a sample's residual and what it has.
    double leftOutShare(LatticeFrame const & frame, MomentLattice const & lattice)
    {
        int const samples = static_cast<int>(m_residuals.size());
        int const stride = std::max(1, samples / greatestTests);
        int const tests = (samples + stride - 1) / stride;
        struct Sums
        {
            double product = 0.0;
            double square = 0.0;
        };
        std::vector<Sums> sums(static_cast<std::size_t>((tests + samplesPerTask - 1) / samplesPerTask));
        std::vector<MomentLattice::Cursor> cursors(static_cast<std::size_t>(m_team.threads()));
        m_team.forEachOnSlot(static_cast<int>(sums.size()), [&](int slot, int task) {
            for (int test = task * samplesPerTask; test < std::min(tests, (task + 1) * samplesPerTask);
                 ++test) {
                std::size_t const n = static_cast<std::size_t>(test) * static_cast<std::size_t>(stride);
                float const weight = weightOf(m_feet.order[n]);
                double place[3];
                if (!(weight > 0.0f) || !std::isfinite(weight) || !std::isfinite(m_residuals[n]) ||
                    !placeOf(frame, n, place))
                    continue;
                MomentLattice::Window const window(place);
                Moments const * nodes[27];
                cursors[static_cast<std::size_t>(slot)].nodes(lattice, window, nodes);
                double const prediction = predictionWithout(nodes, window, weight, m_residuals[n]);
                sums[static_cast<std::size_t>(task)].product += weight * m_residuals[n] * prediction;
                sums[static_cast<std::size_t>(task)].square += weight * prediction * prediction;
            }
        });
        Sums total;
        for (Sums const & part : sums) {
            total.product += part.product;
            total.square += part.square;
        }
        return total.square > 0.0 ? std::clamp(total.product / total.square, 0.0, 1.0) : 0.0;
    }

    static double predictionWithout(Moments const * const (&nodes)[27], MomentLattice::Window const & window,
                                    float weight, float residual)
    {
        double prediction = 0.0;
        for (int n = 0; n < 27; ++n) {
            if (nodes[n] == nullptr)
                continue;
            float const kernel =
                window.weights[0][n / 9] * window.weights[1][n / 3 % 3] * window.weights[2][n % 3];
            float const mass = nodes[n]->of[0] - kernel * weight;
            // Of what is left by rounding alone nothing is said.
            if (mass > 1e-5f * nodes[n]->of[0])
                prediction += kernel * (nodes[n]->of[1] - kernel * weight * residual) / mass;
        }
        return prediction;
    }

    StageContext const & m_context;
    ImplicitFunction & m_function;
    double const m_isoValue;
    Team & m_team;
    SampleFeet const m_feet;
    std::vector<float> m_residuals; // in the order of the feet
    double const m_extent;
};

} // namespace

void correctField(StageContext const & context, ImplicitFunction & function, double isoValue)
{
    if (context.samples.pointsNumber() == 0 || !(context.octree.getCellSize(0) > 0.0))
        return;
    Team::run(context.threads, context.progress,
              [&](Team & team) { Correction(context, function, isoValue, team).run(); });
}

} // namespace VolTr
