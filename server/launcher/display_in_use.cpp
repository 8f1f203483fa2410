#include "display_in_use.h"

#include "problem.h"

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace kor::server {

namespace {

/// The process that holds the lock file, or -1 when there is none or it is dead.
pid_t lockHolder(const std::string& lock) {
    FILE* file = fopen(lock.c_str(), "re");
    if (!file)
        return -1;
    char text[32] = {};
    const bool read = fgets(text, sizeof text, file) != nullptr;
    fclose(file);
    const auto process = read ? static_cast<pid_t>(strtol(text, nullptr, 10)) : 0;
    const bool alive = process > 0 && (kill(process, 0) == 0 || errno == EPERM);
    return alive ? process : -1;
}

bool listens(const std::string& path, bool abstract) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const size_t start = abstract ? 1 : 0; // an abstract name begins with a zero byte
    memcpy(address.sun_path + start, path.data(), path.size());
    const auto length =
        static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + start + path.size());
    const int end = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (end == -1)
        return false;
    const bool answered =
        connect(end, reinterpret_cast<const sockaddr*>(&address), length) == 0 || errno == EAGAIN;
    close(end);
    return answered;
}

} // namespace

bool listensOn(const std::string& path) {
    return listens(path, false);
}

void checkDisplayFree(int display) {
    const std::string number = std::to_string(display);
    const std::string lock = "/tmp/.X" + number + "-lock";
    const std::string socketPath = "/tmp/.X11-unix/X" + number;
    const pid_t holder = lockHolder(lock);
    std::string found;
    if (holder != -1)
        found = "process " + std::to_string(holder) + ", lock file " + lock;
    else if (listens(socketPath, true) || listens(socketPath, false))
        found = "a server listens on " + socketPath;
    else
        return;
    throw Problem(Problem::StartFailed,
                  "display :" + number + " is in use (" + found +
                      "): take another number, or let -displayfd find a free one");
}

} // namespace kor::server
