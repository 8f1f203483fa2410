#ifndef KOR_SUPPORT_TRUSTED_FILE_H
#define KOR_SUPPORT_TRUSTED_FILE_H

#include <cstdio>

namespace kor {

/// A file that was opened, or why it was not. With neither, errno tells why it cannot be opened.
struct TrustedFile {
    FILE* stream;        ///< the caller closes it
    const char* refusal; ///< why the file must not be used, to stand behind "it"; static text
};

/// Opens a settings file for reading. Refused is what another user could have put in its place, or
/// what would make the process wait: anything but a regular file of root's or of the effective
/// user's, a symbolic link, and a file of more than 1 MiB. The system's may also belong to the
/// owner of /etc.
TrustedFile openSettingsFile(const char* path, bool ofSystem = false);

/// Opens a log file for appending and makes it where there is none. Refused is what
/// openSettingsFile() refuses, but for the size, and a file with a second name, through which a
/// file elsewhere would be written.
TrustedFile openLogFile(const char* path);

} // namespace kor

#endif
