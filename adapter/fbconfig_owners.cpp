#include "fbconfig_owners.h"

#include "driver.h"
#include "local_displays.h"
#include "support/forked_child.h"

#include <map>
#include <utility>

namespace kor::adapter {

std::atomic<bool> fbconfigsHaveOwners{false};

namespace {

using ConfigId = int;

/// Under tablesMutex(). What a closed connection leaves is overwritten when its addresses come
/// back; until then nobody asks for it. Never freed: threads may ask for as long as they live.
struct Owners {
    std::unordered_map<GLXFBConfig, ConfigId> ids;
    std::map<std::pair<Display*, ConfigId>, GLXFBConfig> configs;
};

PerProcess<Owners> allOwners;
InForkedChild forgetOwners([] { fbconfigsHaveOwners = false; });

Owners& owners() {
    return *allOwners;
}

} // namespace

void learnFbconfigs(Display* display) {
    int count = 0;
    GLXFBConfig* const configs =
        driver.glXGetFBConfigs && driver.glXGetFBConfigAttrib
            ? driver.glXGetFBConfigs(display, DefaultScreen(display), &count)
            : nullptr;
    if (!configs)
        return;
    std::vector<std::pair<ConfigId, GLXFBConfig>> learnt;
    for (int i = 0; i < count; ++i) {
        ConfigId id = 0;
        if (driver.glXGetFBConfigAttrib(display, configs[i], GLX_FBCONFIG_ID, &id) == Success)
            learnt.emplace_back(id, configs[i]);
    }
    XFree(configs);

    const std::lock_guard lock(tablesMutex());
    Owners& known = owners();
    std::unordered_map<ConfigId, GLXFBConfig> others;
    for (const auto& [key, config] : known.configs)
        others.emplace(key.second, config);
    for (const auto& [id, config] : learnt) {
        const auto other = others.find(id);
        if (other != others.end() && other->second != config)
            fbconfigsHaveOwners = true;
        known.ids[config] = id;
        known.configs[{display, id}] = config;
    }
}

GLXFBConfig findOwnFbconfig(Display* display, GLXFBConfig config) {
    const std::lock_guard lock(tablesMutex());
    const Owners& known = owners();
    const auto id = known.ids.find(config);
    if (id == known.ids.end())
        return config;
    const auto own = known.configs.find({display, id->second});
    return own != known.configs.end() ? own->second : config;
}

} // namespace kor::adapter
