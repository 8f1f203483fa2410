// The client of "KOR-V1" against a server that answers with anything: every field, failures, errors
// and lengths that are wrong, and connections that break in the middle of a reply.

#include "fixture.h"
#include "interposed.h"

#include "display/kor_ext.h"
#include "framework/scripted_server.h"

#include <X11/Xlib.h>
#include <X11/Xproto.h>
#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <future>
#include <memory>
#include <thread>

using testing::ElementsAre;

namespace {

using Bytes = std::vector<uint8_t>;

int errorsHandled = 0;
bool connectionBroken = false;

int afterCalls = 0;
int afterCallsLocked = 0;

/// Xlib's after-function: another thread must be able to take the connection's lock by now.
int countAfterCall(Display* display) {
    const auto passed = std::make_shared<std::promise<void>>();
    std::future<void> future = passed->get_future();
    std::thread([display, passed] {
        XFlush(display);
        passed->set_value();
    }).detach();
    ++afterCalls;
    if (future.wait_for(std::chrono::seconds(10)) != std::future_status::ready)
        ++afterCallsLocked;
    return 0;
}

void put32(Bytes& bytes, size_t offset, uint32_t value) {
    memcpy(&bytes[offset], &value, sizeof value);
}

/// A whole reply to GetWindowInfo.
Bytes windowReply(uint8_t status, int x, int y, uint32_t width, uint32_t height, uint32_t visual,
                  uint8_t visible) {
    Bytes reply(32);
    reply[0] = X_Reply;
    reply[1] = status;
    put32(reply, 8, static_cast<uint32_t>(x));
    put32(reply, 12, static_cast<uint32_t>(y));
    put32(reply, 16, width);
    put32(reply, 20, height);
    put32(reply, 24, visual);
    reply[28] = visible;
    return reply;
}

/// A reply to GetGLDisplay that claims a name of n bytes in so many words, and holds these bytes.
Bytes displayReply(uint8_t status, uint32_t n, uint32_t words, const std::string& bytes) {
    Bytes reply(32 + bytes.size());
    reply[0] = X_Reply;
    reply[1] = status;
    put32(reply, 4, words);
    put32(reply, 8, n);
    std::copy(bytes.begin(), bytes.end(), reply.begin() + 32);
    return reply;
}

/// The reply for that name as a server sends it, padded with letters that belong to no name.
Bytes displayReply(uint8_t status, const std::string& name) {
    const size_t words = (name.size() + 3) / 4;
    std::string padded = name;
    padded.resize(words * 4, 'z');
    return displayReply(status, static_cast<uint32_t>(name.size()), static_cast<uint32_t>(words),
                        padded);
}

Bytes errorReply(uint8_t code) {
    Bytes reply(32);
    reply[0] = X_Error;
    reply[1] = code;
    return reply;
}

class KorV1Replies : public Library {
  protected:
    KorV1Replies() {
        XInitThreads();
        XSetErrorHandler(
            [](Display* /*display*/, XErrorEvent* /*event*/) { return ++errorsHandled; });
        XSetIOErrorHandler([](Display* /*display*/) { return 0; });
        open();
    }

    void open() {
        display = XOpenDisplay(server.displayName().c_str());
        if (display == nullptr)
            abort();
        connectionBroken = false;
        XSetIOErrorExitHandler(
            display, [](Display* /*display*/, void* /*user*/) { connectionBroken = true; },
            nullptr);
        codes = XInitExtension(display, "KOR-V1");
        if (codes == nullptr)
            abort();
    }

    Bool askWindow() {
        return XKorExtGetWindowInfo(display, codes, 0x12345, &visible, &visual, rect);
    }
    Bool askDisplay() { return XKorExtGetGLDisplay(display, codes, &name); }

    /// What was not asked for was not touched.
    void expectNoAnswer() const {
        EXPECT_EQ(visible, 7);
        EXPECT_EQ(visual, -5);
        EXPECT_THAT(rect, ElementsAre(-1, -2, -3, -4));
        EXPECT_EQ(name, untouched);
    }

    /// The next answer is read from where it begins, and nobody was told of an error.
    void expectInStep() {
        server.setAnswer(windowReply(1, 11, 22, 33, 44, 55, 1));
        int other[4];
        int id = 0;
        EXPECT_EQ(XKorExtGetWindowInfo(display, codes, 1, nullptr, &id, other), 1);
        EXPECT_THAT(other, ElementsAre(11, 22, 33, 44));
        EXPECT_EQ(id, 55);
        XSync(display, False);
        EXPECT_FALSE(connectionBroken);
        EXPECT_EQ(errorsHandled, 0);
    }

    // Serves until the process ends.
    kor::test::ScriptedServer& server = *new kor::test::ScriptedServer;
    Display* display = nullptr;
    XExtCodes* codes = nullptr;
    Bool visible = 7;
    int visual = -5;
    int rect[4] = {-1, -2, -3, -4};
    char untouched[5] = "mine";
    char* name = untouched;
};

} // namespace

TEST_F(KorV1Replies, TheRequestsAreThoseOfTheProtocol) {
    server.setAnswer(windowReply(1, 0, 0, 1, 1, 1, 1));
    XKorExtGetWindowInfo(display, codes, 0x12345678, nullptr, &visual, rect);
    server.setAnswer(displayReply(1, ""));
    askDisplay();
    ASSERT_EQ(server.requests().size(), 2U);
    const Bytes window = server.requests()[0];
    ASSERT_EQ(window.size(), 12U);
    EXPECT_THAT(Bytes(window.begin(), window.begin() + 8),
                ElementsAre(150, 0, 3, 0, 0x78, 0x56, 0x34, 0x12));
    EXPECT_THAT(server.requests()[1], ElementsAre(150, 1, 1, 0));
}

TEST_F(KorV1Replies, EveryFieldOfAWindowIsTaken) {
    server.setAnswer(windowReply(1, -7, 2000000000, 31, 4000000000U, 0x8000002a, 1));
    EXPECT_EQ(askWindow(), 1);
    EXPECT_EQ(visible, 1);
    EXPECT_THAT(rect, ElementsAre(-7, 2000000000, 31, static_cast<int>(4000000000U)));
    EXPECT_EQ(visual, static_cast<int>(0x8000002a));
    expectInStep();
}

TEST_F(KorV1Replies, AnyVisibleByteButZeroIsVisible) {
    for (const int byte : {0, 1, 2, 128, 255}) {
        server.setAnswer(windowReply(1, 1, 2, 3, 4, 5, static_cast<uint8_t>(byte)));
        EXPECT_EQ(askWindow(), 1);
        EXPECT_EQ(visible, byte != 0 ? 1 : 0) << byte;
    }
}

TEST_F(KorV1Replies, TheStatusIsTheResultAndTheFieldsAreTakenWhateverItIs) {
    for (const int status : {0, 1, 2, 255}) {
        server.setAnswer(windowReply(static_cast<uint8_t>(status), 1, 2, 3, status, 5, 1));
        EXPECT_EQ(askWindow(), status);
        EXPECT_THAT(rect, ElementsAre(1, 2, 3, status));
    }
    expectInStep();
}

TEST_F(KorV1Replies, VisibilityNeedNotBeAskedFor) {
    server.setAnswer(windowReply(1, 1, 2, 3, 4, 5, 1));
    EXPECT_EQ(XKorExtGetWindowInfo(display, codes, 1, nullptr, &visual, rect), 1);
    EXPECT_THAT(rect, ElementsAre(1, 2, 3, 4));
}

TEST_F(KorV1Replies, AnErrorIsAFailureThatNoHandlerHears) {
    for (const int code : {BadRequest, BadWindow, BadLength, BadImplementation}) {
        server.setAnswer(errorReply(static_cast<uint8_t>(code)));
        EXPECT_FALSE(askWindow());
        EXPECT_FALSE(askDisplay());
        expectNoAnswer();
        expectInStep();
    }
}

TEST_F(KorV1Replies, ANameOfEveryPaddingIsTerminated) {
    for (const std::string& expected :
         {std::string(":"), std::string(":0"), std::string(":10"), std::string(":0.0"),
          std::string("gpu:1"), std::string(1021, 'h') + ":0"}) {
        server.setAnswer(displayReply(1, expected));
        EXPECT_EQ(askDisplay(), 1);
        EXPECT_EQ(name, expected);
        free(name);
    }
    name = untouched;
    expectInStep();
}

TEST_F(KorV1Replies, ANameThatHoldsAZeroByteIsKeptToItsLength) {
    server.setAnswer(displayReply(1, std::string("ab\0cd", 5)));
    EXPECT_EQ(askDisplay(), 1);
    EXPECT_EQ(memcmp(name, "ab\0cd", 6), 0);
    free(name);
    expectInStep();
}

TEST_F(KorV1Replies, AFailedReplyStillHandsItsNameOver) {
    server.setAnswer(displayReply(0, ":7"));
    EXPECT_EQ(askDisplay(), 0);
    EXPECT_STREQ(name, ":7");
    free(name);
    expectInStep();
}

TEST_F(KorV1Replies, TheStatusOfANameIsTheResult) {
    server.setAnswer(displayReply(3, ":7"));
    EXPECT_EQ(askDisplay(), 3);
    free(name);
}

TEST_F(KorV1Replies, AnEmptyNameSucceedsAndLeavesThePointerAlone) {
    server.setAnswer(displayReply(1, ""));
    EXPECT_EQ(askDisplay(), 1);
    expectNoAnswer();
    server.setAnswer(displayReply(0, ""));
    EXPECT_EQ(askDisplay(), 0);
    expectNoAnswer();
    expectInStep();
}

TEST_F(KorV1Replies, WhatStandsBehindANameIsPassedOver) {
    server.setAnswer(displayReply(1, 0, 2, "restrest"));
    EXPECT_EQ(askDisplay(), 1);
    expectNoAnswer();
    expectInStep();
    server.setAnswer(displayReply(1, 2, 3, ":7zzrestrest"));
    EXPECT_EQ(askDisplay(), 1);
    EXPECT_STREQ(name, ":7");
    free(name);
    name = untouched;
    server.setAnswer([] {
        Bytes reply = windowReply(1, 1, 2, 3, 4, 5, 1);
        put32(reply, 4, 1);
        reply.resize(36, 0xee);
        return reply;
    }());
    EXPECT_EQ(askWindow(), 1);
    expectInStep();
}

TEST_F(KorV1Replies, ANameLongerThanItsReplyIsAFailure) {
    for (const uint32_t n : {1U, 4U, 5U, 1000U, 0x7fffffffU, 0xffffffffU}) {
        const uint32_t words = (n == 5 || n == 1000) ? 1 : 0;
        server.setAnswer(displayReply(1, n, words, std::string(words * 4, 'x')));
        EXPECT_FALSE(askDisplay()) << n;
        expectNoAnswer();
        expectInStep();
    }
}

TEST_F(KorV1Replies, WithoutMemoryForTheNameItIsAFailure) {
    const std::string long1(777, 'n');
    server.setAnswer(displayReply(1, long1));
    kor::test::failingAllocation = long1.size() + 1;
    EXPECT_FALSE(askDisplay());
    kor::test::failingAllocation = 0;
    expectNoAnswer();
    expectInStep();
}

TEST_F(KorV1Replies, EveryExchangeEndsUnlockedAndWithOneCallOfTheAfterFunction) {
    const std::string name777(777, 'n');
    const struct {
        const char* name;
        Bytes answer;
        Bool window; // what the two requests give for it
        Bool display;
    } exchanges[] = {
        {"a window, or a name of no letters", windowReply(1, 0, 0, 0, 0, 0, 1), 1, 1},
        {"a name", displayReply(1, ":7"), 1, 1},
        {"an error", errorReply(BadWindow), 0, 0},
        {"a name longer than its reply", displayReply(1, 1000, 1, "nnnn"), 1, 0},
        {"a name without memory", displayReply(1, name777), 1, 0},
    };
    kor::test::failingAllocation = name777.size() + 1;
    for (const auto& exchange : exchanges) {
        server.setAnswer(exchange.answer);
        XSync(display, False);
        XSetAfterFunction(display, countAfterCall);
        afterCalls = 0;
        EXPECT_EQ(askWindow(), exchange.window) << exchange.name;
        EXPECT_EQ(afterCalls, 1) << exchange.name;
        EXPECT_EQ(askDisplay(), exchange.display) << exchange.name;
        EXPECT_EQ(afterCalls, 2) << exchange.name;
        XSetAfterFunction(display, nullptr);
        if (name != untouched)
            free(name);
        name = untouched;
    }
    kor::test::failingAllocation = 0;
    EXPECT_EQ(afterCallsLocked, 0);

    XSetAfterFunction(display, countAfterCall);
    afterCalls = 0;
    EXPECT_FALSE(XKorExtGetWindowInfo(display, codes, 1, &visible, nullptr, rect));
    EXPECT_FALSE(XKorExtGetWindowInfo(display, codes, 1, &visible, &visual, nullptr));
    EXPECT_FALSE(XKorExtGetGLDisplay(display, codes, nullptr));
    EXPECT_EQ(afterCalls, 0);
    XSetAfterFunction(display, nullptr);
}

TEST_F(KorV1Replies, AConnectionThatClosesWithinAReplyIsAFailure) {
    for (const size_t kept : {0, 1, 4, 8, 31}) {
        for (const bool window : {true, false}) {
            Bytes answer = window ? windowReply(1, 1, 2, 3, 4, 5, 1) : displayReply(1, ":7");
            answer.resize(kept);
            server.setAnswer(answer);
            EXPECT_FALSE(window ? askWindow() : askDisplay());
            EXPECT_TRUE(connectionBroken) << kept;
            expectNoAnswer();
            XCloseDisplay(display);
            open();
        }
    }
    expectInStep();
}

TEST_F(KorV1Replies, AConnectionThatClosesWithinAnErrorIsAFailure) {
    Bytes answer = errorReply(BadWindow);
    answer.resize(20);
    server.setAnswer(answer);
    EXPECT_FALSE(askWindow());
    EXPECT_TRUE(connectionBroken);
    expectNoAnswer();
}

TEST_F(KorV1Replies, AConnectionThatClosesWithinTheNameEndsAsXlibEndsIt) {
    server.setAnswer(displayReply(1, 40, 10, std::string(17, 'n')));
    askDisplay();
    EXPECT_TRUE(connectionBroken);
    if (name != untouched)
        free(name); // as long as promised, whatever it holds
}
