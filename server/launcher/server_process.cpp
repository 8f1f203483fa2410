#include "server_process.h"

#include "problem.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <sys/prctl.h>
#include <unistd.h>

namespace kor::server {

namespace {

constexpr int firstClosed = 5;

/// Between fork and exec: nothing that could wait for a lock.
[[noreturn]] void becomeServer(const char* program, char* const* arguments, pid_t launcher,
                               int configuration, int display, int output) {
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != launcher)
        _exit(1);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    // Ended before it has handlers of its own, the server would leave its sockets behind. Whoever
    // ends it asks more than once.
    for (const int number : {SIGTERM, SIGINT, SIGHUP})
        signal(number, SIG_IGN);
    // The server must not take the launcher for a parent that waits for SIGUSR1.
    for (const int number : {SIGUSR1, SIGUSR2, SIGPIPE, SIGCHLD})
        signal(number, SIG_DFL);

    // First out of the way of the numbers that they are going to have.
    configuration = fcntl(configuration, F_DUPFD, firstClosed);
    display = fcntl(display, F_DUPFD, firstClosed);
    output = fcntl(output, F_DUPFD, firstClosed);
    const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
    if (dup2(nothing, 0) == -1 || dup2(output, 1) == -1 || dup2(output, 2) == -1 ||
        dup2(configuration, serverConfigurationFile) == -1 ||
        dup2(display, serverDisplayFile) == -1)
        _exit(1);
    close_range(firstClosed, ~0U, 0);
    execv(program, arguments);
    const char* reason = strerrordesc_np(errno);
    for (const char* part : {"Fatal server error:\n(EE) cannot run ", program, ": ", reason, "\n"})
        if (write(2, part, strlen(part)) == -1)
            break;
    _exit(127);
}

} // namespace

ServerProcess startServer(const std::string& program, const std::vector<std::string>& arguments,
                          int configuration) {
    std::vector<char*> pointers{const_cast<char*>(program.c_str())};
    for (const std::string& argument : arguments)
        pointers.push_back(const_cast<char*>(argument.c_str()));
    pointers.push_back(nullptr);

    int display[2];
    int output[2];
    if (pipe2(display, O_CLOEXEC) != 0 || pipe2(output, O_CLOEXEC) != 0)
        throw Problem(Problem::StartFailed,
                      std::string("no pipe to the server: ") + strerror(errno));
    const pid_t launcher = getpid();
    ServerProcess server;
    server.process = fork();
    if (server.process == 0)
        becomeServer(program.c_str(), pointers.data(), launcher, configuration, display[1],
                     output[1]);
    close(display[1]);
    close(output[1]);
    if (server.process == -1)
        throw Problem(Problem::StartFailed,
                      std::string("no process for the server: ") + strerror(errno));
    server.display = display[0];
    server.output = output[0];
    return server;
}

} // namespace kor::server
