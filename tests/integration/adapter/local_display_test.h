#ifndef KOR_TESTS_ADAPTER_LOCAL_DISPLAY_TEST_H
#define KOR_TESTS_ADAPTER_LOCAL_DISPLAY_TEST_H

#include <gtest/gtest.h> // before the macros of Xlib

#include "framework/x_server.h"
#include "gl_table.h"

#include <array>
#include <atomic>
#include <stdexcept>
#include <string>
#include <vector>

namespace kor::test {

/// What to ask of an fbconfig.
struct ConfigWish {
    int samples = 0;
    bool alpha = false; // with depth 24: the configs that Mesa's software drivers put wrongly
    bool doubleBuffered = true;
    int drawableType = GLX_PBUFFER_BIT;
};

/// The kind of context an application makes.
enum class Profile { Compatibility, Core, Es2, Es3 };

using Picture = std::vector<std::array<unsigned char, 4>>;

/// Counts the X errors of the process from its making on; the handler before comes back at the end.
class ErrorCounter {
  public:
    ErrorCounter();
    ~ErrorCounter();
    ErrorCounter(const ErrorCounter&) = delete;
    ErrorCounter& operator=(const ErrorCounter&) = delete;
    int count() const;
    XErrorEvent last() const;

  private:
    XErrorHandler before_;
};

/// A server with software GL.
XServer::Options localServer();
/// One server for the whole test program.
const std::string& serverName();

/// A connection opened as the library opens its local connections; `adapted` tells whether the
/// adapter learns of it.
class Connection {
  public:
    explicit Connection(bool adapted = true, const std::string& server = serverName());
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    operator Display*() const { return display_; } // NOLINT: stands for a Display* everywhere

  private:
    Display* display_;
};

GLXFBConfig chooseConfig(Display* display, const ConfigWish& wish);
GLXContext makeContext(const GlTable& gl, Display* display, GLXFBConfig config,
                       Profile profile = Profile::Compatibility, GLXContext share = nullptr);
GLXPbuffer makePbuffer(const GlTable& gl, Display* display, GLXFBConfig config, int width,
                       int height);

/// Draws a picture that differs in every row and in both halves into the current draw buffer,
/// another for each seed; leaves the scissor test off. Works in contexts of every kind.
void drawPicture(const GlTable& gl, int width, int height, int seed);
Picture pictureOf(int width, int height, int seed);
/// The front buffer as a second context sees it; leaves the thread with nothing current.
Picture readFront(Display* display, GLXFBConfig config, GLXDrawable drawable, int width,
                  int height);
/// Empty when both are equal, else where they first differ.
std::string difference(const Picture& got, const Picture& wanted, int width);

} // namespace kor::test

#endif
