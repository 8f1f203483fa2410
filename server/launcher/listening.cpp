#include "listening.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>

namespace kor::server {

namespace fs = std::filesystem;

namespace {

/// What a link in /proc/PID/fd to the socket looks like.
std::string socketLink(unsigned long inode) {
    return "socket:[" + std::to_string(inode) + "]";
}

/// Adds the links of the sockets that listen on the port.
void findListening(const char* table, int port, std::set<std::string>& links) {
    constexpr unsigned listening = 0x0A;
    std::ifstream file(table);
    for (std::string line; std::getline(file, line);) {
        unsigned itsPort = 0;
        unsigned state = 0;
        unsigned long inode = 0;
        // NOLINTNEXTLINE(cert-err34-c): the kernel's own numbers
        if (std::sscanf(line.c_str(), " %*d: %*[0-9A-F]:%x %*s %x %*s %*s %*s %*s %*s %lu",
                        &itsPort, &state, &inode) == 3 &&
            state == listening && itsPort == static_cast<unsigned>(port))
            links.insert(socketLink(inode));
    }
}

bool holdsOneOf(const std::set<std::string>& links, pid_t process) {
    std::error_code error;
    const std::string folder = "/proc/" + std::to_string(process);
    fs::directory_iterator files(folder + "/fd", error);
    for (; !error && files != fs::directory_iterator(); files.increment(error)) {
        std::error_code closed; // by now
        if (links.contains(fs::read_symlink(files->path(), closed).string()))
            return true;
    }
    std::ifstream children(folder + "/task/" + std::to_string(process) + "/children");
    for (pid_t child = -1; children >> child;)
        if (holdsOneOf(links, child))
            return true;
    return false;
}

} // namespace

bool listensOn(pid_t process, int port) {
    std::set<std::string> links;
    findListening("/proc/net/tcp", port, links);
    findListening("/proc/net/tcp6", port, links);
    return !links.empty() && holdsOneOf(links, process);
}

} // namespace kor::server
