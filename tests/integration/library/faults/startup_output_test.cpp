// All that kor_init and kor_fini write, byte by byte: level letter, stamp, ids, tag, function text
// and message of every record, and what goes to stderr.

#include "fixture.h"
#include "interposed.h"

#include "core/tsd.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <new>
#include <sstream>
#include <unistd.h>

namespace {

/// At 03:33:20.000042 on the 18th of May; and the process's own name for the records.
class StartupOutput : public Library {
  protected:
    StartupOutput() {
        set("TZ", "UTC");
        tzset();
        kor::test::timeOfDay = int64_t{2000000000} * 1000000 + 42;
        std::ifstream file("/proc/self/cmdline");
        std::getline(file, program, '\0');
    }
    ~StartupOutput() override { kor::test::timeOfDay = -1; }

    /// One record of that function.
    static std::string record(char level, const std::string& function, const std::string& message,
                              const char* tag = "KORGL") {
        return std::string(1, level) + " May 18 03:33:20:000042 " + std::to_string(getpid()) + ":" +
               std::to_string(gettid()) + " " + tag + " (" + function + "): " + message + "\n";
    }

    /// The bytes of the one log file.
    std::string logFile() const {
        std::ostringstream text;
        for (const auto& entry : std::filesystem::directory_iterator(directory))
            if (entry.path().extension() == ".log")
                text << std::ifstream(entry.path()).rdbuf();
        return text.str();
    }

    /// What kor_init writes to stderr.
    std::string stderrOfInit() {
        testing::internal::CaptureStderr();
        start();
        return testing::internal::GetCapturedStderr();
    }

    /// Records go to stderr, at that level.
    static void logToStderr(const char* level) {
        unsetenv("KOR_GL_LOG_DIR");
        set("KOR_GL_LOG_LEVEL", level);
    }

    std::string begin() const {
        return record('D', init, "START") + record('I', init, banner) +
               record('I', init, "Application executable " + program);
    }

    std::string program;
    const std::string init = "void kor_init(void*)";
    const std::string fini = "void kor_fini()";
    const std::string banner = std::string("TESSERA KOR-GL ") + KOR_VERSION +
                               (sizeof(void*) == 8 ? " (64 bit version)" : " (32 bit version)");
    const std::string notice = "Copyright TESSERA s.r.l. All rights reserved.\n"
                               "Provided as it is, without warranty of any kind.\n\n";
};

} // namespace

TEST_F(StartupOutput, GoesToTheFileAtDebugLevelAndNothingToStderr) {
    EXPECT_EQ(stderrOfInit(), "");
    EXPECT_EQ(logFile(), begin() + record('D', init, "DONE"));
}

TEST_F(StartupOutput, GoesToStderrWithoutAFolder) {
    logToStderr("debug");
    EXPECT_EQ(stderrOfInit(), begin() + record('D', init, "DONE"));
}

TEST_F(StartupOutput, AtInfoLevelTheBannerAndTheExecutableRemain) {
    logToStderr("info");
    EXPECT_EQ(stderrOfInit(),
              record('I', init, banner) + record('I', init, "Application executable " + program));
}

TEST_F(StartupOutput, AtTheDefaultLevelNothingRemains) {
    logToStderr("");
    EXPECT_EQ(stderrOfInit(), "");
}

TEST_F(StartupOutput, OfVerboseHasTheBannerBetweenTheRecords) {
    logToStderr("error");
    set("KOR_GL_VERBOSE", "1");
    EXPECT_EQ(stderrOfInit(), begin() + banner + "\n" + notice + record('D', init, "DONE"));
}

TEST_F(StartupOutput, OfPrintVersionIsTheBannerAlone) {
    logToStderr("warning");
    set("KOR_GL_PRINT_VERSION", "1");
    EXPECT_EQ(stderrOfInit(), banner + "\n" + notice);
}

TEST_F(StartupOutput, MissingFunctionsAreEchoedAndRecordedOneByOne) {
    logToStderr("debug");
    for (const char* name : {"glXSwapBuffers", "glRenderMode", "glGetError", "glXBindTexImageEXT"})
        gl.lack(name);
    const std::string table = "void setup_sysgl(void*)";
    std::string missing;
    for (const char* text :
         {"system_glXSwapBuffers is NULL", "glrendermoge is NULL", "glGetError is NULL"})
        missing += std::string("ERROR: ") + text + "\n" + record('E', table, text);
    EXPECT_EQ(stderrOfInit(), begin() + missing + record('D', init, "DONE"));
}

TEST_F(StartupOutput, OfASecondInitIsThatItWasDone) {
    logToStderr("debug");
    stderrOfInit();
    EXPECT_EQ(stderrOfInit(), record('D', init, "START") + record('D', init, "already done"));
}

TEST_F(StartupOutput, OfASingleThreadedDriverEndsWithTheError) {
    set("__GL_SINGLE_THREADED", "1");
    set("KOR_GL_PRINT_VERSION", "1");
    EXPECT_EXIT(start(), testing::ExitedWithCode(1),
                "warranty of any kind.\n\nERROR: environment variable __GL_SINGLE_THREADED is set. "
                "Unable to continue\n$");
    const std::string written = logFile();
    const std::string last = "KORGL (void kor_init(void*)): environment variable "
                             "__GL_SINGLE_THREADED is set. Unable to continue\n";
    ASSERT_GE(written.size(), last.size());
    EXPECT_EQ(written.substr(written.size() - last.size()), last);
    EXPECT_EQ(written.find("setup_sysgl"), std::string::npos);
    EXPECT_NE(written.find("\nE May 18 03:33:20:000042 "), std::string::npos);
}

TEST_F(StartupOutput, ASingleThreadedDriverEndsTheProcessInOrderAndToldNotToUnload) {
    set("__GL_SINGLE_THREADED", "1");
    unsetenv("__GL_NO_DSO_FINALIZER");
    const auto startWithHandler = [this] {
        atexit([] {
            const char* value = getenv("__GL_NO_DSO_FINALIZER");
            fprintf(stderr, "%s\n", value != nullptr ? value : "unset");
        });
        start();
    };
    EXPECT_EXIT(startWithHandler(), testing::ExitedWithCode(1), "Unable to continue\n1\n$");
}

TEST_F(StartupOutput, OfExhaustedKeysHasTheFunctionThatMakesThem) {
    logToStderr("error");
    set("KOR_GL_VERBOSE", "1");
    std::vector<pthread_key_t> keys;
    pthread_key_t key = 0;
    while (pthread_key_create(&key, nullptr) == 0)
        keys.push_back(key);
    const std::string written = stderrOfInit();
    for (const pthread_key_t taken : keys)
        pthread_key_delete(taken);
    EXPECT_EQ(written, begin() +
                           record('E', "kor::TLSKey kor::createTLSKey(void (*)(void*))",
                                  "Reached the maximum number of keys per thread: 1024") +
                           banner + "\n" + notice + record('D', init, "DONE"));
    EXPECT_EQ(getTSD(), nullptr);
}

TEST_F(StartupOutput, OfFiniFramesThatOfThePainter) {
    stderrOfInit();
    kor_fini();
    // The painter's own thread writes between them.
    std::istringstream lines(logFile());
    std::string mine;
    const std::string ids = std::to_string(getpid()) + ":" + std::to_string(gettid()) + " ";
    for (std::string line; std::getline(lines, line);)
        if (line.find(ids) != std::string::npos)
            mine += line + "\n";
    const std::string stop = "void kor::gl::Copyback::stop()";
    const std::string end = record('D', fini, "START") + record('D', stop, "START") +
                            record('D', stop, "DONE") + record('D', fini, "DONE");
    EXPECT_EQ(mine, begin() + record('D', init, "DONE") + end);
}

TEST_F(StartupOutput, FiniStopsThePainterWhileThereAreStillRecords) {
    static pid_t finisher = 0;
    static size_t withRecord = 0;
    static size_t withoutRecord = 0;
    start();
    ASSERT_NE(getTSD(), nullptr); // made here: the hook must not make it
    finisher = gettid();
    kor::test::afterLock = [](pthread_mutex_t* /*mutex*/) {
        if (gettid() == finisher)
            ++(getTSD() != nullptr ? withRecord : withoutRecord);
    };
    kor_fini();
    kor::test::afterLock = nullptr;
    EXPECT_GE(withRecord, 1U); // the lock of stopping itself
    EXPECT_EQ(withoutRecord, 0U);
    EXPECT_EQ(getTSD(), nullptr);
}

TEST_F(StartupOutput, AThreadRecordThatCannotBeKeptIsMadeAgainEachTime) {
    start();
    kor::test::setSpecific.arm(2);
    kor::gl::TSD* first = getTSD();
    kor::gl::TSD* second = getTSD();
    EXPECT_NE(first, nullptr);
    EXPECT_NE(second, nullptr);
    EXPECT_NE(first, second);
    kor::gl::TSD* kept = getTSD();
    EXPECT_EQ(getTSD(), kept);
    delete first;
    delete second;
}

TEST_F(StartupOutput, AKeyThatCannotBeMadeForAnotherReasonIsNotReported) {
    kor::test::keyCreate.arm();
    EXPECT_EQ(stderrOfInit(), "");
    EXPECT_EQ(logFile(), begin() + record('D', init, "DONE"));
    EXPECT_EQ(getTSD(), nullptr);
}

TEST_F(StartupOutput, AThreadRecordWithoutMemoryIsTheAllocatorsFailureAndNothingIsKept) {
    start();
    kor::test::throwingAllocation = sizeof(kor::gl::TSD);
    EXPECT_THROW(getTSD(), std::bad_alloc);
    kor::test::throwingAllocation = 0;
    kor::gl::TSD* record = getTSD();
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(getTSD(), record);
}
