// Which errors on the library's connections an application's handler is told, and when; and when
// the library learns that the process ends.
#include "child.h"
#include "framework/x_server.h"
#include "front.h"

#include <X11/Xlib.h>
#include <cstdlib>
#include <gmock/gmock.h>
#include <unistd.h>
#include <vector>

namespace {

using testing::HasSubstr;

constexpr XID nothing = 0x1234567; // no resource has this id

// kor::gl::ConnectionRole
constexpr int secondary = 0;
constexpr int local = 1;
constexpr int copyback = 2;
constexpr int font = 3;

// kor_error_moment
constexpr int afterwards = 1;
constexpr int expected = 2;

std::vector<XErrorEvent> told;
int tell(Display*, XErrorEvent* error) {
    told.push_back(*error);
    return 0;
}

/// A started front, and connections as the library opens them.
struct Started {
    Started() : front(completeFront), kor(fakeKor) { front.call("glVertex3f"); }
    Display* open(const std::string& name, int role) const {
        Display* display = kor.call<Display*>("fake_open", name.c_str(), role);
        EXPECT_NE(display, nullptr) << name;
        return display;
    }
    void at(int moment) const { kor.call<void>("fake_moment", moment); }
    void locksAreGone() const { kor.call<void>("fake_afterwards"); }
    Library front;
    Library kor;
};

class FrontErrorMoments : public testing::Test {
  protected:
    ChildResult run(const std::function<void(const Started&)>& function) {
        return inChild({{"KOR_FRONT_SYSTEM_GL", fakeSystem}}, [&] {
            const Started started;
            function(started);
        });
    }
    /// What a frame meets with whose window is gone.
    static void paint(Display* display) {
        GC gc = XCreateGC(display, nothing, 0, nullptr);
        XFillRectangle(display, nothing, gc, 0, 0, 1, 1);
        XFillRectangle(display, DefaultRootWindow(display), gc, 0, 0, 1, 1);
        XMapWindow(display, nothing);
        XSync(display, False);
    }
    static void freePixmap(Display* display) {
        XFreePixmap(display, nothing);
        XSync(display, False);
    }

    kor::test::XServer server_{
        {.kind = kor::test::XServer::Kind::Xvfb, .glDisplay = {}, .arguments = {"-noreset"}}};
};

TEST_F(FrontErrorMoments, NoHandlerIsToldOfAWindowThatIsGone) {
    for (const bool hasHandler : {true, false}) {
        const ChildResult result = run([&](const Started& started) {
            if (hasHandler)
                XSetErrorHandler(tell);
            for (const int role : {secondary, copyback}) {
                Display* display = started.open(server_.name(), role);
                paint(display);
                started.at(afterwards);
                paint(display);
                started.locksAreGone();
                // Also where the handler has changed: another thread's may have stood there.
                started.at(expected);
                paint(display);
                started.at(0);
                XCloseDisplay(display);
            }
            EXPECT_EQ(told.size(), 0U);
        });
        EXPECT_EQ(countLines(result.errors), 1U) << result.errors;
        EXPECT_THAT(result.errors, HasSubstr("log WARNING: a window vanished before its frame was "
                                             "painted: BadDrawable (request 55.0, resource "
                                             "0x1234567)."));
    }
}

TEST_F(FrontErrorMoments, OnItsOtherConnectionsTheHandlerIsToldOfEveryWindow) {
    const ChildResult result = run([&](const Started& started) {
        XSetErrorHandler(tell);
        for (const int role : {local, font}) {
            told.clear();
            Display* display = started.open(server_.name(), role);
            paint(display);
            EXPECT_EQ(told.size(), 4U);
            XCloseDisplay(display);
        }
    });
    EXPECT_EQ(result.errors, "");
}

TEST_F(FrontErrorMoments, OfEverythingElseTheHandlerIsToldOnPaintingConnectionsToo) {
    run([&](const Started& started) {
        XSetErrorHandler(tell);
        Display* display = started.open(server_.name(), copyback);
        freePixmap(display);
        EXPECT_EQ(told.size(), 1U);
        XCloseDisplay(display);
    });
}

TEST_F(FrontErrorMoments, WhileLocksAreHeldTheHandlerIsToldAfterwardsWithTheSameNumbers) {
    const ChildResult result = run([&](const Started& started) {
        XSetErrorHandler(tell);
        Display* display = started.open(server_.name(), local);
        freePixmap(display);
        ASSERT_EQ(told.size(), 1U);
        const XErrorEvent now = told[0];
        told.clear();

        started.at(afterwards);
        const unsigned long serial = NextRequest(display);
        freePixmap(display);
        XMapWindow(display, nothing);
        XSync(display, False);
        EXPECT_EQ(told.size(), 0U);
        started.locksAreGone();
        ASSERT_EQ(told.size(), 2U);
        EXPECT_EQ(told[0].type, now.type);
        EXPECT_EQ(told[0].display, display);
        EXPECT_EQ(told[0].serial, serial);
        EXPECT_EQ(told[0].resourceid, nothing);
        EXPECT_EQ(told[0].error_code, now.error_code);
        EXPECT_EQ(told[0].request_code, now.request_code);
        EXPECT_EQ(told[0].minor_code, now.minor_code);
        EXPECT_EQ(told[1].error_code, BadWindow);
        EXPECT_EQ(told[1].serial, serial + 2); // one synchronised in between

        started.locksAreGone();
        EXPECT_EQ(told.size(), 2U); // once
        XCloseDisplay(display);
    });
    EXPECT_EQ(result.errors, "");
}

TEST_F(FrontErrorMoments, AHandlerThatWaitsForTheErrorIsToldAtOnce) {
    run([&](const Started& started) {
        XSetErrorHandler(tell);
        for (const int role : {local, copyback}) {
            told.clear();
            Display* display = started.open(server_.name(), role);
            started.at(expected);
            freePixmap(display);
            EXPECT_EQ(told.size(), 1U);
            started.at(0);
            XCloseDisplay(display);
        }
    });
}

// Xlib has two names for "none": the handler looks changed when one was there for a while.
TEST_F(FrontErrorMoments, WhereNoHandlerIsLeftNothingWaitsForTheError) {
    const ChildResult result = run([&](const Started& started) {
        Display* display = started.open(server_.name(), copyback);
        started.at(expected);
        XSetErrorHandler(tell);
        XSetErrorHandler(nullptr);
        paint(display);
        started.at(0);
        EXPECT_EQ(told.size(), 0U);
        XCloseDisplay(display);
    });
    EXPECT_EQ(countLines(result.errors), 1U) << result.errors;
}

TEST_F(FrontErrorMoments, NoHandlerIsToldOfAConnectionThatWasClosedMeanwhile) {
    const ChildResult result = run([&](const Started& started) {
        XSetErrorHandler(tell);
        Display* first = started.open(server_.name(), local);
        Display* second = started.open(server_.name(), copyback);
        started.at(afterwards);
        freePixmap(first);
        freePixmap(second);
        freePixmap(first);
        XCloseDisplay(first);
        freePixmap(second);
        started.locksAreGone();
        ASSERT_EQ(told.size(), 2U);
        EXPECT_EQ(told[0].display, second);
        EXPECT_EQ(told[1].display, second);
        XCloseDisplay(second);
    });
    EXPECT_EQ(result.errors, "");
}

TEST_F(FrontErrorMoments, WithoutAHandlerNothingIsToldAfterwardsEither) {
    const ChildResult result = run([&](const Started& started) {
        Display* display = started.open(server_.name(), local);
        started.at(afterwards);
        freePixmap(display);
        started.locksAreGone();
        XCloseDisplay(display);
    });
    EXPECT_EQ(countLines(result.errors), 1U) << result.errors;
    EXPECT_THAT(result.errors, HasSubstr("BadPixmap"));
}

void earlier() {
    [[maybe_unused]] const ssize_t written = write(STDOUT_FILENO, "the application\n", 16);
}

using FrontProcessEnd = FrontErrorMoments;

TEST_F(FrontProcessEnd, TheLibraryLearnsOfItAheadOfWhatWasRegisteredBeforeTheDriverWasThere) {
    const ChildResult result = run([&](const Started& started) {
        std::atexit(earlier);
        XCloseDisplay(started.open(server_.name(), secondary));
        Display* first = started.open(server_.name(), local);
        EXPECT_EQ(started.open(server_.name(), local), first); // shared
    });
    EXPECT_EQ(result.output, "kor_process_ends\nthe application\nkor_fini\n");
}

TEST_F(FrontProcessEnd, TheLibraryLearnsOfItAgainAfterThePaintingBegan) {
    const ChildResult result = run([&](const Started& started) {
        XCloseDisplay(started.open(server_.name(), local));
        std::atexit(earlier);
        XCloseDisplay(started.open(server_.name(), copyback));
    });
    EXPECT_EQ(result.output, "kor_process_ends\nthe application\nkor_process_ends\nkor_fini\n");
}

TEST_F(FrontProcessEnd, QuickExitsTellNothing) {
    for (void (*end)(int) : {&_exit, static_cast<void (*)(int)>(&std::quick_exit)}) {
        const ChildResult result = run([&](const Started& started) {
            started.open(server_.name(), local);
            end(testing::Test::HasFailure() ? 1 : 0);
        });
        EXPECT_EQ(result.output, "");
    }
}

} // namespace
