#include "support/bucket_map.h"

#include <gmock/gmock.h>

#include <vector>

namespace {

using Map = kor::BucketMap<char*, int>;

char* key(uintptr_t address) {
    return reinterpret_cast<char*>(address);
}

std::vector<int> values(const Map& map) {
    std::vector<int> all;
    map.any([&](char* /*key*/, int value) {
        all.push_back(value);
        return false;
    });
    return all;
}

} // namespace

TEST(BucketMap, AKeysBucketIsItsAddressModulo128) {
    EXPECT_EQ(Map::bucketCount, 128U);
    EXPECT_EQ(Map::bucketOf(key(0)), 0U);
    EXPECT_EQ(Map::bucketOf(key(127)), 127U);
    EXPECT_EQ(Map::bucketOf(key(128)), 0U);
    EXPECT_EQ(Map::bucketOf(key(UINTPTR_MAX)), 127U);
}

TEST(BucketMap, AskingCreatesNothing) {
    Map map;
    EXPECT_EQ(map.find(key(16)), nullptr);
    EXPECT_FALSE(map.remove(key(16)));
    EXPECT_EQ(map.count(), 0U);
    EXPECT_TRUE(values(map).empty());
}

TEST(BucketMap, ANewValueIsTheTypesOwnAndStays) {
    Map map;
    int* value = map.findOrInsert(key(16));
    ASSERT_NE(value, nullptr);
    EXPECT_EQ(*value, 0);
    *value = 7;
    EXPECT_EQ(map.findOrInsert(key(16)), value);
    EXPECT_EQ(map.find(key(16)), value);
    EXPECT_EQ(map.count(), 1U);
}

TEST(BucketMap, ANewEntryIsTheFirstOfItsBucket) {
    Map map;
    for (const int value : {1, 2, 3})
        *map.findOrInsert(key(5 + 128U * static_cast<unsigned>(value))) = value;
    EXPECT_THAT(values(map), testing::ElementsAre(3, 2, 1));
    *map.findOrInsert(key(4)) = 9; // an earlier bucket
    EXPECT_THAT(values(map), testing::ElementsAre(9, 3, 2, 1));
}

TEST(BucketMap, RemovingLeavesTheOthersOfTheBucket) {
    Map map;
    for (const int value : {1, 2, 3})
        *map.findOrInsert(key(5 + 128U * static_cast<unsigned>(value))) = value;
    EXPECT_TRUE(map.remove(key(5 + 128 * 2)));
    EXPECT_THAT(values(map), testing::ElementsAre(3, 1));
    EXPECT_EQ(map.count(), 2U);
    EXPECT_EQ(map.find(key(5 + 128 * 2)), nullptr);
    EXPECT_FALSE(map.remove(key(5 + 128 * 2)));
}

TEST(BucketMap, AVisitEndsWithTheFirstThatIsWanted) {
    Map map;
    for (const unsigned bucket : {1U, 2U, 3U})
        *map.findOrInsert(key(bucket)) = static_cast<int>(bucket);
    int visits = 0;
    EXPECT_TRUE(map.any([&](char* /*key*/, int value) {
        ++visits;
        return value == 2;
    }));
    EXPECT_EQ(visits, 2);
}

TEST(BucketMap, HoldsMoreEntriesThanBuckets) {
    Map map;
    for (uintptr_t i = 0; i < 5000; ++i)
        *map.findOrInsert(key(i * 16)) = static_cast<int>(i);
    EXPECT_EQ(map.count(), 5000U);
    for (uintptr_t i = 0; i < 5000; ++i)
        EXPECT_EQ(*map.find(key(i * 16)), static_cast<int>(i));
}
