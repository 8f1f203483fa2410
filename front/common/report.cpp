#include "report.h"

#include <cstdarg>
#include <cstdio>
#include <unistd.h>

namespace kor::front {

void report(const char* format, ...) {
    char line[4096];
    int length = snprintf(line, sizeof line, "KOR-GL: ");
    va_list arguments;
    va_start(arguments, format);
    const int added = vsnprintf(line + length, sizeof line - length - 1, format, arguments);
    va_end(arguments);
    if (added > 0)
        length += added;
    if (length > static_cast<int>(sizeof line) - 2)
        length = sizeof line - 2;
    line[length++] = '\n';
    // stderr may be closed or a broken pipe; there is nobody else to tell.
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, line, length);
}

} // namespace kor::front
