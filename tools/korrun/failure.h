#pragma once

#include <stdexcept>
#include <string>

namespace korrun {

// The statuses with which korrun itself ends; any other is the command's own.
enum ExitStatus {
    StatusUsage = 2,           // wrong options
    StatusMissing = 3,         // a library, a server or a display is missing or does not start
    StatusNoPicture = 4,       // the command succeeded, but the picture could not be taken
    StatusNotExecutable = 126, // as shells and env(1) have it
    StatusNotFound = 127
};

// What stops korrun: a message for the user that says what to do, and the exit status.
class Failure : public std::runtime_error {
  public:
    Failure(int exitStatus, const std::string& message)
        : std::runtime_error(message), m_exitStatus(exitStatus) {}
    int exitStatus() const { return m_exitStatus; }

  private:
    int m_exitStatus;
};

} // namespace korrun
