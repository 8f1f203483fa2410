#ifndef KOR_SERVER_LAUNCHER_JANITOR_H
#define KOR_SERVER_LAUNCHER_JANITOR_H

#include <string>
#include <sys/types.h>

namespace kor::server {

/// A process of its own that waits until the launcher is done or dead, sees to it that the server
/// ends, and then removes what either would leave behind: the authority file, the server's lock
/// file and socket where a killed server left them, the log of a start that failed. It does so on
/// every way out, so that there is one way only.
class Janitor {
  public:
    struct Remains {
        std::string authority; ///< empty: not ours to remove
        std::string logFolder; ///< empty: the log of a failed start is not ours to see to
    };

    Janitor() = default;
    Janitor(const Janitor&) = delete;
    Janitor& operator=(const Janitor&) = delete;
    ~Janitor();

    /// Forks; to be called before anything of what it removes is made. It keeps no file of the
    /// caller's open but the standard error output. Throws Problem.
    void start(const Remains& remains);

    /// Tells it of the server, and of its display number once that is known.
    void setServer(pid_t process) { tell(Message::Server, process); }
    void setDisplay(int display) { tell(Message::Display, display); }
    /// Tells it of the web server, which leads a process group.
    void setWebServer(pid_t process) { tell(Message::WebServer, process); }

    /// Lets it do its work, and waits until that is done.
    void finish();

  private:
    struct Message {
        enum Kind { Server, Display, WebServer } kind;
        int value;
    };
    struct Traces;

    void tell(Message::Kind kind, int value);
    [[noreturn]] static void work(const Remains& remains, int lifeline);
    static Traces waitForLauncher(int lifeline);

    pid_t m_process = -1;
    int m_lifeline = -1; ///< its end of file means that the launcher is gone
};

/// The log of a server that has no display number yet, and of one that never got any.
std::string pendingLog(const std::string& logFolder, pid_t server);
std::string failedLog(const std::string& logFolder);

} // namespace kor::server

#endif
