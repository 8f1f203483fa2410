#include "framework/pixels.h"

#include "framework/wait_until.h"

#include <X11/Xutil.h>

namespace kor::test {

namespace {

int ignoreError(Display* /*display*/, XErrorEvent* /*event*/) {
    return 0;
}

class IgnoreErrors {
  public:
    explicit IgnoreErrors(Display* display) : m_display(display) {
        XSync(display, False); // errors of earlier requests belong to the handler of before
        m_before = XSetErrorHandler(ignoreError);
    }
    IgnoreErrors(const IgnoreErrors&) = delete;
    IgnoreErrors& operator=(const IgnoreErrors&) = delete;
    ~IgnoreErrors() {
        XSync(m_display, False);
        XSetErrorHandler(m_before);
    }

  private:
    Display* m_display;
    XErrorHandler m_before = nullptr;
};

} // namespace

std::optional<Pixels> readWindow(Display* display, Window window) {
    const IgnoreErrors ignore(display);
    XWindowAttributes attributes;
    if (!XGetWindowAttributes(display, window, &attributes) || attributes.depth < 24)
        return std::nullopt;
    XImage* image = XGetImage(display, window, 0, 0, static_cast<unsigned>(attributes.width),
                              static_cast<unsigned>(attributes.height), AllPlanes, ZPixmap);
    if (!image)
        return std::nullopt;
    Pixels pixels;
    pixels.width = image->width;
    pixels.height = image->height;
    pixels.colours.reserve(static_cast<size_t>(image->width) * static_cast<size_t>(image->height));
    for (int y = 0; y < image->height; ++y)
        for (int x = 0; x < image->width; ++x)
            pixels.colours.push_back(static_cast<uint32_t>(XGetPixel(image, x, y)) & 0xFFFFFF);
    XDestroyImage(image);
    return pixels;
}

std::optional<Pixels> waitForPixels(Display* display, Window window,
                                    const std::function<bool(const Pixels&)>& wanted,
                                    std::chrono::milliseconds timeout) {
    std::optional<Pixels> pixels;
    waitUntil(
        [&] {
            pixels = readWindow(display, window);
            return pixels && wanted(*pixels);
        },
        timeout);
    return pixels;
}

} // namespace kor::test
