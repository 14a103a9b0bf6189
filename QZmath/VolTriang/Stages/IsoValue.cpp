// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Stages/IsoValue.h>

#include <QZmath/Backend/Parallel.h>
#include <QZmath/BlockProcessor/TransThreadPrgCntAdapter.h>
#include <QZmath/VolTriang/Bricks/BrickFunction.h>
#include <QZmath/VolTriang/OctreeFuncEvalHelper.h>
#include <QZmath/VolTriang/OctreeIterators.h>
#include <QZmath/VolTriang/Stages/SampleDensity.h>
#include <QZmath/VolTriang/Stages/SampleTurns.h>
#include <QZmath/VolTriang/Stages/StageContext.h>

#include <QZsys/ParallelTasks.h>
#include <QZsys/Progress.h>
#include <QZsys/Threads.h>

#include <algorithm>
#include <cstdint>

namespace VolTr
{

using QzBackend::LoopTeam;

namespace
{

// Sums over one plane of cells of equal x. The planes do not depend on how the strips cut the model, so
// adding them in order gives the same bits for any number of tasks.
struct PlaneSums
{
    double weightedValues = 0.0;
    double weights = 0.0;
};

// The samples of one strip of cell coordinates `xBegin <= x < xEnd`.
template <class TKernel, class TWeights>
class tf_calcMeanIsoValueCycleByPoints final : public IVescaInvokeProc
{
public:
    tf_calcMeanIsoValueCycleByPoints(COctreeFuncLinCombTmpl<TKernel> const & function,
                                     IInputSamples const & samples, COctree const & octree,
                                     TWeights const * weights, int xBegin, int xEnd)
        : m_function(function), m_samples(samples), m_octree(octree), m_weights(weights), m_xBegin(xBegin),
          m_xEnd(xEnd), m_adapter(nullptr)
    {}

    std::vector<PlaneSums> const & planes() const { return m_planes; }
    void setAdapter(CTransThreadPrgCntAdapter * adapter) { m_adapter = adapter; }

    void Invoke() override
    {
        calculate([this](int steps) {
            if (m_adapter != nullptr) {
                for (int step = 0; step < steps; ++step)
                    m_adapter->increment();
            }
        });
    }

    // Reports the strip's steps as the walk passes them.
    template <class ReportSteps>
    void calculate(ReportSteps reportSteps)
    {
        m_planes.clear();
        if (m_xBegin >= m_xEnd)
            return;
        COctreeFuncEvalHelper helper(1, 4.0 * m_octree.getCellSize(m_octree.getLeafCellDepth()));
        CParallelepiped box = m_octree.getCellsBoundaryBox();
        double const unit = m_octree.getUnit();
        double const origin = m_octree.getBoxMin()[0];
        box.setDimension(0, CInterval(m_xBegin * unit + origin, m_xEnd * unit + origin));
        int x = m_xBegin;
        int planeX = m_xBegin - 1;
        for (CSamplePointsIteratorInBox it(m_samples, m_octree, box, -1); !it.isFinished(); it.next()) {
            int const cellX = it.currCellIntCoord().x();
            if (cellX < m_xBegin || cellX >= m_xEnd)
                continue;
            if (cellX != planeX) {
                planeX = cellX;
                m_planes.emplace_back();
            }
            PlaneSums & sums = m_planes.back();
            float const weight =
                m_weights != nullptr ? (*m_weights)[static_cast<std::size_t>(it.currentSampleIndex())] : 1.0f;
            sums.weights += weight;
            sums.weightedValues += m_function.eval(*it, &helper) * weight;
            if (cellX > x) {
                reportSteps(cellX - x);
                x = cellX;
            }
        }
        reportSteps(m_xEnd - x);
    }

private:
    COctreeFuncLinCombTmpl<TKernel> const & m_function;
    IInputSamples const & m_samples;
    COctree const & m_octree;
    TWeights const * m_weights;
    int m_xBegin;
    int m_xEnd;
    std::vector<PlaneSums> m_planes;
    CTransThreadPrgCntAdapter * m_adapter;
};

// Leaf cells in a row whose samples are added up for themselves.
int const pieceCells = 256;
// More of them in a piece are not one thread's alone.
std::int64_t const crowdedSamples = 1 << 16;
int const samplesAhead = 12; // that are fetched while one is at hand

using StripTask = tf_calcMeanIsoValueCycleByPoints<Kernel, std::vector<float>>;

std::vector<float> const * weightsOf(StageContext const & context)
{
    return context.density != nullptr ? &context.density->weights : nullptr;
}

double meanOf(PlaneSums const & total)
{
    return total.weights != 0.0 ? total.weightedValues / total.weights : total.weightedValues;
}

} // namespace

double calcMeanIsoValue(Combination const & function, StageContext const & context)
{
    COctree const & octree = context.octree;
    CParallelepiped const box = octree.getCellsBoundaryBox();
    int const xLow = octree.realToLattice(box.getMin()[0], 0, 0) - 1;
    int const xHigh = octree.realToLattice(box.getMax()[0], 0, 0) + 1;
    int const tasksNumber = context.threads;

    std::vector<StripTask> tasks;
    tasks.reserve(static_cast<std::size_t>(tasksNumber));
    int xBegin = xLow;
    for (int task = 0; task < tasksNumber; ++task) {
        int const xEnd =
            xLow + static_cast<int>(static_cast<std::int64_t>(xHigh - xLow) * (task + 1) / tasksNumber);
        tasks.emplace_back(function, context.samples, octree, weightsOf(context), xBegin, xEnd);
        xBegin = xEnd;
    }

    if (tasksNumber == 1) {
        CPrgCntIntegerScope scope(context.progress, xHigh - xLow);
        tasks.front().calculate([&scope](int steps) {
            for (int step = 0; step < steps; ++step)
                scope.increment();
        });
    } else {
        CTransThreadPrgCntAdapter adapter;
        adapter.refresh(context.progress, std::max(0, xHigh - xLow));
        std::vector<IVescaInvokeProc *> procedures;
        for (StripTask & task : tasks) {
            task.setAdapter(&adapter);
            procedures.push_back(&task);
        }
        CVescaThreadingTasksHelper::performInParallel(procedures.data(), tasksNumber, &adapter);
    }

    PlaneSums total;
    for (StripTask const & task : tasks) {
        for (PlaneSums const & plane : task.planes()) {
            total.weightedValues += plane.weightedValues;
            total.weights += plane.weights;
        }
    }
    return meanOf(total);
}

double calcMeanIsoValue(BrickFunction const & function, StageContext const & context)
{
    IInputSamples const & samples = context.samples;
    COctree const & octree = context.octree;
    std::vector<float> const * const weights = weightsOf(context);
    int const cells = octree.getCellsNumberOnDeepestLevel();
    int const pieces = (cells + pieceCells - 1) / pieceCells;
    std::vector<PlaneSums> sums(static_cast<std::size_t>(pieces));
    auto const pieceEnd = [&](int piece) { return std::min(cells, (piece + 1) * pieceCells); };
    auto const isCrowded = [&](int piece) {
        std::int64_t samplesNumber = 0;
        for (int cell = piece * pieceCells; cell < pieceEnd(piece); ++cell)
            samplesNumber += octree.getSamplesEnd(cell) - octree.getSamplesBegin(cell);
        return samplesNumber > crowdedSamples;
    };
    struct Term
    {
        double weightedValue;
        float weight;
    };
    int const * const samplesEnd = cells > 0 ? octree.getSamplesEnd(cells - 1) : nullptr;
    auto const termOf = [&](int const * at, BrickFunction::Hint & hint) {
        // Samples of neighbouring cells may lie anywhere in memory.
        if (samplesEnd - at > samplesAhead)
            __builtin_prefetch(samples.getSampleCoords3(at[samplesAhead]));
        int const sample = *at;
        float const * coords = samples.getSampleCoords3(sample);
        double const point[3] = {coords[0], coords[1], coords[2]};
        float const weight = weights != nullptr ? (*weights)[static_cast<std::size_t>(sample)] : 1.0f;
        return Term{function.eval(point, hint) * weight, weight};
    };
    auto const add = [](Term const & term, PlaneSums & to) {
        to.weights += term.weight;
        to.weightedValues += term.weightedValue;
    };
    auto const sumPiece = [&](int piece) {
        if (isCrowded(piece))
            return;
        BrickFunction::Hint hint;
        PlaneSums pieceSums;
        for (int cell = piece * pieceCells; cell < pieceEnd(piece); ++cell) {
            for (int const * it = octree.getSamplesBegin(cell); it != octree.getSamplesEnd(cell); ++it)
                add(termOf(it, hint), pieceSums);
        }
        sums[static_cast<std::size_t>(piece)] = pieceSums;
    };
    LoopTeam::run(context.threads, context.progress, [&](LoopTeam & team) {
        team.forEach(pieces, sumPiece, 1.0);
        std::vector<BrickFunction::Hint> hints(static_cast<std::size_t>(team.threads()));
        for (int piece = 0; piece < pieces; ++piece) {
            if (!isCrowded(piece))
                continue;
            PlaneSums & pieceSums = sums[static_cast<std::size_t>(piece)];
            auto turns = makeSampleTurns<Term>(
                team,
                [&](int slot, int, int const * of, int count, Term * terms) {
                    for (int n = 0; n < count; ++n)
                        terms[n] = termOf(of + n, hints[static_cast<std::size_t>(slot)]);
                },
                [&](int, Term const * terms, int count) {
                    PlaneSums total = pieceSums;
                    for (int n = 0; n < count; ++n)
                        add(terms[n], total);
                    pieceSums = total;
                });
            for (int cell = piece * pieceCells; cell < pieceEnd(piece); ++cell)
                turns.add(0, octree.getSamplesBegin(cell), octree.getSamplesEnd(cell));
            turns.finish();
        }
    });
    PlaneSums total;
    for (PlaneSums const & piece : sums) {
        total.weightedValues += piece.weightedValues;
        total.weights += piece.weights;
    }
    return meanOf(total);
}

} // namespace VolTr
