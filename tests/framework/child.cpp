#include "framework/child.h"

#include "framework/wait_until.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace kor::test {

namespace {

std::vector<std::string> changedEnvironment(const Command& command) {
    std::vector<std::string> result;
    for (char** entry = environ; *entry; ++entry) {
        const std::string text = *entry;
        if (!command.environment.contains(text.substr(0, text.find('='))))
            result.push_back(text);
    }
    for (const auto& [name, value] : command.environment)
        if (value)
            result.push_back(name + "=" + *value);
    return result;
}

std::vector<char*> pointers(const std::vector<std::string>& texts) {
    std::vector<char*> result;
    for (const std::string& text : texts)
        result.push_back(const_cast<char*>(text.c_str()));
    result.push_back(nullptr);
    return result;
}

/// A file in memory, not a pipe: however much a child writes, it never waits for a reader.
int outputFile() {
    const int file = memfd_create("child-output", MFD_CLOEXEC);
    if (file == -1)
        throw std::runtime_error(std::string("no memory file: ") + strerror(errno));
    return file;
}

std::string contents(int file) {
    std::string text;
    char buffer[4096];
    for (;;) {
        const ssize_t got = pread(file, buffer, sizeof buffer, static_cast<off_t>(text.size()));
        if (got <= 0)
            return text;
        text.append(buffer, static_cast<size_t>(got));
    }
}

/// Between fork and exec: only what a process with other threads may do there.
[[noreturn]] void become(const Command& command, char* const* arguments, char* const* environment,
                         pid_t parent, int output, int errors) {
    prctl(PR_SET_PDEATHSIG, command.deathSignal);
    if (getppid() != parent)
        _exit(126);
    setpgid(0, 0);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    for (const int number : command.ignoredSignals)
        ::signal(number, SIG_IGN);
    // First above all numbers wanted, so that none overwrites another.
    constexpr int above = 100;
    const int nothing = open("/dev/null", O_RDONLY | O_CLOEXEC);
    dup2(nothing, 0);
    dup2(output, 1);
    dup2(errors, 2);
    int next = above;
    for (const auto& [theirs, ours] : command.files) {
        dup3(ours, next++, O_CLOEXEC);
        (void)theirs;
    }
    next = above;
    for (const auto& [theirs, ours] : command.files) {
        dup2(next++, theirs);
        (void)ours;
    }
    if (!command.folder.empty() && chdir(command.folder.c_str()) != 0)
        _exit(126);
    execvpe(arguments[0], arguments, environment);
    dprintf(2, "cannot run %s\n", arguments[0]);
    _exit(127);
}

} // namespace

Child::Child(const Command& command) : m_output(outputFile()), m_errors(outputFile()) {
    const std::vector<std::string> environment = changedEnvironment(command);
    const std::vector<char*> argumentPointers = pointers(command.arguments);
    const std::vector<char*> environmentPointers = pointers(environment);
    const pid_t parent = getpid();
    m_process = fork();
    if (m_process == 0)
        become(command, argumentPointers.data(), environmentPointers.data(), parent, m_output,
               m_errors);
    if (m_process == -1) {
        close(m_output);
        close(m_errors);
        throw std::runtime_error(std::string("no process: ") + strerror(errno));
    }
    setpgid(m_process, m_process); // whoever comes first, so that the group is there at once
}

Child::~Child() {
    stop();
    if (!m_status) // killed, but not collected yet
        while (waitpid(m_process, nullptr, 0) == -1 && errno == EINTR)
            ;
    close(m_output);
    close(m_errors);
}

std::optional<int> Child::wait(std::chrono::milliseconds timeout) {
    waitUntil(
        [this] {
            int status = 0;
            if (!m_status && waitpid(m_process, &status, WNOHANG) == m_process)
                m_status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
            return m_status.has_value();
        },
        timeout);
    return m_status;
}

void Child::signal(int number) {
    if (running())
        kill(m_process, number);
}

void Child::killGroup() const {
    kill(-m_process, SIGKILL); // also when the leader has ended: it may have left others
}

int Child::stop(std::chrono::milliseconds timeout) {
    signal(SIGTERM);
    wait(timeout);
    killGroup();
    return wait(std::chrono::seconds(10)).value_or(128 + SIGKILL);
}

std::string Child::output() const {
    return contents(m_output);
}
std::string Child::errors() const {
    return contents(m_errors);
}

CommandResult runCommand(const Command& command, std::chrono::milliseconds timeout) {
    Child child(command);
    CommandResult result;
    const std::optional<int> status = child.wait(timeout);
    result.timedOut = !status;
    result.status = status ? *status : child.stop(std::chrono::milliseconds(0));
    if (result.timedOut)
        result.status = 128 + SIGKILL;
    result.output = child.output();
    result.errors = child.errors();
    return result;
}

} // namespace kor::test
