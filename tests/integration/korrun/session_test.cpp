// Sessions: what they give to the command, and that nothing of them stays behind.
#include "korrun_fixture.h"

#include <csignal>
#include <fstream>
#include <sstream>
#include <unistd.h>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

namespace files = std::filesystem;

namespace {

// Where a session's displays and files are, as its command sees them.
struct SessionView {
    std::string display;
    std::string glDisplay;
    std::string authority;
};

pid_t parentOf(pid_t process) {
    std::istringstream status(readFile("/proc/" + std::to_string(process) + "/status"));
    for (std::string line; std::getline(status, line);)
        if (line.starts_with("PPid:"))
            return static_cast<pid_t>(std::stol(line.substr(5)));
    return -1;
}

// Whether it is gone, or waits to be collected: its memory goes before that.
bool hasEnded(pid_t process) {
    const std::string status = readFile("/proc/" + std::to_string(process) + "/status");
    return status.empty() || status.find("State:\tZ") != std::string::npos;
}

constexpr const char* tellAndWait =
    "echo $DISPLAY; echo $KOR_GL_DISPLAY; echo $XAUTHORITY; echo told; exec sleep 60";

SessionView readView(const std::string& output) {
    SessionView view;
    std::istringstream lines(output);
    std::getline(lines, view.display);
    std::getline(lines, view.glDisplay);
    std::getline(lines, view.authority);
    return view;
}

} // namespace

class KorrunSessionTest : public KorrunTest {
  protected:
    // Waits until the session's command runs.
    static SessionView wait(const Program& run) {
        EXPECT_TRUE(comesTrue([&] { return run.output().find("told") != std::string::npos; },
                              std::chrono::seconds(60)))
            << run.errors();
        return readView(run.output());
    }
    // Kills the local display's server, which is the one that was started with the session's
    // cookie, and waits until it is gone.
    void killLocalServer() const {
        pid_t process = -1;
        for (const std::string& server : servers())
            if (server.find("Xvfb") != std::string::npos &&
                server.find("Xkor") == std::string::npos)
                process = static_cast<pid_t>(std::stol(server));
        ASSERT_GT(process, 1);
        kill(process, SIGKILL);
        EXPECT_TRUE(comesTrue([&] { return hasEnded(process); }));
    }
    void expectNothingLeft(const SessionView& view) const {
        EXPECT_TRUE(comesTrue([&] { return servers().empty(); }))
            << testing::PrintToString(servers());
        EXPECT_TRUE(comesTrue([&] { return sessionFolders().empty(); }));
        // A moment only: another program's server that is just taking the number is not listening
        // yet, and one that takes it later would hide that ours left its socket.
        for (const std::string& display : {view.display, view.glDisplay})
            EXPECT_TRUE(comesTrue([&] { return !hasDeadSocket(displayNumber(display)); },
                                  std::chrono::milliseconds(300)))
                << display;
    }
};

TEST_F(KorrunSessionTest, CommandGetsBothDisplaysAndOneAuthority) {
    Program run =
        korrun({"--session", "--size", "640x400", "sh", "-c",
                "echo $DISPLAY; echo $KOR_GL_DISPLAY; echo $XAUTHORITY;"
                "xdpyinfo | grep -E 'dimensions|KOR-V1'; xdpyinfo -display $KOR_GL_DISPLAY | "
                "grep -w GLX; exit 9"});
    EXPECT_EQ(run.status(), 9) << run.errors();
    const SessionView view = readView(run.output());
    EXPECT_NE(displayNumber(view.display), displayNumber(view.glDisplay));
    EXPECT_THAT(view.authority, HasSubstr(m_folder));
    EXPECT_THAT(run.output(), HasSubstr("640x400"));
    EXPECT_THAT(run.output(), HasSubstr("KOR-V1"));
    EXPECT_THAT(run.output(), HasSubstr("GLX"));
    EXPECT_EQ(run.errors(), "");
    expectNothingLeft(view);
}

TEST_F(KorrunSessionTest, DisplaysAreClosedToEverybodyElse) {
    Program run = korrun({"--session", "sh", "-c", tellAndWait});
    const SessionView view = wait(run);
    for (const std::string& display : {view.display, view.glDisplay}) {
        Program stranger(m_folder, {"/usr/bin/xdpyinfo", "-display", display},
                         {{"XAUTHORITY", path("no-authority")}});
        EXPECT_NE(stranger.status(), 0) << display;
        Program friendOfIt(m_folder, {"/usr/bin/xdpyinfo", "-display", display},
                           {{"XAUTHORITY", view.authority}});
        EXPECT_EQ(friendOfIt.status(), 0) << display << friendOfIt.errors();
    }
    kill(run.pid(), SIGTERM);
    EXPECT_EQ(run.status(), 128 + SIGTERM);
    expectNothingLeft(view);
}

TEST_F(KorrunSessionTest, UsersOwnDisplaysStayReachable) {
    Program other = korrun({"--session", "sh", "-c", tellAndWait});
    const SessionView outside = wait(other);
    Program run = korrun({"--session", "xdpyinfo", "-display", outside.display},
                         {{"XAUTHORITY", outside.authority}});
    EXPECT_EQ(run.status(), 0) << run.errors();
}

TEST_F(KorrunSessionTest, DisplayThatIsNamedIsUsed) {
    Program other = korrun({"--session", "sh", "-c", tellAndWait});
    const SessionView outside = wait(other);
    Program run = korrun({"--session", "--verbose", "--gl-display", outside.glDisplay, "sh", "-c",
                          "test $KOR_GL_DISPLAY = " + outside.glDisplay},
                         {{"XAUTHORITY", outside.authority}});
    EXPECT_EQ(run.status(), 0) << run.errors();
    EXPECT_THAT(run.errors(), HasSubstr("local display " + outside.glDisplay + ": the GPU's"));

    // A session's server has no GPU to render with.
    Program wrong = korrun({"--session", "--gl-display", outside.display, "true"},
                           {{"XAUTHORITY", outside.authority}});
    EXPECT_EQ(wrong.status(), 3);
    EXPECT_THAT(wrong.errors(), HasSubstr("belongs to a session"));
}

TEST_F(KorrunSessionTest, DisplayThatCannotBeOpenedIsSaid) {
    Program option = korrun({"--session", "--gl-display", ":9999.0", "true"});
    EXPECT_EQ(option.status(), 3);
    EXPECT_THAT(option.errors(), HasSubstr("display :9999.0 cannot be opened"));
    Program variable = korrun({"--session", "sh", "-c", "test $KOR_GL_DISPLAY != :9999.0"},
                              {{"KOR_GL_DISPLAY", ":9999.0"}});
    EXPECT_EQ(variable.status(), 0);
    EXPECT_THAT(variable.errors(), HasSubstr("rendering in software"));
}

TEST_F(KorrunSessionTest, NothingStaysWhenKorrunIsKilled) {
    for (const int signal : {SIGKILL, SIGTERM, SIGINT, SIGHUP}) {
        Program run = korrun({"--session", "sh", "-c", tellAndWait});
        const SessionView view = wait(run);
        EXPECT_TRUE(hasSocket(displayNumber(view.display)));
        EXPECT_TRUE(hasSocket(displayNumber(view.glDisplay)));
        EXPECT_THAT(sessionFolders(), SizeIs(1));
        EXPECT_THAT(servers(), Not(IsEmpty()));
        kill(run.pid(), signal);
        EXPECT_EQ(run.status(), 128 + signal);
        expectNothingLeft(view);
    }
}

TEST_F(KorrunSessionTest, CommandEndsWhenKorrunIsKilled) {
    Program run = korrun({"--session", "sh", "-c",
                          "echo $DISPLAY; echo $KOR_GL_DISPLAY; echo $XAUTHORITY;"
                          "trap 'echo asked; exit' TERM; echo told; while :; do sleep 0.05; done"});
    const SessionView view = wait(run);
    kill(run.pid(), SIGKILL);
    EXPECT_EQ(run.status(), 128 + SIGKILL);
    EXPECT_TRUE(comesTrue([&] { return run.output().find("asked") != std::string::npos; }));
    expectNothingLeft(view);
}

TEST_F(KorrunSessionTest, NothingStaysWhenKorrunIsKilledAtTheStart) {
    for (const int milliseconds : {5, 20, 40, 80, 160}) {
        Program run = korrun({"--session", "sleep", "60"});
        usleep(static_cast<useconds_t>(milliseconds) * 1000);
        kill(run.pid(), SIGKILL);
        EXPECT_EQ(run.status(), 128 + SIGKILL);
        EXPECT_TRUE(comesTrue([&] { return servers().empty() && sessionFolders().empty(); }))
            << milliseconds << testing::PrintToString(servers());
    }
}

TEST_F(KorrunSessionTest, ServerThatIsKilledLeavesNoSocket) {
    Program run = korrun({"--session", "sh", "-c", tellAndWait});
    const SessionView view = wait(run);
    killLocalServer();
    kill(run.pid(), SIGTERM);
    EXPECT_EQ(run.status(), 128 + SIGTERM);
    EXPECT_THAT(run.errors(), HasSubstr("the session's Xvfb had ended by itself"));
    expectNothingLeft(view);
}

TEST_F(KorrunSessionTest, ServersEndWithTheirKeeper) {
    Program run = korrun({"--session", "sh", "-c", tellAndWait});
    const SessionView view = wait(run);
    pid_t keeper = -1;
    for (const std::string& server : servers())
        if (server.find("Xvfb") != std::string::npos)
            keeper = parentOf(static_cast<pid_t>(std::stol(server)));
    ASSERT_GT(keeper, 1);
    ASSERT_NE(keeper, run.pid());
    kill(keeper, SIGKILL);
    const auto running = testing::Contains(HasSubstr("server-authority"));
    EXPECT_TRUE(comesTrue([&] { return !testing::Value(servers(), running); }))
        << testing::PrintToString(servers());
    kill(run.pid(), SIGTERM);
    EXPECT_EQ(run.status(), 128 + SIGTERM);
    expectNothingLeft(view);
}

TEST_F(KorrunSessionTest, SessionsRunSideBySide) {
    Program first = korrun({"--session", "sh", "-c", tellAndWait});
    Program second = korrun({"--session", "sh", "-c", tellAndWait});
    const SessionView one = wait(first);
    const SessionView two = wait(second);
    EXPECT_NE(one.display, two.display);
    EXPECT_NE(one.glDisplay, two.glDisplay);
    EXPECT_THAT(sessionFolders(), SizeIs(2));
    kill(first.pid(), SIGTERM);
    EXPECT_EQ(first.status(), 128 + SIGTERM);
    EXPECT_TRUE(hasSocket(displayNumber(two.display)));
    EXPECT_THAT(sessionFolders(), ElementsAre(files::path(two.authority).parent_path().string()));
}

TEST_F(KorrunSessionTest, MissingServersAreSaid) {
    files::remove(path("bin/Xkor"));
    Program noXkor = korrun({"--session", "true"});
    EXPECT_EQ(noXkor.status(), 3);
    EXPECT_THAT(noXkor.errors(), HasSubstr("Xkor is not beside " + path("bin/korrun")));

    files::create_symlink(XKOR_PROGRAM, path("bin/Xkor"));
    Program noXvfb = korrun({"--session", "true"}, {{"PATH", path("bin")}});
    EXPECT_EQ(noXvfb.status(), 3);
    EXPECT_THAT(noXvfb.errors(), HasSubstr("apt-get install xvfb"));
}

TEST_F(KorrunSessionTest, ServerThatDoesNotStartIsQuoted) {
    files::remove(path("bin/Xkor"));
    std::ofstream(path("bin/Xkor")) << "#!/bin/sh\necho no screens here >&2\nexit 1\n";
    files::permissions(path("bin/Xkor"), files::perms::owner_all);
    Program run = korrun({"--session", "true"});
    EXPECT_EQ(run.status(), 3);
    EXPECT_THAT(run.errors(), HasSubstr("Xkor did not start. It printed:\n    no screens here"));
}

TEST_F(KorrunSessionTest, ServersGetTheSystemsGl) {
    files::remove(path("bin/Xkor"));
    std::ofstream(path("bin/Xkor")) << "#!/bin/sh\necho path=$LD_LIBRARY_PATH=\nexit 1\n";
    files::permissions(path("bin/Xkor"), files::perms::owner_all);
    Program run = korrun({"--session", "true"}, {{"LD_LIBRARY_PATH", path("lib/kor") + ":/else"}});
    EXPECT_EQ(run.status(), 3);
    EXPECT_THAT(run.errors(), HasSubstr("path=/else="));
}
