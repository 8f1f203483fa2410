#pragma once

#include "section.h"

namespace kordoctor {

// What the GPU's display renders with, and how fast frames come from there to the session. `facts`
// are those of the two displays.
Section renderingSection(const Facts& facts);

// What is said of measured times.
struct Times {
    int width = 0; // pixels
    int height = 0;
    double readback = 0; // milliseconds a frame
    double painting = 0; // milliseconds a frame
};
void concludeReadback(Findings& findings, const Times& times);
void concludePainting(Findings& findings, const Times& times, bool sharedMemory);
// `limit`: the setting copyback-frame-rate.
void concludeFrameRate(Findings& findings, const Times& times, int limit);

// Whether that is the GL_RENDERER of a driver that uses no GPU.
bool rendersInSoftware(const std::string& renderer);

} // namespace kordoctor
