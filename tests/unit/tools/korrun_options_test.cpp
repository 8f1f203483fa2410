#include "failure.h"
#include "options.h"

#include <gmock/gmock.h>

using korrun::Options;
using korrun::parseOptions;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

// The message with which the arguments are refused; empty when they are accepted.
std::string refusal(const std::vector<std::string>& arguments) {
    try {
        parseOptions(arguments);
    } catch (const korrun::Failure& failure) {
        EXPECT_EQ(failure.exitStatus(), korrun::StatusUsage);
        return failure.what();
    }
    return "";
}

} // namespace

TEST(KorrunOptions, CommandAloneKeepsTheDefaults) {
    const Options options = parseOptions({"glxgears"});
    EXPECT_THAT(options.command, ElementsAre("glxgears"));
    EXPECT_FALSE(options.session);
    EXPECT_FALSE(options.verbose);
    EXPECT_FALSE(options.glDisplay);
    EXPECT_FALSE(options.screenshot);
    EXPECT_FALSE(options.seconds);
    EXPECT_EQ(options.after, 2);
    EXPECT_EQ(options.size.width, 1280);
    EXPECT_EQ(options.size.height, 800);
    EXPECT_EQ(options.front, korrun::Front::Auto);
}

TEST(KorrunOptions, EveryOptionIsRead) {
    const Options options = parseOptions(
        {"--session", "--verbose", "--size", "640x400", "--gl-display", ":5.0", "--screenshot",
         "a.png", "--after", "0.5", "--seconds", "7.25", "--front", "classic", "program"});
    EXPECT_TRUE(options.session);
    EXPECT_TRUE(options.verbose);
    EXPECT_EQ(options.size.width, 640);
    EXPECT_EQ(options.size.height, 400);
    EXPECT_EQ(options.glDisplay, ":5.0");
    EXPECT_EQ(options.screenshot, "a.png");
    EXPECT_EQ(options.after, 0.5);
    EXPECT_EQ(options.seconds, 7.25);
    EXPECT_THAT(options.command, ElementsAre("program"));
}

TEST(KorrunOptions, ValuesMayFollowAnEqualsSign) {
    const Options options =
        parseOptions({"--session", "--size=320x200", "--gl-display=h:1=2", "p"});
    EXPECT_EQ(options.size.width, 320);
    EXPECT_EQ(options.glDisplay, "h:1=2");
}

TEST(KorrunOptions, WhatFollowsTheCommandIsItsOwn) {
    EXPECT_THAT(parseOptions({"p", "--session", "--size", "bad"}).command,
                ElementsAre("p", "--session", "--size", "bad"));
    EXPECT_FALSE(parseOptions({"p", "--session"}).session);
    EXPECT_THAT(parseOptions({"--session", "--", "--odd", "--", "x"}).command,
                ElementsAre("--odd", "--", "x"));
    EXPECT_THAT(parseOptions({"-", "x"}).command, ElementsAre("-", "x"));
}

TEST(KorrunOptions, HelpAndVersionNeedNoCommand) {
    EXPECT_TRUE(parseOptions({"--help"}).help);
    EXPECT_TRUE(parseOptions({"-h"}).help);
    EXPECT_TRUE(parseOptions({"--version"}).version);
}

TEST(KorrunOptions, MissingCommandIsRefused) {
    EXPECT_THAT(refusal({}), HasSubstr("no command"));
    EXPECT_THAT(refusal({"--session"}), HasSubstr("no command"));
    EXPECT_THAT(refusal({"--session", "--"}), HasSubstr("no command"));
}

TEST(KorrunOptions, UnknownOptionIsNamed) {
    EXPECT_THAT(refusal({"--sesion", "p"}), HasSubstr("unknown option --sesion"));
    EXPECT_THAT(refusal({"--Session", "p"}), HasSubstr("unknown option"));
    EXPECT_THAT(refusal({"-x", "p"}), HasSubstr("unknown option -x"));
}

TEST(KorrunOptions, MissingValueSaysWhatIsMissing) {
    EXPECT_THAT(refusal({"--size"}), HasSubstr("--size WIDTHxHEIGHT"));
    EXPECT_THAT(refusal({"--screenshot"}), HasSubstr("--screenshot FILE.png"));
    EXPECT_THAT(refusal({"--gl-display=", "p"}), HasSubstr("empty"));
    EXPECT_THAT(refusal({"--session=yes", "p"}), HasSubstr("takes no value"));
}

TEST(KorrunOptions, BadSizesAreRefused) {
    for (const char* size :
         {"", "x", "640", "640x", "x400", "640X400", "640x400x24", "640 x400", "-640x400",
          "+640x400", "63x400", "640x63", "7681x400", "640x4321", "99999999999x400", "640x400 "})
        EXPECT_THAT(refusal({"--session", "--size", size, "p"}), HasSubstr("WIDTHxHEIGHT")) << size;
    EXPECT_EQ(refusal({"--session", "--size", "64x4320", "p"}), "");
    EXPECT_EQ(refusal({"--session", "--size", "7680x64", "p"}), "");
}

TEST(KorrunOptions, BadTimesAreRefused) {
    for (const char* time : {"", "x", "2s", "-1", "nan", "inf", "1e400", "1e9", "0"})
        EXPECT_THAT(refusal({"--seconds", time, "p"}), HasSubstr("--seconds takes")) << time;
    for (const char* time : {"", "x", "-0.5", "nan", "inf"})
        EXPECT_THAT(refusal({"--screenshot", "a.png", "--after", time, "p"}),
                    HasSubstr("--after takes"))
            << time;
    EXPECT_EQ(refusal({"--screenshot", "a.png", "--after", "0", "p"}), "");
}

TEST(KorrunOptions, OptionsThatMakeNoSenseTogetherAreRefused) {
    EXPECT_THAT(refusal({"--size", "640x400", "p"}), HasSubstr("--session"));
    EXPECT_THAT(refusal({"--after", "1", "p"}), HasSubstr("--screenshot"));
    EXPECT_THAT(refusal({"--screenshot", "a.png", "--seconds", "2", "p"}), HasSubstr("--after"));
    EXPECT_THAT(refusal({"--screenshot", "a.png", "--after", "5", "--seconds", "4", "p"}),
                HasSubstr("--after"));
    EXPECT_EQ(refusal({"--screenshot", "a.png", "--after", "1", "--seconds", "2", "p"}), "");
}

TEST(KorrunOptions, ThreeKindsOfFrontAreKnown) {
    EXPECT_EQ(parseOptions({"--front=auto", "p"}).front, korrun::Front::Auto);
    EXPECT_EQ(parseOptions({"--front=classic", "p"}).front, korrun::Front::Classic);
    EXPECT_EQ(parseOptions({"--front", "glvnd", "p"}).front, korrun::Front::Glvnd);
    EXPECT_THAT(refusal({"--front", "vendor", "p"}), HasSubstr("auto, classic or glvnd"));
}

TEST(KorrunOptions, HelpNamesEveryOption) {
    const std::string help = korrun::helpText();
    for (const char* option : {"--session", "--size", "--gl-display", "--screenshot", "--after",
                               "--seconds", "--front", "--verbose", "--help", "--version"})
        EXPECT_THAT(help, HasSubstr(option));
}
