// SPDX-License-Identifier: Apache-2.0
#include <QZmath/SurfaceAnalysis/Distances.h>
#include <QZmath/SurfaceAnalysis/Projectors.h>

#include "TestPoints.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <vector>

using namespace qz_test;
using qz_sampling::Random;
using REmath::Point3D;
using REmath::Point3D_d;

namespace
{

using Polyline = std::vector<Point3D_d>;

// Answers every point with one of its own, and counts its living instances.
class FixedAnswer : public IPointToFaceProjector
{
public:
    FixedAnswer(Point3D_d const & answer, bool succeeds, bool copyable)
        : m_answer(answer), m_succeeds(succeeds), m_copyable(copyable)
    {
        ++instances;
    }
    ~FixedAnswer() override { --instances; }
    inline static int instances = 0;

protected:
    IPointToGeomObjProjector * OnCopy() const override
    {
        return m_copyable ? new FixedAnswer(m_answer, m_succeeds, m_copyable) : nullptr;
    }
    using IPointToFaceProjector::OnProjectPoint;
    bool OnProjectPoint(Point3D_d const &, Point3D_d & result, double &, double &, bool &) override
    {
        result = m_answer;
        return m_succeeds;
    }

private:
    Point3D_d m_answer;
    bool m_succeeds, m_copyable;
};

} // namespace

TEST(ProjectorToPolyline, TellsTheFirstOfTheNearestSegments)
{
    Random random(1);
    for (int repetition = 0; repetition < 3000; ++repetition) {
        bool const onLattice = repetition % 2; // where points repeat and segments are equally near
        Polyline polyline(1 + random.next() % 6);
        for (Point3D_d & point : polyline)
            point = onLattice ? latticePoint(random) : randomPoint(random);
        CProjectorToPolyline projector(polyline);
        Point3D_d const p = onLattice ? latticePoint(random) : randomPoint(random, 2);
        Point3D_d result, alias = p;
        double param = -1;
        ASSERT_TRUE(projector.projectPoint(p, result, param));
        std::unique_ptr<IPointToGeomObjProjector> const copy(projector.Copy());
        EXPECT_TRUE(copy->projectPoint(alias, alias) && alias == result);
        ASSERT_TRUE(param >= 0 && param <= static_cast<double>(polyline.size() - 1));
        auto const index = static_cast<std::size_t>(param);
        Point3D_d const start = polyline[index], end = polyline[std::min(index + 1, polyline.size() - 1)];
        EXPECT_LE((start + (end - start) * (param - std::floor(param)) - result).length(), 1e-14);
        double const squared = REmath::Detail::dot(result - p, result - p);
        for (std::size_t i = 0; i + 1 < polyline.size(); ++i) {
            double const other =
                DistancePoint2Segment(p.asArray(), polyline[i].asArray(), polyline[i + 1].asArray());
            EXPECT_TRUE(static_cast<double>(i) + 1 < param ? other > squared : other >= squared);
        }
    }
}

TEST(ProjectorToPolyline, AnswersDegenerateAndHostilePolylines)
{
    Point3D_d result;
    double param = 7;
    EXPECT_FALSE(CProjectorToPolyline().projectPoint(Point3D_d(1), result, param));
    CProjectorToPolyline projector;
    for (std::size_t count : {1U, 3U}) {
        projector = CProjectorToPolyline(Polyline(count, {1, 2, 3}));
        param = 7;
        EXPECT_TRUE(projector.projectPoint(Point3D(9), result, param));
        EXPECT_TRUE(param == 0 && result == Point3D_d(1, 2, 3));
    }
    EXPECT_FALSE(projector.projectPoint(Point3D_d(NAN, 0, 0), result, param) ||
                 projector.projectPoint(Point3D_d(INFINITY, 0, 0), result, param));
    CProjectorToPolyline broken(Polyline{{NAN, 0, 0}, {0, 0, 0}, {1, 0, 0}, {INFINITY, 0, 0}});
    EXPECT_TRUE(broken.projectPoint(Point3D_d(2, 1, 0), result, param));
    EXPECT_TRUE(param == 2 && result == Point3D_d(1, 0, 0));
}

TEST(ProjectorsJoin, TakesTheNearestAndTellsTheLast)
{
    {
        CProjectorsJoin join;
        Point3D_d result(7);
        EXPECT_FALSE(join.projectPoint(0, result));
        auto const add = [&](Point3D_d const & answer, bool succeeds, bool copyable = true) {
            join.AddProjectorWithOwnerShip(new FixedAnswer(answer, succeeds, copyable));
        };
        add({0.1, 0, 0}, false);
        join.AddProjectorWithOwnerShip(nullptr);
        EXPECT_TRUE(!join.projectPoint(0, result) && result == Point3D_d(7));
        add({NAN, 0, 0}, true);
        add({2, 0, 0}, true);
        add({0, 2, 0}, true);
        EXPECT_TRUE(join.projectPoint(0, result) && result == Point3D_d(2, 0, 0));
        add({1, 0, 0}, true, false);
        add({0.5, 0, 0}, false);
        EXPECT_TRUE(!join.projectPoint(0, result) && result == Point3D_d(1, 0, 0));

        std::unique_ptr<IPointToGeomObjProjector> const copy(join.Copy());
        EXPECT_EQ(FixedAnswer::instances, 11); // without the one that cannot be copied
        EXPECT_TRUE(!copy->projectPoint(0, result) && result == Point3D_d(2, 0, 0));
    }
    EXPECT_EQ(FixedAnswer::instances, 0);
}
