// SPDX-License-Identifier: Apache-2.0
#include <QZmath/LinSys/LinSysSolverCoreMkl.h>

#include <QZsys/Exceptions.h>
#include <QZsys/Progress.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <utility>
#include <vector>

#include <support/SolverSystems.h>

namespace
{

using namespace REmath;

template <class T>
class LinSysSolverCoreMklTest : public testing::Test
{};
using Numbers = testing::Types<float, double>;
TYPED_TEST_SUITE(LinSysSolverCoreMklTest, Numbers, );

/// A system of its own kind that records how its elements are read.
template <class T>
class RecordingSystem : public ILinearSystemReadOnly<T>
{
public:
    mutable std::vector<std::pair<int, int>> reads;
    static constexpr int size = 3;

private:
    bool onIsCorrectlyDefinedSystem() const override { return true; }
    void onSetSingleRightPart(T * rightPart, IVertexPosInformer<T> const & informer) const override
    {
        std::fill_n(rightPart, size, informer.GetVertexPosition(0));
    }
    int onGetEquationsNumber() const override { return size; }
    T onScalarProductByMatrixRow(int, int, T const *) const override { return T(0); }
    T onGetFreeVertCoeff(int row, int column) const override
    {
        reads.emplace_back(column, row);
        return T(row == column ? 2 : 0);
    }
    void onSetSingleSolution(T const * solution, IEqSysResultReciever<T> & reciever) const override
    {
        for (int row = 0; row < size; ++row)
            reciever.SetVertexPosition(row, solution[row]);
    }
    bool onIsSymmetric() const override { return true; }
    bool onIsPositiveDefinite() const override { return true; }
};

class RecordingProgress : public CProgressCounter
{
public:
    std::vector<double> positions;

protected:
    void onPosition(double overall) override { positions.push_back(overall); }
};

TYPED_TEST(LinSysSolverCoreMklTest, ReadsEachElementOnceFromTheLastOneBack)
{
    using T = TypeParam;
    RecordingSystem<T> const system;
    testSupport::PositionMap<T> fixed, solved;
    fixed.m_positions[0] = T(4);
    IVertexPosInformer<T> const * informer = &fixed;
    IEqSysResultReciever<T> * reciever = &solved;
    RecordingProgress progress;
    CLinSysSolverCoreMkl<T> core;
    ASSERT_TRUE(core.solveSystem(system, 1, &informer, &reciever, &progress));
    ASSERT_EQ(system.reads.size(), 9U);
    EXPECT_TRUE(std::is_sorted(system.reads.rbegin(), system.reads.rend()));
    EXPECT_EQ(solved.m_positions, (std::map<int, T>{{0, T(2)}, {1, T(2)}, {2, T(2)}}));

    EXPECT_TRUE(std::is_sorted(progress.positions.begin(), progress.positions.end()));
    for (double const boundary : {0.2, 0.95, 1.0}) {
        auto const isThere = [boundary](double position) { return std::abs(position - boundary) < 1e-12; };
        EXPECT_TRUE(std::any_of(progress.positions.begin(), progress.positions.end(), isThere)) << boundary;
    }
    progress.interrupt();
    EXPECT_THROW(core.solveSystem(system, 1, &informer, &reciever, &progress), CUserIntrException);
}

} // namespace
