#include "launcher_fixture.h"

#include "framework/wait_until.h"
#include "framework/x_server.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <random>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace kor::test {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

namespace {

std::string socketPath(int number) {
    return "/tmp/.X11-unix/X" + std::to_string(number);
}

/// The child of a process that bears the name, or -1.
pid_t childOf(const Launched& launched, const std::string& wanted) {
    const std::string launcher = std::to_string(launched.launcher->process());
    std::ifstream children("/proc/" + launcher + "/task/" + launcher + "/children");
    pid_t child = -1;
    while (children >> child) {
        std::string name;
        std::ifstream("/proc/" + std::to_string(child) + "/comm") >> name;
        if (name == wanted)
            return child;
    }
    return -1;
}

} // namespace

void LauncherTest::SetUp() {
    char pattern[] = "/tmp/kor-launcher-test-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    folder = pattern;
    state = folder / "state";
    runtime = folder / "runtime";
    fs::create_directory(state);
    fs::create_directory(runtime);
}

void LauncherTest::TearDown() {
    std::error_code ignored;
    fs::remove_all(folder, ignored);
}

Command LauncherTest::command(const std::vector<std::string>& arguments) const {
    Command command;
    command.arguments = {buildProgram("Xkor")};
    command.arguments.insert(command.arguments.end(), arguments.begin(), arguments.end());
    command.environment = {{"XDG_STATE_HOME", state},
                           {"XDG_RUNTIME_DIR", runtime},
                           {"HOME", folder},
                           {"XAUTHORITY", std::nullopt},
                           {"KOR_XORG", std::nullopt}};
    command.deathSignal = SIGTERM;
    return command;
}

CommandResult LauncherTest::run(const std::vector<std::string>& arguments) const {
    return runCommand(command(arguments));
}

Launched LauncherTest::launch(const std::vector<std::string>& arguments) const {
    return launch(command(arguments));
}

Launched LauncherTest::launch(Command command) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0)
        return {};
    command.files.emplace_back(7, ends[1]);
    command.arguments.insert(command.arguments.end(), {"-displayfd", "7"});
    Launched launched;
    launched.launcher = std::make_unique<Child>(command);
    close(ends[1]);
    std::string text;
    const bool answered = waitUntil(
        [&] {
            char buffer[16];
            const ssize_t got = read(ends[0], buffer, sizeof buffer);
            text.append(buffer, got > 0 ? static_cast<size_t>(got) : 0);
            return text.ends_with('\n') || !launched.launcher->running();
        },
        30s);
    close(ends[0]);
    if (!answered || !text.ends_with('\n'))
        return launched;
    launched.number = atoi(text.c_str());
    launched.server = serverOf(launched);
    launched.socket = identityOf(socketPath(launched.number));
    const std::string said = launched.launcher->errors();
    if (const size_t at = said.find("XAUTHORITY="); at != std::string::npos)
        launched.authority = said.substr(at + 11, said.find('\n', at) - at - 11);
    return launched;
}

pid_t LauncherTest::serverOf(const Launched& launched) {
    return childOf(launched, "Xorg");
}
pid_t LauncherTest::janitorOf(const Launched& launched) {
    return childOf(launched, "Xkor-janitor");
}

int LauncherTest::unusedNumber() {
    static std::mt19937 random(std::random_device{}());
    for (;;) {
        const int number = 1000 + static_cast<int>(random() % 40000);
        if (!listens(number) && !fs::exists("/tmp/.X" + std::to_string(number) + "-lock"))
            return number;
    }
}

bool LauncherTest::listens(int number) {
    const std::string path = socketPath(number);
    for (const bool abstract : {false, true}) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        memcpy(address.sun_path + (abstract ? 1 : 0), path.data(), path.size());
        const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size() +
                                                   (abstract ? 1 : 0));
        const int end = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const bool answered =
            connect(end, reinterpret_cast<const sockaddr*>(&address), length) == 0;
        close(end);
        if (answered)
            return true;
    }
    return false;
}

std::string LauncherTest::identityOf(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0)
        return "";
    return std::to_string(status.st_dev) + " " + std::to_string(status.st_ino) + " " +
           std::to_string(status.st_ctim.tv_sec) + "." + std::to_string(status.st_ctim.tv_nsec);
}

bool LauncherTest::runs(pid_t process) {
    std::ifstream file("/proc/" + std::to_string(process) + "/stat");
    std::string line;
    if (process <= 0 || !std::getline(file, line))
        return false;
    // Where nobody collects orphans they stay as zombies, which run nothing.
    const size_t name = line.rfind(')');
    return name != std::string::npos && line.size() > name + 2 && line[name + 2] != 'Z';
}

std::string LauncherTest::remains(const Launched& launched) const {
    std::string found;
    if (launched.launcher && launched.launcher->running())
        found += "launcher ";
    if (runs(launched.server))
        found += "server ";
    if (launched.number >= 0 && launched.socket.empty()) {
        for (const std::string& path :
             {socketPath(launched.number), "/tmp/.X" + std::to_string(launched.number) + "-lock"})
            if (fs::exists(path))
                found += path + " ";
        if (listens(launched.number))
            found += "listener ";
    } else if (launched.number >= 0 && identityOf(socketPath(launched.number)) == launched.socket) {
        found += socketPath(launched.number) + " ";
    }
    for (const auto& entry : fs::directory_iterator(runtime))
        found += entry.path().string() + " ";
    if (fs::exists(state / "kor"))
        for (const auto& entry : fs::directory_iterator(state / "kor"))
            if (entry.path().filename().string().find("pid-") != std::string::npos)
                found += entry.path().string() + " ";
    return found;
}

bool LauncherTest::admits(int number, const std::string& authority) {
    Command command;
    command.arguments = {buildProgram("../tests/open_display"), ":" + std::to_string(number)};
    command.environment = {{"XAUTHORITY", authority.empty() ? "/dev/null" : authority}};
    const CommandResult result = runCommand(command);
    EXPECT_LE(result.status, 1) << result.errors;
    return result.status == 0;
}

void expectOneLine(const CommandResult& result, const std::string& part) {
    EXPECT_FALSE(result.timedOut);
    EXPECT_TRUE(result.errors.starts_with("Xkor: ")) << result.errors;
    EXPECT_EQ(std::count(result.errors.begin(), result.errors.end(), '\n'), 1) << result.errors;
    EXPECT_NE(result.errors.find(part), std::string::npos)
        << "looking for \"" << part << "\" in: " << result.errors;
    EXPECT_EQ(result.output, "");
}

} // namespace kor::test
