#include "fake_gl.h"

#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>

namespace fake {

Gl& controls(void* handle) {
    using Access = Gl* (*)();
    auto access = reinterpret_cast<Access>(dlsym(handle, "fake_gl_controls"));
    if (access == nullptr) {
        fprintf(stderr, "the handle is not that of the fake GL library\n");
        abort();
    }
    return *access();
}

std::vector<std::string> texts(const std::vector<Call>& calls) {
    std::vector<std::string> result;
    result.reserve(calls.size());
    for (const Call& call : calls)
        result.push_back(call.text);
    return result;
}

} // namespace fake
