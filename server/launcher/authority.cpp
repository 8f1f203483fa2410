#include "authority.h"

#include "problem.h"

#include <X11/Xauth.h>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kor::server {

namespace {

constexpr size_t cookieLength = 16;

std::string folder() {
    const char* runtime = getenv("XDG_RUNTIME_DIR");
    struct stat status {};
    if (runtime && *runtime == '/' && stat(runtime, &status) == 0 && S_ISDIR(status.st_mode) &&
        status.st_uid == geteuid() && access(runtime, W_OK | X_OK) == 0)
        return runtime;
    return "/tmp";
}

std::string random(size_t length) {
    std::string bytes(length, '\0');
    if (getrandom(bytes.data(), length, 0) != static_cast<ssize_t>(length))
        throw Problem(Problem::StartFailed, "the system gives no random numbers for a cookie");
    return bytes;
}

} // namespace

void checkAuthority(const std::string& path) {
    FILE* stream = fopen(path.c_str(), "re");
    if (!stream)
        throw Problem(Problem::StartFailed,
                      "the authority file " + path + " cannot be read: " + strerror(errno));
    Xauth* entry = XauReadAuth(stream);
    fclose(stream);
    if (!entry)
        throw Problem(Problem::StartFailed, "the authority file " + path +
                                                " holds no entry: every user of this machine "
                                                "would be let in");
    XauDisposeAuth(entry);
}

Authority::Authority() : m_path(folder() + "/Xkor-auth-"), m_cookie(random(cookieLength)) {
    constexpr const char* digits = "0123456789abcdef";
    for (const char byte : random(8)) {
        m_path += digits[static_cast<unsigned char>(byte) >> 4];
        m_path += digits[static_cast<unsigned char>(byte) & 15];
    }
}

void Authority::write(std::optional<int> display) const {
    const std::string path = successorOf(m_path);
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    FILE* stream = file == -1 ? nullptr : fdopen(file, "w");
    if (!stream)
        throw Problem(Problem::StartFailed,
                      "the authority file " + path + " cannot be made: " + strerror(errno));

    // An empty number stands for every display; the family for every way to reach it, so that a
    // host name that changes later does no harm.
    std::string number = display ? std::to_string(*display) : "";
    char name[] = "MIT-MAGIC-COOKIE-1";
    std::string data = m_cookie;
    Xauth entry{};
    entry.family = FamilyWild;
    entry.number_length = static_cast<unsigned short>(number.size());
    entry.number = number.data();
    entry.name_length = sizeof name - 1;
    entry.name = name;
    entry.data_length = static_cast<unsigned short>(data.size());
    entry.data = data.data();
    const bool written = XauWriteAuth(stream, &entry) != 0;
    if (fclose(stream) != 0 || !written || rename(path.c_str(), m_path.c_str()) != 0) {
        unlink(path.c_str());
        throw Problem(Problem::StartFailed, "the authority file " + m_path + " cannot be written");
    }
}

} // namespace kor::server
