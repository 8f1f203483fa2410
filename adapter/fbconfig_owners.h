#ifndef KOR_ADAPTER_FBCONFIG_OWNERS_H
#define KOR_ADAPTER_FBCONFIG_OWNERS_H

#include "core/gl_headers.h"

#include <atomic>

namespace kor::adapter {

/// Cause: Mesa knows an fbconfig by its address, and every connection has addresses of its own. A
/// config of another connection to the same server makes it raise GLXBadFBConfig, while the library
/// pairs visuals and configs once and uses them on every local connection.

/// True once two local connections had different addresses for one config.
extern std::atomic<bool> fbconfigsHaveOwners;

/// Remembers the addresses that a local connection has for its configs.
void learnFbconfigs(Display* display);

/// The connection's own address of a config that belongs to another one; the config itself where it
/// is unknown, the connection's own or the driver does not mind. Any thread.
GLXFBConfig findOwnFbconfig(Display* display, GLXFBConfig config);

inline GLXFBConfig ownFbconfig(Display* display, GLXFBConfig config) {
    if (__builtin_expect(!fbconfigsHaveOwners.load(std::memory_order_relaxed), 1))
        return config;
    return findOwnFbconfig(display, config);
}

} // namespace kor::adapter

#endif
