// What the library makes of the answers of "KOR-V1": the name of the local display, and a window's
// place, size and visibility.

#include "fixture.h"
#include "interposed.h"

#include "core/tsd.h"
#include "display/displays.h"
#include "drawable/drawable_info.h"
#include "framework/scripted_server.h"

#include <X11/Xlib.h>
#include <X11/Xproto.h>
#include <cstring>
#include <thread>

using kor::gl::DrawableInfo;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using Bytes = std::vector<uint8_t>;

class KorV1Answers : public Library {
  protected:
    KorV1Answers() {
        unsetenv("KOR_GL_DISPLAY");
        unsetenv("DISPLAY");
        XSetErrorHandler([](Display* /*display*/, XErrorEvent* event) {
            ADD_FAILURE() << "X error " << int{event->error_code};
            return 0;
        });
        display = XOpenDisplay(server.displayName().c_str());
        if (display == nullptr)
            abort();
    }

    static Bytes named(uint8_t status, const std::string& name) {
        Bytes reply(32 + (name.size() + 3) / 4 * 4);
        reply[0] = X_Reply;
        reply[1] = status;
        reply[4] = static_cast<uint8_t>((name.size() + 3) / 4);
        reply[8] = static_cast<uint8_t>(name.size());
        memcpy(reply.data() + 32, name.data(), name.size());
        return reply;
    }

    struct Told {
        int x, y, width, height;
        int visual;
        bool visible;
        uint8_t status = 1;
    };
    void tell(const Told& told) {
        Bytes reply(32);
        reply[0] = X_Reply;
        reply[1] = told.status;
        memcpy(&reply[8], &told.x, 5 * sizeof(int));
        reply[28] = told.visible ? 1 : 0;
        server.setAnswer(reply);
    }

    /// kor_init and a record of a window of the scripted server.
    DrawableInfo* makeRecord() {
        server.setAnswer(named(1, ":4711")); // a local display is not needed here
        start();
        testing::internal::CaptureStderr();
        EXPECT_TRUE(_setupAppDisplay(display, nullptr));
        testing::internal::GetCapturedStderr();
        auto* record =
            new DrawableInfo(kor::gl::WindowDrawable, 0x12345, nullptr, display, 0, 0, 100, 100);
        markLog();
        return record;
    }

    const std::string info =
        "D bool kor::gl::DrawableInfo::updateWindowInfo(bool*, bool*, bool*): ";
    const std::string nameError =
        "E const char* getLocalDisplayName(kor::gl::TSD*): The local 3D accelerated X display is "
        "not specified. Using default display (:0.0).";
    kor::test::ScriptedServer& server = *new kor::test::ScriptedServer;
    Display* display = nullptr;
};

} // namespace

TEST_F(KorV1Answers, TheServersNameIsTakenOnceForAll) {
    server.setAnswer(named(1, "nowhere.invalid:12"));
    start();
    ASSERT_TRUE(_setupAppDisplay(display, nullptr));
    EXPECT_EQ(_getLocalDisplay(nullptr), nullptr);
    EXPECT_EQ(_getLocalDisplay(nullptr), nullptr);
    EXPECT_EQ(server.requests().size(), 1U);
    EXPECT_EQ(timesLogged("E Display* _getLocalDisplay(kor::gl::TSD*): Cannot open connection to "
                          "local display nowhere.invalid:12."),
              3U);
    EXPECT_FALSE(logged(nameError));
}

TEST_F(KorV1Answers, AnEmptyNameIsAskedForAgain) {
    server.setAnswer(named(1, ""));
    start();
    ASSERT_TRUE(_setupAppDisplay(display, nullptr));
    EXPECT_EQ(server.requests().size(), 1U);
    EXPECT_EQ(_getLocalDisplay(nullptr), nullptr);
    EXPECT_EQ(server.requests().size(), 2U);
    EXPECT_FALSE(logged(nameError));
    server.setAnswer(named(1, ":4711"));
    EXPECT_EQ(_getLocalDisplay(nullptr), nullptr);
    EXPECT_TRUE(logged("E Display* _getLocalDisplay(kor::gl::TSD*): Cannot open connection to "
                       "local display :4711."));
    EXPECT_EQ(_getLocalDisplay(nullptr), nullptr);
    EXPECT_EQ(server.requests().size(), 3U);
}

TEST_F(KorV1Answers, AnotherServersNameIsNotAskedForAnyMore) {
    auto& second = *new kor::test::ScriptedServer;
    server.setAnswer(named(1, ":4711"));
    second.setAnswer(named(1, ":4712"));
    start();
    ASSERT_TRUE(_setupAppDisplay(display, nullptr));
    Display* other = XOpenDisplay(second.displayName().c_str());
    std::thread([&] {
        EXPECT_TRUE(_setupAppDisplay(other, nullptr));
        EXPECT_EQ(_getLocalDisplay(nullptr), nullptr);
    }).join();
    EXPECT_THAT(second.requests(), IsEmpty());
    EXPECT_FALSE(logged("E Display* _getLocalDisplay(kor::gl::TSD*): Cannot open connection to "
                        "local display :4712."));
}

TEST_F(KorV1Answers, AFailureOrAnErrorMeansTheDefaultDisplayForGood) {
    server.setAnswer(named(0, "")); // no name there
    start();
    _setupAppDisplay(display, nullptr);
    server.setAnswer(named(1, ":4711"));
    _getLocalDisplay(nullptr);
    EXPECT_EQ(server.requests().size(), 1U);
    EXPECT_EQ(timesLogged(nameError), 1U);
}

TEST_F(KorV1Answers, ANameThatComesWithAFailureIsNotUsed) {
    server.setAnswer(named(0, ":4711"));
    start();
    _setupAppDisplay(display, nullptr);
    EXPECT_EQ(timesLogged(nameError), 1U);
    EXPECT_FALSE(logged("E Display* _getLocalDisplay(kor::gl::TSD*): Cannot open connection to "
                        "local display :4711."));
}

TEST_F(KorV1Answers, AnErrorMeansTheDefaultDisplayToo) {
    Bytes error(32);
    error[0] = X_Error;
    error[1] = BadRequest;
    server.setAnswer(error);
    start();
    _setupAppDisplay(display, nullptr);
    EXPECT_EQ(timesLogged(nameError), 1U);
}

TEST_F(KorV1Answers, AnExtensionThatCannotBeInitialisedEndsTheProcess) {
    start();
    EXPECT_EXIT(
        {
            kor::test::initExtension.arm();
            _setupAppDisplay(display, nullptr);
        },
        testing::ExitedWithCode(20),
        "^ERROR: Could not initialized the KOR X Extension. Please check that KOR is properly "
        "installed\n");
    EXPECT_TRUE(
        logged("E bool _setupAppDisplay(Display*, kor::gl::TSD*): Could not initialized the "
               "KOR X Extension. Please check that KOR is properly installed"));
}

TEST_F(KorV1Answers, AConnectionThatCannotBeOpenedFailsTheSetUp) {
    start();
    markLog();
    kor::test::openDisplay.arm();
    testing::internal::CaptureStderr();
    EXPECT_FALSE(_setupAppDisplay(display, nullptr));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "ERROR: Cannot open secondary connection to application display.\n");
    EXPECT_EQ(logTexts().back(), "E bool _setupAppDisplay(Display*, kor::gl::TSD*): Cannot open "
                                 "secondary connection to application display.");
    server.setAnswer(named(1, ":4711"));
    EXPECT_TRUE(_setupAppDisplay(display, nullptr)); // the next call tries again
}

TEST_F(KorV1Answers, TheFirstAnswerIsAResizeWhoseVisualIsKept) {
    DrawableInfo* record = makeRecord();
    tell({30, 40, 50, 60, 0x21, true});
    bool resized = false;
    bool moved = false;
    bool changed = true;
    EXPECT_TRUE(record->updateWindowInfo(&resized, &moved, &changed));
    EXPECT_TRUE(resized);
    EXPECT_TRUE(moved);
    EXPECT_FALSE(changed);
    EXPECT_THAT(logTexts(),
                ElementsAre(info + "Pbuffer needs update: 1", info + "Moved from (0,0) to (30,40)",
                            info + "Resized from 100x100 to 50x60", info + "VisualID set to 0x21"));
    kor::IRect rect;
    record->getGeometry(&rect);
    EXPECT_EQ(rect.x, 30);
    EXPECT_EQ(rect.y, 40);
    EXPECT_EQ(rect.width, 50);
    EXPECT_EQ(rect.height, 60);
    tell({30, 40, 50, 60, 0x99, true});
    EXPECT_TRUE(record->updateWindowInfo(&resized, &moved, &changed));
    EXPECT_EQ(record->getVisualID(), 0x21U);
    EXPECT_FALSE(resized);
    EXPECT_FALSE(moved);
    kor::gl::discard(record);
}

TEST_F(KorV1Answers, AVisualThatIsZeroStaysUnknown) {
    DrawableInfo* record = makeRecord();
    tell({0, 0, 100, 100, 0, true});
    EXPECT_TRUE(record->updateWindowInfo(nullptr, nullptr, nullptr));
    EXPECT_EQ(record->getVisualID(), 0U);
    tell({0, 0, 100, 100, 0x22, true});
    EXPECT_TRUE(record->updateWindowInfo(nullptr, nullptr, nullptr));
    EXPECT_EQ(record->getVisualID(), 0x22U);
    kor::gl::discard(record);
}

TEST_F(KorV1Answers, AWindowOfExactlyTheFirstSizeIsNotResizedAndStillNeedsItsPbuffer) {
    DrawableInfo* record = makeRecord();
    tell({0, 0, 100, 100, 0x21, true});
    bool resized = true;
    bool moved = true;
    bool changed = true;
    EXPECT_TRUE(record->updateWindowInfo(&resized, &moved, &changed));
    EXPECT_FALSE(resized);
    EXPECT_FALSE(moved);
    EXPECT_FALSE(changed);
    EXPECT_EQ(logTexts().front(), info + "Pbuffer needs update: 1");
    kor::gl::discard(record);
}

TEST_F(KorV1Answers, AMoveAlongOneAxisIsAMoveAndOneOfOneSideAResize) {
    DrawableInfo* record = makeRecord();
    tell({0, 9, 100, 101, 0x21, true});
    bool resized = false;
    bool moved = false;
    EXPECT_TRUE(record->updateWindowInfo(&resized, &moved, nullptr));
    EXPECT_TRUE(resized);
    EXPECT_TRUE(moved);
    tell({1, 9, 102, 101, 0x21, true});
    resized = moved = false;
    EXPECT_TRUE(record->updateWindowInfo(&resized, &moved, nullptr));
    EXPECT_TRUE(resized);
    EXPECT_TRUE(moved);
    EXPECT_TRUE(logged(info + "Moved from (0,9) to (1,9)"));
    EXPECT_TRUE(logged(info + "Resized from 100x101 to 102x101"));
    kor::gl::discard(record);
}

TEST_F(KorV1Answers, AWindowWithoutAreaIsHiddenWhateverTheExtensionSays) {
    DrawableInfo* record = makeRecord();
    for (const auto& [width, height] : {std::pair{0, 50}, {50, 0}, {0, 0}}) {
        tell({0, 0, 1, 1, 0x21, true});
        EXPECT_TRUE(record->updateWindowInfo(nullptr, nullptr, nullptr));
        EXPECT_TRUE(record->isVisible());
        tell({0, 0, width, height, 0x21, true});
        markLog();
        bool changed = false;
        EXPECT_TRUE(record->updateWindowInfo(nullptr, nullptr, &changed));
        EXPECT_TRUE(changed);
        EXPECT_FALSE(record->isVisible());
        EXPECT_EQ(logTexts().back(), info + "Became hidden");
    }
    kor::gl::discard(record);
}

TEST_F(KorV1Answers, WithoutTheVisibilityCheckTheSizeAloneDecides) {
    set("KOR_GL_ENABLE_VISIBILITY_CHECK", "0");
    DrawableInfo* record = makeRecord();
    tell({0, 0, 20, 20, 0x21, false});
    bool changed = true;
    EXPECT_TRUE(record->updateWindowInfo(nullptr, nullptr, &changed));
    EXPECT_TRUE(record->isVisible());
    EXPECT_FALSE(changed);
    tell({0, 0, 20, 0, 0x21, true});
    EXPECT_TRUE(record->updateWindowInfo(nullptr, nullptr, &changed));
    EXPECT_FALSE(record->isVisible());
    kor::gl::discard(record);
}

TEST_F(KorV1Answers, AFailedAnswerChangesNothing) {
    DrawableInfo* record = makeRecord();
    tell({1, 2, 3, 4, 0x21, false, 0});
    bool resized = false;
    EXPECT_FALSE(record->updateWindowInfo(&resized, nullptr, nullptr));
    EXPECT_FALSE(resized);
    EXPECT_TRUE(record->isVisible());
    EXPECT_EQ(record->getVisualID(), 0U);
    kor::IRect rect;
    record->getGeometry(&rect);
    EXPECT_EQ(rect.width, 100);
    EXPECT_THAT(logTexts(), IsEmpty());
    kor::gl::discard(record);
}
