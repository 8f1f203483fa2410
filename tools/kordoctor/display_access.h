#pragma once

#include <X11/Xlib.h>
#include <memory>
#include <string>

namespace kordoctor {

struct CloseDisplay {
    void operator()(Display* display) const { XCloseDisplay(display); }
};
using DisplayHandle = std::unique_ptr<Display, CloseDisplay>;

// Why a display cannot be opened, and what to do.
struct Refusal {
    std::string reason;
    std::string advice;
};

// Looks, without Xlib, at why XOpenDisplay has failed for that name: a server that is not there is
// told apart from one that does not admit us. Takes some seconds at most.
Refusal explainRefusal(const std::string& name);

// Collects the X errors of all connections while it exists, in place of Xlib's own handler, which
// ends the process.
class ErrorTrap {
  public:
    ErrorTrap();
    ~ErrorTrap();
    ErrorTrap(const ErrorTrap&) = delete;
    ErrorTrap& operator=(const ErrorTrap&) = delete;

    // Waits for the server, then says what it complained about first; empty when about nothing.
    std::string error(Display* display);

  private:
    XErrorHandler m_before;
};

bool hasExtension(Display* display, const char* name);

// Whether both connections lead to one server. Found out by a window that is made on one and looked
// for on the other, so that no alias of a name can hide it.
bool isSameServer(Display* a, Display* b);

// "WIDTHxHEIGHT" of the default screen.
std::string screenSize(Display* display);

} // namespace kordoctor
