#include "quiet_library.h"

#include "config/settings.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace kordoctor {

void keepLibraryQuiet() {
    // Complaints about files are reported as checks, with the line.
    std::fflush(stderr);
    const int before = dup(STDERR_FILENO);
    const int nothing = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(nothing, STDERR_FILENO);
    kor::conf::Settings& settings = kor::conf::settings();
    dup2(before, STDERR_FILENO);
    close(nothing);
    close(before);
    free(settings.directory);
    settings.directory = nullptr;
    free(settings.level);
    settings.level = strdup("error");
    settings.verbose = false;
}

} // namespace kordoctor
