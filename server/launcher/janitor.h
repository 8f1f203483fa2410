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
        pid_t server = -1;     ///< the launcher's child
        std::string authority; ///< empty: not ours to remove
        std::string
            logOfPendingStart; ///< name of the log while no display number is known, or empty
        std::string logOfFailedStart; ///< what that log is then renamed to
    };

    Janitor() = default;
    Janitor(const Janitor&) = delete;
    Janitor& operator=(const Janitor&) = delete;
    ~Janitor();

    /// Forks. The janitor keeps no file of the caller's open but the standard error output. Without
    /// a process to spare nothing is started, and false is returned.
    bool start(const Remains& remains);

    /// Tells it the server's display number, once it is known.
    void setDisplay(int display);

    /// Lets it do its work, and waits until that is done.
    void finish();

  private:
    pid_t m_process = -1;
    int m_lifeline = -1; ///< its end of file means that the launcher is gone
};

} // namespace kor::server

#endif
