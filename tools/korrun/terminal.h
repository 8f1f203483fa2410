#pragma once

#include <sys/types.h>

namespace korrun {

// The terminal from which korrun was started, if any. The command runs in a process group of its
// own; it gets the terminal for itself, so that it can read and so that ^C reaches it alone, as
// from a shell.
class Terminal {
  public:
    Terminal();
    ~Terminal() { takeBack(); }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    // Hands the terminal to the process group, if korrun has it now. May be called in a new process
    // as well.
    void give(pid_t group);
    void takeBack();

  private:
    pid_t m_ownGroup;
    bool m_ours; // korrun was in the foreground when it started
    bool m_given = false;
};

} // namespace korrun
