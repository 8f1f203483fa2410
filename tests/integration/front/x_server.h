#ifndef KOR_TESTS_FRONT_X_SERVER_H
#define KOR_TESTS_FRONT_X_SERVER_H

#include <string>
#include <sys/types.h>

/// An Xvfb of the test's own, on a display number that the server chooses.
class XServer {
  public:
    /// Starts it and waits until it answers, 30 seconds at the most. Fails the test when it does
    /// not.
    XServer();
    ~XServer();
    XServer(const XServer&) = delete;
    XServer& operator=(const XServer&) = delete;

    /// ":N", or empty when it did not start.
    const std::string& name() const { return name_; }

    /// Ends the server and waits until its connections are closed. May be called in a forked child
    /// of the process that started it.
    void end();

  private:
    pid_t process_ = -1;
    pid_t owner_ = -1;
    std::string name_;
};

#endif
