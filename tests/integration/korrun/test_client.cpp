// What korrun runs in the tests: an X client that paints the screen, or a process that tells what
// it was given.
//   test_client paint SECONDS    cover the display with a window: left half red, right half blue
//   test_client descriptors      print the numbers of the open descriptors
//   test_client signals          print the blocked and the ignored signals
#include <X11/Xlib.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <iostream>
#include <string>
#include <unistd.h>

namespace {

int paint(double seconds) {
    Display* display = XOpenDisplay(nullptr);
    if (!display) {
        std::fprintf(stderr, "test_client: cannot open the display\n");
        return 1;
    }
    const int screen = DefaultScreen(display);
    const auto width = static_cast<unsigned>(DisplayWidth(display, screen));
    const auto height = static_cast<unsigned>(DisplayHeight(display, screen));
    XSetWindowAttributes attributes{};
    attributes.override_redirect = True;
    attributes.background_pixel = 0xff0000;
    const Window left = XCreateWindow(display, RootWindow(display, screen), 0, 0, width / 2, height,
                                      0, CopyFromParent, InputOutput, nullptr,
                                      CWOverrideRedirect | CWBackPixel, &attributes);
    attributes.background_pixel = 0x0000ff;
    const Window right =
        XCreateWindow(display, RootWindow(display, screen), static_cast<int>(width / 2), 0,
                      width - width / 2, height, 0, CopyFromParent, InputOutput, nullptr,
                      CWOverrideRedirect | CWBackPixel, &attributes);
    XMapWindow(display, left);
    XMapWindow(display, right);
    XSync(display, False);
    usleep(static_cast<useconds_t>(seconds * 1e6));
    XCloseDisplay(display);
    return 0;
}

int printDescriptors() {
    for (int number = 0; number < 1024; ++number)
        if (fcntl(number, F_GETFD) >= 0)
            std::cout << number << ' ';
    std::cout << '\n';
    return 0;
}

int printSignals() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.starts_with("SigBlk:") || line.starts_with("SigIgn:"))
            std::cout << line << '\n';
    return 0;
}

} // namespace

int main(int count, char** arguments) {
    const std::string what = count > 1 ? arguments[1] : "";
    const double seconds = count > 2 ? std::atof(arguments[2]) : 0;
    if (what == "paint")
        return paint(seconds);
    if (what == "descriptors")
        return printDescriptors();
    if (what == "signals")
        return printSignals();
    return 2;
}
