#include "authority.h"

#include "problem.h"

#include <X11/Xauth.h>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
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

/// Writes the entry to a new file beside the final one's place. Returns the new file's path.
std::string writeEntry(const std::string& pattern, const std::string& cookie,
                       std::optional<int> display) {
    std::string path = pattern + "XXXXXX";
    const int file = mkstemp(path.data());
    FILE* stream = file == -1 ? nullptr : fdopen(file, "w");
    if (!stream)
        throw Problem(Problem::StartFailed,
                      "the authority file " + path + " cannot be made: " + strerror(errno));

    // An empty number stands for every display; the family for every way to reach it, so that a
    // host name that changes later does no harm.
    std::string number = display ? std::to_string(*display) : "";
    char name[] = "MIT-MAGIC-COOKIE-1";
    std::string data = cookie;
    Xauth entry{};
    entry.family = FamilyWild;
    entry.number_length = static_cast<unsigned short>(number.size());
    entry.number = number.data();
    entry.name_length = sizeof name - 1;
    entry.name = name;
    entry.data_length = static_cast<unsigned short>(data.size());
    entry.data = data.data();
    const bool written = XauWriteAuth(stream, &entry) != 0;
    if (fclose(stream) != 0 || !written) {
        unlink(path.c_str());
        throw Problem(Problem::StartFailed, "the authority file " + path + " cannot be written");
    }
    return path;
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

Authority::Authority(std::optional<int> display) : m_cookie(cookieLength, '\0') {
    if (getrandom(m_cookie.data(), m_cookie.size(), 0) != static_cast<ssize_t>(m_cookie.size()))
        throw Problem(Problem::StartFailed, "the system gives no random numbers for a cookie");
    m_path = writeEntry(folder() + "/Xkor-auth-", m_cookie, display);
}

void Authority::setDisplay(int display) {
    const std::string fresh = writeEntry(m_path + ".", m_cookie, display);
    if (rename(fresh.c_str(), m_path.c_str()) != 0)
        unlink(fresh.c_str());
}

} // namespace kor::server
