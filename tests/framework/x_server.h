#ifndef KOR_TESTS_FRAMEWORK_X_SERVER_H
#define KOR_TESTS_FRAMEWORK_X_SERVER_H

#include "framework/child.h"

#include <memory>
#include <string>
#include <vector>

namespace kor::test {

/// An X server for one test: on a free display number that the server itself picks, and gone with
/// the object or with the thread that made it, whichever ends first.
class XServer {
  public:
    enum class Kind {
        Xkor, ///< the application display: dummy driver, KOR-V1, no Composite
        Xvfb, ///< a local display without a GPU: GLX by software
    };

    struct Options {
        Kind kind = Kind::Xkor;
        int width = 1024;                     ///< pixels; depth is 24
        int height = 768;                     ///< pixels
        std::string glDisplay{};              ///< Xkor only; empty: none
        std::vector<std::string> arguments{}; ///< further arguments of the server
    };

    /// Starts the server and waits until it takes clients, up to a minute. Throws
    /// std::runtime_error with the server's own words when it does not.
    explicit XServer(const Options& options);
    ~XServer();

    /// ":N", for XOpenDisplay or the variable DISPLAY.
    [[nodiscard]] const std::string& name() const { return m_name; }
    [[nodiscard]] int number() const { return m_number; }

    /// The launcher's process in the case of Xkor.
    Child& process() { return *m_process; }

    /// Ends it in good order now. The server's exit status.
    int stop() { return m_process->stop(); }

    /// The one authority file that opens every server of this process. The first call makes it and
    /// puts it into XAUTHORITY, so that clients of this process and its children find it.
    static const std::string& authorityFile();

  private:
    std::string m_name;
    int m_number = -1;
    std::unique_ptr<Child> m_process;
};

/// Path of a program of this build, for example "Xkor".
std::string buildProgram(const std::string& name);
/// Path of a file below this build's lib folder, for example "libGL_KOR.so".
std::string buildLibrary(const std::string& name);

} // namespace kor::test

#endif
