#include "support/trusted_file.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kor {

namespace {

constexpr off_t largestSettingsFile = 1 << 20;

// O_NONBLOCK: a FIFO that took the file's place after it was looked at must not make the process
// wait.
constexpr int safely = O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

using Judge = const char* (*)(const struct stat& status, uid_t alsoRoot);

/// Why a file must not be used; null when it may.
const char* judge(const struct stat& status, uid_t alsoRoot) {
    if (S_ISLNK(status.st_mode))
        return "is a symbolic link";
    if (!S_ISREG(status.st_mode))
        return "is no regular file";
    if (status.st_uid != 0 && status.st_uid != alsoRoot && status.st_uid != geteuid())
        return "belongs to another user";
    return nullptr;
}

const char* judgeSettings(const struct stat& status, uid_t alsoRoot) {
    const char* refusal = judge(status, alsoRoot);
    if (refusal == nullptr && status.st_size > largestSettingsFile)
        return "is larger than 1 MiB";
    return refusal;
}

const char* judgeLog(const struct stat& status, uid_t alsoRoot) {
    const char* refusal = judge(status, alsoRoot);
    if (refusal == nullptr && status.st_nlink > 1)
        return "has a second name (a hard link)";
    return refusal;
}

/// In a user namespace the files of the machine's root belong to a user without a name, like those
/// of other users. Only root can put files into /etc, so its owner there is root.
uid_t ownerOfSystemFolder() {
    struct stat status {};
    return stat("/etc", &status) == 0 ? status.st_uid : 0;
}

/// Looks before it opens, since opening a device may have effects of its own, and again at what was
/// opened, since that may have been put there in between.
TrustedFile openTrusted(const char* path, int flags, const char* mode, Judge refusalOf,
                        uid_t alsoRoot) {
    struct stat status {};
    if (lstat(path, &status) == 0) {
        if (const char* refusal = refusalOf(status, alsoRoot))
            return {nullptr, refusal};
    }
    const int file = open(path, flags | safely, 0666);
    if (file < 0)
        return {nullptr, errno == ELOOP ? "is a symbolic link" : nullptr};
    const char* refusal = nullptr;
    FILE* stream = nullptr;
    int error = 0;
    if (fstat(file, &status) == 0)
        refusal = refusalOf(status, alsoRoot);
    else
        error = errno;
    if (refusal == nullptr && error == 0) {
        stream = fdopen(file, mode);
        error = errno;
    }
    if (stream == nullptr)
        close(file);
    errno = error;
    return {stream, refusal};
}

} // namespace

TrustedFile openSettingsFile(const char* path, bool ofSystem) {
    return openTrusted(path, O_RDONLY, "r", judgeSettings, ofSystem ? ownerOfSystemFolder() : 0);
}

TrustedFile openLogFile(const char* path) {
    return openTrusted(path, O_WRONLY | O_APPEND | O_CREAT, "a", judgeLog, 0);
}

} // namespace kor
