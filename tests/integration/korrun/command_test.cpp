// What becomes of the command: its environment, its end, and the time it is given.
#include "korrun_fixture.h"

#include <csignal>
#include <filesystem>
#include <fstream>
#include <sys/wait.h>

using testing::HasSubstr;
using testing::StartsWith;

namespace files = std::filesystem;

TEST_F(KorrunTest, CommandsStatusIsKorruns) {
    EXPECT_EQ(korrun({"true"}).status(), 0);
    EXPECT_EQ(korrun({"sh", "-c", "exit 77"}).status(), 77);
    EXPECT_EQ(korrun({"--seconds", "30", "sh", "-c", "exit 77"}).status(), 77);
}

TEST_F(KorrunTest, SignalThatEndsTheCommandEndsKorrun) {
    for (const char* how : {"kill -SEGV $$", "kill -TERM $$", "kill -KILL $$"}) {
        const int direct = korrun({"sh", "-c", how}).waitStatus();
        const int watched = korrun({"--seconds", "30", "sh", "-c", how}).waitStatus();
        EXPECT_TRUE(WIFSIGNALED(watched)) << how;
        EXPECT_EQ(WTERMSIG(watched), WTERMSIG(direct)) << how;
    }
}

TEST_F(KorrunTest, CommandsThatCannotRunAreNamed) {
    for (const char* limit : {"", "--seconds=30"}) {
        std::vector<std::string> options;
        if (*limit)
            options.emplace_back(limit);
        auto missing = options;
        missing.emplace_back("no-such-program");
        Program first = korrun(missing);
        EXPECT_EQ(first.status(), 127);
        EXPECT_EQ(first.errors(), "korrun: no-such-program: command not found\n");
        auto forbidden = options;
        forbidden.emplace_back("/etc/passwd");
        Program second = korrun(forbidden);
        EXPECT_EQ(second.status(), 126);
        EXPECT_THAT(second.errors(), HasSubstr("/etc/passwd: Permission denied"));
    }
}

TEST_F(KorrunTest, FrontLibraryComesFirst) {
    Program run =
        korrun({"sh", "-c", "echo $LD_LIBRARY_PATH; echo ${LD_PRELOAD-unset}"},
               {{"LD_LIBRARY_PATH", "/somewhere:" + path("lib/kor")}, {"LD_PRELOAD", "-"}});
    EXPECT_EQ(run.status(), 0);
    EXPECT_EQ(run.output(), path("lib/kor") + ":/somewhere\nunset\n");
}

TEST_F(KorrunTest, TheSettingsOfAnInstallationAreGivenWhereTheUserHasSetNothing) {
    const std::vector<std::string> tell = {
        "sh", "-c",
        "echo ${KOR_GL_COPYBACK_STRATEGY-unset} ${KOR_GL_FREE_DRAWABLES_WITHOUT_CONTEXT-unset}"};
    files::create_directories(path("none"));
    files::create_directories(path("own"));
    std::ofstream(path("own/kor-gl.conf"))
        << "[gl]\ncopyback-strategy = 2\nfree-drawables-without-context = false\n";
    // A machine with an installation has them in the system file.
    const bool installed = files::exists("/etc/kor/kor-gl.conf");
    Program nothing = korrun(tell, {{"KOR_GL_USER_CONFDIR", path("none")},
                                    {"KOR_GL_COPYBACK_STRATEGY", "-"},
                                    {"KOR_GL_FREE_DRAWABLES_WITHOUT_CONTEXT", "-"}});
    EXPECT_EQ(nothing.status(), 0);
    EXPECT_EQ(nothing.output(), installed ? "unset unset\n" : "0 true\n");
    Program variable = korrun(tell, {{"KOR_GL_USER_CONFDIR", path("none")},
                                     {"KOR_GL_COPYBACK_STRATEGY", "1"},
                                     {"KOR_GL_FREE_DRAWABLES_WITHOUT_CONTEXT", "0"}});
    EXPECT_EQ(variable.status(), 0);
    EXPECT_EQ(variable.output(), "1 0\n");
    Program file = korrun(tell, {{"KOR_GL_USER_CONFDIR", path("own")},
                                 {"KOR_GL_COPYBACK_STRATEGY", "-"},
                                 {"KOR_GL_FREE_DRAWABLES_WITHOUT_CONTEXT", "-"}});
    EXPECT_EQ(file.status(), 0);
    EXPECT_EQ(file.output(), "unset unset\n");
}

TEST_F(KorrunTest, TheVendorLibraryComesFirstWhereItIsThere) {
    std::ofstream(path("lib/libGLX_kor.so.0")) << "x";
    const std::string tell = "echo $LD_LIBRARY_PATH; echo $__GLX_VENDOR_LIBRARY_NAME";
    // No display here names it, so the dispatch library has to be told.
    for (const char* const front : {"--front=auto", "--front=glvnd"}) {
        Program run = korrun({front, "sh", "-c", tell}, {{"LD_LIBRARY_PATH", "/somewhere"}});
        EXPECT_EQ(run.status(), 0);
        EXPECT_EQ(run.output(), path("lib") + ":/somewhere\nkor\n");
    }
    Program run = korrun({"--front=classic", "sh", "-c", tell},
                         {{"LD_LIBRARY_PATH", "/somewhere:" + path("lib")}});
    EXPECT_EQ(run.status(), 0);
    EXPECT_EQ(run.output(), path("lib/kor") + ":/somewhere\n\n");
}

TEST_F(KorrunTest, VendorLibraryStaysWhereTheCallersPathLeadsToIt) {
    // One that can be loaded: korrun itself finds it by the variable, and so must the command.
    std::filesystem::copy(path("lib/kor/libGL.so.1"), path("lib/libGLX_kor.so.0"));
    for (const std::string& paths : {path("lib"), "/somewhere:" + path("lib") + "/"}) {
        Program run = korrun({"sh", "-c", "echo $LD_LIBRARY_PATH"}, {{"LD_LIBRARY_PATH", paths}});
        EXPECT_EQ(run.status(), 0);
        EXPECT_TRUE(run.output().starts_with(path("lib"))) << run.output();
    }
}

TEST_F(KorrunTest, AMissingVendorLibraryIsSaid) {
    Program run = korrun({"--front=glvnd", "true"});
    EXPECT_EQ(run.status(), 3);
    EXPECT_THAT(run.errors(), HasSubstr("libGLX_kor.so.0"));
}

TEST_F(KorrunTest, GlDisplayIsHandedOn) {
    EXPECT_EQ(
        korrun({"--gl-display", ":5.0", "sh", "-c", "test \"$KOR_GL_DISPLAY\" = :5.0"}).status(),
        0);
    EXPECT_EQ(korrun({"sh", "-c", "test -z \"${KOR_GL_DISPLAY+set}\""}).status(), 0);
}

TEST_F(KorrunTest, MissingFrontIsSaid) {
    files::remove(path("lib/kor/libGL.so.1"));
    Program run = korrun({"true"});
    EXPECT_EQ(run.status(), 3);
    EXPECT_THAT(run.errors(), HasSubstr(path("lib/kor")));
    EXPECT_THAT(run.errors(), HasSubstr("build it"));
}

TEST_F(KorrunTest, WrongOptionsEndBeforeAnythingIsStarted) {
    for (const std::vector<std::string>& arguments : {std::vector<std::string>{},
                                                      {"--session"},
                                                      {"--bogus", "true"},
                                                      {"--size=9x9", "true"},
                                                      {"--session", "--size", "9x9", "true"},
                                                      {"--seconds", "soon", "true"}}) {
        Program run = korrun(arguments);
        EXPECT_EQ(run.status(), 2) << testing::PrintToString(arguments);
        EXPECT_THAT(run.errors(), StartsWith("korrun: "));
        EXPECT_THAT(run.errors(), HasSubstr("--help"));
    }
}

TEST_F(KorrunTest, HelpAndVersionGoToStandardOutput) {
    Program help = korrun({"--help"});
    EXPECT_EQ(help.status(), 0);
    EXPECT_THAT(help.output(), StartsWith("Usage: korrun"));
    Program version = korrun({"--version"});
    EXPECT_EQ(version.status(), 0);
    EXPECT_THAT(version.output(), StartsWith("korrun "));
}

TEST_F(KorrunTest, CommandInheritsNothingOfKorruns) {
    for (const std::vector<std::string>& options :
         {std::vector<std::string>{}, {"--seconds", "30"}, {"--session"}}) {
        auto arguments = options;
        arguments.insert(arguments.end(), {TEST_CLIENT, "descriptors"});
        Program descriptors = korrun(arguments);
        EXPECT_EQ(descriptors.status(), 0);
        EXPECT_EQ(descriptors.output(), "0 1 2 \n") << testing::PrintToString(options);
        arguments.back() = "signals";
        Program signals = korrun(arguments);
        EXPECT_EQ(signals.status(), 0);
        EXPECT_EQ(signals.output(), "SigBlk:\t0000000000000000\nSigIgn:\t0000000000000000\n")
            << testing::PrintToString(options);
    }
}

TEST_F(KorrunTest, TimeThatIsUpCountsAsSuccess) {
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(korrun({"--seconds", "0.5", "sleep", "60"}).status(), 0);
    const auto taken = std::chrono::steady_clock::now() - begin;
    EXPECT_GE(taken, std::chrono::milliseconds(500));
    EXPECT_LT(taken, std::chrono::seconds(10));
}

TEST_F(KorrunTest, TimeThatIsUpEndsTheWholeGroup) {
    const std::string ignoring =
        "trap '' TERM; sh -c 'echo $$ > " + path("pid") + "; exec sleep 60' & wait";
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(korrun({"--seconds", "0.5", "sh", "-c", ignoring}).status(), 0);
    const auto taken = std::chrono::steady_clock::now() - begin;
    EXPECT_GE(taken, std::chrono::seconds(3)) << "the respite before the kill was not given";
    EXPECT_LT(taken, std::chrono::seconds(20));
    const std::string pid = readFile(path("pid"));
    ASSERT_FALSE(pid.empty());
    // Gone, or waiting to be collected by whoever adopted it.
    EXPECT_TRUE(comesTrue([&] {
        const std::string stat = readFile("/proc/" + pid.substr(0, pid.size() - 1) + "/stat");
        return stat.empty() || stat.find(") Z ") != std::string::npos;
    }));
}

TEST_F(KorrunTest, SignalsReachTheCommand) {
    Program run =
        korrun({"--seconds", "60", "sh", "-c",
                "trap 'echo got it; exit 5' TERM; echo ready; while :; do sleep 0.05; done"});
    ASSERT_TRUE(comesTrue([&] { return run.output() == "ready\n"; }));
    kill(run.pid(), SIGTERM);
    EXPECT_EQ(run.status(), 5);
    EXPECT_EQ(run.output(), "ready\ngot it\n");
}
