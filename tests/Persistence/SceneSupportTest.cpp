// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Persistence/ComponentFilters.h>
#include <QZmath/Persistence/GraphObject.h>
#include <QZmath/Persistence/SortRecords.h>

#include <gtest/gtest.h>

#include <initializer_list>
#include <memory>
#include <string>

namespace
{

struct Object : CGraphObject
{
    std::string calls;

private:
    void OnActivation() override { calls += isActive() ? 'A' : 'a'; }
    void OnChangeVisibility() override { calls += isVisible() ? 'V' : 'v'; }
};

TEST(GraphObject, TellsOfEachChangeAndKeepsColorsApart)
{
    Object object;
    for (bool flag : {false, false, true}) {
        object.setActive(flag);
        object.setVisible(flag);
    }
    EXPECT_EQ(object.calls, "avavAV");
    object.setOwnColor(1);
    object.setTempColor(2);
    object.setGroupColor(3);
    unsigned long own = 9, temporary = 9, group = 9;
    object.deleteTempColor();
    EXPECT_TRUE(object.getOwnColor(own) && !object.getTempColor(temporary) && object.getGroupColor(group));
    EXPECT_TRUE(own == 1 && temporary == 9 && group == 3);
}

TEST(GraphObject, IsSelectedByItsActivityAlone)
{
    std::unique_ptr<VsF::IGraphObjectSelector> const total(VsF::IGraphObjectSelector::CreateTotal());
    std::unique_ptr<VsF::IGraphObjectSelector> const copy(total->Copy());
    CGraphObject object;
    for (bool active : {true, false}) {
        object.setActive(active);
        object.setSelected(!active);
        EXPECT_TRUE((*total)(&object) == active && (*copy)(&object) == active);
    }
    EXPECT_FALSE((*copy)(nullptr));
    unsigned long color = 0;
    object.setOwnColor(5);
    object.deleteOwnColor();
    EXPECT_FALSE(object.getOwnColor(color));
}

// The order looks at the key, equality at all.
template <class Record>
void expectOrder(Record const & less, Record const & greater, std::initializer_list<Record> sameKeyAsLess)
{
    EXPECT_TRUE(less < greater && less <= greater && greater > less && greater >= less && less == less);
    EXPECT_FALSE(less > greater || less >= greater || greater < less || greater <= less || less == greater);
    for (Record const & other : sameKeyAsLess) {
        EXPECT_TRUE(less <= other && less >= other);
        EXPECT_FALSE(less < other || less > other || less == other);
    }
}

TEST(SortRecords, OrderLooksAtTheKeyAndEqualityAtAll)
{
    expectOrder(CSortRef{1, -2}, CSortRef{1, 3}, {CSortRef{5, -2}});
    expectOrder(CBackSortRef{1, 3}, CBackSortRef{1, -2}, {CBackSortRef{5, 3}});
    expectOrder(CSortRefInt{1, -2}, CSortRefInt{1, 3}, {CSortRefInt{5, -2}});
    expectOrder(CSortRef2{1, 1, -2}, CSortRef2{1, 1, 3}, {CSortRef2{5, 1, -2}, CSortRef2{1, 5, -2}});
    expectOrder(CSortRef2Int{1, 1, -2}, CSortRef2Int{1, 1, 3},
                {CSortRef2Int{5, 1, -2}, CSortRef2Int{1, 5, -2}});
    expectOrder(CSortRef3{1, 1, 1, -2}, CSortRef3{1, 1, 1, 3},
                {CSortRef3{5, 1, 1, -2}, CSortRef3{1, 5, 1, -2}, CSortRef3{1, 1, 5, -2}});
    EXPECT_FALSE(
        (CSliceVertFlag{1, 2} == CSliceVertFlag{1, 3} || CSliceVertFlag{1, 2} == CSliceVertFlag{3, 2}));
}

} // namespace
