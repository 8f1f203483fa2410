#include "child.h"
#include "framework/x_server.h"
#include "front.h"

#include <X11/Xlib.h>
#include <X11/Xlibint.h>
#undef min
#undef max

#include <csignal>
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

using testing::HasSubstr;

constexpr XID nothing = 0x1234567; // no resource has this id

/// A started front, and connections as the library opens them.
struct Started {
    Started() : front(completeFront), kor(fakeKor) { front.call("glVertex3f"); }
    Display* open(const std::string& name, int role) const {
        Display* display = kor.call<Display*>("fake_open", name.c_str(), role);
        EXPECT_NE(display, nullptr) << name;
        return display;
    }
    Library front;
    Library kor;
};

int handledErrors = 0;
int countError(Display*, XErrorEvent* error) {
    EXPECT_EQ(error->resourceid, nothing);
    ++handledErrors;
    return 0;
}

void provokeError(Display* display) {
    XFreePixmap(display, nothing);
    XSync(display, False);
}

class FrontErrors : public testing::Test {
  protected:
    ChildResult run(const std::function<void()>& function) {
        return inChild({{"KOR_FRONT_SYSTEM_GL", fakeSystem}}, function);
    }
    ChildResult runDying(const std::function<void()>& function) {
        return inDyingChild({{"KOR_FRONT_SYSTEM_GL", fakeSystem}}, function);
    }

    /// Ends the server, from the child; returns when it has closed this connection.
    void endServer(Display* display) {
        kill(server_.process().process(), SIGTERM);
        pollfd connection{ConnectionNumber(display), POLLRDHUP, 0};
        EXPECT_EQ(poll(&connection, 1, 30000), 1);
    }

    kor::test::XServer server_{
        {.kind = kor::test::XServer::Kind::Xvfb, .glDisplay = {}, .arguments = {"-noreset"}}};
};

TEST_F(FrontErrors, WithoutAHandlerErrorsOfTheLibraryAreDroppedAndReportedOnce) {
    const ChildResult result = run([&] {
        const Started started;
        for (int role = 0; role < 4; ++role) {
            Display* display = started.open(server_.name(), role);
            provokeError(display);
            provokeError(display);
            EXPECT_NE(XDefaultScreenOfDisplay(display), nullptr);
            XCloseDisplay(display);
        }
    });
    EXPECT_EQ(countLines(result.errors), 1U) << result.errors;
    EXPECT_THAT(result.errors, HasSubstr("BadPixmap"));
    EXPECT_THAT(result.errors, HasSubstr("resource 0x1234567"));
}

TEST_F(FrontErrors, AHandlerInstalledBeforeGetsThem) {
    const ChildResult result = run([&] {
        XSetErrorHandler(countError);
        const Started started;
        Display* display = started.open(server_.name(), 2);
        provokeError(display);
        EXPECT_EQ(handledErrors, 1);
        XCloseDisplay(display);
    });
    EXPECT_EQ(result.errors, "");
}

TEST_F(FrontErrors, AHandlerInstalledLaterGetsThemUntilItGoes) {
    const ChildResult result = run([&] {
        const Started started;
        Display* display = started.open(server_.name(), 2);
        provokeError(display);
        XSetErrorHandler(countError);
        provokeError(display);
        EXPECT_EQ(handledErrors, 1);
        EXPECT_EQ(XSetErrorHandler(nullptr), countError); // what the front leaves untouched
        provokeError(display);
        EXPECT_EQ(handledErrors, 1);
        XCloseDisplay(display);
    });
    EXPECT_EQ(countLines(result.errors), 1U) << result.errors;
}

TEST_F(FrontErrors, OtherConnectionsAreNoneOfItsBusiness) {
    const ChildResult result = runDying([&] {
        const Started started;
        started.open(server_.name(), 2);
        Display* own = XOpenDisplay(server_.name().c_str());
        ASSERT_NE(own, nullptr);
        provokeError(own);
        _exit(0); // not reached: Xlib's own handler ends the process with status 1
    });
    EXPECT_TRUE(WIFEXITED(result.status));
    EXPECT_EQ(WEXITSTATUS(result.status), 1);
    EXPECT_THAT(result.errors, HasSubstr("X Error of failed request:  BadPixmap"));
    EXPECT_THAT(result.errors, Not(HasSubstr("KOR-GL")));
}

TEST_F(FrontErrors, ARequestThatWaitsForItsReplyFails) {
    const ChildResult result = run([&] {
        const Started started;
        Display* display = started.open(server_.name(), 1);
        Window root = 0;
        int x = 0;
        int y = 0;
        unsigned width = 0;
        unsigned height = 0;
        unsigned border = 0;
        unsigned depth = 0;
        EXPECT_EQ(XGetGeometry(display, nothing, &root, &x, &y, &width, &height, &border, &depth),
                  0);
        XWindowAttributes attributes;
        EXPECT_EQ(XGetWindowAttributes(display, nothing, &attributes), 0);
        XSetErrorHandler(countError);
        EXPECT_EQ(XGetGeometry(display, nothing, &root, &x, &y, &width, &height, &border, &depth),
                  0);
        EXPECT_EQ(handledErrors, 1);
        XSetErrorHandler(nullptr);
        // The connection is in order: a request after the failed ones is answered.
        EXPECT_NE(XGetGeometry(display, DefaultRootWindow(display), &root, &x, &y, &width, &height,
                               &border, &depth),
                  0);
        EXPECT_EQ(root, DefaultRootWindow(display));
        XCloseDisplay(display);
    });
    EXPECT_EQ(countLines(result.errors), 1U) << result.errors;
}

int hookedErrors = 0;
int hookError(Display*, xError*, XExtCodes*, int* result) {
    ++hookedErrors;
    *result = 0;
    return 1;
}

TEST_F(FrontErrors, AnExtensionsOwnHookComesFirst) {
    const ChildResult result = run([&] {
        const Started started;
        Display* display = started.open(server_.name(), 0);
        XExtCodes* codes = XAddExtension(display);
        XESetError(display, codes->extension, hookError);
        Window root = 0;
        int x = 0;
        int y = 0;
        unsigned size = 0;
        EXPECT_EQ(XGetGeometry(display, nothing, &root, &x, &y, &size, &size, &size, &size), 0);
        EXPECT_EQ(hookedErrors, 1);
        XCloseDisplay(display);
    });
    EXPECT_EQ(result.errors, "");
}

TEST_F(FrontErrors, TheAdapterLearnsOfLocalConnectionsOnly) {
    run([&] {
        const Started started;
        const Library adapter(fakeAdapter);
        for (int role : {0, 2, 3}) {
            Display* display = started.open(server_.name(), role);
            EXPECT_EQ(adapter.call<Display*>("fake_adapter_display"), nullptr);
            XCloseDisplay(display);
        }
        Display* local = started.open(server_.name(), 1);
        EXPECT_EQ(adapter.call<Display*>("fake_adapter_display"), local);
        XCloseDisplay(local);
    });
}

TEST_F(FrontErrors, ABrokenConnectionOfTheLibraryDoesNotEndTheProcess) {
    const ChildResult result = run([&] {
        const Started started;
        Display* display = started.open(server_.name(), 1);
        endServer(display);
        XSync(display, False);
        // Xlib goes on with a connection that answers nothing; results are without meaning.
        provokeError(display);
        Window root = 0;
        int x = 0;
        int y = 0;
        unsigned size = 0;
        XGetGeometry(display, nothing, &root, &x, &y, &size, &size, &size, &size);
        XInternAtom(display, "NO_SUCH_ATOM", False);
        for (int i = 0; i < 10000; ++i) // more than Xlib's buffer holds
            XMapWindow(display, nothing);
        // Other threads are not locked out.
        std::thread([&] {
            for (int i = 0; i < 10000; ++i)
                provokeError(display);
        }).join();
        XCloseDisplay(display);
    });
    EXPECT_EQ(countLines(result.errors), 1U) << result.errors;
    EXPECT_THAT(result.errors, HasSubstr("KOR-GL: the library's own connection to the X server " +
                                         server_.name() + " broke."));
}

TEST_F(FrontErrors, ABrokenConnectionOfTheApplicationEndsItAsEver) {
    const ChildResult result = runDying([&] {
        const Started started;
        started.open(server_.name(), 1);
        Display* own = XOpenDisplay(server_.name().c_str());
        ASSERT_NE(own, nullptr);
        endServer(own);
        XSync(own, False);
        _exit(0); // not reached: Xlib ends the process with status 1
    });
    EXPECT_TRUE(WIFEXITED(result.status));
    EXPECT_EQ(WEXITSTATUS(result.status), 1);
    EXPECT_THAT(result.errors, HasSubstr(" " + server_.name()));
    EXPECT_THAT(result.errors, Not(HasSubstr("KOR-GL")));
}

} // namespace
