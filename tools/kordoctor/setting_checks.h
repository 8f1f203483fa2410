#pragma once

#include "section.h"
#include "setting_sources.h"

namespace kordoctor {

// What the library is told to do, and by what: the files, the variables and each setting; whether
// it can keep its log, and whether it would refuse to run at all.
Section settingsSection(const std::vector<SettingsFile>& files,
                        const std::vector<SettingValue>& settings);

} // namespace kordoctor
