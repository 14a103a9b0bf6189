// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Persistence/GraphObject.h>
#include <QZmath/Persistence/ModelSizer.h>
#include <QZmath/Persistence/SortRecords.h>

#include <gtest/gtest.h>

#include <array>
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

/// A record of the first of the numbers and the key, the last of them; longer ones take those between.
template <class Record>
Record makeRecord(std::array<int, 4> const & values)
{
    using Key = decltype(Record::key);
    if constexpr (std::is_constructible_v<Record, int, int>)
        return Record(values[0], values[3]);
    else if constexpr (sizeof(Record) == 8)
        return Record{values[0], Key(values[3])};
    else if constexpr (sizeof(Record) == 12)
        return Record{values[0], values[1], Key(values[3])};
    else
        return Record{values[0], values[1], values[2], Key(values[3])};
}

template <class Record>
class SortRecords : public testing::Test
{};

using Records = testing::Types<CSortRef, CBackSortRef, CSortRefInt, CSortRef2, CSortRef2Int, CSortRef3>;
TYPED_TEST_SUITE(SortRecords, Records, );

TYPED_TEST(SortRecords, orderLooksAtTheKeyAndEqualityAtAll)
{
    int const direction = std::is_same_v<TypeParam, CBackSortRef> ? -1 : 1;
    std::size_t const fields = sizeof(TypeParam) / 4 - 1;
    std::array<int, 4> const values = {1, 2, 3, 0};
    auto const a = makeRecord<TypeParam>(values);
    for (int const key : {-1, 0, 1})
        for (std::size_t changed = 0; changed <= fields; ++changed) { // the last of them is none
            std::array<int, 4> others = {1, 2, 3, key};
            others[changed] += changed < fields ? 5 : 0;
            auto const b = makeRecord<TypeParam>(others);
            int const order = -direction * key;
            EXPECT_EQ(a < b, order < 0);
            EXPECT_EQ(a > b, order > 0);
            EXPECT_EQ(a <= b, order <= 0);
            EXPECT_EQ(a >= b, order >= 0);
            EXPECT_EQ(a == b, changed == fields && key == 0);
        }
}

TEST(SortRecordFields, flagsOfSliceVerticesCompareByBoth)
{
    EXPECT_FALSE((CSliceVertFlag{1, 2} == CSliceVertFlag{1, 3}));
    EXPECT_FALSE((CSliceVertFlag{1, 2} == CSliceVertFlag{3, 2}));
}

} // namespace
