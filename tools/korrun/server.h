#pragma once

#include "file_descriptor.h"
#include "pipe_text.h"
#include "server/launcher/file_identity.h"

#include <string>
#include <sys/types.h>
#include <vector>

namespace korrun {

// An X server that this process started. It ends with this process, however that ends.
class Server {
  public:
    // Starts `program` with "-displayfd FD" and `arguments` and waits for the display number, at
    // most until `deadline` and no longer than nobody has closed the other end of `stopDescriptor`.
    // What the server prints goes to `logFile`. Throws Failure with the end of the log.
    Server(const std::string& name, const std::string& program,
           const std::vector<std::string>& arguments, const std::string& logFile,
           Clock::time_point deadline, int stopDescriptor);
    // Ends the server, with everything that it started, and removes the socket should it
    // have been unable to. Takes at most some seconds.
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    const std::string& name() const { return m_name; }
    // The display's number, without a colon.
    const std::string& number() const { return m_number; }
    // Becomes readable when the server has ended.
    int endDescriptor() const { return m_process.get(); }

  private:
    void stop();
    bool waitForEnd(std::chrono::milliseconds patience);
    void removeSocket() const;

    std::string m_name;
    std::string m_number;
    std::string m_logFile;
    std::string m_socketPath;
    kor::server::FileIdentity m_socketFile; // as the server made it
    pid_t m_pid = -1;
    FileDescriptor m_process;
};

} // namespace korrun
