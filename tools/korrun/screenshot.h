#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace korrun {

// Rows of red, green and blue bytes, the topmost row first, without padding.
struct Picture {
    unsigned width = 0;
    unsigned height = 0;
    std::vector<std::uint8_t> pixels;
};

// Writes a PNG file. The file appears complete or not at all. Throws Failure (StatusNoPicture).
void writePng(const Picture& picture, const std::string& file);

// What the root window of the display's default screen shows. Throws Failure (StatusNoPicture).
// Xlib ends the process when the display goes away, so call it in a process of its own.
Picture captureScreen(const std::string& displayName);

} // namespace korrun
