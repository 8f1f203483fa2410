#include "support/ini_table.h"

#include <gtest/gtest.h>
#include <set>
#include <string>

using kor::IniTable;

TEST(IniTable, HashesByShiftingAndAddingThirteenTimesEachByte) {
    EXPECT_EQ(IniTable::hash(""), 0U);
    EXPECT_EQ(IniTable::hash("A"), 13U * 65);
    EXPECT_EQ(IniTable::hash("AB"), 16U * 13 * 65 + 13 * 66);
}

TEST(IniTable, FoldsTheTopFourBitsBackIntoTheHash) {
    // 'Z' adds 13 * 90 = 0x492 in each step; from the sixth on, bits are pushed out at the top.
    uint32_t expected = 0;
    bool folded = false;
    for (int i = 0; i < 12; ++i) {
        expected = expected * 16 + 0x492;
        const uint32_t top = expected >> 28;
        folded = folded || top != 0;
        expected = (expected & 0x0fffffff) ^ (top << 4);
    }
    EXPECT_TRUE(folded);
    EXPECT_EQ(IniTable::hash(std::string(12, 'Z')), expected);
    EXPECT_LT(IniTable::hash(std::string(40, '\xff')), 0x10000000U);
}

TEST(IniTable, TakesBytesAbove127AsPositive) {
    EXPECT_EQ(IniTable::hash("\xff"), 13U * 255);
}

TEST(IniTable, StartsWith128Buckets) {
    EXPECT_EQ(IniTable().bucketCount(), 128U);
}

TEST(IniTable, FindsWhatWasAddedAndNothingElse) {
    IniTable table;
    EXPECT_EQ(table.find("A"), nullptr);
    table.add("A", "1");
    ASSERT_NE(table.find("A"), nullptr);
    EXPECT_EQ(table.find("A")->value, "1");
    EXPECT_EQ(table.find("B"), nullptr);
    EXPECT_EQ(table.size(), 1U);
}

TEST(IniTable, RemovesOnlyTheEntryNamed) {
    IniTable table;
    table.add("A", "1");
    table.add("B", "2");
    EXPECT_TRUE(table.remove("A"));
    EXPECT_FALSE(table.remove("A"));
    EXPECT_EQ(table.find("A"), nullptr);
    EXPECT_NE(table.find("B"), nullptr);
    EXPECT_EQ(table.size(), 1U);
}

TEST(IniTable, GrowsAndKeepsEveryEntryWhereItIsInMemory) {
    IniTable table;
    table.add("FIRST", "value");
    const char* value = table.find("FIRST")->value.c_str();
    for (int i = 0; i < 2000; ++i)
        table.add("KEY" + std::to_string(i), std::to_string(i).c_str());
    EXPECT_GT(table.bucketCount(), 128U);
    EXPECT_EQ(table.size(), 2001U);
    EXPECT_EQ(table.find("FIRST")->value.c_str(), value);
    for (int i = 0; i < 2000; ++i) {
        ASSERT_NE(table.find("KEY" + std::to_string(i)), nullptr) << i;
        EXPECT_EQ(table.find("KEY" + std::to_string(i))->value, std::to_string(i));
    }
    std::set<std::string> seen;
    table.forEach([&](const IniTable::Entry& entry) { seen.insert(entry.key); });
    EXPECT_EQ(seen.size(), 2001U);
}

TEST(IniTable, IsEmptyAfterClear) {
    IniTable table;
    table.add("A", "1");
    table.clear();
    EXPECT_EQ(table.size(), 0U);
    EXPECT_EQ(table.find("A"), nullptr);
}
