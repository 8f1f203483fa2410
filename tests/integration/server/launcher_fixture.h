#ifndef KOR_TESTS_INTEGRATION_SERVER_LAUNCHER_FIXTURE_H
#define KOR_TESTS_INTEGRATION_SERVER_LAUNCHER_FIXTURE_H

// Before the X headers, whose macros have names of its types.
#include <gtest/gtest.h>

#include "framework/child.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kor::test {

/// A launched Xkor, its display number and its own authority file.
struct Launched {
    std::unique_ptr<Child> launcher;
    int number = -1;       ///< -1: it did not start
    std::string authority; ///< as it says on its standard error output; empty: it said nothing
    pid_t server = -1;     ///< the Xorg process
    /// Its socket, as identityOf() tells it; empty: not known, and the number is nobody else's.
    std::string socket;

    [[nodiscard]] std::string name() const { return ":" + std::to_string(number); }
};

/// Gives each test folders of its own for what the launcher writes, so that what it leaves behind
/// can be counted.
class LauncherTest : public testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;

    /// The command line of Xkor with the test's folders; nothing is started.
    [[nodiscard]] Command command(const std::vector<std::string>& arguments) const;
    /// Runs it to its end.
    [[nodiscard]] CommandResult run(const std::vector<std::string>& arguments) const;
    /// Starts it with -displayfd, and waits for the number.
    [[nodiscard]] Launched launch(const std::vector<std::string>& arguments = {}) const;
    [[nodiscard]] static Launched launch(Command command);

    /// A display number that nobody uses now, far above those that servers pick by themselves.
    static int unusedNumber();

    /// Whether a client with this authority file (empty: none) gets onto the display.
    static bool admits(int number, const std::string& authority);
    static bool listens(int number);
    static bool runs(pid_t process);
    /// Tells a file from a later one of the same name, for numbers that servers pick by themselves
    /// are taken by others as soon as they are free. Empty: there is no such file.
    static std::string identityOf(const std::string& path);
    /// The processes that a launcher has started: the Xorg, or the one that cleans up; -1: none.
    static pid_t serverOf(const Launched& launched);
    static pid_t janitorOf(const Launched& launched);

    /// What is left of a server and its launcher in the system, as a text; empty: nothing.
    [[nodiscard]] std::string remains(const Launched& launched) const;

    std::filesystem::path folder;  ///< gone with the test
    std::filesystem::path state;   ///< XDG_STATE_HOME in it
    std::filesystem::path runtime; ///< XDG_RUNTIME_DIR in it
};

/// One line, beginning with the program's name: what a user gets to read of a failure.
void expectOneLine(const CommandResult& result, const std::string& part);

} // namespace kor::test

#endif
