#include "fbconfig_owners.h"

#include "driver.h"
#include "local_displays.h"
#include "support/forked_child.h"

#include <X11/Xlibint.h>
#undef min
#undef max

#include <utility>

namespace kor::adapter {

std::atomic<bool> fbconfigsHaveOwners{false};

namespace {

using ConfigId = int;

/// Under tablesMutex(). Never freed: threads may ask for as long as they live.
struct Owners {
    std::unordered_map<ConfigId, GLXFBConfig> handles;
    std::unordered_map<GLXFBConfig, ConfigId> ids; // of the handles
    struct Own {
        std::unordered_map<ConfigId, GLXFBConfig> addresses;
        std::unordered_map<GLXFBConfig, ConfigId> ids;
    };
    std::unordered_map<Display*, Own> connections; // the open ones
};

PerProcess<Owners> allOwners;
InForkedChild forgetOwners([] { fbconfigsHaveOwners = false; });

Owners& owners() {
    return *allOwners;
}

int forgetConnection(Display* display, XExtCodes* /*codes*/) {
    const std::lock_guard lock(tablesMutex());
    owners().connections.erase(display);
    return 0;
}

/// The first address that a config is seen at. One that is another config's handle already is no
/// use: then it is some address that no driver will ever give.
GLXFBConfig newHandle(const Owners& known, GLXFBConfig address) {
    return known.ids.count(address) == 0 ? address : reinterpret_cast<GLXFBConfig>(new char);
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
    Owners::Own own;
    for (int i = 0; i < count; ++i) {
        ConfigId id = 0;
        if (driver.glXGetFBConfigAttrib(display, configs[i], GLX_FBCONFIG_ID, &id) != Success)
            continue;
        own.addresses[id] = configs[i];
        own.ids[configs[i]] = id;
    }
    XFree(configs);
    XExtCodes* const codes = XAddExtension(display);
    if (!codes)
        return; // without it the addresses would outlive the connection
    XESetCloseDisplay(display, codes->extension, forgetConnection);

    const std::lock_guard lock(tablesMutex());
    Owners& known = owners();
    for (const auto& [id, address] : own.addresses) {
        const auto handle = known.handles.find(id);
        if (handle == known.handles.end()) {
            const GLXFBConfig made = newHandle(known, address);
            known.handles.emplace(id, made);
            known.ids.emplace(made, id);
            if (made != address)
                fbconfigsHaveOwners = true;
        } else if (handle->second != address) {
            fbconfigsHaveOwners = true;
        }
    }
    known.connections.insert_or_assign(display, std::move(own));
}

GLXFBConfig findOwnFbconfig(Display* display, GLXFBConfig config) {
    const std::lock_guard lock(tablesMutex());
    const Owners& known = owners();
    const auto connection = known.connections.find(display);
    const auto id = known.ids.find(config);
    if (connection == known.connections.end() || id == known.ids.end())
        return config;
    const auto own = connection->second.addresses.find(id->second);
    return own != connection->second.addresses.end() ? own->second : config;
}

void giveHandles(Display* display, GLXFBConfig* configs, int count) {
    if (!configs || !fbconfigsHaveOwners.load(std::memory_order_relaxed))
        return;
    const std::lock_guard lock(tablesMutex());
    const Owners& known = owners();
    const auto connection = known.connections.find(display);
    if (connection == known.connections.end())
        return;
    for (int i = 0; i < count; ++i) {
        const auto id = connection->second.ids.find(configs[i]);
        if (id != connection->second.ids.end())
            configs[i] = known.handles.at(id->second);
    }
}

} // namespace kor::adapter
