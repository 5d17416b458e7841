#include "foundation/owner.h"

#include <gtest/gtest.h>

namespace {

struct Record {
    int nDestroyed;
};

int DestroyRecord(Record *pRecord)
{
    return ++pRecord->nDestroyed;
}

using Owner = KovaOwner<Record, DestroyRecord>;

TEST(Owner, DestroysItsRecordOnceAtTheEndOfItsScope)
{
    Record record = {};
    {
        const Owner owner(&record);
        EXPECT_TRUE(owner);
        EXPECT_EQ(owner.Get(), &record);
        EXPECT_EQ(owner->nDestroyed, 0);
    }
    EXPECT_EQ(record.nDestroyed, 1);
}

TEST(Owner, ReleasesItsRecordToTheCaller)
{
    Record record = {};
    {
        Owner owner(&record);
        EXPECT_EQ(owner.Release(), &record);
        EXPECT_FALSE(owner);
    }
    EXPECT_EQ(record.nDestroyed, 0);
}

TEST(Owner, DestroysNothingWhenItHasNothing)
{
    const Owner owner(nullptr);
    EXPECT_FALSE(owner);
    EXPECT_EQ(owner.Get(), nullptr);
}

} // namespace
