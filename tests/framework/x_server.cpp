#include "framework/x_server.h"

#include "framework/wait_until.h"

#include <X11/Xauth.h>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <stdexcept>
#include <sys/random.h>
#include <unistd.h>

namespace kor::test {

namespace {

/// Removes the file when the process ends in good order.
class AuthorityFile {
  public:
    AuthorityFile() {
        char path[] = "/tmp/kor-test-auth-XXXXXX";
        const int file = mkstemp(path);
        FILE* stream = file == -1 ? nullptr : fdopen(file, "w");
        if (!stream)
            throw std::runtime_error("no authority file can be made in /tmp");
        m_path = path;
        char cookie[16];
        char name[] = "MIT-MAGIC-COOKIE-1";
        char number[] = "";
        Xauth entry{};
        entry.family = FamilyWild;
        entry.number = number; // empty: every display
        entry.name_length = sizeof name - 1;
        entry.name = name;
        entry.data_length = sizeof cookie;
        entry.data = cookie;
        const bool drawn = getrandom(cookie, sizeof cookie, 0) == sizeof cookie;
        const bool written = drawn && XauWriteAuth(stream, &entry) != 0;
        if (fclose(stream) != 0 || !written)
            throw std::runtime_error(m_path + " cannot be written");
        setenv("XAUTHORITY", m_path.c_str(), 1);
    }
    AuthorityFile(const AuthorityFile&) = delete;
    AuthorityFile& operator=(const AuthorityFile&) = delete;
    ~AuthorityFile() {
        if (getpid() == m_process)
            unlink(m_path.c_str());
    }
    [[nodiscard]] const std::string& path() const { return m_path; }

  private:
    std::string m_path;
    pid_t m_process = getpid();
};

std::vector<std::string> commandLine(const XServer::Options& options) {
    const std::string size = std::to_string(options.width) + "x" + std::to_string(options.height);
    std::vector<std::string> line;
    if (options.kind == XServer::Kind::Xkor) {
        line = {buildProgram("Xkor"), "-geometry", size};
        if (!options.glDisplay.empty())
            line.insert(line.end(), {"-gldisplay", options.glDisplay});
    } else {
        line = {"Xvfb", "-screen",  "0",         size + "x24", "+extension",
                "GLX",  "-noreset", "-nolisten", "tcp"};
    }
    line.insert(line.end(), {"-displayfd", "3", "-auth", XServer::authorityFile()});
    line.insert(line.end(), options.arguments.begin(), options.arguments.end());
    return line;
}

} // namespace

XServer::XServer(const Options& options) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0)
        throw std::runtime_error("no pipe for the display number");
    Command command;
    command.arguments = commandLine(options);
    command.environment = {{"XDG_STATE_HOME", KOR_BUILD_BIN_DIR "/../tests/state"}}; // Xkor's log
    command.deathSignal = SIGTERM; // a killed server leaves its socket behind
    command.files = {{3, ends[1]}};
    m_process = std::make_unique<Child>(command);
    close(ends[1]);

    std::string text;
    const bool answered = waitUntil(
        [&] {
            char buffer[16];
            const ssize_t got = read(ends[0], buffer, sizeof buffer);
            if (got > 0)
                text.append(buffer, static_cast<size_t>(got));
            return text.ends_with('\n') || !m_process->running();
        },
        std::chrono::seconds(60));
    close(ends[0]);
    if (!answered || !text.ends_with('\n')) {
        m_process->stop();
        throw std::runtime_error(command.arguments[0] + " does not start: " + m_process->errors());
    }
    m_number = atoi(text.c_str());
    m_name = ":" + std::to_string(m_number);
}

XServer::~XServer() {
    stop();
}

const std::string& XServer::authorityFile() {
    static const AuthorityFile file;
    return file.path();
}

std::string buildProgram(const std::string& name) {
    return KOR_BUILD_BIN_DIR "/" + name;
}
std::string buildLibrary(const std::string& name) {
    return KOR_BUILD_LIB_DIR "/" + name;
}

} // namespace kor::test
