// Before the X headers, whose macros have names of its types.
#include <gtest/gtest.h>

#include "framework/x_server.h"
#include "raw_client.h"

#include <X11/Xlib.h>
#include <csignal>
#include <functional>
#include <memory>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

/// Who is served while a client holds a grab of the server.

namespace {

using namespace kor::test;

/// GetInputFocus: a request that is answered, and none of the extension's.
std::vector<uint8_t> coreRequest(ByteOrder order) {
    return RequestBuilder(order).u8(43).u8(0).u16(1).bytes();
}

bool becomesReadable(int descriptor, int milliseconds) {
    pollfd wanted{descriptor, POLLIN, 0};
    return poll(&wanted, 1, milliseconds) == 1;
}

/// Another process, which takes steps when it is told to, and says when one is done.
class Other {
  public:
    /// The steps are run in the child. Returns when the first has been taken.
    explicit Other(const std::vector<std::function<void()>>& steps) {
        EXPECT_EQ(pipe(toChild_), 0);
        EXPECT_EQ(pipe(fromChild_), 0);
        child_ = fork();
        if (child_ == 0)
            run(steps);
        close(toChild_[0]);
        close(fromChild_[1]);
        proceed();
        EXPECT_TRUE(isDone(30000));
    }
    ~Other() {
        close(toChild_[1]); // a child that waits for us ends
        close(fromChild_[0]);
        kill(child_, SIGKILL);
        waitpid(child_, nullptr, 0);
    }
    Other(const Other&) = delete;
    Other& operator=(const Other&) = delete;

    void proceed() { EXPECT_EQ(write(toChild_[1], "s", 1), 1); }
    bool isDone(int milliseconds) {
        char done = 0;
        return becomesReadable(fromChild_[0], milliseconds) && read(fromChild_[0], &done, 1) == 1;
    }

  private:
    [[noreturn]] void run(const std::vector<std::function<void()>>& steps) {
        close(toChild_[1]);
        close(fromChild_[0]);
        char go = 0;
        try {
            for (const auto& step : steps) {
                if (read(toChild_[0], &go, 1) != 1)
                    break;
                step();
                if (write(fromChild_[1], "d", 1) != 1)
                    break;
            }
        } catch (const std::exception&) {
            _exit(1); // the parent sees the end of the pipe
        }
        pause();
        _exit(0);
    }

    pid_t child_ = -1;
    int toChild_[2] = {};
    int fromChild_[2] = {};
};

class ServerGrab : public testing::TestWithParam<ByteOrder> {
  protected:
    void SetUp() override {
        XServer::authorityFile();
        display = XOpenDisplay(server.name().c_str());
        ASSERT_NE(display, nullptr);
    }
    void TearDown() override { XCloseDisplay(display); }

    void grab() {
        XGrabServer(display);
        XSync(display, False);
    }
    void ungrab() {
        XUngrabServer(display);
        XSync(display, False);
    }
    std::unique_ptr<RawClient> client() const {
        return std::make_unique<RawClient>(server.number(), GetParam());
    }
    static void expectAnswer(RawClient& from) {
        EXPECT_EQ(from.getWindowInfo(from.root()).status(), 1);
        EXPECT_TRUE(from.ask(coreRequest(from.order())).isReply());
    }

    static constexpr int kSilence = 500; // milliseconds, in which an answer would have come
    XServer server{XServer::Options{.glDisplay = ":7"}};
    Display* display = nullptr;
};

TEST_P(ServerGrab, TheSameProcessIsServedOnConnectionsThatUseTheExtension) {
    const auto user = client();
    expectAnswer(*user);
    for (int round = 0; round < 3; ++round) {
        grab();
        expectAnswer(*user);
        ungrab();
        expectAnswer(*user);
    }
}

TEST_P(ServerGrab, RequestsThatWereOnTheirWayWhenItBeganAreAnswered) {
    const auto user = client();
    expectAnswer(*user);
    // ClearArea of the whole root window: longer than the server serves one client in a row.
    const std::vector<uint8_t> clear =
        RequestBuilder(GetParam()).u8(61).u8(0).u16(4).u32(user->root()).u32(0).u32(0).bytes();
    std::vector<std::vector<uint8_t>> requests(300, clear);
    requests.push_back(user->korRequest(0, {user->root(), 0}));
    for (int round = 0; round < 5; ++round) {
        user->sendAll(requests);
        grab();
        EXPECT_EQ(user->receive().status(), 1) << "round " << round;
        ungrab();
    }
}

TEST_P(ServerGrab, TheSameProcessIsServedOnConnectionsThatItOpensMeanwhile) {
    grab();
    expectAnswer(*client());
    const auto user = client();
    expectAnswer(*user);
    ungrab();
    expectAnswer(*user);
}

TEST_P(ServerGrab, ConnectionsOfTheSameProcessThatDoNotUseTheExtensionWait) {
    const auto user = client();
    expectAnswer(*user);
    Display* const plain = XOpenDisplay(server.name().c_str());
    ASSERT_NE(plain, nullptr);
    XSelectInput(plain, DefaultRootWindow(plain), PropertyChangeMask);
    XSync(plain, False);
    grab();
    // Were it served, it would be told of what it does.
    XChangeProperty(plain, DefaultRootWindow(plain), 39, 31, 8, PropModeReplace, nullptr, 0);
    XFlush(plain);
    expectAnswer(*user);
    EXPECT_FALSE(becomesReadable(ConnectionNumber(plain), kSilence));
    ungrab();
    EXPECT_TRUE(becomesReadable(ConnectionNumber(plain), 30000));
    XCloseDisplay(plain);
}

TEST_P(ServerGrab, OtherProcessesWait) {
    const auto user = client();
    expectAnswer(*user);
    std::unique_ptr<RawClient> theirs;
    Other other({[&] {
                     theirs = client();
                     expectAnswer(*theirs);
                 },
                 [&] { expectAnswer(*theirs); }});
    grab();
    other.proceed();
    expectAnswer(*user);
    EXPECT_FALSE(other.isDone(kSilence));
    ungrab();
    EXPECT_TRUE(other.isDone(30000));
}

TEST_P(ServerGrab, ConnectionsThatOtherProcessesOpenWait) {
    Other other({[] {}, [&] { client(); }});
    grab();
    other.proceed();
    expectAnswer(*client());
    EXPECT_FALSE(other.isDone(kSilence));
    ungrab();
    EXPECT_TRUE(other.isDone(30000));
}

TEST_P(ServerGrab, AfterwardsTheConnectionsWaitForOthersAsEver) {
    const auto user = client();
    expectAnswer(*user);
    grab();
    expectAnswer(*user);
    const auto late = client();
    expectAnswer(*late);
    ungrab();
    Display* theirs = nullptr;
    Other other({[&] {
                     theirs = XOpenDisplay(server.name().c_str());
                     XGrabServer(theirs);
                     XSync(theirs, False);
                 },
                 [&] {
                     XUngrabServer(theirs);
                     XSync(theirs, False);
                 }});
    const std::vector<uint8_t> request = user->korRequest(0, {user->root(), 0});
    user->send(request);
    late->send(request);
    EXPECT_FALSE(user->hasAnswer(kSilence));
    EXPECT_FALSE(late->hasAnswer(0));
    other.proceed();
    EXPECT_TRUE(other.isDone(30000));
    EXPECT_EQ(user->receive().status(), 1);
    EXPECT_EQ(late->receive().status(), 1);
}

TEST_P(ServerGrab, AHolderThatVanishesLeavesNothingBehind) {
    const auto user = client();
    expectAnswer(*user);
    Display* const holder = XOpenDisplay(server.name().c_str());
    ASSERT_NE(holder, nullptr);
    XGrabServer(holder);
    XSync(holder, False);
    expectAnswer(*user);
    XCloseDisplay(holder);
    expectAnswer(*user);
    grab();
    expectAnswer(*user);
    ungrab();
}

INSTANTIATE_TEST_SUITE_P(Orders, ServerGrab, testing::Values(ByteOrder::Little, ByteOrder::Big),
                         [](const auto& order) {
                             return order.param == ByteOrder::Big ? "BigEndian" : "LittleEndian";
                         });

} // namespace
