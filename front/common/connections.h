#ifndef KOR_FRONT_CONNECTIONS_H
#define KOR_FRONT_CONNECTIONS_H

namespace kor::front {

/// Has the library (dlopen handle) report each connection that it opens for itself, so that the
/// front can make it safe for the application and, for those to the local display, hand it to the
/// adapter (dlopen handle or null). driverLoaded is called when the driver has been used: on the
/// thread that opened the first local connection, once the adapter has tried it, and on the
/// copyback thread before it opens its connection for use. Called before kor_init.
void prepareConnections(void* korLibrary, void* adapter, void (*driverLoaded)());

} // namespace kor::front

#endif
