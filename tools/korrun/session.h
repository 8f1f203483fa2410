#pragma once

#include "keeper.h"
#include "pipe_text.h"

#include <string>
#include <sys/types.h>
#include <vector>

namespace korrun {

// A private session: an application display and, where no GPU display is given, a local display,
// both opened by one authority file. It is there as long as the object is; should the process be
// killed, everything is taken down all the same.
class Session {
  public:
    // Starts the servers and waits for them. Throws Failure; nothing is left running then.
    explicit Session(const SessionPlan& plan);
    ~Session() { end(); }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    const std::string& applicationDisplay() const { return m_applicationDisplay; }
    const std::string& localDisplay() const { return m_localDisplay; }
    const std::string& authorityFile() const { return m_authorityFile; }

    // Tells the leader of the command's process group, which is ended should korrun be killed.
    void watchCommand(pid_t leader);
    // Takes everything down and waits until it is gone. Returns the names of the servers that had
    // ended by themselves before.
    std::vector<std::string> end();

  private:
    std::string m_applicationDisplay;
    std::string m_localDisplay;
    std::string m_authorityFile;
    pid_t m_keeper = -1;
    Pipe m_requests;
    Pipe m_answers;
};

} // namespace korrun
