#include "web_server.h"

#include "listening.h"
#include "viewing.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace kor::server {

namespace {

/// Between fork and exec: nothing that could wait for a lock.
[[noreturn]] void becomeWebServer(char* const* arguments, pid_t launcher, int output) {
    setpgid(0, 0);
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != launcher)
        _exit(1);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    for (const int number : {SIGTERM, SIGINT, SIGHUP, SIGUSR1, SIGUSR2, SIGPIPE, SIGCHLD})
        signal(number, SIG_DFL);
    const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
    if (dup2(nothing, 0) == -1 || dup2(output, 1) == -1 || dup2(output, 2) == -1)
        _exit(1);
    close_range(3, ~0U, 0);
    execv(arguments[0], arguments);
    _exit(127);
}

std::string bracketed(const std::string& address) {
    return address.find(':') == std::string::npos ? address : "[" + address + "]";
}

} // namespace

void WebServer::start(const Viewing& viewing) {
    m_viewing = viewing;
    const std::string from = viewing.webAddress.empty()    ? "127.0.0.1:"
                             : viewing.webAddress == "all" ? ""
                                                           : bracketed(viewing.webAddress) + ":";
    const std::string to = viewing.vncAddress.empty() || viewing.vncAddress == "all"
                               ? "127.0.0.1"
                               : bracketed(viewing.vncAddress);
    std::vector<std::string> texts{findWebsockify(),

                                   "--web", noVncFolder(), from + std::to_string(*viewing.webPort),
                                   to + ":" + std::to_string(*viewing.vncPort)};
    std::vector<char*> arguments;
    arguments.reserve(texts.size() + 1);
    for (std::string& text : texts)
        arguments.push_back(text.data());
    arguments.push_back(nullptr);

    int output[2];
    if (pipe2(output, O_CLOEXEC) != 0)
        throw Problem(Problem::StartFailed,
                      std::string("no pipe to the web server: ") + strerror(errno));
    const pid_t launcher = getpid();
    m_output = output[0];
    m_process = fork();
    if (m_process == 0)
        becomeWebServer(arguments.data(), launcher, output[1]);
    close(output[1]);
    if (m_process == -1)
        throw Problem(Problem::StartFailed,
                      std::string("no process for the web server: ") + strerror(errno));
    setpgid(m_process, m_process); // whoever comes first
    m_state = State::Starting;
}

WebServer::State WebServer::look() {
    if (m_process > 0 && waitpid(m_process, nullptr, WNOHANG) == m_process) {
        kill(-m_process, SIGKILL); // the connections that it leaves behind
        m_process = -1;
        m_state = State::Ended;
    }
    if (m_state == State::Starting && listensOn(m_process, *m_viewing.webPort))
        m_state = State::Serving;
    return m_state;
}

void WebServer::stop() {
    if (m_process > 0) {
        kill(-m_process, SIGKILL); // it keeps nothing that could be lost
        while (waitpid(m_process, nullptr, 0) == -1 && errno == EINTR)
            ;
    }
    m_process = -1;
    m_state = State::None;
    if (m_output != -1)
        close(m_output);
    m_output = -1;
}

void WebServer::handleOutput(bool show) {
    constexpr size_t kept = 4096;
    char buffer[4096];
    const ssize_t got = read(m_output, buffer, sizeof buffer);
    if (got == 0 || (got == -1 && errno != EINTR)) {
        close(m_output);
        m_output = -1;
    }
    if (got <= 0)
        return;
    m_printed.append(buffer, static_cast<size_t>(got));
    if (m_printed.size() > kept)
        m_printed.erase(0, m_printed.size() - kept);
    if (show && write(STDERR_FILENO, buffer, static_cast<size_t>(got)) == -1)
        return; // nobody reads it
}

std::string WebServer::lastLine() const {
    const size_t end = m_printed.find_last_not_of('\n');
    if (end == std::string::npos)
        return "it gave no reason";
    const size_t before = m_printed.rfind('\n', end);
    const size_t begin = before == std::string::npos ? 0 : before + 1;
    return m_printed.substr(begin, end + 1 - begin);
}

} // namespace kor::server
