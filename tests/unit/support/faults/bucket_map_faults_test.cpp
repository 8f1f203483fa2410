// Without memory the table stays empty for good, or lacks the one entry.

#include "support/bucket_map.h"

#include <gtest/gtest.h>

#include <atomic>

namespace {

std::atomic<bool> outOfMemory{false};

using Map = kor::BucketMap<char*, int>;

} // namespace

void* operator new(size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return outOfMemory ? nullptr : ::operator new(size);
}
void* operator new[](size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return outOfMemory ? nullptr : ::operator new[](size);
}

TEST(BucketMapFaults, WithoutItsBucketsEveryLookUpFailsForGood) {
    outOfMemory = true;
    Map map;
    outOfMemory = false;
    char object = 0;
    EXPECT_EQ(map.findOrInsert(&object), nullptr);
    EXPECT_EQ(map.find(&object), nullptr);
    EXPECT_FALSE(map.remove(&object));
    EXPECT_FALSE(map.any([](char* /*key*/, int /*value*/) { return true; }));
    EXPECT_EQ(map.count(), 0U);
}

TEST(BucketMapFaults, AnEntryThatCannotBeMadeLeavesTheRest) {
    Map map;
    char objects[2] = {};
    *map.findOrInsert(&objects[0]) = 5;
    outOfMemory = true;
    EXPECT_EQ(map.findOrInsert(&objects[1]), nullptr);
    EXPECT_EQ(*map.findOrInsert(&objects[0]), 5);
    outOfMemory = false;
    EXPECT_EQ(map.count(), 1U);
}
