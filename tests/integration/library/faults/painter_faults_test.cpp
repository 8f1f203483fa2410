// The painter's image: the calls that make it, in their order, and what becomes of it when one of
// them fails.

#include "displays.h"
#include "interposed.h"

#include "framework/pixels.h"
#include "transport/ximage_painter.h"

#include <algorithm>
#include <memory>

using kor::gl::XImagePainter;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

namespace {

std::vector<int> errorsOfTheApplication;

/// A painter of a window on a plain server; the library needs no other display for it.
class PainterFaults : public Library {
  protected:
    using Texts = std::vector<std::string>;

    /// kor_init with that "copyback-strategy", and a window of 40 x 40 on a server with these
    /// arguments.
    void begin(const char* strategy, std::vector<std::string> arguments = {}) {
        set("KOR_GL_COPYBACK_STRATEGY", strategy);
        server = std::make_unique<kor::test::XServer>(
            kor::test::XServer::Options{.kind = kor::test::XServer::Kind::Xvfb,
                                        .glDisplay = {},
                                        .arguments = std::move(arguments)});
        XSetErrorHandler([](Display* /*display*/, XErrorEvent* event) {
            errorsOfTheApplication.push_back(event->error_code);
            return 0;
        });
        display = XOpenDisplay(server->name().c_str());
        ASSERT_NE(display, nullptr);
        const int screen = DefaultScreen(display);
        ASSERT_EQ(DefaultDepth(display, screen), 24);
        visual = XVisualIDFromVisual(DefaultVisual(display, screen));
        window = XCreateSimpleWindow(display, DefaultRootWindow(display), 0, 0, 40, 40, 0, 0, 0);
        XMapRaised(display, window);
        XSync(display, False);
        start();
        painter = std::make_unique<XImagePainter>(window);
        markLog();
    }

    /// One setup at 30 x 20, its calls recorded; what stderr got is in printed.
    bool setup(int width = 30, int height = 20) {
        kor::test::record();
        testing::internal::CaptureStderr();
        const bool result = painter->setup(display, visual, width, height);
        printed = testing::internal::GetCapturedStderr();
        return result;
    }

    /// The painter works: a picture of that size arrives.
    void expectPaints(int width = 30, int height = 20) {
        ASSERT_TRUE(setup(width, height));
        auto* pixels = reinterpret_cast<uint32_t*>(painter->getBuffer());
        ASSERT_NE(pixels, nullptr);
        std::fill_n(pixels, width * height, 0x00fedcbaU);
        painter->draw(display, width, height);
        EXPECT_TRUE(kor::test::waitForPixels(display, window, [&](const kor::test::Pixels& all) {
            return all.at(0, 0) == 0xfedcba && all.at(width - 1, height - 1) == 0xfedcba;
        }));
    }

    /// The error went to the log, in full, and to stderr; there is no image.
    void expectRefused(const std::string& message) {
        EXPECT_FALSE(setup());
        EXPECT_EQ(printed, "ERROR: " + message + "\n");
        EXPECT_EQ(timesLogged("E bool kor::gl::XImagePainter::setupXImagePainterInternal(bool, "
                              "Display*, VisualID, int, int): " +
                              message),
                  1U);
        EXPECT_EQ(painter->getBuffer(), nullptr);
    }

    std::vector<std::string> setupSayings() const { return sayings("XImagePainter::setup"); }
    std::vector<std::string> internals() const { return sayings("setupXImagePainterInternal"); }

    static void expectCalls(const Texts& expected) {
        EXPECT_THAT(kor::test::recorded(), testing::ElementsAreArray(expected));
    }

    std::unique_ptr<kor::test::XServer> server;
    Display* display = nullptr;
    VisualID visual = 0;
    Window window = None;
    std::unique_ptr<XImagePainter> painter;
    std::string printed;
};

class PainterFaultsOfForcedModes : public PainterFaults,
                                   public testing::WithParamInterface<const char*> {};

const std::string segment = "shmget(private, 2400, 01600)";

} // namespace

TEST_F(PainterFaults, ASharedImageIsMadeInThisOrder) {
    begin("1");
    EXPECT_TRUE(setup());
    expectCalls({"XCreateGC", "XGetVisualInfo", "XShmCreateImage", segment, "shmat", "XSync(False)",
                 "XShmAttach", "XSync(False)", "shmctl(IPC_STAT)", "shmctl(IPC_RMID)",
                 "XShmPutImage", "XSync(False)"});
    EXPECT_EQ(printed, "");
    EXPECT_TRUE(setup());
    expectCalls({}); // the image stays
    kor::test::record();
    painter->draw(display, 30, 20);
    expectCalls({"XShmPutImage", "XFlush"});
    EXPECT_TRUE(setup(40, 10));
    expectCalls({"XShmDetach", "shmdt", "XGetVisualInfo", "XShmCreateImage",
                 "shmget(private, 1600, 01600)", "shmat", "XSync(False)", "XShmAttach",
                 "XSync(False)", "shmctl(IPC_STAT)", "shmctl(IPC_RMID)", "XShmPutImage",
                 "XSync(False)"});
    kor::test::record();
    painter.reset();
    expectCalls({"XShmDetach", "shmdt", "XSync(True)"});
    EXPECT_THAT(errorsOfTheApplication, IsEmpty());
}

TEST_F(PainterFaults, APlainImageIsMadeInThisOrder) {
    begin("2");
    EXPECT_TRUE(setup());
    expectCalls({"XCreateGC", "XGetVisualInfo", "XCreateImage(pad 8, line 0)", "XSync(False)"});
    EXPECT_TRUE(setup());
    expectCalls({});
    kor::test::record();
    painter->draw(display, 30, 20);
    expectCalls({"XPutImage", "XFlush"});
    EXPECT_TRUE(setup(40, 10));
    expectCalls({"XGetVisualInfo", "XCreateImage(pad 8, line 0)", "XSync(False)"});
    kor::test::record();
    painter.reset();
    expectCalls({"XSync(True)"});
}

TEST_F(PainterFaults, AnotherWidthOrHeightAloneMakesAnotherImage) {
    begin("2");
    const auto images = [&](int width, int height) {
        EXPECT_TRUE(setup(width, height));
        const Texts calls = kor::test::recorded();
        return std::count(calls.begin(), calls.end(), "XCreateImage(pad 8, line 0)");
    };
    EXPECT_EQ(images(30, 20), 1);
    EXPECT_EQ(images(40, 20), 1);
    EXPECT_EQ(images(40, 30), 1);
    EXPECT_EQ(images(40, 30), 0);
}

TEST_F(PainterFaults, NoCompletionEventIsAskedFor) {
    begin("1");
    EXPECT_TRUE(setup());
    painter->draw(display, 30, 20);
    XSync(display, False);
    XEvent event;
    EXPECT_FALSE(XCheckTypedEvent(display, XShmGetEventBase(display) + ShmCompletion, &event));
}

TEST_F(PainterFaults, AnyOtherStrategyForcesSharedMemory) {
    begin("-1");
    EXPECT_TRUE(setup());
    EXPECT_THAT(setupSayings(), ElementsAre("START", "Forcing usage of shared memory",
                                            "Setting up XImagePainter with shared memory", "DONE"));
}

TEST_F(PainterFaults, WithoutAGraphicsContextThereIsNoImage) {
    begin("1");
    kor::test::createGc.arm();
    EXPECT_FALSE(setup());
    EXPECT_THAT(internals(),
                ElementsAre("Trying to setup shared memory for image painter", "XCreateGC failed"));
    EXPECT_EQ(printed, "");
    expectCalls({"XCreateGC"});
    expectPaints(); // the next frame tries again
}

TEST_P(PainterFaultsOfForcedModes, InstallNoErrorHandler) {
    begin(GetParam());
    EXPECT_TRUE(setup());
    EXPECT_THAT(kor::test::recorded(), Not(Contains("XSetErrorHandler")));
    EXPECT_THAT(kor::test::recorded(), Not(Contains("XShmQueryExtension")));
}

TEST_P(PainterFaultsOfForcedModes, HaveNoImageForAVisualOfAnotherDepth) {
    begin(GetParam());
    XVisualInfo wanted{};
    wanted.depth = 32;
    int count = 0;
    XVisualInfo* found = XGetVisualInfo(display, VisualDepthMask, &wanted, &count);
    ASSERT_NE(found, nullptr) << "the server has visuals of depth 32";
    visual = found->visualid;
    XFree(found);
    expectRefused("Could not create XImage with depth 24");
    EXPECT_THAT(kor::test::recorded(), ElementsAre("XCreateGC", "XGetVisualInfo"));
}

INSTANTIATE_TEST_SUITE_P(Modes, PainterFaultsOfForcedModes, testing::Values("1", "2"),
                         [](const auto& mode) {
                             return mode.param[0] == '1' ? "SharedMemory" : "PlainImages";
                         });

TEST_F(PainterFaults, ASharedImageThatXlibCannotMakeHasNoSegment) {
    begin("1");
    kor::test::shmCreateImage.arm();
    expectRefused("unable to create shared memory segment");
    expectCalls({"XCreateGC", "XGetVisualInfo", "XShmCreateImage"});
    expectPaints();
}

TEST_F(PainterFaults, WithoutASegmentThereIsNoSharedImage) {
    begin("1");
    kor::test::shmGet.arm();
    expectRefused("unable to create shared memory segment");
    expectCalls({"XCreateGC", "XGetVisualInfo", "XShmCreateImage", segment});
    expectPaints();
}

TEST_F(PainterFaults, ASegmentThatCannotBeAttachedHereIsRemoved) {
    begin("1");
    kor::test::shmAt.arm();
    expectRefused("unable to attach shared memory segment");
    expectCalls({"XCreateGC", "XGetVisualInfo", "XShmCreateImage", segment, "shmat", "shmdt",
                 "shmctl(IPC_RMID)"});
    expectPaints();
}

TEST_F(PainterFaults, ASegmentThatCannotBeAttachedThereIsRemoved) {
    begin("1");
    kor::test::shmAttach.arm();
    expectRefused("unable to attach shared memory segment");
    expectCalls({"XCreateGC", "XGetVisualInfo", "XShmCreateImage", segment, "shmat", "XSync(False)",
                 "XShmAttach", "shmdt", "shmctl(IPC_RMID)"});
    expectPaints();
}

TEST_F(PainterFaults, AnImageThatCannotBePutIsGivenUp) {
    begin("1");
    kor::test::shmPutImage.arm();
    expectRefused("unable to put image on shared memory segment");
    expectCalls({"XCreateGC", "XGetVisualInfo", "XShmCreateImage", segment, "shmat", "XSync(False)",
                 "XShmAttach", "XSync(False)", "shmctl(IPC_STAT)", "shmctl(IPC_RMID)",
                 "XShmPutImage", "shmdt"});
    expectPaints();
}

TEST_F(PainterFaults, WithoutMemoryThereIsNoPlainImage) {
    begin("2");
    kor::test::failingAllocation = size_t{31} * 4 * 23;
    EXPECT_FALSE(setup(31, 23));
    kor::test::failingAllocation = 0;
    EXPECT_EQ(printed, "ERROR: Could not allocate data for XImage\n");
    EXPECT_EQ(timesLogged("E bool kor::gl::XImagePainter::setupXImagePainterInternal(bool, "
                          "Display*, VisualID, int, int): Could not allocate data for XImage"),
              1U);
    expectPaints();
}

TEST_F(PainterFaults, APlainImageThatXlibCannotMakeLeavesNoBuffer) {
    begin("2");
    kor::test::createImage.arm();
    EXPECT_TRUE(setup());
    EXPECT_EQ(painter->getBuffer(), nullptr);
    painter->draw(display, 30, 20); // nothing to put
    EXPECT_THAT(kor::test::recorded(), Not(Contains("XPutImage")));
    expectPaints();
}

TEST_F(PainterFaults, AServerWithoutTheExtensionIsDetectedOnce) {
    begin("0", {"-extension", "MIT-SHM"});
    expectPaints();
    EXPECT_THAT(setupSayings(),
                ElementsAre("START",
                            "Now performing auto detect - X extension for shared memory available: "
                            "false",
                            "Shared memory extension is not available, forcing non-shared memory",
                            "Setting up XImagePainter without shared memory", "DONE"));
    expectPaints();
    expectPaints(35, 35);
    EXPECT_THAT(kor::test::recorded(), Not(Contains("XShmQueryExtension")));
    EXPECT_THAT(kor::test::recorded(), Contains("XPutImage"));
    EXPECT_FALSE(painter->usesSharedMemory());
}

TEST_F(PainterFaults, DetectionPutsTheHandlerBackWhereTheExtensionLacks) {
    begin("0", {"-extension", "MIT-SHM"});
    EXPECT_TRUE(setup());
    expectCalls({"XSetErrorHandler", "XShmQueryExtension", "XSetErrorHandler", "XCreateGC",
                 "XGetVisualInfo", "XCreateImage(pad 8, line 0)", "XSync(False)"});
    XClearWindow(display, 0x1234567);
    XSync(display, False);
    EXPECT_THAT(errorsOfTheApplication, ElementsAre(BadWindow));
}

TEST_F(PainterFaults, ForcedSharedMemoryOnAServerWithoutItFailsEveryTime) {
    begin("1", {"-extension", "MIT-SHM"});
    for (int i = 0; i < 2; ++i) {
        EXPECT_FALSE(setup());
        EXPECT_THAT(printed, testing::HasSubstr("ERROR: unable to attach shared memory segment\n"));
        EXPECT_THAT(kor::test::recorded(), Contains("shmctl(IPC_RMID)"));
    }
}

TEST_F(PainterFaults, DetectionSucceedsBetweenTheTwoHandlers) {
    begin("0");
    EXPECT_TRUE(setup());
    expectCalls({"XSetErrorHandler", "XShmQueryExtension", "XCreateGC", "XGetVisualInfo",
                 "XShmCreateImage", segment, "shmat", "XSync(False)", "XShmAttach", "XSync(False)",
                 "shmctl(IPC_STAT)", "shmctl(IPC_RMID)", "XShmPutImage", "XSync(False)",
                 "XSetErrorHandler"});
}

TEST_F(PainterFaults, DetectionHearsTheServersRefusalAndStaysWithPlainImages) {
    begin("0");
    // The server is given a segment that there is not.
    kor::test::beforeShmAttach = [](XShmSegmentInfo* info) { info->shmid = 0x7ffffff0; };
    EXPECT_TRUE(setup());
    kor::test::beforeShmAttach = nullptr;
    EXPECT_THAT(setupSayings(),
                ElementsAre("START",
                            "Now performing auto detect - X extension for shared memory available: "
                            "true",
                            "Shared memory extension seems available, continuing checks..",
                            "Shared memory setup failed, falling back to non-shared",
                            "Setup without shmem returned SUCCESS", "DONE"));
    const std::vector<std::string> heard = sayings("handleXShmError");
    ASSERT_FALSE(heard.empty());
    EXPECT_EQ(heard[0], "X error detected with code 10: BadAccess (attempt to access private "
                        "resource denied)");
    EXPECT_EQ(log()[0].function.rfind("bool kor::gl::XImagePainter::setup(", 0), 0U);
    EXPECT_THAT(errorsOfTheApplication, IsEmpty());
    EXPECT_EQ(kor::test::recorded().front(), "XSetErrorHandler");
    EXPECT_EQ(kor::test::recorded().back(), "XSetErrorHandler");
    EXPECT_FALSE(painter->usesSharedMemory());
    markLog();
    expectPaints();
    expectPaints(33, 22);
    EXPECT_THAT(kor::test::recorded(), Contains("XPutImage"));
    EXPECT_THAT(setupSayings(),
                ElementsAre("START", "Setting up XImagePainter without shared memory", "DONE",
                            "START", "Setting up XImagePainter without shared memory", "DONE"));
}

TEST_F(PainterFaults, DetectionThatFailsBothWaysSaysSo) {
    begin("0");
    kor::test::shmGet.arm();
    kor::test::beforeCreateImage = [](Display* connection) { XClearWindow(connection, 0x1234567); };
    EXPECT_FALSE(setup());
    kor::test::beforeCreateImage = nullptr;
    EXPECT_EQ(timesLogged("E bool kor::gl::XImagePainter::setup(Display*, VisualID, int, int): "
                          "Could not setup XImagePainter - shared and non-shared memory failure"),
              1U);
    EXPECT_EQ(setupSayings().back(), "DONE");
    EXPECT_THAT(setupSayings(), Not(Contains("Setup without shmem returned SUCCESS")));
    EXPECT_THAT(errorsOfTheApplication, IsEmpty());
    EXPECT_EQ(kor::test::recorded().back(), "XSetErrorHandler");
    EXPECT_EQ(printed, "ERROR: unable to create shared memory segment\n");
    // Another painter detects for itself, and this one's failure is not its own.
    markLog();
    XImagePainter other(window);
    EXPECT_TRUE(other.setup(display, visual, 30, 20));
    EXPECT_THAT(setupSayings(), Contains("Setup with shmem SUCCEEDED"));
    EXPECT_TRUE(other.usesSharedMemory());
    expectPaints(); // in the mode that detection chose
    EXPECT_FALSE(painter->usesSharedMemory());
}

TEST_F(PainterFaults, DetectionTellsWhenThePlainImageFailsToo) {
    begin("0");
    kor::test::shmGet.arm();
    kor::test::failingAllocation = size_t{31} * 4 * 23;
    EXPECT_FALSE(setup(31, 23));
    kor::test::failingAllocation = 0;
    EXPECT_THAT(setupSayings(), Contains("Setup without shmem returned FAILURE"));
    EXPECT_EQ(printed, "ERROR: unable to create shared memory segment\n"
                       "ERROR: Could not allocate data for XImage\n");
}
