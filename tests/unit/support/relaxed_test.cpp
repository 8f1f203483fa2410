#include "support/relaxed.h"

#include <gtest/gtest.h>

using kor::Relaxed;

TEST(Relaxed, StartsWithTheTypesZeroOrTheGivenValue) {
    EXPECT_EQ(Relaxed<int>().load(), 0);
    EXPECT_EQ(Relaxed<char*>().load(), nullptr);
    EXPECT_EQ(Relaxed<int>(7).load(), 7);
}

TEST(Relaxed, ReadsAndWritesLikeAPlainValue) {
    Relaxed<int> value(1);
    value = value + 2;
    EXPECT_EQ(value, 3);
    const Relaxed<int> copy = value;
    Relaxed<int> assigned;
    assigned = copy;
    EXPECT_EQ(assigned, 3);
}

TEST(Relaxed, HasTheSizeOfWhatItHolds) {
    EXPECT_EQ(sizeof(Relaxed<bool>), 1U);
    EXPECT_EQ(sizeof(Relaxed<int>), sizeof(int));
}
