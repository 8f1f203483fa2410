#ifndef KOR_TESTS_ADAPTER_X_SERVER_H
#define KOR_TESTS_ADAPTER_X_SERVER_H

#include <string>
#include <sys/types.h>

namespace kor::test {

/// A local display for a test: Xvfb with software GL, on a display number of its own choosing. It
/// ends with the object, and with the test program whatever way that ends.
class XServer {
  public:
    XServer();
    ~XServer();
    XServer(const XServer&) = delete;
    XServer& operator=(const XServer&) = delete;

    /// ":N"; empty when the server did not start within 30 seconds.
    const std::string& name() const { return name_; }

  private:
    pid_t process_ = -1;
    std::string name_;
};

} // namespace kor::test

#endif
