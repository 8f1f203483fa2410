#include "child.h"
#include "front.h"

#include <atomic>
#include <cinttypes>
#include <cstdio>
#include <fstream>
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using testing::HasSubstr;

const Environment withFakeSystem = {{"KOR_FRONT_SYSTEM_GL", fakeSystem}};

// What kor_init and a plug-in's constructor are to do; they take no arguments.
const Library* front = nullptr;
std::function<void()> action;
void act() {
    action();
}

void onInit(const Library& kor, std::function<void()> function) {
    action = std::move(function);
    kor.call<void>("fake_on_init", &act);
}

bool isMapped(const std::string& path) {
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);)
        if (line.size() >= path.size() &&
            line.compare(line.size() - path.size(), path.size(), path) == 0)
            return true;
    return false;
}

/// How a child of this process ends.
int statusOf(pid_t child) {
    int status = -1;
    waitpid(child, &status, 0);
    return status;
}

TEST(FrontStart, NothingIsOpenedBeforeTheFirstCall) {
    inChild(withFakeSystem, [] {
        const Library library(completeFront);
        EXPECT_FALSE(isMapped(fakeSystem));
        EXPECT_FALSE(isMapped(fakeKor));
        library.call("glVertex3f");
        EXPECT_TRUE(isMapped(fakeSystem));
        EXPECT_TRUE(isMapped(fakeKor));
    });
}

TEST(FrontStart, TheLibraryIsStartedWithTheAdapterAndTheAdapterWithTheSystem) {
    const ChildResult result = inChild(withFakeSystem, [] {
        Library(completeFront).call("glVertex3f");
        const Library adapter(fakeAdapter);
        const Library system(fakeSystem);
        EXPECT_EQ(Library(fakeKor).call<void*>("fake_init_handle"), adapter.handle());
        EXPECT_EQ(adapter.call<void*>("fake_adapter_system"), system.handle());
    });
    EXPECT_EQ(result.errors, "");
}

TEST(FrontStart, WithoutAnAdapterTheLibraryGetsTheSystem) {
    const ChildResult result =
        inChild({{"KOR_FRONT_SYSTEM_GL", fakeSystem}, {"KOR_FRONT_LIBRARY", fakeKor}}, [] {
            EXPECT_EQ(Library(bareFront).says("glXSwapBuffers"), "kor:glXSwapBuffers");
            EXPECT_EQ(Library(fakeKor).call<void*>("fake_init_handle"),
                      Library(fakeSystem).handle());
        });
    EXPECT_EQ(countLines(result.errors), 1U) << result.errors;
    EXPECT_THAT(result.errors, HasSubstr(stage + "/bare/kor/libkor-sysgl.so"));
}

TEST(FrontStart, AnAdapterThatRefusesIsLeftOut) {
    const ChildResult result =
        inChild({{"KOR_FRONT_SYSTEM_GL", fakeSystem}, {"FAKE_ADAPTER_REFUSES", "1"}}, [] {
            EXPECT_EQ(Library(completeFront).says("glXSwapBuffers"), "kor:glXSwapBuffers");
            EXPECT_EQ(Library(fakeKor).call<void*>("fake_init_handle"),
                      Library(fakeSystem).handle());
        });
    EXPECT_EQ(countLines(result.errors), 1U) << result.errors;
    EXPECT_THAT(result.errors, HasSubstr("adapter cannot work with " + fakeSystem));
}

TEST(FrontStart, RacingThreadsStartItOnce) {
    for (int repetition = 0; repetition < 20; ++repetition)
        inChild(withFakeSystem, [] {
            const Library library(completeFront);
            std::atomic<int> waiting{0};
            std::vector<std::thread> threads;
            for (int i = 0; i < 8; ++i)
                threads.emplace_back([&, i] {
                    for (++waiting; waiting < 8;)
                        std::this_thread::yield();
                    if (i % 2 == 0)
                        EXPECT_EQ(library.says("glXSwapBuffers"), "kor:glXSwapBuffers");
                    else
                        EXPECT_EQ(library.says("glVertex3f"), "system:glVertex3f");
                });
            for (std::thread& thread : threads)
                thread.join();
            EXPECT_EQ(Library(fakeKor).call<int>("fake_inits"), 1);
        });
}

TEST(FrontStart, ACallFromWithinTheStartGoesToTheSystem) {
    const ChildResult result = inChild(withFakeSystem, [] {
        const Library library(completeFront);
        front = &library;
        const Library kor(fakeKor);
        int calls = 0;
        onInit(kor, [&] {
            ++calls;
            EXPECT_EQ(front->says("glClear"), "system:glClear");
            EXPECT_EQ(front->says("glXSwapBuffers"), "system:glXSwapBuffers");
            EXPECT_EQ(front->says("glAccum"), "null");
        });
        EXPECT_EQ(library.says("glClear"), "kor:glClear");
        EXPECT_EQ(library.says("glXSwapBuffers"), "kor:glXSwapBuffers");
        EXPECT_EQ(calls, 1);
        EXPECT_EQ(kor.call<int>("fake_inits"), 1);
    });
    EXPECT_EQ(result.errors, "");
}

TEST(FrontStart, OtherThreadsWaitForItsEnd) {
    inChild(withFakeSystem, [] {
        const Library library(completeFront);
        const Library kor(fakeKor);
        // Fetched beforehand: during the start, dlsym waits for its end on other threads.
        auto* flush = reinterpret_cast<const char* (*)()>(dlsym(library.handle(), "glFlush"));
        std::atomic<bool> ended{false};
        std::thread other;
        onInit(kor, [&] {
            other = std::thread([&] {
                EXPECT_STREQ(flush(), "kor:glFlush");
                EXPECT_TRUE(ended);
            });
            std::this_thread::sleep_for(std::chrono::milliseconds(200));
            EXPECT_STREQ(flush(), "system:glFlush");
            ended = true;
        });
        EXPECT_EQ(library.says("glClear"), "kor:glClear");
        other.join();
    });
}

/// The address of act(), for the plug-in.
std::string addressOfAct() {
    char address[32];
    snprintf(address, sizeof address, "%" PRIxPTR, reinterpret_cast<uintptr_t>(&act));
    return address;
}

TEST(FrontStart, AFirstCallInsideTheDynamicLinkerBlocksNobody) {
    inChild({{"KOR_FRONT_SYSTEM_GL", fakeSystem}, {"FAKE_PLUGIN_CALLS", addressOfAct()}}, [] {
        // The functions' addresses are fetched beforehand, since dlsym would already wait for the
        // plug-in's constructor.
        const Library library(completeFront);
        using Function = const char*();
        auto* flush = reinterpret_cast<Function*>(dlsym(library.handle(), "glFlush"));
        auto* clear = reinterpret_cast<Function*>(dlsym(library.handle(), "glClear"));
        std::thread other;
        action = [&] {
            other = std::thread([&] { EXPECT_STREQ(flush(), "kor:glFlush"); });
            std::this_thread::sleep_for(std::chrono::milliseconds(200));
            EXPECT_STREQ(clear(), "kor:glClear");
        };
        const Library plugin(stage + "/libfake_plugin.so");
        other.join();
    });
}

TEST(FrontStart, AStartIsNotBlockedByACallInsideTheDynamicLinker) {
    inChild({{"KOR_FRONT_SYSTEM_GL", fakeSystem}, {"FAKE_PLUGIN_CALLS", addressOfAct()}}, [] {
        const Library library(completeFront);
        auto* clear = reinterpret_cast<const char* (*)()>(dlsym(library.handle(), "glClear"));
        const Library kor(fakeKor);
        std::thread other;
        // The same function serves kor_init, which is called first, and the plug-in.
        bool inPlugin = false;
        onInit(kor, [&] {
            if (inPlugin) {
                EXPECT_STREQ(clear(), "kor:glClear");
                return;
            }
            inPlugin = true;
            other = std::thread([] { const Library plugin(stage + "/libfake_plugin.so"); });
            std::this_thread::sleep_for(std::chrono::milliseconds(200));
            dlsym(kor.handle(), "kor_fini"); // as the real one does 151 times
        });
        EXPECT_EQ(library.says("glFlush"), "kor:glFlush");
        other.join();
    });
}

TEST(FrontExit, TheLibraryIsStopped) {
    const ChildResult result =
        inChild(withFakeSystem, [] { Library(completeFront).call("glVertex3f"); });
    EXPECT_EQ(result.output, "kor_fini\n");
}

TEST(FrontExit, NothingIsStoppedThatWasNotStarted) {
    const ChildResult result =
        inChild(withFakeSystem, [] { const Library library(completeFront); });
    EXPECT_EQ(result.output, "");
}

TEST(FrontExit, TheSettingForbidsIt) {
    const ChildResult result =
        inChild({{"KOR_FRONT_SYSTEM_GL", fakeSystem}, {"FAKE_CLEANUP_ATEXIT", "0"}},
                [] { Library(completeFront).call("glVertex3f"); });
    EXPECT_EQ(result.output, "");
}

TEST(FrontExit, AForkedChildStopsNothing) {
    const ChildResult result = inChild(withFakeSystem, [] {
        Library(completeFront).call("glVertex3f");
        fflush(nullptr);
        const pid_t child = fork();
        if (child == 0)
            exit(7);
        EXPECT_EQ(WEXITSTATUS(statusOf(child)), 7);
        [[maybe_unused]] const ssize_t written = write(STDOUT_FILENO, "parent\n", 7);
    });
    EXPECT_EQ(result.output, "parent\nkor_fini\n");
}

TEST(FrontFork, BeforeTheFirstCallBothProcessesStartTheirOwn) {
    const ChildResult result = inChild(withFakeSystem, [] {
        const Library library(completeFront);
        const pid_t child = fork();
        EXPECT_EQ(library.says("glClear"), "kor:glClear");
        if (child == 0)
            exit(testing::Test::HasFailure() ? 1 : 0);
        EXPECT_EQ(statusOf(child), 0);
    });
    EXPECT_EQ(result.output, "kor_fini\nkor_fini\n");
}

TEST(FrontFork, AChildMayRunAnotherProgram) {
    inChild(withFakeSystem, [] {
        const Library library(completeFront);
        library.call("glClear");
        const pid_t child = fork();
        if (child == 0) {
            execl("/bin/true", "true", nullptr);
            _exit(1);
        }
        EXPECT_EQ(statusOf(child), 0);
    });
}

TEST(FrontFork, DuringTheStartOfAnotherThreadTheChildIsBornAfterIt) {
    inChild(withFakeSystem, [] {
        const Library library(completeFront);
        front = &library;
        const Library kor(fakeKor);
        std::atomic<bool> inside{false};
        onInit(kor, [&] {
            inside = true;
            std::this_thread::sleep_for(std::chrono::milliseconds(200));
        });
        auto* flush = reinterpret_cast<const char* (*)()>(dlsym(library.handle(), "glFlush"));
        std::thread other([&] { EXPECT_EQ(library.says("glClear"), "kor:glClear"); });
        while (!inside)
            std::this_thread::yield();
        const pid_t child = fork();
        if (child == 0) {
            alarm(10);
            _exit(strcmp(flush(), "kor:glFlush") == 0 ? 0 : 1);
        }
        EXPECT_EQ(statusOf(child), 0);
        other.join();
    });
}

TEST(FrontUnload, BeforeItsStartItGoes) {
    inChild(withFakeSystem, [] {
        for (int i = 0; i < 100; ++i) {
            void* handle = dlopen(completeFront.c_str(), RTLD_NOW | RTLD_LOCAL);
            ASSERT_NE(handle, nullptr);
            ASSERT_EQ(dlclose(handle), 0);
            ASSERT_FALSE(isMapped(completeFront));
        }
        fflush(nullptr);
        const pid_t child = fork(); // no handler of the library's is left behind
        if (child == 0)
            _exit(0);
        EXPECT_EQ(statusOf(child), 0);
    });
}

TEST(FrontUnload, AfterItsStartAllOfItStays) {
    const ChildResult result = inChild(withFakeSystem, [] {
        const char* (*swap)() = nullptr;
        for (int i = 0; i < 1000; ++i) {
            void* handle = dlopen(completeFront.c_str(), RTLD_NOW | RTLD_LOCAL);
            ASSERT_NE(handle, nullptr);
            auto* found = reinterpret_cast<const char* (*)()>(dlsym(handle, "glXSwapBuffers"));
            EXPECT_STREQ(found(), "kor:glXSwapBuffers");
            EXPECT_TRUE(swap == nullptr || swap == found);
            swap = found;
            ASSERT_EQ(dlclose(handle), 0);
        }
        for (const std::string& path : {completeFront, fakeKor, fakeAdapter, fakeSystem})
            EXPECT_TRUE(isMapped(path)) << path;
        EXPECT_STREQ(swap(), "kor:glXSwapBuffers");
        EXPECT_EQ(Library(fakeKor).call<int>("fake_inits"), 1);
    });
    EXPECT_EQ(result.output, "kor_fini\n");
}

} // namespace
