#include "environment.h"

#include <cstring>
#include <sys/auxv.h>
#include <unistd.h>

namespace kor::front {

bool hasRaisedPrivileges() {
    return getauxval(AT_SECURE) != 0;
}

const char* environmentValue(const char* name) {
    const size_t length = strlen(name);
    for (char** variable = environ; variable != nullptr && *variable != nullptr; ++variable)
        if (strncmp(*variable, name, length) == 0 && (*variable)[length] == '=')
            return *variable + length + 1;
    return nullptr;
}

void removeVariables(const char* prefix) {
    if (environ == nullptr)
        return;
    char** kept = environ;
    for (char** variable = environ; *variable != nullptr; ++variable)
        if (strncmp(*variable, prefix, strlen(prefix)) != 0)
            *kept++ = *variable;
    *kept = nullptr;
}

} // namespace kor::front
