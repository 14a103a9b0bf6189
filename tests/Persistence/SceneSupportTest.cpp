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

TEST(GraphObject, tellsOfEachChangeAndCopiesEverything)
{
    Object object;
    EXPECT_TRUE(object.getID() == 0 && object.isActive() && !object.isSelected() && object.isVisible());
    for (bool flag : {false, false, true}) {
        object.setActive(flag);
        object.setVisible(flag);
    }
    EXPECT_EQ(object.calls, "avavAV");

    object.setID(7);
    object.setSelected(true);
    object.setActive(false);
    object.setVisible(false);
    EXPECT_TRUE(object.setOwnColor(1));
    object.setTempColor(2);
    object.setGroupColor(3);
    CGraphObject assigned;
    assigned = object;
    CGraphObject const copied(assigned);
    EXPECT_TRUE(copied.getID() == 7 && !copied.isActive() && copied.isSelected() && !copied.isVisible());
    unsigned long own = 9, temporary = 9, group = 9;
    EXPECT_TRUE(copied.getOwnColor(own) && copied.getTempColor(temporary) && copied.getGroupColor(group));
    EXPECT_TRUE(own == 1 && temporary == 2 && group == 3);
    // Each colour goes alone, and what is not set leaves the argument as it is.
    unsigned long color = 9;
    assigned.deleteOwnColor();
    EXPECT_TRUE(!assigned.getOwnColor(color) && assigned.getTempColor(own) && assigned.getGroupColor(own));
    assigned.deleteTempColor();
    EXPECT_TRUE(!assigned.getTempColor(color) && assigned.getGroupColor(own));
    assigned.deleteGroupColor();
    EXPECT_TRUE(!assigned.getGroupColor(color) && color == 9);
}

struct Box : IModelSizer
{
    double height = 0; // known to the subclass if not 0
    double toldX = 0;
    int resets = 0, updates = 0;

private:
    void OnGetLimits(double * limits) override { limits[0] = height; }
    void OnGetLinearLimits(double const * transform, double * limits) override
    {
        limits[0] = transform[0] * height;
    }
    void OnUpdateLimits() override { ++updates; }
    void OnGetModelSize(double &, double &, double & z) const override
    {
        if (height != 0)
            z = height;
    }
    void OnSetModelSize(double x, double, double) override { toldX = x; }
    void OnResetModelSizeDefault() override { ++resets; }
};

TEST(ModelSizer, asksTheSubclassAfterTheDefault)
{
    Box box;
    double x, y, z;
    box.setModelSize(2, 3, 4);
    box.getModelSize(x, y, z);
    EXPECT_TRUE(x == 2 && y == 3 && z == 4 && box.toldX == 2);
    box.height = 9;
    box.getModelSize(x, y, z);
    EXPECT_TRUE(x == 2 && y == 3 && z == 9);
    box.resetModelSize();
    box.getModelSize(x, y, z);
    EXPECT_TRUE(x == 1 && y == 1 && z == 9 && box.resets == 1);
    double const transform = 2;
    box.GetLimits(&x);
    box.GetLinearLimits(&transform, &y);
    box.updateLimits();
    EXPECT_TRUE(x == 9 && y == 18 && box.updates == 1);
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
    auto const log = [](char const *) {};
    EXPECT_TRUE(!QZmath_CB_WriteLog && !QZmath_CB_WriteOutput);
    QZmath_setCB_WriteLog(log);
    EXPECT_TRUE(QZmath_CB_WriteLog == log && !QZmath_CB_WriteOutput);
    QZmath_setCB_WriteLog(nullptr);
    QZmath_setCB_WriteOutput(log);
    EXPECT_TRUE(!QZmath_CB_WriteLog && QZmath_CB_WriteOutput == log);
    QZmath_setCB_WriteOutput(nullptr);
}

} // namespace
