#include "private_folder.h"

#include "failure.h"

#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace korsession {

using korrun::Failure;

void makePrivateFolder(const std::string& path, const std::string& whose,
                       const std::string& otherwise) {
    struct stat status {};
    const bool made = mkdir(path.c_str(), S_IRWXU) == 0;
    const int error = errno;
    if (lstat(path.c_str(), &status) != 0)
        throw Failure(korrun::StatusMissing, "the folder of the " + whose + " " + path +
                                                 " cannot be made: " + std::strerror(error));
    if (!made && (!S_ISDIR(status.st_mode) || status.st_uid != geteuid() ||
                  (status.st_mode & (S_IWGRP | S_IWOTH)) != 0))
        throw Failure(korrun::StatusMissing,
                      path + " is no folder of yours that only you can write to: remove it, or " +
                          otherwise);
}

} // namespace korsession
