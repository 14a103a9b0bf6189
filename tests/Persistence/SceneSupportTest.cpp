// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Persistence/GraphObject.h>
#include <QZmath/Persistence/ModelSizer.h>
#include <QZmath/Persistence/OutputHooks.h>
#include <QZmath/Persistence/SortRecords.h>

#include <gtest/gtest.h>

#include <string>
#include <type_traits>

namespace
{

struct Object : CGraphObject
{
    std::string calls;

private:
    void OnActivation() override { calls += isActive() ? 'A' : 'a'; }
    void OnChangeVisibility() override { calls += isVisible() ? 'V' : 'v'; }
};

TEST(GraphObject, tellsOfEachChangeAndKeepsColorsApart)
{
    Object object;
    for (bool flag : {false, false, true}) {
        object.setActive(flag);
        object.setVisible(flag);
    }
    EXPECT_EQ(object.calls, "avavAV");
    EXPECT_TRUE(object.setOwnColor(1));
    object.setTempColor(2);
    object.setGroupColor(3);
    CGraphObject copy(object);
    // Each colour goes alone, and what is not set leaves the argument as it is.
    unsigned long own = 9, temporary = 9, group = 9;
    copy.deleteOwnColor();
    EXPECT_TRUE(!copy.getOwnColor(own) && copy.getTempColor(temporary) && copy.getGroupColor(group));
    copy.deleteTempColor();
    EXPECT_TRUE(!copy.getTempColor(own) && copy.getGroupColor(group));
    copy.deleteGroupColor();
    EXPECT_TRUE(!copy.getGroupColor(own) && object.getOwnColor(temporary));
    EXPECT_TRUE(own == 9 && temporary == 1 && group == 3);
}

struct Box : IModelSizer
{
    double told = 0;

private:
    void OnGetLimits(double *) override {}
    void OnGetLinearLimits(double const *, double *) override {}
    void OnUpdateLimits() override {}
    void OnGetModelSize(double &, double &, double & z) const override { z += 9; }
    void OnSetModelSize(double x, double, double) override { told = x; }
    void OnResetModelSizeDefault() override { told = -1; }
};

TEST(ModelSizer, asksTheSubclassAfterTheDefault)
{
    Box box;
    double x, y, z;
    box.setModelSize(2, 3, 4);
    box.getModelSize(x, y, z);
    EXPECT_TRUE(x == 2 && y == 3 && z == 13 && box.told == 2);
    box.resetModelSize();
    box.getModelSize(x, y, z);
    EXPECT_TRUE(x == 1 && y == 1 && z == 10 && box.told == -1);
}

/// A record whose integers are all `value`, but for the key.
template <class Record>
Record makeRecord(int value, int key)
{
    using Key = decltype(Record::key);
    if constexpr (std::is_constructible_v<Record, int, int>)
        return Record(value, key);
    else if constexpr (sizeof(Record) == 8)
        return Record{value, Key(key)};
    else if constexpr (sizeof(Record) == 12)
        return Record{value, value, Key(key)};
    else
        return Record{value, value, value, Key(key)};
}

template <class Record>
class SortRecords : public testing::Test
{};

using Records = testing::Types<CSortRef, CBackSortRef, CSortRefInt, CSortRef2, CSortRef2Int, CSortRef3>;
TYPED_TEST_SUITE(SortRecords, Records, );

TYPED_TEST(SortRecords, orderLooksAtTheKeyAndEqualityAtAll)
{
    static_assert(std::is_trivially_copyable_v<TypeParam> && !std::is_polymorphic_v<TypeParam>);
    int const direction = std::is_same_v<TypeParam, CBackSortRef> ? -1 : 1;
    for (int code = 0; code < 81; ++code) {
        int const left = code % 3, leftKey = code / 3 % 3 - 1, right = code / 9 % 3, rightKey = code / 27 - 1;
        auto const a = makeRecord<TypeParam>(left, leftKey);
        auto const b = makeRecord<TypeParam>(right, rightKey);
        int const order = direction * (leftKey - rightKey);
        EXPECT_EQ(a < b, order < 0);
        EXPECT_EQ(a > b, order > 0);
        EXPECT_EQ(a <= b, order <= 0);
        EXPECT_EQ(a >= b, order >= 0);
        EXPECT_EQ(a == b, left == right && leftKey == rightKey);
    }
}

TEST(SortRecordFields, everyFieldOfTheLongOnesCounts)
{
    EXPECT_FALSE((CSortRef3{1, 2, 3, 4} == CSortRef3{1, 5, 3, 4}));
    EXPECT_FALSE((CSortRef3{1, 2, 3, 4} == CSortRef3{1, 2, 5, 4}));
    EXPECT_FALSE((CSortRef2{1, 2, 4} == CSortRef2{1, 5, 4}));
    EXPECT_FALSE((CSortRef2Int{1, 2, 4} == CSortRef2Int{5, 2, 4}));
    EXPECT_FALSE((CSliceVertFlag{1, 2} == CSliceVertFlag{1, 3}));
    EXPECT_FALSE((CSliceVertFlag{1, 2} == CSliceVertFlag{3, 2}));
}

TEST(OutputHooks, keepWhatIsSetApart)
{
    QZmath_setCB_WriteLog([](char const *) {});
    EXPECT_TRUE(QZmath_CB_WriteLog && !QZmath_CB_WriteOutput);
    QZmath_setCB_WriteOutput(QZmath_CB_WriteLog);
    QZmath_setCB_WriteLog(nullptr);
    EXPECT_TRUE(!QZmath_CB_WriteLog && QZmath_CB_WriteOutput);
    QZmath_setCB_WriteOutput(nullptr);
}

} // namespace
