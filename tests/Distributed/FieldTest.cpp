// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Distributed/Cloud/CloudTravel.h>
#include <QZmath/Distributed/Field/ImplicitField.h>

#include <QZmath/VolTriang/Stages/BrickPath.h>
#include <QZmath/VolTriang/Stages/PathChoice.h>
#include <QZmath/VolTriang/Stages/RunPhases.h>
#include <QZmath/VolTriang/Stages/SampleDensity.h>

#include <Distributed/DealtPoints.h>
#include <gtest/gtest.h>
#include <support/SampledClouds.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <optional>
#include <vector>

namespace
{

using namespace QZmath::Distributed;

// The function of one process, over the same octree.
struct WholeField
{
    VolTr::CVolTriangulationParams params;
    std::optional<VolTr::COctree> octree;
    std::optional<VolTr::Basis> basis;
    VolTr::Kernel kernel = VolTr::makeReconstructionKernel(1.0f);
    VolTr::SampleDensity density;
    VolTr::CReconstructionReport report;
    std::unique_ptr<VolTr::ImplicitFunction> function;
    double isoValue = 0.0;

    WholeField(PointCloudSamples const & samples, VolTr::CVolTriangulationParams const & same) : params(same)
    {
        kernel = VolTr::makeReconstructionKernel(params.getKernelScaleFactor());
        octree.emplace(&samples, params.getOctreeDepth(), nullptr, params.getUseCenter(),
                       params.getDetalizationLevel());
        basis.emplace(kernel, &*octree, 0);
        VolTr::StageContext context = {samples, params,  *octree, *basis, nullptr,
                                       nullptr, nullptr, report,  1};
        VolTr::BrickPath path;
        path.prepare(context);
        int const level = std::max(octree->getNodeDepthEnd() - params.getDensityEstimationDepthDelta() - 1,
                                   octree->getNodeDepthBegin());
        density = VolTr::estimateSampleDensity(samples, *octree, *basis, level, 1, nullptr, nullptr);
        context.density = &density;
        path.splat(context);
        VolTr::RunPhases phases(nullptr, nullptr);
        phases.add("update right part", 1);
        path.assemble(context, phases);
        function = path.solve(context);
        isoValue = function->meanAtSamples(context);
    }
};

struct Difference
{
    double greatest = 0.0; // of the heights over the surface at the samples, in leaf cells
    double rms = 0.0;
    DistributedReport report;
};

// The field of a dealt cloud.
struct RankField
{
    qz_test::DealtPoints const dealt;
    DistributedReport report;
    CloudFrame frame;
    std::optional<Partition> partition;
    RankCloud own;
    VolTr::TreeCube cube;
    std::optional<ImplicitField> field;

    RankField(Communicator const & ranks, PointCloudSamples const & cloud, DistributedOptions const & options)
        : dealt(cloud, ranks.rank(), ranks.size(), 3),
          own(gatherCloud(ranks, dealt.view(), ranks.sumBefore(static_cast<std::int64_t>(dealt.view().size)),
                          options, frame, partition, report)),
          cube(treeCubeOf(frame))
    {
        field.emplace(ranks, *partition, own, cube, options, frame.depth, 1, report, nullptr);
        field->buildTree();
        field->estimateDensity();
        field->splat();
        field->take(field->solve());
        field->findIsoValue();
    }
};

// The result of all ranks against that of one process.
Difference compare(Communicator const & ranks, PointCloudSamples const & cloud,
                   DistributedOptions const & options)
{
    RankField made(ranks, cloud, options);
    RankCloud const & own = made.own;
    ImplicitField & field = *made.field;
    Difference result;
    result.report = made.report;
    WholeField const whole(cloud, field.context().params);
    auto const evaluator = whole.function->makeEvaluator(1.0);
    double const leaf = whole.octree->getUnit();
    double squares = 0.0;
    for (std::size_t sample = 0; sample < own.size(); ++sample) {
        if (own.isOwn[sample] == 0)
            continue;
        double point[3], gradient[3], wholeGradient[3];
        std::copy_n(own.positions.data() + 3 * sample, 3, point);
        field.function().gradient(point, gradient);
        evaluator->gradient(point, wholeGradient);
        auto const heightOf = [&](double value, double const * slope) {
            return value /
                   (leaf * std::sqrt(slope[0] * slope[0] + slope[1] * slope[1] + slope[2] * slope[2]));
        };
        double const difference = heightOf(field.function().eval(point) - field.isoValue(), gradient) -
                                  heightOf(evaluator->value(point) - whole.isoValue, wholeGradient);
        result.greatest = std::max(result.greatest, std::fabs(difference));
        squares += difference * difference;
    }
    result.greatest = ranks.greatest(result.greatest);
    result.rms = std::sqrt(ranks.sum(squares) / static_cast<double>(own.total));
    return result;
}

} // namespace

// The function over ranks is that of one process: an even closed surface, one whose sparse parts are splatted
// on coarser depths, and an open one whose middle lies on a corner of the coarsest units.
TEST(DistributedField, IsThatOfOneProcess)
{
    Communicator const ranks(MPI_COMM_WORLD);
    struct Case
    {
        char const * shape;
        std::size_t points;
        double densityRatio;
        int depth;
    };
    for (Case const & of : {Case{"genus3", 30000, 1.0, 7}, Case{"genus3", 20000, 30.0, 7},
                            Case{"sheet", 6000, 1.0, 6}, Case{"sphere", 40, 1.0, 8}}) {
        DistributedOptions options;
        options.depth = of.depth;
        Difference const found =
            compare(ranks, qz_test::sampledShape(of.shape, of.points, 0.0, of.densityRatio), options);
        EXPECT_LT(found.greatest, 1e-3) << of.shape;
    }
}

// Depths beyond those whose couplings one process can hold: the ranks against each of them alone.
TEST(DistributedField, OfGreatDepthIsThatOfOneRank)
{
    Communicator const ranks(MPI_COMM_WORLD);
    Communicator const self(MPI_COMM_SELF);
    // Dense around a corner of the coarsest units, sparse elsewhere.
    PointCloudSamples cloud = qz_test::sampledShape("sphere", 600);
    for (std::size_t n = 0; n < cloud.points.size(); n += 2) {
        for (float & coord : cloud.points[n])
            coord *= 1e-4f;
    }
    DistributedOptions options;
    options.depth = 17;
    RankField const all(ranks, cloud, options);
    RankField const alone(self, cloud, options);
    ASSERT_EQ(all.report.unknowns, alone.report.unknowns);
    EXPECT_NEAR(all.field->isoValue(), alone.field->isoValue(), 1e-6 * std::fabs(alone.field->isoValue()));
    for (std::size_t sample = 0; sample < all.own.size(); ++sample) {
        double point[3];
        std::copy_n(all.own.positions.data() + 3 * sample, 3, point);
        double const expected = alone.field->function().eval(point);
        if (all.own.isOwn[sample] != 0) {
            EXPECT_NEAR(all.field->function().eval(point), expected,
                        1e-5 * (std::fabs(expected) + std::fabs(alone.field->isoValue())));
        }
    }
}
