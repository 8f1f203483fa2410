#include "command.h"

#include "failure.h"
#include "pipe_text.h"
#include "process_group.h"
#include "terminal.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <sys/wait.h>
#include <unistd.h>

namespace korrun {

namespace {

constexpr std::chrono::seconds endingPatience{3};   // between asking the command and killing it
constexpr std::chrono::seconds picturePatience{10}; // a server that does not answer gives none

using Deadline = std::optional<Clock::time_point>;

Deadline after(Clock::time_point start, std::optional<double> seconds) {
    if (!seconds)
        return std::nullopt;
    return start +
           std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(*seconds));
}

[[noreturn]] void cannotRun(const std::string& program, int error) {
    if (error == ENOENT)
        throw Failure(StatusNotFound, program + ": command not found");
    throw Failure(StatusNotExecutable, program + ": " + std::strerror(error));
}

// Only returns on failure, with errno.
int execute(const std::vector<std::string>& command) {
    std::vector<std::string> texts = command;
    std::vector<char*> arguments;
    arguments.reserve(texts.size() + 1);
    for (std::string& text : texts)
        arguments.push_back(text.data());
    arguments.push_back(nullptr);
    execvp(arguments[0], arguments.data());
    return errno;
}

// The signals that are waited for instead of being handled. They stay blocked while this exists.
class WaitedSignals {
  public:
    WaitedSignals() {
        sigemptyset(&m_waited);
        for (const int number : {SIGCHLD, SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGUSR1, SIGUSR2})
            sigaddset(&m_waited, number);
        sigprocmask(SIG_BLOCK, &m_waited, &m_before);
    }
    ~WaitedSignals() { restore(); }
    WaitedSignals(const WaitedSignals&) = delete;
    WaitedSignals& operator=(const WaitedSignals&) = delete;
    void restore() const { sigprocmask(SIG_SETMASK, &m_before, nullptr); }

    // The next signal, or 0 when none came before the deadline.
    int next(Deadline deadline) const {
        if (!deadline)
            return std::max(0, sigwaitinfo(&m_waited, nullptr));
        const auto left = std::max(Clock::duration::zero(), *deadline - Clock::now());
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
        const timespec time = {
            static_cast<time_t>(seconds.count()),
            static_cast<long>(
                std::chrono::duration_cast<std::chrono::nanoseconds>(left - seconds).count())};
        return std::max(0, sigtimedwait(&m_waited, nullptr, &time));
    }

  private:
    sigset_t m_waited{};
    sigset_t m_before{};
};

class Watch {
  public:
    explicit Watch(const CommandPlan& plan) : m_plan(plan) {}
    CommandResult run();

  private:
    void start();
    void startPicture();
    void reap();
    void actOnTime();
    Deadline nextDeadline() const;

    const CommandPlan& m_plan;
    WaitedSignals m_signals;
    Terminal m_terminal;
    CommandResult m_result;
    pid_t m_command = -1; // -1 when it has ended
    pid_t m_group = -1;
    pid_t m_picture = -1; // the process that takes the picture, -1 when there is none
    Deadline m_pictureAt;
    Deadline m_pictureUntil;
    Deadline m_endAt;
    Deadline m_killAt;
};

void Watch::start() {
    Pipe failed = makePipe();
    m_command = fork();
    if (m_command < 0)
        throw Failure(StatusMissing,
                      std::string("cannot start a process: ") + std::strerror(errno));
    if (m_command == 0) {
        setpgid(0, 0);
        // The terminal must be the command's before it runs, or its first read would stop it.
        m_terminal.give(getpid());
        m_signals.restore();
        // From here, not from korrun: whoever looks after the command must know it before it does
        // anything, since korrun can be killed at any moment.
        if (m_plan.started)
            m_plan.started(getpid());
        const int error = execute(m_plan.command);
        writeText(failed.writeEnd.get(), std::to_string(error) + "\n");
        _exit(StatusNotFound);
    }
    setpgid(m_command, m_command); // as the child does; whichever comes first
    m_group = m_command;
    m_terminal.give(m_group);
    failed.writeEnd.close();
    // Ends at once: either exec closed the pipe or the reason arrives.
    std::string line;
    if (readLine(failed.readEnd.get(), line, Clock::time_point::max()) == ReadResult::Line) {
        while (waitpid(m_command, nullptr, 0) < 0 && errno == EINTR) {
        }
        cannotRun(m_plan.command[0], std::atoi(line.c_str()));
    }
}

void Watch::startPicture() {
    m_result.pictureTried = true;
    m_picture = fork();
    if (m_picture == 0) {
        m_signals.restore();
        _exit(m_plan.takePicture());
    }
    m_pictureUntil = Clock::now() + picturePatience;
}

void Watch::reap() {
    int status = 0;
    while (true) {
        const pid_t ended = waitpid(-1, &status, WNOHANG | WUNTRACED);
        if (ended <= 0)
            return;
        if (ended == m_command && WIFSTOPPED(status)) {
            // Stopped from the keyboard: stop like the command, so that the shell gets the
            // terminal, and go on with it.
            m_terminal.takeBack();
            raise(SIGSTOP);
            m_terminal.give(m_group);
            kill(-m_group, SIGCONT);
        } else if (ended == m_command) {
            m_result.waitStatus = status;
            m_command = -1;
        } else if (ended == m_picture && !WIFSTOPPED(status)) {
            m_result.pictureTaken = WIFEXITED(status) && WEXITSTATUS(status) == 0;
            m_picture = -1;
            m_pictureUntil.reset();
        }
    }
}

void Watch::actOnTime() {
    const auto isDue = [now = Clock::now()](Deadline deadline) {
        return deadline && *deadline <= now;
    };
    if (m_picture > 0 && isDue(m_pictureUntil)) {
        kill(m_picture, SIGKILL);
        m_pictureUntil.reset();
    }
    if (isDue(m_pictureAt)) {
        m_pictureAt.reset();
        startPicture();
    }
    // The end waits for a picture that is being taken.
    if (isDue(m_endAt) && m_picture < 0) {
        m_endAt.reset();
        m_result.timeWasUp = true;
        kill(-m_group, SIGTERM);
        kill(-m_group, SIGCONT);
        m_killAt = Clock::now() + endingPatience;
    }
    if (isDue(m_killAt)) {
        m_killAt.reset();
        kill(-m_group, SIGKILL);
    }
}

Deadline Watch::nextDeadline() const {
    Deadline first;
    const auto consider = [&](Deadline deadline) {
        if (deadline && (!first || *deadline < *first))
            first = deadline;
    };
    consider(m_pictureAt);
    consider(m_pictureUntil);
    if (m_picture < 0)
        consider(m_endAt);
    consider(m_killAt);
    return first;
}

CommandResult Watch::run() {
    start();
    const Clock::time_point begin = Clock::now();
    m_pictureAt = after(begin, m_plan.pictureAfter);
    m_endAt = after(begin, m_plan.endAfter);

    // Until the command and the picture are through. When the time is up, the whole group has to
    // go: processes that the command left behind get the same respite as itself.
    while (m_command > 0 || m_picture > 0 || (m_killAt && isGroupAlive(m_group))) {
        Deadline deadline = nextDeadline();
        if (m_command < 0 && m_picture < 0)
            deadline = Clock::now() + std::chrono::milliseconds(20); // strangers: nobody tells us
        const int signal = m_signals.next(deadline);
        if (signal == SIGCHLD) {
            reap();
            if (m_command < 0) {
                m_pictureAt.reset(); // nothing left to see
                m_endAt.reset();
            }
        } else if (signal != 0 && m_command > 0) {
            kill(-m_group, signal);
        }
        actOnTime();
    }
    return m_result;
}

} // namespace

CommandResult runCommand(const CommandPlan& plan) {
    return Watch(plan).run();
}

void becomeCommand(const std::vector<std::string>& command) {
    cannotRun(command[0], execute(command));
}

} // namespace korrun
