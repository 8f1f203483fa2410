#pragma once

#include <functional>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace korrun {

// A command that is watched over: a picture is taken and its time is limited.
struct CommandPlan {
    std::vector<std::string> command;
    std::optional<double> pictureAfter; // seconds from the start
    std::optional<double> endAfter;     // seconds from the start
    std::function<int()> takePicture;   // runs in a process of its own and returns its status
    // Called in the new process once it leads its process group, before it becomes the command.
    std::function<void(pid_t leader)> started;
};

struct CommandResult {
    int waitStatus = 0;        // as waitpid has it
    bool timeWasUp = false;    // the command was ended because of endAfter
    bool pictureTaken = false; // always false where none was asked for
    bool pictureTried = false;
};

// Runs the command as the leader of a process group of its own and waits for its end. Signals that
// ask korrun to end are passed on to the group. Throws Failure when the command cannot be started.
CommandResult runCommand(const CommandPlan& plan);

// Replaces this process by the command. Throws Failure when that is not possible.
[[noreturn]] void becomeCommand(const std::vector<std::string>& command);

} // namespace korrun
