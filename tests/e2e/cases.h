// The clients and how they are run: one row per end-to-end test.
#pragma once

#include <chrono>
#include <ostream>
#include <string>
#include <vector>

namespace kor::e2e {

struct ClientCase {
    std::string name;
    std::vector<std::string> command = {};     // the client and its arguments
    std::vector<std::string> environment = {}; // NAME=VALUE
    int screenWidth = 1024;                    // of the application display, in pixels
    int screenHeight = 768;
};

// A client's own waits are shorter, so that it tells what is wrong before it is killed.
constexpr std::chrono::seconds kClientTime(60);

inline void PrintTo(const ClientCase& clientCase, std::ostream* out) {
    for (const std::string& word : clientCase.command)
        *out << word << ' ';
}

// What every GL library must satisfy, the system's own on a software display included.
inline std::vector<ClientCase> clientCases() {
    return {
        {.name = "Swap", .command = {"swap_client"}},
        {.name = "Swap1x1", .command = {"swap_client", "1x1"}},
        {.name = "Swap5x3", .command = {"swap_client", "5x3"}},
        {.name = "Swap9x300", .command = {"swap_client", "9x300"}},
        {.name = "SwapWholeScreen", .command = {"swap_client", "1000x740", "3"}},
        {.name = "SwapWiderThan4096",
         .command = {"swap_client", "5000x40", "4"},
         .screenWidth = 5120,
         .screenHeight = 768},
        {.name = "SwapHigherThan4096",
         .command = {"swap_client", "40x4200", "4"},
         .screenWidth = 640,
         .screenHeight = 4300},
        {.name = "SingleBuffer", .command = {"single_buffer_client"}},
        {.name = "FrontBuffer", .command = {"front_buffer_client"}},
        {.name = "Glx13", .command = {"glx13_client"}},
        {.name = "Core33", .command = {"profile_client", "core"}},
        {.name = "Es2", .command = {"profile_client", "es2"}},
        {.name = "Es3", .command = {"profile_client", "es3"}},
        {.name = "ApplicationState", .command = {"state_client"}},
        {.name = "Pixmap", .command = {"pixmap_client"}},
        {.name = "Pbuffer", .command = {"pbuffer_client"}},
        {.name = "Font", .command = {"font_client"}},
        {.name = "TextureFromPixmap", .command = {"texture_from_pixmap_client"}},
        {.name = "Resize", .command = {"resize_client"}},
        {.name = "TwoWindows", .command = {"two_windows_client"}},
        {.name = "HandOver", .command = {"handover_client"}},
        {.name = "EightThreads", .command = {"threads_client"}},
        {.name = "ContextDestroyedWhileCurrent", .command = {"lifetime_client", "context"}},
        {.name = "WindowDestroyedAfterSwap", .command = {"lifetime_client", "swapped"}},
        {.name = "WindowDestroyedWhileCurrentWithHandler",
         .command = {"lifetime_client", "current", "handler"}},
        {.name = "EndFromMain", .command = {"exit_client", "main"}},
        {.name = "EndWithThread", .command = {"exit_client", "thread"}},
        {.name = "DisplayClosedAndReopened", .command = {"exit_client", "reopen"}},
        {.name = "ErrorHandlerUsesGlx", .command = {"error_client", "config"}},
        {.name = "ErrorHandlerUsesGlxForErrorsOfTheServer", .command = {"error_client", "profile"}},
        {.name = "ErrorsOfTheServerInARow", .command = {"error_client", "silent"}},
        {.name = "FirstFrameAfterTheDriversEnd", .command = {"end_client", "first"}},
        {.name = "FrameAfterTheDriversEnd", .command = {"end_client", "later"}},
        {.name = "FrameAfterTheDriversEndOfAnotherThread", .command = {"end_client", "thread"}},
        {.name = "ServerGrabbed", .command = {"grab_client", "all"}},
        {.name = "ServerGrabbedBeforeTheFirstFrame", .command = {"grab_client", "first"}},
        {.name = "ServerGrabbedBeforeAThreadsFirstCall", .command = {"grab_client", "thread"}},
        {.name = "WindowOverTwoDisplays", .command = {"display_pair_client", "over"}},
        {.name = "UnmapAndMap", .command = {"visibility_client", "map"}},
        {.name = "PartlyObscured", .command = {"visibility_client", "partly"}},
        {.name = "FullyObscured", .command = {"visibility_client", "fully"}},
        {.name = "DrawnBeforeItIsShown", .command = {"visibility_client", "early"}},
    };
}

// What Mesa's software drivers cannot do in a window of their own, and the library's settings.
inline std::vector<ClientCase> libraryCases() {
    return {
        {.name = "FrontBufferKept", .command = {"front_buffer_client", "kept"}},
        {.name = "PbufferKept", .command = {"pbuffer_client", "kept"}},
        {.name = "WindowDestroyedWhileCurrent", .command = {"lifetime_client", "current"}},
        {.name = "ContextDestroyedWithHandler",
         .command = {"lifetime_client", "context", "handler"}},
        {.name = "WindowDestroyedAfterSwapWithHandler",
         .command = {"lifetime_client", "swapped", "handler"}},
        // Mesa, or Xlib below it, breaks on these now and then.
        {.name = "WindowOfADisplayOpenedAgain", .command = {"display_pair_client", "reopened"}},
        {.name = "DisplaysOpenedAndClosed", .command = {"displays_client"}},
        {.name = "TwoThreadsOnOneWindow", .command = {"shared_window_client", "2"}},
        {.name = "FourThreadsOnOneWindow", .command = {"shared_window_client", "4"}},
        {.name = "TwoThreadsOnOneWindowResized",
         .command = {"shared_window_client", "2", "resize"}},
        {.name = "FourThreadsOnOneWindowResized",
         .command = {"shared_window_client", "4", "resize"}},
        {.name = "WindowDestroyedAfterSwapWithHandlerThatEndsTheProcess",
         .command = {"lifetime_client", "swapped", "exit"}},
        {.name = "ErrorHandlerLeavesTheCall", .command = {"error_client", "leave"}},
        {.name = "SharedMemory",
         .command = {"resize_client"},
         .environment = {"KOR_GL_COPYBACK_STRATEGY=1"}},
        {.name = "PlainImages",
         .command = {"resize_client"},
         .environment = {"KOR_GL_COPYBACK_STRATEGY=2"}},
        {.name = "Detection",
         .command = {"resize_client"},
         .environment = {"KOR_GL_COPYBACK_STRATEGY=0"}},
        {.name = "DetectionEightThreads",
         .command = {"threads_client"},
         .environment = {"KOR_GL_COPYBACK_STRATEGY=0"}},
        {.name = "PlainImagesWiderThan4096",
         .command = {"swap_client", "5000x40", "4"},
         .environment = {"KOR_GL_COPYBACK_STRATEGY=2"},
         .screenWidth = 5120,
         .screenHeight = 768},
        {.name = "WindowDestroyedAfterSwapDetection",
         .command = {"lifetime_client", "swapped"},
         .environment = {"KOR_GL_COPYBACK_STRATEGY=0"}},
        {.name = "Multisample",
         .command = {"swap_client"},
         .environment = {"KOR_GL_MULTISAMPLE=4"}},
        {.name = "MultisampleResize",
         .command = {"resize_client"},
         .environment = {"KOR_GL_MULTISAMPLE=4"}},
        {.name = "MultisampleSingleBuffer",
         .command = {"single_buffer_client"},
         .environment = {"KOR_GL_MULTISAMPLE=4"}},
        {.name = "DisplaysOpenedAndClosedUnset",
         .command = {"displays_client"},
         .environment = {"KOR_GL_UNSET_LOCAL_DISPLAY=1"}},
        {.name = "EightThreadsUnset",
         .command = {"threads_client"},
         .environment = {"KOR_GL_UNSET_LOCAL_DISPLAY=1"}},
        {.name = "PixmapsOfADisplayOpenedAgain", .command = {"display_pair_client", "pixmap"}},
        {.name = "FastPainting",
         .command = {"swap_client"},
         .environment = {"KOR_GL_COPYBACK_FRAME_RATE=1000"}},
        {.name = "EverySettingAtItsLoudest",
         .command = {"two_windows_client"},
         .environment = {"KOR_GL_VERBOSE=1", "KOR_GL_LOG_LEVEL=debug"}},
    };
}

} // namespace kor::e2e
