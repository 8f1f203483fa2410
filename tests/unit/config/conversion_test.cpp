#include "config/settings_lookup.h"

#include <climits>
#include <cstdlib>
#include <gtest/gtest.h>
#include <string>

using kor::Settings;

namespace {

template <typename Value> struct ConversionCase {
    const char* name;
    const char* text;
    bool converts;
    Value value;
};

class ToInt : public testing::TestWithParam<ConversionCase<int>> {};
class ToDouble : public testing::TestWithParam<ConversionCase<double>> {};
class ToBool : public testing::TestWithParam<ConversionCase<bool>> {};

const auto caseName = [](const auto& info) { return std::string(info.param.name); };

} // namespace

TEST(ToString, CopiesAnyOtherText) {
    const char* text = " a text; with = anything ";
    char* copy = Settings::toString(text);
    EXPECT_STREQ(copy, text);
    EXPECT_NE(copy, text);
    free(copy);
}

TEST(ToString, DoesNotConvertTheNullWordTheEmptyTextOrNoText) {
    EXPECT_EQ(Settings::toString("<null>"), nullptr);
    EXPECT_EQ(Settings::toString(""), nullptr);
    EXPECT_EQ(Settings::toString(nullptr), nullptr);
}

TEST(ToString, TakesTheNullWordToTheLetter) {
    char* copy = Settings::toString("<NULL>");
    EXPECT_STREQ(copy, "<NULL>");
    free(copy);
}

TEST_P(ToInt, Converts) {
    bool invalid = GetParam().converts;
    EXPECT_EQ(Settings::toInt(GetParam().text, &invalid), GetParam().value);
    EXPECT_EQ(invalid, !GetParam().converts);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, ToInt,
    testing::Values(ConversionCase<int>{"Zero", "0", true, 0},
                    ConversionCase<int>{"ANumber", "25", true, 25},
                    ConversionCase<int>{"ASign", "-1", true, -1},
                    ConversionCase<int>{"APlusSign", "+7", true, 7},
                    ConversionCase<int>{"LeadingBlanks", "  25", true, 25},
                    ConversionCase<int>{"LeadingZerosInBase10", "010", true, 10},
                    ConversionCase<int>{"TheLargestInteger", "2147483647", true, INT_MAX},
                    // strtol itself stops at the end of a long.
                    ConversionCase<int>{"WithoutAnOverflowCheck", "4294967298", true,
                                        sizeof(long) == 8 ? 2 : INT_MAX},
                    ConversionCase<int>{"NotTrailingBlanks", "25 ", false, 0},
                    ConversionCase<int>{"NotTrailingLetters", "25fps", false, 0},
                    ConversionCase<int>{"NotHexadecimals", "0x10", false, 0},
                    ConversionCase<int>{"NotAFraction", "1.5", false, 0},
                    ConversionCase<int>{"NotAWord", "many", false, 0},
                    ConversionCase<int>{"NotABareSign", "-", false, 0},
                    ConversionCase<int>{"NotBlanks", "  ", false, 0},
                    ConversionCase<int>{"NotTheEmptyText", "", false, 0},
                    ConversionCase<int>{"NotTheNullWord", "<null>", false, 0},
                    ConversionCase<int>{"NotNoText", nullptr, false, 0}),
    caseName);

TEST_P(ToDouble, Converts) {
    bool invalid = GetParam().converts;
    EXPECT_DOUBLE_EQ(Settings::toDouble(GetParam().text, &invalid), GetParam().value);
    EXPECT_EQ(invalid, !GetParam().converts);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, ToDouble,
    testing::Values(ConversionCase<double>{"AFraction", "1.5", true, 1.5},
                    ConversionCase<double>{"AnInteger", "25", true, 25},
                    ConversionCase<double>{"AnExponent", "-2e3", true, -2000},
                    ConversionCase<double>{"LeadingBlanks", " 1.5", true, 1.5},
                    ConversionCase<double>{"NotTrailingBlanks", "1.5 ", false, 0},
                    ConversionCase<double>{"NotTrailingLetters", "1.5x", false, 0},
                    ConversionCase<double>{"NotAWord", "half", false, 0},
                    ConversionCase<double>{"NotTheEmptyText", "", false, 0},
                    ConversionCase<double>{"NotTheNullWord", "<null>", false, 0},
                    ConversionCase<double>{"NotNoText", nullptr, false, 0}),
    caseName);

TEST_P(ToBool, Converts) {
    bool invalid = GetParam().converts;
    EXPECT_EQ(Settings::toBool(GetParam().text, &invalid), GetParam().value);
    EXPECT_EQ(invalid, !GetParam().converts);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, ToBool,
    testing::Values(ConversionCase<bool>{"True", "true", true, true},
                    ConversionCase<bool>{"False", "false", true, false},
                    ConversionCase<bool>{"TrueInCapitals", "TRUE", true, true},
                    ConversionCase<bool>{"FalseInMixedCase", "False", true, false},
                    ConversionCase<bool>{"One", "1", true, true},
                    ConversionCase<bool>{"Zero", "0", true, false},
                    ConversionCase<bool>{"LeadingZeros", "001", true, true},
                    ConversionCase<bool>{"NotTwo", "2", false, false},
                    ConversionCase<bool>{"NotMinusOne", "-1", false, false},
                    ConversionCase<bool>{"NotWhatOverflowsToOne", "4294967297", false, false},
                    ConversionCase<bool>{"NotYes", "yes", false, false},
                    ConversionCase<bool>{"NotOn", "on", false, false},
                    ConversionCase<bool>{"NotT", "t", false, false},
                    ConversionCase<bool>{"NotTrueWithABlank", "true ", false, false},
                    ConversionCase<bool>{"NotAFraction", "1.0", false, false},
                    ConversionCase<bool>{"NotTheEmptyText", "", false, false},
                    ConversionCase<bool>{"NotTheNullWord", "<null>", false, false},
                    ConversionCase<bool>{"NotNoText", nullptr, false, false}),
    caseName);
