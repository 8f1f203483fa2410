#ifndef KOR_SERVER_LAUNCHER_WEB_SERVER_H
#define KOR_SERVER_LAUNCHER_WEB_SERVER_H

#include "options.h"

#include <string>
#include <sys/types.h>

namespace kor::server {

/// websockify: serves noVNC's page and hands browsers' connections on to VNC. It leads a process
/// group, with a process for each connection in it, and gets SIGTERM when the launcher dies.
class WebServer {
  public:
    enum class State { None, Starting, Serving, Ended };

    WebServer() = default;
    WebServer(const WebServer&) = delete;
    WebServer& operator=(const WebServer&) = delete;
    ~WebServer() { stop(); }

    /// Starts it for a prepared viewing. Throws Problem when there is no process to be had.
    void start(const Viewing& viewing);
    /// Looks whether it listens by now, and whether it still runs.
    State look();
    /// Ends it with all its connections.
    void stop();

    [[nodiscard]] pid_t process() const { return m_process; }
    /// Reading end of what it prints; -1: nothing more comes.
    [[nodiscard]] int output() const { return m_output; }
    /// Takes in what it has printed, which is shown when wanted.
    void handleOutput(bool show);
    /// The last line that it printed.
    [[nodiscard]] std::string lastLine() const;

  private:
    State m_state = State::None;
    Viewing m_viewing;
    pid_t m_process = -1;
    int m_output = -1;
    std::string m_printed;
};

} // namespace kor::server

#endif
