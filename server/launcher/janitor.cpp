#include "janitor.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

// glibc 2.36 forgot to declare these as C functions.
extern "C" {
#include <sys/pidfd.h>
}

namespace kor::server {

namespace {

constexpr int serverEndsWithinMilliseconds = 10000;

/// What a server that is killed leaves in /tmp.
struct Traces {
    std::string lock;
    std::string socket;
    struct stat socketAtStart {};
};

/// Reads the display number, if it comes, and waits until the launcher is gone.
Traces waitForLauncher(int lifeline) {
    Traces traces;
    int display = -1;
    for (;;) {
        const ssize_t got = read(lifeline, &display, sizeof display);
        if (got == static_cast<ssize_t>(sizeof display)) {
            traces.lock = "/tmp/.X" + std::to_string(display) + "-lock";
            traces.socket = "/tmp/.X11-unix/X" + std::to_string(display);
            stat(traces.socket.c_str(), &traces.socketAtStart);
        } else if (got != -1 || errno != EINTR) {
            return traces;
        }
    }
}

/// The dying launcher has sent the server its signal already; one that does not heed it is killed.
void waitForServer(int server) {
    pollfd wait{server, POLLIN, 0};
    if (poll(&wait, 1, serverEndsWithinMilliseconds) == 0) {
        pidfd_send_signal(server, SIGKILL, nullptr, 0);
        poll(&wait, 1, serverEndsWithinMilliseconds);
    }
}

/// A server that ends by itself has removed its traces; what another server has put in their place
/// meanwhile stays.
void removeTraces(pid_t server, const Traces& traces) {
    struct stat now {};
    if (stat(traces.socket.c_str(), &now) == 0 && now.st_ino == traces.socketAtStart.st_ino &&
        now.st_dev == traces.socketAtStart.st_dev &&
        now.st_ctim.tv_sec == traces.socketAtStart.st_ctim.tv_sec &&
        now.st_ctim.tv_nsec == traces.socketAtStart.st_ctim.tv_nsec)
        unlink(traces.socket.c_str());

    FILE* file = fopen(traces.lock.c_str(), "re");
    if (!file)
        return;
    char text[32] = {};
    const bool ours =
        fgets(text, sizeof text, file) != nullptr && strtol(text, nullptr, 10) == server;
    fclose(file);
    if (ours)
        unlink(traces.lock.c_str());
}

} // namespace

bool Janitor::start(const Remains& remains) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return false;
    // Opened before the server can have been waited for, so that the number means no one else.
    const int server = pidfd_open(remains.server, 0);
    m_process = fork();
    if (m_process != 0) {
        close(ends[0]);
        if (server != -1)
            close(server);
        m_lifeline = ends[1];
        return m_process > 0;
    }

    // Signals to the whole process group are the launcher's business.
    sigset_t all;
    sigfillset(&all);
    sigprocmask(SIG_SETMASK, &all, nullptr);
    prctl(PR_SET_NAME, "Xkor-janitor");
    dup2(ends[0], 0);
    dup2(server, 1);
    close_range(3, ~0U, 0);
    const Traces traces = waitForLauncher(0);
    if (server != -1)
        waitForServer(1);
    removeTraces(remains.server, traces);
    if (!remains.authority.empty())
        unlink(remains.authority.c_str());
    if (!remains.logOfPendingStart.empty())
        rename(remains.logOfPendingStart.c_str(), remains.logOfFailedStart.c_str());
    _exit(0);
}

void Janitor::setDisplay(int display) {
    if (m_lifeline != -1 && write(m_lifeline, &display, sizeof display) == -1)
        perror("Xkor: the janitor process is gone");
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
