// The linker sends every call of these functions that this program's objects make to __wrap_NAME
// (see CMakeLists.txt).
#include "interposed.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace kor::test {

std::string systemFolder;
std::vector<std::string> accessed;
std::string uptimeFile;
std::optional<std::string> executableLink;
int failingAllocations;
std::function<void()> onAllocation;
std::function<void()> onLook;
std::optional<std::pair<std::string, std::string>> standIn;
std::optional<uid_t> effectiveUser;
std::optional<timeval> timeOfDay;

namespace {

std::string withoutStandIn(const char* name) {
    constexpr std::string_view system = "/etc/kor/";
    const std::string_view path(name);
    if (!systemFolder.empty() && path.starts_with(system))
        return systemFolder + "/" + std::string(path.substr(system.size()));
    if (!uptimeFile.empty() && path == "/proc/uptime")
        return uptimeFile;
    return name;
}

std::string redirected(const char* name) {
    const std::string path = withoutStandIn(name);
    return standIn && standIn->first.ends_with(path) ? standIn->second : path;
}

} // namespace

extern "C" {

int __real_access(const char*, int);
int __wrap_access(const char* name, int mode) {
    accessed.emplace_back(name);
    return __real_access(redirected(name).c_str(), mode);
}

int __real_lstat(const char*, struct stat*);
int __wrap_lstat(const char* name, struct stat* status) {
    const int result = __real_lstat(redirected(name).c_str(), status);
    if (onLook)
        std::exchange(onLook, nullptr)();
    return result;
}

int __real_open(const char*, int, ...);
int __wrap_open(const char* name, int flags, mode_t mode) {
    return __real_open(redirected(name).c_str(), flags, mode);
}

FILE* __real_fopen(const char*, const char*);
FILE* __wrap_fopen(const char* name, const char* mode) {
    return __real_fopen(redirected(name).c_str(), mode);
}

uid_t __real_geteuid();
uid_t __wrap_geteuid() {
    return effectiveUser ? *effectiveUser : __real_geteuid();
}

ssize_t __real_readlink(const char*, char*, size_t);
ssize_t __wrap_readlink(const char* name, char* buffer, size_t size) {
    if (!executableLink)
        return __real_readlink(name, buffer, size);
    if (*executableLink == "!") {
        errno = EACCES;
        return -1;
    }
    const size_t length = std::min(size, executableLink->size());
    std::copy_n(executableLink->data(), length, buffer);
    return static_cast<ssize_t>(length);
}

void* __real_calloc(size_t, size_t);
void* __wrap_calloc(size_t count, size_t size) {
    if (failingAllocations > 0) {
        --failingAllocations;
        return nullptr;
    }
    if (onAllocation)
        std::exchange(onAllocation, nullptr)();
    return __real_calloc(count, size);
}

int __real_gettimeofday(timeval*, void*);
int __wrap_gettimeofday(timeval* now, void* zone) {
    if (!timeOfDay)
        return __real_gettimeofday(now, zone);
    *now = *timeOfDay;
    return 0;
}
}

} // namespace kor::test
