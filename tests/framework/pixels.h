#ifndef KOR_TESTS_FRAMEWORK_PIXELS_H
#define KOR_TESTS_FRAMEWORK_PIXELS_H

#include <X11/Xlib.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

namespace kor::test {

/// A picture as the X server holds it, the top row first.
struct Pixels {
    int width = 0;
    int height = 0;
    std::vector<uint32_t> colours; ///< 0xRRGGBB

    [[nodiscard]] uint32_t at(int x, int y) const {
        return colours.at(static_cast<size_t>(y) * static_cast<size_t>(width) +
                          static_cast<size_t>(x));
    }
    bool operator==(const Pixels&) const = default;
};

/// All that is to be seen of a window of depth 24 or 32. Nothing when the server refuses: no such
/// window, one that is not viewable, or one that reaches beyond the screen. Installs an error
/// handler for the time of the call: no other thread may rely on its own meanwhile.
std::optional<Pixels> readWindow(Display* display, Window window);

/// Reads the window until the pixels are as wanted, and returns the pixels read last (nothing when
/// the last try was refused). Whether they were as wanted is for the caller to see.
std::optional<Pixels> waitForPixels(Display* display, Window window,
                                    const std::function<bool(const Pixels&)>& wanted,
                                    std::chrono::milliseconds timeout = std::chrono::seconds(10));

} // namespace kor::test

#endif
