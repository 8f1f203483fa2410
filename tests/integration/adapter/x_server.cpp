#include "x_server.h"

#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kor::test {

XServer::XServer() {
    int ends[2];
    if (pipe(ends) != 0)
        return;
    const std::string numberFd = std::to_string(ends[1]);
    const pid_t parent = getpid();
    process_ = fork();
    if (process_ == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent)
            _exit(1);
        close(ends[0]);
        const int null = open("/dev/null", O_RDWR);
        dup2(null, STDOUT_FILENO);
        dup2(null, STDERR_FILENO);
        execlp("Xvfb", "Xvfb", "-displayfd", numberFd.c_str(), "-screen", "0", "640x480x24",
               "+extension", "GLX", "-noreset", "-nolisten", "tcp", "-ac", nullptr);
        _exit(127);
    }
    close(ends[1]);
    std::string number;
    pollfd waiting{ends[0], POLLIN, 0};
    char digit = 0;
    while (poll(&waiting, 1, 30000) == 1 && read(ends[0], &digit, 1) == 1 && digit != '\n')
        number += digit;
    close(ends[0]);
    if (digit == '\n')
        name_ = ":" + number;
}

XServer::~XServer() {
    if (process_ <= 0)
        return;
    kill(process_, SIGTERM);
    for (int i = 0; i < 100; i++) {
        if (waitpid(process_, nullptr, WNOHANG) == process_)
            return;
        usleep(50000);
    }
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
}

} // namespace kor::test
