#ifndef KOR_TESTS_FRAMEWORK_CHILD_H
#define KOR_TESTS_FRAMEWORK_CHILD_H

#include <chrono>
#include <csignal>
#include <map>
#include <optional>
#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

namespace kor::test {

/// What is to be run, and how.
struct Command {
    std::vector<std::string> arguments; ///< the program first; looked for in PATH
    /// Changes to this process's environment; without a value the variable is removed.
    std::map<std::string, std::optional<std::string>> environment{};
    std::string folder{}; ///< working folder; empty: this process's
    /// Files that it inherits beside its standard ones: its number of the file, and ours (which
    /// stays ours).
    std::vector<std::pair<int, int>> files{};
    /// Signals that it is started with as ignored.
    std::vector<int> ignoredSignals{};
    /// What it gets when the thread that started it ends.
    int deathSignal = SIGKILL;
};

/// A process of ours with its output kept. It leads a process group of its own, reads nothing, and
/// does not outlive the thread that started it, nor this object. One thread at a time.
class Child {
  public:
    /// Starts it. Throws std::runtime_error when there is no process to be had; a program that
    /// cannot be run ends with 127.
    explicit Child(const Command& command);
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    ~Child();

    [[nodiscard]] pid_t process() const { return m_process; }

    /// Waits until it ends, but not longer than the timeout. Its exit status, or 128 plus the
    /// signal that ended it; nothing when it still runs.
    std::optional<int> wait(std::chrono::milliseconds timeout);
    bool running() { return !wait(std::chrono::milliseconds(0)); }

    /// Sends the process itself, not its group, a signal. Nothing when it has ended.
    void signal(int number);

    /// Asks it to end, and kills what is left of its group when it has ended or the timeout is
    /// over. Returns its status as wait() does.
    int stop(std::chrono::milliseconds timeout = std::chrono::seconds(15));

    /// What it has written so far.
    [[nodiscard]] std::string output() const;
    [[nodiscard]] std::string errors() const;

  private:
    void killGroup() const;

    pid_t m_process = -1;
    int m_output = -1;
    int m_errors = -1;
    std::optional<int> m_status;
};

struct CommandResult {
    int status = -1; ///< exit status, or 128 plus the signal; 137 after a timeout
    bool timedOut = false;
    std::string output;
    std::string errors;
};

/// Runs a command to its end; after the timeout it is killed with its whole process group.
CommandResult runCommand(const Command& command,
                         std::chrono::milliseconds timeout = std::chrono::seconds(30));

} // namespace kor::test

#endif
