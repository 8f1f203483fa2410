// Before the X headers, whose macros have names of its types.
#include <gtest/gtest.h>

#include "framework/child.h"
#include "framework/pixels.h"
#include "framework/wait_until.h"
#include "framework/x_server.h"

#include <csignal>

/// The helpers themselves: what a test relies on must not be what hides its failure.

namespace {

using namespace kor::test;
using namespace std::chrono_literals;

Command shell(const std::string& text) {
    Command command;
    command.arguments = {"/bin/sh", "-c", text};
    return command;
}

TEST(Child, StatusAndBothOutputs) {
    const CommandResult result = runCommand(shell("echo out; echo err >&2; exit 7"));
    EXPECT_EQ(result.status, 7);
    EXPECT_EQ(result.output, "out\n");
    EXPECT_EQ(result.errors, "err\n");
    EXPECT_FALSE(result.timedOut);
}

TEST(Child, EndedBySignal) {
    EXPECT_EQ(runCommand(shell("kill -9 $$")).status, 128 + SIGKILL);
}

TEST(Child, MissingProgram) {
    Command command;
    command.arguments = {"/no/such/program"};
    EXPECT_EQ(runCommand(command).status, 127);
}

TEST(Child, TimeoutTakesTheWholeGroup) {
    const CommandResult result = runCommand(shell("sleep 50 & echo $!; wait"), 500ms);
    EXPECT_TRUE(result.timedOut);
    EXPECT_EQ(result.status, 128 + SIGKILL);
    const pid_t grandchild = atoi(result.output.c_str());
    ASSERT_GT(grandchild, 0);
    // Where nobody collects orphans the process stays as a zombie, which runs nothing.
    auto gone = [&] {
        const CommandResult state = runCommand(
            shell("cut -d' ' -f3 /proc/" + result.output.substr(0, result.output.size() - 1) +
                  "/stat 2>/dev/null"));
        return state.output.empty() || state.output == "Z\n";
    };
    EXPECT_TRUE(waitUntil(gone, 5s));
}

TEST(Child, EnvironmentAddedAndRemoved) {
    setenv("KOR_TEST_REMOVED", "here", 1);
    Command command = shell("echo \"${KOR_TEST_ADDED-unset} ${KOR_TEST_REMOVED-unset}\"");
    command.environment = {{"KOR_TEST_ADDED", "yes"}, {"KOR_TEST_REMOVED", std::nullopt}};
    EXPECT_EQ(runCommand(command).output, "yes unset\n");
}

TEST(Child, MuchOutputDoesNotStopIt) {
    const CommandResult result = runCommand(shell("head -c 1000000 /dev/zero"), 20s);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output.size(), 1000000u);
}

TEST(Child, GoneWithItsObject) {
    pid_t process = -1;
    {
        const Child child(shell("sleep 50"));
        process = child.process();
        EXPECT_EQ(kill(process, 0), 0);
    }
    EXPECT_EQ(kill(process, 0), -1);
}

TEST(WaitUntil, GivesUp) {
    const auto before = std::chrono::steady_clock::now();
    EXPECT_FALSE(waitUntil([] { return false; }, 50ms));
    EXPECT_GE(std::chrono::steady_clock::now() - before, 50ms);
    EXPECT_TRUE(waitUntil([] { return true; }, 0ms));
}

class Servers : public testing::TestWithParam<XServer::Kind> {
  protected:
    static XServer::Options options() {
        XServer::Options result;
        result.kind = GetParam();
        result.width = 320;
        result.height = 240;
        return result;
    }
};

TEST_P(Servers, PixelsOfAWindow) {
    XServer server(options());
    Display* display = XOpenDisplay(server.name().c_str());
    ASSERT_NE(display, nullptr);
    EXPECT_EQ(DisplayWidth(display, 0), 320);
    EXPECT_EQ(DisplayHeight(display, 0), 240);

    XSetWindowAttributes attributes{};
    attributes.background_pixel = 0x102030;
    attributes.override_redirect = True;
    const Window window =
        XCreateWindow(display, DefaultRootWindow(display), 10, 20, 5, 3, 0, CopyFromParent,
                      InputOutput, CopyFromParent, CWBackPixel | CWOverrideRedirect, &attributes);
    EXPECT_FALSE(readWindow(display, window)) << "it is not mapped";
    XMapWindow(display, window);
    GC context = XCreateGC(display, window, 0, nullptr);
    XSetForeground(display, context, 0xFFEEDD);
    XDrawPoint(display, window, context, 4, 2);

    const auto pixels = waitForPixels(display, window,
                                      [](const Pixels& seen) { return seen.at(4, 2) != 0x102030; });
    ASSERT_TRUE(pixels);
    EXPECT_EQ(pixels->width, 5);
    EXPECT_EQ(pixels->height, 3);
    EXPECT_EQ(pixels->at(4, 2), 0xFFEEDDu);
    EXPECT_EQ(pixels->at(0, 0), 0x102030u);
    EXPECT_FALSE(readWindow(display, 0x7)) << "there is no such window";
    XFreeGC(display, context);
    XCloseDisplay(display);
    EXPECT_EQ(server.stop(), 0);
}

TEST_P(Servers, TwoAtOnceAndBothGone) {
    std::string first;
    std::string second;
    {
        XServer one(options());
        XServer two(options());
        first = one.name();
        second = two.name();
        EXPECT_NE(first, second);
        for (const std::string& name : {first, second}) {
            Display* display = XOpenDisplay(name.c_str());
            EXPECT_NE(display, nullptr) << name;
            if (display)
                XCloseDisplay(display);
        }
    }
    // Another test's server may have taken the number by now, but not with our cookie.
    for (const std::string& name : {first, second})
        EXPECT_EQ(XOpenDisplay(name.c_str()), nullptr) << name;
}

TEST_P(Servers, FailureTellsTheServersWords) {
    XServer::Options wrong = options();
    wrong.arguments = {"-nosuchoption"};
    try {
        const XServer server(wrong);
        FAIL() << "started on " << server.name();
    } catch (const std::runtime_error& error) {
        EXPECT_NE(std::string(error.what()).find("nosuchoption"), std::string::npos)
            << error.what();
    }
}

INSTANTIATE_TEST_SUITE_P(Kinds, Servers, testing::Values(XServer::Kind::Xkor, XServer::Kind::Xvfb),
                         [](const auto& kind) {
                             return kind.param == XServer::Kind::Xkor ? "Xkor" : "Xvfb";
                         });

} // namespace
