#include "korrun_fixture.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

namespace files = std::filesystem;

Program::Program(const std::string& folder, const std::vector<std::string>& command,
                 const std::map<std::string, std::string>& environment) {
    static int count = 0;
    const std::string name = folder + "/run" + std::to_string(++count);
    m_output = name + ".out";
    m_errors = name + ".err";
    std::vector<std::string> texts = command;
    std::vector<char*> arguments;
    for (std::string& text : texts)
        arguments.push_back(text.data());
    arguments.push_back(nullptr);
    m_pid = fork();
    if (m_pid != 0)
        return;
    const int output = open(m_output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const int errors = open(m_errors.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const int nothing = open("/dev/null", O_RDONLY);
    dup2(nothing, 0);
    dup2(output, 1);
    dup2(errors, 2);
    close_range(3, ~0U, 0);
    for (const auto& [variable, value] : environment) {
        if (value == "-")
            unsetenv(variable.c_str());
        else
            setenv(variable.c_str(), value.c_str(), 1);
    }
    execv(arguments[0], arguments.data());
    _exit(125);
}

Program::~Program() {
    if (m_ended || m_pid <= 0)
        return;
    kill(m_pid, SIGTERM);
    if (!comesTrue([&] { return waitpid(m_pid, nullptr, WNOHANG) != 0; },
                   std::chrono::seconds(10))) {
        kill(m_pid, SIGKILL);
        waitpid(m_pid, nullptr, 0);
    }
}

int Program::waitStatus() {
    if (!m_ended) {
        m_ended = comesTrue([&] { return waitpid(m_pid, &m_waitStatus, WNOHANG) == m_pid; },
                            std::chrono::seconds(60));
        EXPECT_TRUE(m_ended) << "korrun does not end: " << errors();
    }
    return m_waitStatus;
}

int Program::status() {
    const int status = waitStatus();
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

std::string Program::output() const {
    return readFile(m_output);
}
std::string Program::errors() const {
    return readFile(m_errors);
}

bool comesTrue(const std::function<bool()>& condition, std::chrono::milliseconds patience) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        usleep(10000);
    }
    return true;
}

std::string readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

void KorrunTest::SetUp() {
    m_folder = testing::TempDir() + "korrun-test.XXXXXX";
    ASSERT_NE(mkdtemp(m_folder.data()), nullptr);
    files::create_directories(path("bin"));
    files::create_directories(path("lib/kor"));
    // A copy, since korrun looks beside the file that it really is; Xkor needs its own module.
    files::copy_file(KORRUN_PROGRAM, path("bin/korrun"));
    files::create_symlink(XKOR_PROGRAM, path("bin/Xkor"));
    files::create_symlink(STAND_IN_FRONT, path("lib/kor/libGL.so.1"));
}

void KorrunTest::TearDown() {
    EXPECT_THAT(sessionFolders(), testing::IsEmpty());
    EXPECT_TRUE(comesTrue([&] { return servers().empty(); })) << testing::PrintToString(servers());
    files::remove_all(m_folder);
}

Program KorrunTest::korrun(const std::vector<std::string>& arguments,
                           std::map<std::string, std::string> environment) const {
    std::vector<std::string> command = {path("bin/korrun")};
    command.insert(command.end(), arguments.begin(), arguments.end());
    // Nothing of the machine's own displays; sessions keep their files where the test looks.
    environment.try_emplace("TMPDIR", m_folder);
    environment.try_emplace("DISPLAY", "-");
    environment.try_emplace("XAUTHORITY", path("no-authority"));
    environment.try_emplace("KOR_GL_DISPLAY", "-");
    environment.try_emplace("LD_LIBRARY_PATH", "-");
    return {m_folder, command, environment};
}

std::vector<std::string> KorrunTest::sessionFolders() const {
    std::vector<std::string> found;
    for (const auto& entry : files::directory_iterator(m_folder))
        if (entry.path().filename().string().starts_with("korrun."))
            found.push_back(entry.path());
    return found;
}

std::vector<std::string> KorrunTest::servers() const {
    std::vector<std::string> found;
    for (const auto& entry : files::directory_iterator("/proc")) {
        std::string command = readFile(entry.path() / "cmdline");
        std::replace(command.begin(), command.end(), '\0', ' ');
        if (command.find(m_folder) != std::string::npos)
            found.push_back(entry.path().filename().string() + ": " + command);
    }
    return found;
}

std::string displayNumber(const std::string& display) {
    const std::size_t begin = display.find(':') + 1;
    std::size_t end = begin;
    while (end < display.size() && std::isdigit(static_cast<unsigned char>(display[end])))
        ++end;
    return display.substr(begin, end - begin);
}

bool hasSocket(const std::string& number) {
    return !number.empty() && files::exists("/tmp/.X11-unix/X" + number);
}

bool hasDeadSocket(const std::string& number) {
    if (!hasSocket(number))
        return false;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    ("/tmp/.X11-unix/X" + number).copy(address.sun_path, sizeof(address.sun_path) - 1);
    const int client = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const bool refused =
        connect(client, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 &&
        errno == ECONNREFUSED;
    close(client);
    return refused;
}
