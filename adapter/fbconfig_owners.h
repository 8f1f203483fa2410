#ifndef KOR_ADAPTER_FBCONFIG_OWNERS_H
#define KOR_ADAPTER_FBCONFIG_OWNERS_H

#include "core/gl_headers.h"

#include <atomic>

namespace kor::adapter {

/// Cause: Mesa knows an fbconfig by its address, and every connection has addresses of its own. A
/// config of another connection to the same server makes it raise GLXBadFBConfig, while the library
/// pairs visuals and configs once and uses them on every local connection, also when the one that
/// they came from is closed and the allocator has handed its addresses out again.
///
/// So a config keeps for good the handle that the first connection gave it, and that one alone is
/// handed out.

/// True once a local connection had another address for a config than its handle.
extern std::atomic<bool> fbconfigsHaveOwners;

/// Remembers the addresses that a local connection has for its configs, until it is closed.
void learnFbconfigs(Display* display);

/// The connection's own address of the config with that handle; the handle itself where it is
/// unknown. Any thread.
GLXFBConfig findOwnFbconfig(Display* display, GLXFBConfig config);

/// Puts the handles in the place of the addresses that a connection's driver has given. Null is
/// allowed.
void giveHandles(Display* display, GLXFBConfig* configs, int count);

inline GLXFBConfig ownFbconfig(Display* display, GLXFBConfig config) {
    if (__builtin_expect(!fbconfigsHaveOwners.load(std::memory_order_relaxed), 1))
        return config;
    return findOwnFbconfig(display, config);
}

} // namespace kor::adapter

#endif
