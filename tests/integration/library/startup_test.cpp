// kor_init and kor_fini, the per-thread records, and the table of system functions.

#include "fixture.h"

#include "config/settings.h"
#include "core/process_claim.h"
#include "core/system_gl.h"
#include "core/tsd.h"
#include "support/process.h"

#include <chrono>
#include <climits>
#include <cstring>
#include <dlfcn.h>
#include <fstream>
#include <pthread.h>
#include <regex>
#include <sys/time.h>
#include <sys/wait.h>
#include <thread>
#include <type_traits>

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

static_assert(std::is_polymorphic_v<kor::gl::TSD>);
static_assert(std::has_virtual_destructor_v<kor::gl::TSD>);

namespace {

class Startup : public Library {};

std::string firstArgument() {
    std::ifstream file("/proc/self/cmdline");
    std::string text;
    std::getline(file, text, '\0');
    return text;
}

#if defined(__x86_64__)
#define BITS "64"
#else
#define BITS "32"
#endif
const std::string banner = "TESSERA KOR-GL " KOR_VERSION " (" BITS " bit version)";

} // namespace

TEST_F(Startup, InitLogsItsWholeStory) {
    start();
    EXPECT_THAT(logTexts(),
                ElementsAre("D void kor_init(void*): START", "I void kor_init(void*): " + banner,
                            "I void kor_init(void*): Application executable " + firstArgument(),
                            "D void kor_init(void*): DONE"));
}

TEST_F(Startup, OfTheExecutablesName1023CharactersAreLogged) {
    const std::string name = firstArgument();
    if (name.size() < 1500) { // this test once more, under a name that is long enough
        const pid_t child = fork();
        if (child == 0) {
            const std::string longName(1500, 'n');
            execl("/proc/self/exe", longName.c_str(),
                  "--gtest_filter=Startup.OfTheExecutablesName1023CharactersAreLogged",
                  "--gtest_brief=1", nullptr);
            _exit(127);
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
        return;
    }
    start();
    EXPECT_TRUE(logged("I void kor_init(void*): Application executable " + name.substr(0, 1023)));
}

TEST_F(Startup, RecordsCarryStampProcessThreadAndTag) {
    timeval before{};
    gettimeofday(&before, nullptr);
    start();
    ASSERT_THAT(log(), Not(IsEmpty()));
    for (const LogLine& line : log()) {
        EXPECT_EQ(line.tag, "KORGL");
        EXPECT_EQ(line.process, getpid());
        EXPECT_EQ(line.thread, gettid());
    }
    char expected[32];
    const time_t seconds = before.tv_sec;
    ctime_r(&seconds, expected);
    // The minute may turn between the two clocks; the day and the month hardly.
    EXPECT_EQ(log()[0].stamp.substr(0, 6), std::string(expected + 4).substr(0, 6));
}

TEST_F(Startup, ASecondInitChangesNothing) {
    start();
    auto* swap = system_glXSwapBuffers;
    ASSERT_NE(swap, nullptr);
    markLog();
    kor_init(nullptr);
    EXPECT_EQ(system_glXSwapBuffers, swap);
    EXPECT_THAT(logTexts(), ElementsAre("D void kor_init(void*): START",
                                        "D void kor_init(void*): already done"));
}

TEST_F(Startup, EverySystemFunctionIsTheHandlesAndWasNullBefore) {
#define KOR_SYSTEM(name) EXPECT_EQ(system_##name, nullptr) << #name;
#define KOR_SYSTEM_AS(name, reported) KOR_SYSTEM(name)
#define KOR_SYSTEM_OPTIONAL(name) KOR_SYSTEM(name)
#include "core/system_functions.def"
#undef KOR_SYSTEM
    start();
#define KOR_SYSTEM(name)                                                                           \
    EXPECT_NE(system_##name, nullptr) << #name;                                                    \
    EXPECT_EQ(reinterpret_cast<void*>(system_##name), dlsym(handle, #name)) << #name;
#include "core/system_functions.def"
#undef KOR_SYSTEM
#undef KOR_SYSTEM_AS
#undef KOR_SYSTEM_OPTIONAL
}

TEST_F(Startup, AMissingFunctionIsReportedOnceAndOnStderr) {
    gl.lack("glXJoinSwapGroupNV");
    testing::internal::CaptureStderr();
    start();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "ERROR: system_glXJoinSwapGroupNV is NULL\n");
    EXPECT_EQ(system_glXJoinSwapGroupNV, nullptr);
    EXPECT_EQ(timesLogged("E void setup_sysgl(void*): system_glXJoinSwapGroupNV is NULL"), 1U);
}

TEST_F(Startup, AMissingFunctionIsNotAskedOfTheDriverEither) {
    gl.answer("glXGetProcAddress", 0x1230);
    gl.answer("glXGetProcAddressARB", 0x1230);
    gl.lack("glXJoinSwapGroupNV");
    testing::internal::CaptureStderr();
    start();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "ERROR: system_glXJoinSwapGroupNV is NULL\n");
    EXPECT_EQ(system_glXJoinSwapGroupNV, nullptr);
    EXPECT_THAT(fake::texts(gl.calls()), IsEmpty());
}

TEST_F(Startup, AMissingRenderModeIsReportedUnderItsOddName) {
    gl.lack("glRenderMode");
    testing::internal::CaptureStderr();
    start();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "ERROR: glrendermoge is NULL\n");
}

TEST_F(Startup, ThreeFunctionsAreReportedWithoutPrefix) {
    for (const char* name : {"glGetError", "glDebugMessageCallback", "glDebugMessageControl"})
        gl.lack(name);
    testing::internal::CaptureStderr();
    start();
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "ERROR: glGetError is NULL\nERROR: glDebugMessageCallback is NULL\n"
              "ERROR: glDebugMessageControl is NULL\n");
}

TEST_F(Startup, FourMissingFunctionsAreNotReported) {
    for (const char* name :
         {"glXBindTexImageEXT", "glXReleaseTexImageEXT", "glPushClientAttrib", "glPopClientAttrib"})
        gl.lack(name);
    testing::internal::CaptureStderr();
    start();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(system_glXBindTexImageEXT, nullptr);
    EXPECT_EQ(log().back().text(), "D void kor_init(void*): DONE");
}

TEST_F(Startup, ALibraryThatLacksEverythingIsReportedInFullAndIsNotFatal) {
    std::vector<std::string> expected;
#define KOR_SYSTEM(name)                                                                           \
    gl.lack(#name);                                                                                \
    expected.push_back("E void setup_sysgl(void*): system_" #name " is NULL");
#define KOR_SYSTEM_AS(name, reported)                                                              \
    gl.lack(#name);                                                                                \
    expected.push_back(std::string("E void setup_sysgl(void*): ") + (reported));
#define KOR_SYSTEM_OPTIONAL(name) gl.lack(#name);
#include "core/system_functions.def"
#undef KOR_SYSTEM
#undef KOR_SYSTEM_AS
#undef KOR_SYSTEM_OPTIONAL
    ASSERT_EQ(expected.size(), 147U);
    testing::internal::CaptureStderr();
    start();
    testing::internal::GetCapturedStderr();
    std::vector<std::string> errors;
    for (const LogLine& line : log())
        if (line.level == 'E')
            errors.push_back(line.text());
    EXPECT_THAT(errors, testing::UnorderedElementsAreArray(expected));
    EXPECT_EQ(log().back().text(), "D void kor_init(void*): DONE");
}

TEST_F(Startup, ANullHandleIsLookedUpAsItIs) {
    testing::internal::CaptureStderr();
    kor_init(nullptr);
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                HasSubstr("ERROR: system_glXSwapBuffers is NULL\n"));
    EXPECT_EQ(log().back().text(), "D void kor_init(void*): DONE");
}

TEST_F(Startup, ANullHandleFindsWhatTheProcessHasLoadedForAll) {
    ASSERT_NE(dlopen(KOR_FAKE_GL_PATH, RTLD_NOW | RTLD_GLOBAL), nullptr);
    kor_init(nullptr);
    ASSERT_NE(system_glXSwapBuffers, nullptr);
    EXPECT_EQ(reinterpret_cast<void*>(system_glXSwapBuffers), dlsym(handle, "glXSwapBuffers"));
}

TEST_F(Startup, ASingleThreadedDriverEndsTheProcessEvenWhenTheVariableIsEmpty) {
    set("__GL_SINGLE_THREADED", "");
    gl.lack("glXSwapBuffers"); // would be reported, were the table still filled
    EXPECT_EXIT(start(), testing::ExitedWithCode(1),
                "^ERROR: environment variable __GL_SINGLE_THREADED is set. Unable to continue\n$");
}

TEST_F(Startup, TheDriverIsKeptFromUnloadingWhateverTheUserSet) {
    set("__GL_NO_DSO_FINALIZER", "0");
    start();
    EXPECT_STREQ(getenv("__GL_NO_DSO_FINALIZER"), "1");
}

TEST_F(Startup, TheDriverMayUnloadWhenTheSettingSaysSo) {
    set("KOR_GL_DISABLE_DRIVER_UNLOAD", "false");
    set("__GL_NO_DSO_FINALIZER", "mine");
    start();
    EXPECT_STREQ(getenv("__GL_NO_DSO_FINALIZER"), "mine");
}

TEST_F(Startup, NothingIsPrintedByDefault) {
    testing::internal::CaptureStderr();
    start();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(Startup, PrintVersionPutsTheBannerAndATwoLineNoticeOnStderr) {
    set("KOR_GL_PRINT_VERSION", "1");
    testing::internal::CaptureStderr();
    start();
    const std::string printed = testing::internal::GetCapturedStderr();
    EXPECT_TRUE(std::regex_match(
        printed, std::regex("TESSERA KOR-GL \\S+ \\(" BITS " bit version\\)\n[^\n]+\n[^\n]+\n\n")))
        << printed;
}

TEST_F(Startup, VerbosePrintsTheBannerAndLogsEverythingWhateverTheLevel) {
    set("KOR_GL_VERBOSE", "true");
    set("KOR_GL_LOG_LEVEL", "error");
    testing::internal::CaptureStderr();
    start();
    EXPECT_THAT(testing::internal::GetCapturedStderr(), StartsWith(banner + "\n"));
    EXPECT_THAT(logTexts(), Contains("D void kor_init(void*): DONE"));
}

TEST_F(Startup, ExhaustedThreadKeysAreReportedAndLeaveTheLibraryWithoutRecords) {
    pthread_key_t key = 0;
    while (pthread_key_create(&key, nullptr) == 0) {
    }
    start();
    EXPECT_EQ(timesLogged("E kor::TLSKey kor::createTLSKey(void (*)(void*)): "
                          "Reached the maximum number of keys per thread: 1024"),
              1U);
    EXPECT_EQ(getTSD(), nullptr);
    EXPECT_EQ(kor_glXGetCurrentContext(), nullptr);
    EXPECT_EQ(kor_glXGetCurrentDrawable(), None);
    EXPECT_EQ(kor_glXGetCurrentReadDrawable(), None);
    EXPECT_EQ(kor_glXGetCurrentDisplay(), nullptr);
    EXPECT_EQ(kor_glXMakeCurrent(nullptr, None, nullptr), False);
    EXPECT_EQ(kor_glXMakeContextCurrent(nullptr, None, None, nullptr), False);
}

TEST_F(Startup, ThereIsNoThreadRecordBeforeInit) {
    EXPECT_EQ(getTSD(), nullptr);
}

TEST_F(Startup, AThreadsRecordStartsEmptyAndStaysTheSame) {
    start();
    kor::gl::TSD* tsd = getTSD();
    ASSERT_NE(tsd, nullptr);
    EXPECT_EQ(tsd->appDisplay, nullptr);
    EXPECT_EQ(tsd->appDisplay2, nullptr);
    EXPECT_EQ(tsd->extCodes, nullptr);
    EXPECT_EQ(tsd->currentDrawable, nullptr);
    EXPECT_EQ(tsd->currentReadDrawable, nullptr);
    EXPECT_EQ(tsd->currentContext, nullptr);
    EXPECT_EQ(tsd->throwawayContext, nullptr);
    EXPECT_EQ(getTSD(), tsd);
    kor::gl::TSD* other = nullptr;
    std::thread([&] { other = getTSD(); }).join();
    EXPECT_NE(other, nullptr);
    EXPECT_NE(other, tsd);
}

TEST_F(Startup, AThreadsRecordGoesWithTheThread) {
    start();
    long thread = 0;
    std::thread([&] {
        getTSD();
        thread = gettid();
    }).join();
    ASSERT_THAT(logTexts(), Contains("D virtual kor::gl::TSD::~TSD(): START"));
    EXPECT_EQ(log().back().thread, thread);
}

TEST_F(Startup, AThreadThatNeverAskedHasNoRecordToLose) {
    start();
    std::thread([] {}).join();
    EXPECT_FALSE(logged("D virtual kor::gl::TSD::~TSD(): START"));
}

TEST_F(Startup, FiniStopsThePainterAndTakesTheRecordsAway) {
    start();
    ASSERT_NE(getTSD(), nullptr);
    markLog();
    kor_fini();
    std::vector<std::string> mine; // the painter thread logs in between
    for (const LogLine& line : log())
        if (line.thread == gettid())
            mine.push_back(line.text());
    EXPECT_THAT(mine,
                ElementsAre("D void kor_fini(): START", "D void kor::gl::Copyback::stop(): START",
                            "D void kor::gl::Copyback::stop(): DONE", "D void kor_fini(): DONE"));
    EXPECT_EQ(getTSD(), nullptr);
    EXPECT_EQ(kor_glXGetCurrentContext(), nullptr);
    EXPECT_NE(system_glXSwapBuffers, nullptr);
    EXPECT_STREQ(kor::conf::settings().directory, directory.c_str());
}

TEST_F(Startup, FiniWithoutInitStillStopsThePainter) {
    kor_fini();
    EXPECT_TRUE(logged("D void kor::gl::Copyback::stop(): DONE"));
    EXPECT_EQ(log().back().text(), "D void kor_fini(): DONE");
    EXPECT_EQ(getTSD(), nullptr);
}

TEST_F(Startup, ASecondFiniChangesNothing) {
    start();
    kor_fini();
    // The painter thread may still have something to say.
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    markLog();
    kor_fini();
    EXPECT_THAT(logTexts(),
                ElementsAre("D void kor_fini(): START", "D void kor_fini(): already done"));
}

TEST_F(Startup, ThereIsNoWayBackFromFini) {
    start();
    kor_fini();
    kor_init(handle);
    EXPECT_EQ(getTSD(), nullptr);
}

TEST_F(Startup, ThreadsThatOutliveFiniKeepTheirRecordsUndestroyed) {
    start();
    std::thread([&] {
        getTSD();
        kor_fini();
    }).join();
    EXPECT_FALSE(logged("D virtual kor::gl::TSD::~TSD(): START"));
}

TEST_F(Startup, TheFirstFrontThatClaimsTheProcessKeepsIt) {
    const int first = 0;
    const int second = 0;
    EXPECT_EQ(kor_claim_process(nullptr), 1); // it is free
    EXPECT_EQ(kor_claim_process(&first), 1);
    EXPECT_EQ(kor_claim_process(&second), 0);
    EXPECT_EQ(kor_claim_process(nullptr), 0);
    EXPECT_EQ(kor_claim_process(&first), 1); // as often as it likes
}

TEST_F(Startup, TheClockIsTheTimeOfDayInMilliseconds) {
    timeval before{};
    gettimeofday(&before, nullptr);
    const uint64_t now = korGetCurrentTime();
    timeval after{};
    gettimeofday(&after, nullptr);
    EXPECT_GE(now, static_cast<uint64_t>(before.tv_sec) * 1000 + before.tv_usec / 1000);
    EXPECT_LE(now, static_cast<uint64_t>(after.tv_sec) * 1000 + after.tv_usec / 1000);
}
