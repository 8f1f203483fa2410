#include "janitor.h"

#include "authority.h"
#include "display_in_use.h"
#include "file_identity.h"
#include "problem.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

// glibc 2.36 forgot to declare these as C functions.
extern "C" {
#include <sys/pidfd.h>
}

namespace kor::server {

/// What a server that is killed leaves in /tmp, and by what it is known.
struct Janitor::Traces {
    pid_t server = -1;
    int serverFile = -1; ///< a process file descriptor
    pid_t webServer = -1;
    std::string lock;
    std::string socket;
    FileIdentity socketFile; ///< as the server made it
};

namespace {

constexpr int serverEndsWithinMilliseconds = 10000;
constexpr int pauseMilliseconds = 100;

/// A server that has just begun ignores the signal, so that it never ends half made: it is repeated
/// until it is heeded, and in the end the server is killed.
void endServer(int serverFile) {
    pollfd wait{serverFile, POLLIN, 0};
    for (int waited = 0; waited < serverEndsWithinMilliseconds; waited += pauseMilliseconds) {
        pidfd_send_signal(serverFile, SIGTERM, nullptr, 0);
        if (poll(&wait, 1, pauseMilliseconds) != 0)
            return;
    }
    pidfd_send_signal(serverFile, SIGKILL, nullptr, 0);
    poll(&wait, 1, serverEndsWithinMilliseconds);
}

void removeLock(const std::string& path, pid_t server) {
    FILE* file = fopen(path.c_str(), "re");
    if (!file)
        return;
    char text[32] = {};
    const bool ours =
        fgets(text, sizeof text, file) != nullptr && strtol(text, nullptr, 10) == server;
    fclose(file);
    if (ours)
        unlink(path.c_str());
}

} // namespace

std::string pendingLog(const std::string& logFolder, pid_t server) {
    return logFolder + "/Xkor.pid-" + std::to_string(server) + ".log"; // the server's own habit
}

std::string failedLog(const std::string& logFolder) {
    return logFolder + "/Xkor.failed.log";
}

Janitor::Traces Janitor::waitForLauncher(int lifeline) {
    Traces traces;
    for (;;) {
        Message message{};
        const ssize_t got = read(lifeline, &message, sizeof message);
        if (got != static_cast<ssize_t>(sizeof message)) {
            if (got == -1 && errno == EINTR)
                continue;
            return traces;
        }
        const std::string number = std::to_string(message.value);
        switch (message.kind) {
        case Message::Server:
            traces.server = message.value;
            traces.serverFile = pidfd_open(message.value, 0);
            break;
        case Message::WebServer:
            traces.webServer = message.value;
            break;
        case Message::Display:
            traces.lock = "/tmp/.X" + number + "-lock";
            traces.socket = "/tmp/.X11-unix/X" + number;
            traces.socketFile = FileIdentity(traces.socket);
            break;
        }
    }
}

void Janitor::work(const Remains& remains, int lifeline) {
    // Signals to the whole process group are the launcher's business.
    sigset_t all;
    sigfillset(&all);
    sigprocmask(SIG_SETMASK, &all, nullptr);
    prctl(PR_SET_NAME, "Xkor-janitor");
    dup2(lifeline, 0);
    dup2(2, 1);
    close_range(3, ~0U, 0);

    const Traces traces = waitForLauncher(0);
    if (traces.webServer > 0)
        kill(-traces.webServer, SIGKILL);
    if (traces.serverFile != -1)
        endServer(traces.serverFile);
    if (!traces.socket.empty()) {
        if (traces.socketFile.isAt(traces.socket) && !listensOn(traces.socket))
            unlink(traces.socket.c_str());
        removeLock(traces.lock, traces.server);
    }
    if (!remains.authority.empty()) {
        unlink(remains.authority.c_str());
        unlink(Authority::successorOf(remains.authority).c_str());
    }
    if (!remains.logFolder.empty() && traces.server != -1)
        rename(pendingLog(remains.logFolder, traces.server).c_str(),
               failedLog(remains.logFolder).c_str());
    _exit(0);
}

void Janitor::start(const Remains& remains) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        throw Problem(Problem::StartFailed, std::string("no pipe: ") + strerror(errno));
    m_process = fork();
    if (m_process == 0)
        work(remains, ends[0]);
    close(ends[0]);
    m_lifeline = ends[1];
    if (m_process == -1)
        throw Problem(Problem::StartFailed, std::string("no process: ") + strerror(errno));
}

void Janitor::tell(Message::Kind kind, int value) {
    const Message message{kind, value};
    if (write(m_lifeline, &message, sizeof message) == -1)
        perror("Xkor: the janitor process is gone, files may be left behind");
}

void Janitor::finish() {
    if (m_lifeline != -1)
        close(m_lifeline);
    m_lifeline = -1;
    if (m_process > 0)
        while (waitpid(m_process, nullptr, 0) == -1 && errno == EINTR)
            ;
    m_process = -1;
}

Janitor::~Janitor() {
    finish();
}

} // namespace kor::server
