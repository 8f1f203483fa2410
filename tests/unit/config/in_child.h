#ifndef KOR_TESTS_UNIT_CONFIG_IN_CHILD_H
#define KOR_TESTS_UNIT_CONFIG_IN_CHILD_H

#include "../support/stderr_capture.h"

#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace kor::test {

struct ChildResult {
    pid_t process;
    int status;         // its exit status, -1 when a signal ended it
    std::string errors; // what it wrote on stderr
};

/// Runs body in a child process, where the log and the settings are still as at a program's start,
/// whatever other tests did. body's value is the exit status. The child ends by SIGALRM after a
/// minute at the latest.
template <typename Body> ChildResult inChild(Body body) {
    const StderrCapture capture;
    const pid_t process = fork();
    if (process == 0) {
        alarm(60);
        _exit(body());
    }
    int status = 0;
    waitpid(process, &status, 0);
    return {process, WIFEXITED(status) ? WEXITSTATUS(status) : -1, capture.text()};
}

} // namespace kor::test

#endif
