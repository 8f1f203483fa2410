#ifndef KOR_SERVER_LAUNCHER_LISTENING_H
#define KOR_SERVER_LAUNCHER_LISTENING_H

#include <sys/types.h>

namespace kor::server {

/// Whether the process, or one that descends from it, listens on the TCP port, at any address. It
/// must be of this user. That somebody answers there says less: it may be another session's server.
bool listensOn(pid_t process, int port);

} // namespace kor::server

#endif
