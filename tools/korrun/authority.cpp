#include "authority.h"

#include "failure.h"
#include "file_descriptor.h"

#include <X11/Xauth.h>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <sys/random.h>

namespace korrun {

namespace {

constexpr char cookieName[] = "MIT-MAGIC-COOKIE-1";

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

struct DisposeEntry {
    void operator()(Xauth* entry) const { XauDisposeAuth(entry); }
};
using Entry = std::unique_ptr<Xauth, DisposeEntry>;

[[noreturn]] void cannotWrite(const std::string& file) {
    throw Failure(StatusMissing,
                  "cannot write the authority file " + file + ": " + std::strerror(errno));
}

// Only its owner may ever read the file, whatever the umask says.
File createPrivately(const std::string& path) {
    FileDescriptor descriptor(
        open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (!descriptor.isOpen())
        cannotWrite(path);
    File file(fdopen(dup(descriptor.get()), "wb"));
    if (!file)
        cannotWrite(path);
    fcntl(fileno(file.get()), F_SETFD, FD_CLOEXEC);
    return file;
}

bool writeCookie(std::FILE* file, const std::string& displayNumber, const std::string& cookie) {
    std::string number = displayNumber;
    std::string name = cookieName;
    std::string data = cookie;
    Xauth entry{};
    entry.family = FamilyWild;
    entry.number_length = static_cast<unsigned short>(number.size());
    entry.number = number.data();
    entry.name_length = static_cast<unsigned short>(name.size());
    entry.name = name.data();
    entry.data_length = static_cast<unsigned short>(data.size());
    entry.data = data.data();
    return XauWriteAuth(file, &entry) != 0;
}

// Entries for a display of this machine that has one of the session's numbers are left over from
// another server that had the number before. A client may prefer their protocol to ours.
bool isLeftOver(const Xauth& entry, const std::vector<std::string>& numbers) {
    if (entry.family != FamilyLocal && entry.family != FamilyWild)
        return false;
    const std::string number(entry.number, entry.number_length);
    return std::find(numbers.begin(), numbers.end(), number) != numbers.end();
}

} // namespace

std::string makeCookie() {
    std::string cookie(16, '\0');
    if (getrandom(cookie.data(), cookie.size(), 0) != static_cast<ssize_t>(cookie.size()))
        throw Failure(StatusMissing, std::string("no random bytes: ") + std::strerror(errno));
    return cookie;
}

void writeServerAuthority(const std::string& path, const std::string& cookie) {
    // The number is not known before the server has started; servers do not look at it.
    File file = createPrivately(path);
    if (!writeCookie(file.get(), "", cookie) || std::fflush(file.get()) != 0)
        cannotWrite(path);
}

void writeClientAuthority(const std::string& path, const std::string& cookie,
                          const std::vector<std::string>& displayNumbers,
                          const std::string& userFile) {
    File file = createPrivately(path);
    for (const std::string& number : displayNumbers)
        if (!writeCookie(file.get(), number, cookie))
            cannotWrite(path);
    const File user(userFile.empty() ? nullptr : std::fopen(userFile.c_str(), "rbe"));
    if (user) {
        while (const Entry entry{XauReadAuth(user.get())}) {
            if (!isLeftOver(*entry, displayNumbers) && !XauWriteAuth(file.get(), entry.get()))
                cannotWrite(path);
        }
    }
    if (std::fflush(file.get()) != 0)
        cannotWrite(path);
}

std::string userAuthorityFile() {
    const char* file = XauFileName();
    return file ? file : "";
}

} // namespace korrun
