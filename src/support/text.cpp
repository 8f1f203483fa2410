#include "support/text.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>

namespace {

constexpr size_t pathBufferSize = 4096;

/// Appends part and, where it does not end in one, a separator. False when they do not fit.
bool appendComponent(char* path, size_t& length, const char* part) {
    const size_t partLength = strlen(part);
    const char last = part[partLength - 1];
    const bool separator = last != '/' && last != '\\';
    if (length + partLength + (separator ? 1 : 0) + 1 > pathBufferSize)
        return false;
    std::copy_n(part, partLength, path + length);
    length += partLength;
    if (separator)
        path[length++] = '/';
    return true;
}

} // namespace

int korStrcpy(char* dst, unsigned size, const char* src) {
    if (dst == nullptr || src == nullptr)
        return EINVAL;
    const size_t needed = strlen(src) + 1;
    if (size < needed)
        return ERANGE;
    memcpy(dst, src, needed);
    return 0;
}

const char* korBasename(const char* path) {
    const char* slash = strrchr(path, '/');
    return slash != nullptr ? slash + 1 : path;
}

int korStrsplit(const char* text, char** parts, unsigned maxParts, const char* delimiters) {
    if (text == nullptr || *text == '\0' || maxParts == 0)
        return 0;
    char* copy = strdup(text);
    if (copy == nullptr)
        return 0;
    char* rest = nullptr;
    char* token = strtok_r(copy, delimiters, &rest);
    unsigned count = 0;
    // The first entry is stored even when there is no token: see the header.
    do {
        parts[count++] = token != nullptr ? strdup(token) : nullptr;
    } while (count < maxParts && token != nullptr &&
             (token = strtok_r(nullptr, delimiters, &rest)) != nullptr);
    free(copy);
    return static_cast<int>(count);
}

char* korBuildFilename(const char* first, ...) {
    char path[pathBufferSize];
    size_t length = 0;
    bool fits = true;
    va_list components;
    va_start(components, first);
    for (const char* part = first; part != nullptr && fits;
         part = va_arg(components, const char*)) {
        if (*part != '\0')
            fits = appendComponent(path, length, part);
    }
    va_end(components);
    if (!fits)
        return nullptr;
    path[length > 0 ? length - 1 : 0] = '\0'; // over the trailing separator
    return strdup(path);
}

bool matchExtension(const char* list, const char* name) {
    if (list == nullptr || name == nullptr || *name == '\0' || strchr(name, ' ') != nullptr)
        return false;
    const size_t length = strlen(name);
    const char* start = list;
    while (const char* hit = strstr(start, name)) {
        const char* end = hit + length;
        if ((hit == start || hit[-1] == ' ') && (*end == ' ' || *end == '\0'))
            return true;
        start = end;
    }
    return false;
}
