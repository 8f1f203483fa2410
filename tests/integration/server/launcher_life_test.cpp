#include "launcher_fixture.h"

#include "framework/wait_until.h"
#include "framework/x_server.h"

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

/// Starting, being ready, and leaving nothing behind, whichever way the end comes.

namespace {

using namespace kor::test;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

class LauncherLife : public LauncherTest {
  protected:
    /// Waits until nothing is left, and says what is: for less time than the ten seconds after
    /// which a server that does not listen is killed.
    void expectNothingLeft(const Launched& launched) {
        waitUntil([&] { return remains(launched).empty(); }, 8s);
        EXPECT_EQ(remains(launched), "");
    }
};

TEST_F(LauncherLife, NumberGivenByTheCaller) {
    const int number = unusedNumber();
    Child launcher(command({":" + std::to_string(number)}));
    EXPECT_TRUE(waitUntil([&] { return listens(number); }, 20s)) << launcher.errors();
    EXPECT_EQ(launcher.stop(), 0);
    EXPECT_FALSE(listens(number));
}

TEST_F(LauncherLife, NumberGivenAndAskedFor) {
    const int number = unusedNumber();
    const Launched launched = launch({":" + std::to_string(number)});
    EXPECT_EQ(launched.number, number);
    EXPECT_TRUE(listens(number));
}

TEST_F(LauncherLife, SeveralAtOnce) {
    std::vector<Launched> launched(5);
    std::vector<std::thread> threads;
    // Children end with the thread that starts them, so each thread also sees its own one end.
    for (Launched& one : launched)
        threads.emplace_back([&] {
            one = launch();
            ASSERT_GE(one.number, 0) << one.launcher->errors();
            EXPECT_TRUE(admits(one.number, one.authority));
            EXPECT_EQ(one.launcher->stop(), 0);
        });
    for (std::thread& thread : threads)
        thread.join();
    for (const Launched& one : launched)
        expectNothingLeft(one);
}

TEST_F(LauncherLife, SeveralSideBySide) {
    std::vector<Launched> launched;
    for (int i = 0; i < 4; ++i) {
        launched.push_back(launch());
        ASSERT_GE(launched.back().number, 0) << launched.back().launcher->errors();
    }
    for (size_t i = 0; i < launched.size(); ++i) {
        EXPECT_TRUE(admits(launched[i].number, launched[i].authority));
        for (size_t k = 0; k < i; ++k)
            EXPECT_NE(launched[i].number, launched[k].number);
    }
}

TEST_F(LauncherLife, TakenNumber) {
    const Launched first = launch();
    ASSERT_GE(first.number, 0);
    const CommandResult second = run({first.name()});
    EXPECT_EQ(second.status, 1);
    expectOneLine(second, "display " + first.name() + " is in use");
    EXPECT_TRUE(admits(first.number, first.authority)) << "the first one is unharmed";
}

TEST_F(LauncherLife, NumberTakenByAnotherKindOfServer) {
    XServer other(XServer::Options{.kind = XServer::Kind::Xvfb});
    const CommandResult result = run({other.name()});
    EXPECT_EQ(result.status, 1);
    expectOneLine(result, "display " + other.name() + " is in use");
}

TEST_F(LauncherLife, LockFileOfADeadServerIsNoObstacle) {
    const int number = unusedNumber();
    const fs::path lock = "/tmp/.X" + std::to_string(number) + "-lock";
    const CommandResult dead = runCommand(Command{.arguments = {"/bin/sh", "-c", "echo $$"}});
    FILE* file = fopen(lock.c_str(), "we");
    ASSERT_NE(file, nullptr);
    fprintf(file, "%10d\n", atoi(dead.output.c_str()));
    fclose(file);
    {
        const Launched launched = launch({":" + std::to_string(number)});
        EXPECT_EQ(launched.number, number) << launched.launcher->errors();
    }
    fs::remove(lock);
}

TEST_F(LauncherLife, NothingLeftAfterEndingSignals) {
    for (const int number : {SIGTERM, SIGINT}) {
        SCOPED_TRACE(strsignal(number));
        Launched launched = launch();
        ASSERT_GE(launched.number, 0);
        ASSERT_GT(launched.server, 0);
        EXPECT_NE(remains(launched), "");
        launched.launcher->signal(number);
        EXPECT_EQ(launched.launcher->wait(15s), 0);
        // At once: who has waited for the launcher may count on it.
        EXPECT_EQ(remains(launched), "");
    }
}

TEST_F(LauncherLife, NothingLeftAfterTheLauncherIsKilled) {
    Launched launched = launch();
    ASSERT_GE(launched.number, 0);
    ASSERT_TRUE(runs(launched.server));
    launched.launcher->signal(SIGKILL);
    EXPECT_EQ(launched.launcher->wait(10s), 128 + SIGKILL);
    expectNothingLeft(launched);
}

TEST_F(LauncherLife, NothingLeftAfterTheServerIsKilled) {
    Launched launched = launch();
    ASSERT_GE(launched.number, 0);
    ASSERT_EQ(kill(launched.server, SIGKILL), 0);
    EXPECT_EQ(launched.launcher->wait(15s), 128 + SIGKILL) << "the launcher says how it ended";
    EXPECT_EQ(remains(launched), "");
}

TEST_F(LauncherLife, NothingLeftAfterBothAreKilled) {
    Launched launched = launch();
    ASSERT_GE(launched.number, 0);
    kill(launched.server, SIGSTOP); // it cannot clean up by itself
    launched.launcher->signal(SIGKILL);
    kill(launched.server, SIGKILL);
    expectNothingLeft(launched);
}

TEST_F(LauncherLife, NothingLeftAfterSignalsToTheWholeGroup) {
    Launched launched = launch();
    ASSERT_GE(launched.number, 0);
    kill(-launched.launcher->process(), SIGTERM); // as xinit does it, or a terminal
    EXPECT_EQ(launched.launcher->wait(15s), 0);
    EXPECT_EQ(remains(launched), "");
}

TEST_F(LauncherLife, NothingLeftWhicheverMomentItIsKilled) {
    for (int milliseconds = 0; milliseconds < 120; milliseconds += 8)
        for (const int number : {SIGKILL, SIGTERM}) {
            SCOPED_TRACE(std::to_string(milliseconds) + " ms " + strsignal(number));
            const int display = unusedNumber();
            Launched launched;
            launched.launcher = std::make_unique<Child>(command({":" + std::to_string(display)}));
            launched.number = display;
            std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
            launched.launcher->signal(number);
            EXPECT_TRUE(launched.launcher->wait(15s));
            expectNothingLeft(launched);
        }
}

/// The sockets in the file system that a process listens on.
std::vector<std::string> socketsOf(pid_t process) {
    std::vector<std::string> found;
    std::error_code none;
    for (const auto& entry :
         fs::directory_iterator("/proc/" + std::to_string(process) + "/fd", none)) {
        const std::string target = fs::read_symlink(entry.path(), none).string();
        if (!target.starts_with("socket:["))
            continue;
        const std::string inode = target.substr(8, target.size() - 9);
        std::ifstream table("/proc/net/unix");
        for (std::string line; std::getline(table, line);) {
            std::istringstream words(line);
            std::vector<std::string> fields{std::istream_iterator<std::string>(words), {}};
            if (fields.size() == 8 && fields[6] == inode && fields[7].starts_with("/"))
                found.push_back(fields[7]);
        }
    }
    return found;
}

/// Whether a process has a handler for SIGTERM, or ignores it.
bool survivesTerm(pid_t process) {
    std::ifstream file("/proc/" + std::to_string(process) + "/status");
    unsigned long survived = 0;
    for (std::string line; std::getline(file, line);)
        if (line.starts_with("SigIgn:") || line.starts_with("SigCgt:"))
            survived |= std::stoul(line.substr(7), nullptr, 16);
    return survived >> (SIGTERM - 1) & 1;
}

/// Here nobody but the server knows the number while it starts: it must end in good order.
TEST_F(LauncherLife, NothingLeftWhicheverMomentItIsKilledWithoutANumber) {
    int caughtWithSocket = 0;
    for (int milliseconds = 4; milliseconds < 100; milliseconds += 4) {
        const int number = milliseconds % 8 ? SIGKILL : SIGTERM;
        SCOPED_TRACE(std::to_string(milliseconds) + " ms " + strsignal(number));
        Launched launched;
        launched.launcher = std::make_unique<Child>(command({"-displayfd", "1"}));
        std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
        launched.server = serverOf(launched);
        std::map<std::string, std::string> sockets; // path and identity
        if (launched.server != -1) {
            kill(launched.server, SIGSTOP); // so that the moment lasts
            EXPECT_TRUE(survivesTerm(launched.server)) << "it would leave what it has made by now";
            for (const std::string& path : socketsOf(launched.server))
                sockets[path] = identityOf(path);
            caughtWithSocket += !sockets.empty() && launched.launcher->output().empty();
        }
        launched.launcher->signal(number);
        if (launched.server != -1)
            kill(launched.server, SIGCONT);
        EXPECT_TRUE(launched.launcher->wait(15s));
        expectNothingLeft(launched);
        for (const auto& [path, identity] : sockets)
            EXPECT_NE(identityOf(path), identity) << path;
    }
    EXPECT_GT(caughtWithSocket, 0) << "the moments were chosen badly";
}

TEST_F(LauncherLife, ServerEndsWithTheLauncherAlsoWhenNobodyCleansUp) {
    Launched launched = launch();
    ASSERT_GE(launched.number, 0);
    const pid_t janitor = janitorOf(launched);
    ASSERT_GT(janitor, 0);
    kill(janitor, SIGKILL);
    launched.launcher->signal(SIGKILL);
    EXPECT_TRUE(waitUntil([&] { return !runs(launched.server); }, 8s));
}

TEST_F(LauncherLife, StatusOfAServerThatEndsByItself) {
    // The server ends with its last client, if told so.
    Launched launched = launch({"-terminate"});
    ASSERT_GE(launched.number, 0);
    EXPECT_TRUE(admits(launched.number, launched.authority));
    EXPECT_EQ(launched.launcher->wait(15s), 0);
    EXPECT_EQ(remains(launched), "");
}

/// Blocks SIGUSR1 in this thread, so that it can be waited for.
class Usr1 {
  public:
    Usr1() {
        sigemptyset(&m_set);
        sigaddset(&m_set, SIGUSR1);
        sigprocmask(SIG_BLOCK, &m_set, &m_before);
    }
    Usr1(const Usr1&) = delete;
    Usr1& operator=(const Usr1&) = delete;
    ~Usr1() { sigprocmask(SIG_SETMASK, &m_before, nullptr); }
    /// The sender within the time, or -1.
    pid_t sender(std::chrono::milliseconds time) {
        const timespec wait{time.count() / 1000, time.count() % 1000 * 1000000};
        siginfo_t info{};
        return sigtimedwait(&m_set, &info, &wait) == SIGUSR1 ? info.si_pid : -1;
    }

  private:
    sigset_t m_set{};
    sigset_t m_before{};
};

TEST_F(LauncherLife, ParentThatIgnoresUsr1IsToldOfReadiness) {
    Usr1 usr1;
    const int number = unusedNumber();
    Command asXinit = command({":" + std::to_string(number)});
    asXinit.ignoredSignals = {SIGUSR1};
    Child launcher(asXinit);
    EXPECT_EQ(usr1.sender(20s), launcher.process()) << launcher.errors();
    EXPECT_TRUE(listens(number));
    EXPECT_TRUE(admits(number, "")) << "such a parent was told of no cookie";
}

TEST_F(LauncherLife, ParentWithACookieOfItsOwnNeedsNoOpenDoor) {
    Usr1 usr1;
    const int number = unusedNumber();
    Command asStartx = command({":" + std::to_string(number), "-auth", XServer::authorityFile()});
    asStartx.ignoredSignals = {SIGUSR1};
    Child launcher(asStartx);
    EXPECT_EQ(usr1.sender(20s), launcher.process()) << launcher.errors();
    EXPECT_FALSE(admits(number, ""));
    EXPECT_TRUE(admits(number, XServer::authorityFile()));
}

TEST_F(LauncherLife, OtherParentsGetNoSignal) {
    Usr1 usr1;
    const Launched launched = launch();
    ASSERT_GE(launched.number, 0);
    EXPECT_EQ(usr1.sender(300ms), -1);
    EXPECT_FALSE(admits(launched.number, ""));
}

class LauncherOfAnOrdinaryUser : public LauncherLife {
  protected:
    /// With a copy of what is installed, in a folder that the user can read: this also shows that
    /// the launcher finds its module wherever both are put.
    Command ordinary(const std::vector<std::string>& arguments) {
        constexpr const char* nobody = "65534";
        fs::create_directories(folder / "bin");
        fs::create_directories(folder / "lib/xorg/modules/extensions");
        fs::copy(buildProgram("Xkor"), folder / "bin/Xkor");
        fs::copy(buildLibrary("xorg/modules/extensions/libkor.so"),
                 folder / "lib/xorg/modules/extensions/libkor.so");
        Command command = LauncherTest::command(arguments);
        command.arguments[0] = folder / "bin/Xkor";
        if (geteuid() == 0) {
            for (const fs::path& path : {folder, state, runtime})
                EXPECT_EQ(chown(path.c_str(), 65534, 65534), 0);
            command.arguments.insert(
                command.arguments.begin(),
                {"setpriv", "--reuid", nobody, "--regid", nobody, "--clear-groups", "--"});
        }
        return command;
    }
};

TEST_F(LauncherOfAnOrdinaryUser, PasswordFileThatMayNotBeRead) {
    const fs::path file = folder / "password";
    std::ofstream(file) << "12345678";
    // Root's own, or the user's without any rights.
    ASSERT_EQ(chmod(file.c_str(), geteuid() == 0 ? 0600 : 0), 0);
    const CommandResult result =
        runCommand(ordinary({":" + std::to_string(unusedNumber()), "-vnc", "-vnc-password", file}));
    EXPECT_EQ(result.status, 1);
    expectOneLine(result,
                  "the password file " + file.string() + " cannot be read: Permission denied");
    EXPECT_TRUE(fs::is_empty(runtime));
}

TEST_F(LauncherOfAnOrdinaryUser, StartsAndLeavesNothing) {
    Launched launched = launch(ordinary({"-geometry", "640x480"}));
    ASSERT_GE(launched.number, 0) << launched.launcher->errors();
    struct stat status {};
    ASSERT_EQ(stat(launched.authority.c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, geteuid() == 0 ? 65534 : geteuid());
    EXPECT_TRUE(admits(launched.number, launched.authority));
    EXPECT_FALSE(admits(launched.number, ""));
    launched.launcher->signal(SIGKILL);
    expectNothingLeft(launched);
}

} // namespace
