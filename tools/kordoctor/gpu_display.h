#pragma once

#include "section.h"
#include "setting_sources.h"

namespace kordoctor {

// The display that drives the GPU: its name, and whether it can be used. `facts` are those of the
// session's display. Facts: "gpu-display" when it can be used.
Section gpuDisplaySection(const std::vector<SettingValue>& settings, const Facts& facts);

} // namespace kordoctor
