// A forked child starts the library afresh: whatever its parent's threads hold, it works on
// connections, threads, records and files of its own, and its parent goes on.

#include "frames.h"

#include "config/settings.h"
#include "context/context_map.h"
#include "core/tsd.h"
#include "display/displays.h"
#include "transport/copyback.h"
#include "transport/statistics_page.h"

#include <algorithm>
#include <dirent.h>
#include <filesystem>
#include <fstream>
#include <semaphore>
#include <sys/wait.h>
#include <thread>

namespace {

namespace fs = std::filesystem;

class ForkedChild : public Frames {
  protected:
    ForkedChild() { set(kor::gl::statisticsVariable, directory.c_str()); }

    /// A window with a painted frame, and nothing on its way.
    void beginAndRest() {
        begin(40, 30);
        ASSERT_TRUE(swapAndPaint());
        letPaintsArrive();
    }

    /// The exit status of a child that does this; -1 when it was ended after so many seconds.
    template <typename Act> int statusOfChild(Act act, unsigned seconds = 20) {
        const pid_t child = fork();
        if (child == 0) {
            alarm(seconds);
            _exit(act());
        }
        childProcess = child;
        int status = 0;
        return waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    /// In a child: a display, a window, a context and a frame of its own. 0 when all went well.
    int drawOwn() {
        app = XOpenDisplay(appName.c_str());
        if (app == nullptr)
            return 2;
        context = makeContext("child's");
        window = makeWindow(20, 20);
        if (context == nullptr || !kor_glXMakeCurrent(app, window, context))
            return 3;
        return swapAndPaint() ? 0 : 4;
    }

    void expectParentGoesOn() {
        EXPECT_TRUE(swapAndPaint());
        letPaintsArrive();
        EXPECT_EQ(kor_glXGetCurrentContext(), context);
    }

    std::string pageOf(pid_t process) const {
        return directory + "/" + kor::gl::statisticsFileName + "." + std::to_string(process);
    }
    static kor::gl::StatisticsLine firstLine(const std::string& path) {
        kor::gl::StatisticsPage page;
        std::ifstream file(path, std::ios::binary);
        file.read(reinterpret_cast<char*>(&page), sizeof page);
        return page.lines[0];
    }

    pid_t childProcess = 0;
};

size_t threadCount() {
    return static_cast<size_t>(
        std::distance(fs::directory_iterator("/proc/self/task"), fs::directory_iterator()));
}

} // namespace

TEST_F(ForkedChild, OfAThreadWithAContextDrawsAndItsParentGoesOn) {
    beginAndRest();
    EXPECT_EQ(statusOfChild([&] { return drawOwn(); }), 0);
    expectParentGoesOn();
}

TEST_F(ForkedChild, DrawsThoughThreadsOfItsParentHoldEveryLock) {
    beginAndRest();
    kor::Mutex* const locks[] = {&kor::gl::getVisualMapMutex(), &getLocalDisplayMutex(),
                                 &kor::gl::getContextMutex(), &kor::gl::getLocalDrawablesMutex()};
    std::counting_semaphore held{0};
    std::counting_semaphore mayEnd{0};
    std::vector<std::thread> holders;
    for (kor::Mutex* mutex : locks) {
        holders.emplace_back([&held, &mayEnd, mutex] {
            const kor::Lock lock(*mutex);
            held.release();
            mayEnd.acquire();
        });
        held.acquire();
    }
    EXPECT_EQ(statusOfChild([&] { return drawOwn(); }), 0);
    mayEnd.release(std::size(locks));
    for (std::thread& holder : holders)
        holder.join();
    expectParentGoesOn();
}

TEST_F(ForkedChild, HasNothingCurrentAndSendsNothingOverItsParentsConnections) {
    beginAndRest();
    Display* const parents = getTSD()->appDisplay2;
    const unsigned long next = NextRequest(parents);
    const unsigned long nextLocal = NextRequest(local());
    Display* const parentsLocal = local();
    EXPECT_EQ(statusOfChild([&] {
                  if (kor_glXGetCurrentContext() != nullptr || kor_glXGetCurrentDrawable() != None)
                      return 5;
                  if (drawOwn() != 0 || getTSD()->appDisplay2 == parents)
                      return 6;
                  if (local() == parentsLocal)
                      return 7;
                  return NextRequest(parents) == next && NextRequest(parentsLocal) == nextLocal ? 0
                                                                                                : 8;
              }),
              0);
    expectParentGoesOn();
}

TEST_F(ForkedChild, MayEndItsParentsContext) {
    beginAndRest();
    EXPECT_EQ(statusOfChild([&] {
                  kor_glXDestroyContext(app, context);
                  return kor_glXMakeCurrent(app, None, nullptr) ? 0 : 9;
              }),
              0);
    expectParentGoesOn();
}

TEST_F(ForkedChild, EndsItsOwnCopybackThreadWithTheLibraryAndItsParentsPaintsOn) {
    beginAndRest();
    EXPECT_EQ(statusOfChild([&] {
                  if (threadCount() != 1)
                      return 10;
                  if (const int failed = drawOwn())
                      return failed;
                  if (threadCount() != 3) // the copyback thread and the window's worker
                      return 11;
                  kor_fini();
                  return kor::gl::Copyback::instance()->waitForEnd() ? 0 : 12;
              }),
              0);
    expectParentGoesOn();
}

TEST_F(ForkedChild, OfAProcessThatHasEndedTheLibraryDraws) {
    beginAndRest();
    kor_fini();
    EXPECT_EQ(statusOfChild([&] { return drawOwn(); }), 0);
}

TEST_F(ForkedChild, WritesALogOfItsOwn) {
    beginAndRest();
    EXPECT_EQ(statusOfChild([&] { return drawOwn(); }), 0);
    const std::string end = "." + std::to_string(childProcess) + ".log";
    size_t found = 0;
    for (const auto& entry : fs::directory_iterator(directory)) {
        if (entry.path().extension() != ".log")
            continue;
        const bool childs = entry.path().string().ends_with(end);
        found += childs ? 1 : 0;
        std::ifstream file(entry.path());
        const std::string text(std::istreambuf_iterator<char>(file), {});
        const std::string writer = " " + std::to_string(childProcess) + ":";
        EXPECT_EQ(text.find(writer) != std::string::npos, childs) << entry.path();
    }
    EXPECT_EQ(found, 1U);
}

TEST_F(ForkedChild, CountsItsFramesOnAPageOfItsOwn) {
    beginAndRest();
    const uint64_t parents = firstLine(pageOf(getpid())).rendered;
    EXPECT_EQ(statusOfChild([&] { return drawOwn(); }), 0);
    EXPECT_EQ(firstLine(pageOf(getpid())).rendered, parents);
    const kor::gl::StatisticsLine childs = firstLine(pageOf(childProcess));
    EXPECT_EQ(childs.rendered, 1U);
}

TEST_F(ForkedChild, ThatDoesNotDrawMakesNothing) {
    beginAndRest();
    EXPECT_EQ(statusOfChild([] { return 0; }), 0);
    EXPECT_FALSE(fs::exists(pageOf(childProcess)));
    for (const auto& entry : fs::directory_iterator(directory))
        EXPECT_FALSE(entry.path().string().ends_with(std::to_string(childProcess) + ".log"));
    expectParentGoesOn();
}

TEST_F(ForkedChild, ReadsTheVisualsAnewFromItsOwnLocalConnection) {
    beginAndRest();
    EXPECT_EQ(statusOfChild([&] {
                  app = XOpenDisplay(appName.c_str());
                  gl.clearCalls();
                  XVisualInfo wanted = visualInfo(doubleVisual);
                  int value = 0;
                  kor_glXGetConfig(app, &wanted, GLX_DOUBLEBUFFER, &value);
                  return value == 1 && !gl.callsOf("glXGetVisualFromFBConfig").empty() ? 0 : 13;
              }),
              0);
    expectParentGoesOn();
}
