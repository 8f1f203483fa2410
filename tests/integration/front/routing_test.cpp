#include "child.h"
#include "front.h"

#include <atomic>
#include <gmock/gmock.h>
#include <thread>
#include <vector>

namespace {

using testing::HasSubstr;

const Environment withFakeSystem = {{"KOR_FRONT_SYSTEM_GL", fakeSystem}};

const char* const entryPoints[] = {
#define KOR_ENTRY(name) #name,
#include "core/entry_points.def"
#undef KOR_ENTRY
};

TEST(FrontRouting, EveryEntryPointOfTheLibraryIsItsOwn) {
    const ChildResult result = inChild(withFakeSystem, [] {
        const Library front(completeFront);
        EXPECT_EQ(std::size(entryPoints), 89U);
        for (int round = 0; round < 2; ++round)
            for (const char* name : entryPoints)
                EXPECT_EQ(front.says(name), std::string("kor:") + name);
    });
    EXPECT_EQ(result.errors, "");
}

TEST(FrontRouting, EverythingElseIsTheSystems) {
    const ChildResult result = inChild(withFakeSystem, [] {
        const Library front(completeFront);
        for (int round = 0; round < 2; ++round)
            for (const char* name : {"glGetError", "glVertex3f", "glGenBuffers",
                                     "glXSwapIntervalSGI", "glXGetScreenDriver"})
                EXPECT_EQ(front.says(name), std::string("system:") + name);
    });
    EXPECT_EQ(result.errors, "");
}

TEST(FrontRouting, AfterTheFirstCallTheSlotLeadsStraightThere) {
    inChild(withFakeSystem, [] {
        const Library front(completeFront);
        auto* vertex = reinterpret_cast<const char* (*)()>(dlsym(front.handle(), "glVertex3f"));
        auto* error = reinterpret_cast<const char* (*)()>(dlsym(front.handle(), "glGetError"));
        EXPECT_STREQ(vertex(), "system:glVertex3f");
        // A look-up calls dlsym, which discards the message of an earlier failure; a jump does not.
        dlsym(front.handle(), "no such symbol");
        EXPECT_STREQ(vertex(), "system:glVertex3f");
        EXPECT_NE(dlerror(), nullptr);
        dlsym(front.handle(), "no such symbol");
        EXPECT_STREQ(error(), "system:glGetError");
        EXPECT_EQ(dlerror(), nullptr);
    });
}

TEST(FrontRouting, WhatTheSystemLacksDoesNothingAndIsReportedOnce) {
    const ChildResult result = inChild(withFakeSystem, [] {
        const Library front(completeFront);
        std::atomic<int> waiting{0};
        std::vector<std::thread> threads;
        for (int i = 0; i < 8; ++i)
            threads.emplace_back([&] {
                for (++waiting; waiting < 8;)
                    std::this_thread::yield();
                for (int round = 0; round < 100; ++round)
                    EXPECT_EQ(front.says("glAccum"), "null");
            });
        for (std::thread& thread : threads)
            thread.join();
        // Results are taken from different places.
        EXPECT_EQ(front.call<long long>("glArrayElement"), 0);
        EXPECT_EQ(front.call<float>("glGetPathLengthNV"), 0.0F);
    });
    EXPECT_EQ(result.errors, "KOR-GL: the system's GL library, " + fakeSystem +
                                 ", has no function glAccum; calls to it do nothing.\n"
                                 "KOR-GL: the system's GL library, " +
                                 fakeSystem +
                                 ", has no function glArrayElement; calls to it do nothing.\n"
                                 "KOR-GL: the system's GL library, " +
                                 fakeSystem +
                                 ", has no function glGetPathLengthNV; calls to it do nothing.\n");
}

TEST(FrontRouting, ErrnoSurvivesTheFirstCall) {
    inChild(withFakeSystem, [] {
        const Library front(completeFront);
        errno = 4711;
        front.call("glVertex3f");
        EXPECT_EQ(errno, 4711);
    });
}

void expectArguments(const Library& front) {
    int local = 0;
    EXPECT_EQ((front.call<double, int, double, long, float, short, double, void*, float, unsigned,
                          double, long long, float, double, double, float, double, int, int>(
                  "glMap2d", 1, 2.5, 3, 4.5F, 5, 6.5, &local, 8.5F, 9, 10.5, 11, 12.5F, 13.5, 14.5,
                  15.5F, 16.5, 17, 18)),
              1 + 2 * 2.5 + 9 + 4 * 4.5 + 25 + 6 * 6.5 + 7 + 8 * 8.5 + 81 + 10 * 10.5 + 121 +
                  12 * 12.5 + 13 * 13.5 + 14 * 14.5 + 15 * 15.5 + 16 * 16.5 + 17 * 17 + 18 * 18);
    EXPECT_EQ((front.call<float>("glColor4f", 1.0F, 2.0F, 3.0F, 4.0F)), 4321.0F);
    EXPECT_EQ((front.call<long>("glVertex4i", 1, 2, 3, 4, 5, 6, 7, 8)), 87654321L);
#if defined(__x86_64__) // elsewhere the registers that hold them carry no argument of GL
    using Four = float __attribute__((vector_size(16)));
    const Four one = {1, 0, 0, 0};
    const Four two = {0, 1, 0, 0};
    const Four three = {0, 0, 1, 0};
    const Four four = {0, 0, 0, 1};
    EXPECT_EQ((front.call<float, Four, Four, Four, Four, Four, Four, Four, Four>(
                  "glVertex4fv", one, two, three, four, one, two, three, four)),
              (1 + 5) + 10 * (2 + 6) + 100 * (3 + 7) + 1000 * (4 + 8));
#endif
}

TEST(FrontRouting, ArgumentsArriveInTheFirstCallAndInLaterOnes) {
    inChild(withFakeSystem, [] {
        const Library front(completeFront);
        expectArguments(front); // starts the front on its way
        expectArguments(front);
    });
}

#if defined(__i386__)
/// Calls a function that takes no arguments, with marks in the registers that belong to the caller.
/// 0 when the marks are there afterwards.
unsigned marksLost(void* function) {
    unsigned lost = 0;
    asm volatile("pushl %%ebx\n\t"
                 "movl $0x11111111, %%ebx\n\t"
                 "movl $0x22222222, %%esi\n\t"
                 "movl $0x33333333, %%edi\n\t"
                 "call *%%eax\n\t"
                 "xorl $0x11111111, %%ebx\n\t"
                 "xorl $0x22222222, %%esi\n\t"
                 "xorl $0x33333333, %%edi\n\t"
                 "orl %%esi, %%ebx\n\t"
                 "orl %%edi, %%ebx\n\t"
                 "movl %%ebx, %%eax\n\t"
                 "popl %%ebx"
                 : "=a"(lost)
                 : "a"(function)
                 : "ecx", "edx", "esi", "edi", "memory", "cc");
    return lost;
}

TEST(FrontRouting, RegistersOfTheCallerAreKept) {
    inChild(withFakeSystem, [] {
        const Library front(completeFront);
        for (const char* name : {"glVertex3f", "glXSwapBuffers", "glAccum"})
            for (int round = 0; round < 2; ++round) // the first one looks the target up
                EXPECT_EQ(marksLost(dlsym(front.handle(), name)), 0U) << name << ", " << round;
    });
}
#endif

TEST(FrontRouting, WithoutTheLibraryEverythingIsTheSystems) {
    const ChildResult result = inChild(withFakeSystem, [] {
        const Library front(bareFront);
        for (const char* name : entryPoints)
            EXPECT_EQ(front.says(name), std::string("system:") + name);
        EXPECT_EQ(front.says("glVertex3f"), "system:glVertex3f");
    });
    EXPECT_EQ(countLines(result.errors), 1U) << result.errors;
    EXPECT_THAT(result.errors, HasSubstr(stage + "/bare/kor/../libGL_KOR.so and " + stage +
                                         "/bare/kor/libGL_KOR.so"));
}

TEST(FrontRouting, ALibraryThatCannotBeOpenedIsReportedOnce) {
    const ChildResult result = inChild(
        {{"KOR_FRONT_SYSTEM_GL", fakeSystem}, {"KOR_FRONT_LIBRARY", "/nowhere/libGL_KOR.so"}}, [] {
            const Library front(completeFront);
            EXPECT_EQ(front.says("glXSwapBuffers"), "system:glXSwapBuffers");
            EXPECT_EQ(front.says("glFlush"), "system:glFlush");
        });
    EXPECT_EQ(countLines(result.errors), 1U) << result.errors;
    EXPECT_THAT(result.errors, HasSubstr("/nowhere/libGL_KOR.so"));
}

TEST(FrontRouting, ALibraryThatIsNoneOfOursIsReportedOnce) {
    const ChildResult result =
        inChild({{"KOR_FRONT_SYSTEM_GL", fakeSystem}, {"KOR_FRONT_LIBRARY", fakeAdapter}}, [] {
            EXPECT_EQ(Library(completeFront).says("glXSwapBuffers"), "system:glXSwapBuffers");
        });
    EXPECT_EQ(countLines(result.errors), 1U) << result.errors;
    EXPECT_THAT(result.errors, HasSubstr("kor_init"));
}

TEST(FrontRouting, WithoutTheSystemsLibraryEverythingIsNothing) {
    const ChildResult result = inChild({{"KOR_FRONT_SYSTEM_GL", "/nowhere/libGL.so.1"}}, [] {
        const Library front(completeFront);
        for (const char* name : entryPoints)
            EXPECT_EQ(front.says(name), "null");
        EXPECT_EQ(front.says("glVertex3f"), "null");
    });
    EXPECT_EQ(countLines(result.errors), 1U) << result.errors;
    EXPECT_THAT(result.errors, HasSubstr("/nowhere/libGL.so.1"));
}

} // namespace
