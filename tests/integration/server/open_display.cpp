#include <X11/Xlib.h>

/// Ends with 0 when the display given as the argument can be opened, otherwise with 1.
int main(int argc, char** argv) {
    if (argc != 2)
        return 2;
    Display* display = XOpenDisplay(argv[1]);
    if (!display)
        return 1;
    XCloseDisplay(display);
    return 0;
}
