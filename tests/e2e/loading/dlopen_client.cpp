// Not linked with any GL library.
//   dlopen_client plugin PATH                has a plug-in draw
//   dlopen_client MODE HOW LIBRARY...        opens the libraries with RTLD_LOCAL (MODE local),
//       RTLD_GLOBAL (global) or RTLD_DEEPBIND (deepbind) and takes each function from the first
//       that has it (HOW symbols), or from glXGetProcAddressARB alone (HOW procedures)
//   dlopen_client meet LIBRARY LIBRARY       draws by way of the one, then of the other
#include "drawing.h"

#include <cstring>
#include <dlfcn.h>
#include <map>
#include <vector>

namespace {

using namespace kor::loading;

void* open(const char* path, int mode) {
    void* handle = dlopen(path, mode);
    if (handle == nullptr)
        fail(std::string(path) + " cannot be opened: " + dlerror());
    return handle;
}

using Libraries = std::vector<void*>;

template <typename Function>
void take(Function*& function, const char* name, const Libraries& libraries) {
    for (void* library : libraries)
        if (function == nullptr)
            function = reinterpret_cast<Function*>(dlsym(library, name));
    require(function != nullptr, std::string("no library has ") + name);
}

template <typename Function>
void askFor(Function*& function, const char* name, decltype(&::glXGetProcAddressARB) ask) {
    function = reinterpret_cast<Function*>(ask(reinterpret_cast<const GLubyte*>(name)));
    require(function != nullptr, std::string("there is no procedure ") + name);
}

int drawByWayOf(const char* path) {
    Functions functions;
    const Libraries libraries = {open(path, RTLD_LAZY | RTLD_LOCAL)};
    decltype(&::glXGetProcAddressARB) ask = nullptr;
    take(ask, "glXGetProcAddressARB", libraries);
#define KOR_ASK(name) askFor(functions.name, #name, ask);
    KOR_GLX_FUNCTIONS(KOR_ASK)
    KOR_GL_FUNCTIONS(KOR_ASK)
#undef KOR_ASK
    return drawAndCheck(functions);
}

} // namespace

int main(int argc, char** argv) {
    require(argc >= 3, "too few arguments");
    if (strcmp(argv[1], "plugin") == 0) {
        void* plugin = open(argv[2], RTLD_NOW | RTLD_LOCAL);
        const auto draw = reinterpret_cast<int (*)()>(dlsym(plugin, "draw_and_check"));
        require(draw != nullptr, "the plug-in has nothing to call");
        return draw();
    }
    if (argc == 4 && strcmp(argv[1], "meet") == 0) {
        const int first = drawByWayOf(argv[2]);
        return drawByWayOf(argv[3]) + first;
    }
    const std::map<std::string, int> modes = {
        {"local", RTLD_LOCAL}, {"global", RTLD_GLOBAL}, {"deepbind", RTLD_LOCAL | RTLD_DEEPBIND}};
    Libraries libraries;
    for (int i = 3; i < argc; ++i)
        libraries.push_back(open(argv[i], RTLD_LAZY | modes.at(argv[1])));
    Functions functions;
    if (strcmp(argv[2], "symbols") == 0) {
#define KOR_TAKE(name) take(functions.name, #name, libraries);
        KOR_GLX_FUNCTIONS(KOR_TAKE)
        KOR_GL_FUNCTIONS(KOR_TAKE)
    } else {
        decltype(&::glXGetProcAddressARB) ask = nullptr;
        take(ask, "glXGetProcAddressARB", libraries);
#define KOR_ASK(name) askFor(functions.name, #name, ask);
        KOR_GLX_FUNCTIONS(KOR_ASK)
        KOR_GL_FUNCTIONS(KOR_ASK)
    }
    return drawAndCheck(functions);
}
