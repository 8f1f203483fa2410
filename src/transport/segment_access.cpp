#include "transport/segment_access.h"

#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/socket.h>
#include <unistd.h>

namespace kor::gl {

namespace {

constexpr int owners = 0600;
constexpr int everyones = 0777;

} // namespace

int segmentMode(Display* display) {
    ucred peer{};
    socklen_t size = sizeof peer;
    // A socket that is no local one has a peer without a user, which is no user's id.
    const bool known =
        getsockopt(ConnectionNumber(display), SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 &&
        size == sizeof peer;
    return known && peer.uid == geteuid() ? owners : everyones;
}

bool closeSegment(int segment) {
    shmid_ds state{};
    if (shmctl(segment, IPC_STAT, &state) != 0)
        return true; // it cannot be told
    if ((state.shm_perm.mode & (everyones & ~owners)) != 0) {
        state.shm_perm.mode = owners;
        shmctl(segment, IPC_SET, &state);
    }
    return state.shm_nattch > 1;
}

} // namespace kor::gl
