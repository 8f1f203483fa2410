// The painter's choice between shared memory and plain images: what it hears of the server, what it
// leaves behind, and how it decides anew.

#include "displays.h"
#include "interposed.h"

#include "framework/pixels.h"
#include "transport/segment_access.h"
#include "transport/ximage_painter.h"

#include <X11/Xlibint.h>
#undef min
#undef max
#include <algorithm>
#include <cerrno>
#include <memory>
#include <sys/shm.h>
#include <sys/wait.h>
#include <unistd.h>

using kor::gl::XImagePainter;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

namespace {

std::vector<int> errorsOfTheApplication;

int noteError(Display* /*display*/, XErrorEvent* event) {
    errorsOfTheApplication.push_back(event->error_code);
    return 0;
}

class PainterDetection : public Library {
  protected:
    ~PainterDetection() override {
        kor::test::beforeShmAttach = nullptr;
        kor::test::onCall = nullptr;
    }

    void begin(const char* strategy, std::vector<std::string> arguments = {}) {
        set("KOR_GL_COPYBACK_STRATEGY", strategy);
        server = std::make_unique<kor::test::XServer>(
            kor::test::XServer::Options{.kind = kor::test::XServer::Kind::Xvfb,
                                        .glDisplay = {},
                                        .arguments = std::move(arguments)});
        XSetErrorHandler(noteError);
        display = XOpenDisplay(server->name().c_str());
        ASSERT_NE(display, nullptr);
        visual = XVisualIDFromVisual(DefaultVisual(display, DefaultScreen(display)));
        window = XCreateSimpleWindow(display, DefaultRootWindow(display), 0, 0, 60, 60, 0, 0, 0);
        XMapRaised(display, window);
        XSync(display, False);
        start();
        painter = std::make_unique<XImagePainter>(window);
        kor::test::beforeShmAttach = [this](XShmSegmentInfo* info) { segment = info->shmid; };
    }

    bool setup(int width, int height) {
        kor::test::record();
        testing::internal::CaptureStderr();
        const bool result = painter->setup(display, visual, width, height);
        testing::internal::GetCapturedStderr();
        return result;
    }

    void expectPaints(int width, int height, bool shared) {
        ASSERT_TRUE(setup(width, height));
        EXPECT_EQ(painter->usesSharedMemory(), shared);
        EXPECT_TRUE(painter->canDraw());
        const uint32_t colour = 0x010203U * static_cast<uint32_t>(width);
        auto* pixels = reinterpret_cast<uint32_t*>(painter->getBuffer());
        ASSERT_NE(pixels, nullptr);
        std::fill_n(pixels, width * height, colour);
        painter->draw(display, width, height);
        EXPECT_TRUE(kor::test::waitForPixels(display, window, [&](const kor::test::Pixels& all) {
            return all.at(0, 0) == colour && all.at(width - 1, height - 1) == colour;
        }));
    }

    /// The server is given a segment that there is not, the next time.
    void letTheServerRefuse() {
        kor::test::beforeShmAttach = [this](XShmSegmentInfo* info) {
            segment = info->shmid;
            info->shmid = 0x7ffffff0;
            restoreNumber(info);
        };
    }
    /// The painter itself goes on with the right segment.
    void restoreNumber(XShmSegmentInfo* info) {
        kor::test::onCall = [this, info](const std::string& call) {
            if (call != "XSync(False)")
                return;
            info->shmid = segment;
            kor::test::onCall = nullptr;
            kor::test::beforeShmAttach = nullptr;
        };
    }

    /// Whether anybody has the segment still.
    bool segmentIsThere() const {
        XSync(display, False);
        shmid_ds state{};
        return shmctl(segment, IPC_STAT, &state) == 0;
    }

    std::unique_ptr<kor::test::XServer> server;
    Display* display = nullptr;
    VisualID visual = 0;
    Window window = None;
    int segment = -1; ///< the last that the server was to attach
    std::unique_ptr<XImagePainter> painter;
};

/// Stands in for another watcher of the connection, which drops all errors.
_XAsyncHandler dropping;
Bool drop(Display* /*display*/, xReply* reply, char* /*buffer*/, int /*length*/,
          XPointer /*data*/) {
    return reply->generic.type == X_Error ? True : False;
}

/// What becomes of shmat for another account.
int attachAsNobody(int segment) {
    const pid_t child = fork();
    if (child == 0) {
        if (setgid(65534) != 0 || setuid(65534) != 0)
            _exit(255);
        _exit(shmat(segment, nullptr, 0) == reinterpret_cast<void*>(-1) ? errno : 0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WEXITSTATUS(status);
}

} // namespace

TEST_F(PainterDetection, HearsARefusalThatAnotherWatcherOfTheConnectionWouldDrop) {
    begin("0");
    dropping.handler = drop;
    dropping.next = display->async_handlers;
    display->async_handlers = &dropping;
    letTheServerRefuse();
    expectPaints(30, 20, false);
    EXPECT_EQ(sayings("handleXShmError").size(), 1U);
    EXPECT_THAT(errorsOfTheApplication, IsEmpty());
    EXPECT_FALSE(segmentIsThere());
}

TEST_F(PainterDetection, LeavesNoSegmentAttachedWhenTheWindowWentBeforeItsFirstPainting) {
    begin("0");
    XDestroyWindow(display, window);
    XSync(display, False);
    setup(30, 20);
    EXPECT_THAT(kor::test::recorded(), Contains("XShmDetach"));
    EXPECT_FALSE(segmentIsThere());
    EXPECT_THAT(errorsOfTheApplication, IsEmpty());
}

TEST_F(PainterDetection, PaintsWithoutSharedMemoryWhileSegmentsAreUsedUp) {
    begin("0");
    expectPaints(30, 20, true);
    kor::test::shmGet.arm(2);
    expectPaints(33, 22, false);
    expectPaints(33, 22, false);
    EXPECT_EQ(kor::test::recorded().front(), "XPutImage") << "an image that is there is not remade";
    expectPaints(34, 23, false);
    expectPaints(35, 24, true);
    EXPECT_THAT(errorsOfTheApplication, IsEmpty());
}

TEST_F(PainterDetection, TriesSharedMemoryAgainWhenTheFirstImageHadNoSegment) {
    begin("0");
    kor::test::shmGet.arm();
    expectPaints(30, 20, false);
    expectPaints(33, 22, true);
}

TEST_F(PainterDetection, PaintsWithoutSharedMemoryAfterALaterRefusalOfTheServers) {
    begin("0");
    expectPaints(30, 20, true);
    letTheServerRefuse();
    expectPaints(33, 22, false);
    EXPECT_FALSE(segmentIsThere());
    expectPaints(35, 24, true);
    EXPECT_THAT(errorsOfTheApplication, IsEmpty());
}

TEST_F(PainterDetection, TakesNoSegmentThatTheServerFoundUnderTheSameNumberElsewhere) {
    begin("0");
    const int stranger = shmget(IPC_PRIVATE, 30 * 20 * 4, IPC_CREAT | 0600);
    kor::test::beforeShmAttach = [&](XShmSegmentInfo* info) {
        segment = info->shmid;
        info->shmid = stranger;
        restoreNumber(info);
    };
    expectPaints(30, 20, false);
    EXPECT_FALSE(segmentIsThere());
    XSync(display, False);
    shmid_ds state{};
    ASSERT_EQ(shmctl(stranger, IPC_STAT, &state), 0);
    EXPECT_EQ(state.shm_nattch, 0U) << "the server has let go of it";
    shmctl(stranger, IPC_RMID, nullptr);
}

TEST_F(PainterDetection, ForcedSharedMemoryThatTheServerRefusesIsNotDrawn) {
    begin("1");
    letTheServerRefuse();
    EXPECT_TRUE(setup(30, 20));
    EXPECT_THAT(errorsOfTheApplication, ElementsAre(BadAccess)) << "nothing stands before it";
    EXPECT_FALSE(painter->canDraw());
    kor::test::record();
    painter->draw(display, 30, 20);
    painter.reset();
    EXPECT_THAT(kor::test::recorded(), Not(Contains("XShmPutImage")));
    XSync(display, False);
    EXPECT_THAT(errorsOfTheApplication, ElementsAre(BadAccess));
}

TEST_F(PainterDetection, LeavesErrorsOfOtherConnectionsToTheApplication) {
    begin("0");
    Display* const other = XOpenDisplay(server->name().c_str());
    kor::test::beforeShmAttach = [&](XShmSegmentInfo*) {
        XClearWindow(other, 0x1234567);
        XSync(other, False);
    };
    expectPaints(30, 20, true);
    EXPECT_THAT(errorsOfTheApplication, ElementsAre(BadWindow));
    XCloseDisplay(other);
}

TEST_F(PainterDetection, LeavesAHandlerThatTheApplicationSetMeanwhile) {
    begin("0");
    const auto own = [](Display*, XErrorEvent*) { return 0; };
    XErrorHandler before = nullptr;
    kor::test::beforeShmAttach = [&](XShmSegmentInfo*) { before = XSetErrorHandler(own); };
    EXPECT_TRUE(setup(30, 20));
    // The application ends its own trap now, and is given what it found.
    EXPECT_EQ(XSetErrorHandler(before), static_cast<XErrorHandler>(own));
    XClearWindow(display, 0x1234567);
    XSync(display, False);
    EXPECT_THAT(errorsOfTheApplication, ElementsAre(BadWindow));
    EXPECT_THAT(sayings("handleXShmError"), IsEmpty());
}

TEST_F(PainterDetection, ASegmentIsTheUsersAloneWhereTheServerIsTheUsers) {
    begin("0");
    EXPECT_EQ(kor::gl::segmentMode(display), 0600);
    ASSERT_TRUE(setup(30, 20));
    shmid_ds state{};
    ASSERT_EQ(shmctl(segment, IPC_STAT, &state), 0);
    EXPECT_EQ(state.shm_perm.mode & 0777, 0600);
    EXPECT_THAT(kor::test::recorded(), Not(Contains("shmctl(IPC_SET)")));
    if (geteuid() == 0) { // who else could become another user?
        EXPECT_EQ(attachAsNobody(segment), EACCES);
    }
}

TEST_F(PainterDetection, ASegmentForAServerOfAnotherUsersIsClosedOnceItIsAttached) {
    begin("0");
    if (geteuid() != 0)
        return; // nobody else's server can be had
    ASSERT_EQ(seteuid(65534), 0);
    EXPECT_EQ(kor::gl::segmentMode(display), 0777);
    const bool made = setup(30, 20);
    ASSERT_EQ(seteuid(0), 0);
    ASSERT_TRUE(made);
    EXPECT_TRUE(painter->usesSharedMemory());
    EXPECT_THAT(kor::test::recorded(), Contains("shmget(private, 2400, 01777)"));
    shmid_ds state{};
    ASSERT_EQ(shmctl(segment, IPC_STAT, &state), 0);
    EXPECT_EQ(state.shm_perm.mode & 0777, 0600);
}
