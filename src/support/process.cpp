#include "support/process.h"

#include "support/text.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <sys/time.h>
#include <unistd.h>

int korGetCurrentProcessName(char* buffer, unsigned size) {
    if (buffer == nullptr || size == 0)
        return 0;
    buffer[0] = '\0';
    if (FILE* file = fopen("/proc/self/cmdline", "r")) {
        // The arguments are zero-terminated, so the text in the buffer ends with the first one.
        if (fgets(buffer, static_cast<int>(size), file) == nullptr)
            buffer[0] = '\0';
        fclose(file);
    }
    if (buffer[0] == '\0')
        korStrcpy(buffer, size, "Unknown");
    return static_cast<int>(strlen(buffer));
}

int korGetCurrentProcessExe(char* buffer, unsigned size) {
    const ssize_t linkLength = readlink("/proc/self/exe", buffer, size);
    if (linkLength < 1)
        return -1;
    const int length = std::min(static_cast<int>(linkLength), static_cast<int>(size) - 1);
    buffer[length] = '\0';
    return length;
}

uint64_t korGetCurrentTime() {
    timeval now{};
    gettimeofday(&now, nullptr);
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_usec) / 1000;
}
