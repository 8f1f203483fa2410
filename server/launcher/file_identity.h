#ifndef KOR_SERVER_LAUNCHER_FILE_IDENTITY_H
#define KOR_SERVER_LAUNCHER_FILE_IDENTITY_H

#include <string>
#include <sys/stat.h>

namespace kor::server {

/// One file, told from a later one of the same name. A server's socket may be another server's by
/// the time that somebody tidies up: display numbers are taken again at once, and between bind and
/// listen nobody answers on the new one.
class FileIdentity {
  public:
    FileIdentity() = default;
    /// Of the file that has the name now; of none where there is none.
    explicit FileIdentity(const std::string& path) : known_(read(path, file_)) {}

    /// True when the name still leads to that very file.
    bool isAt(const std::string& path) const {
        struct stat now {};
        // File systems give a freed number to the next file: the time of change tells them apart.
        return known_ && read(path, now) && now.st_dev == file_.st_dev &&
               now.st_ino == file_.st_ino && now.st_ctim.tv_sec == file_.st_ctim.tv_sec &&
               now.st_ctim.tv_nsec == file_.st_ctim.tv_nsec;
    }

  private:
    static bool read(const std::string& path, struct stat& file) {
        return lstat(path.c_str(), &file) == 0;
    }

    struct stat file_ {};
    bool known_ = false;
};

} // namespace kor::server

#endif
