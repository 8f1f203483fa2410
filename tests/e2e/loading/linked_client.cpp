// Linked with a GL library, or with libGLX and libOpenGL: two programs are made of this.
//   linked_client [thread | secure]   thread: no GL call is made on the main thread; secure: says
//       whether the process has raised privileges, whether our library is in it, and which front
#include "drawing.h"

#include <cstdio>
#include <cstring>
#include <fstream>
#include <sys/auxv.h>
#include <thread>

namespace {

int drawAndTell(const kor::loading::Functions& functions) {
    const int status = kor::loading::drawAndCheck(functions);
    std::ifstream maps("/proc/self/maps");
    bool ours = false;
    bool classic = false;
    for (std::string line; std::getline(maps, line);) {
        ours = ours || line.find("libGL_KOR") != std::string::npos;
        classic = classic || line.find("kor/libGL.so.1") != std::string::npos;
    }
    printf("raised privileges: %s, library: %s, front: %s\n",
           getauxval(AT_SECURE) != 0 ? "yes" : "no", ours ? "yes" : "no",
           classic ? "classic" : "vendor");
    return status;
}

} // namespace

int main(int argc, char** argv) {
    using namespace kor::loading;
    Functions functions;
    KOR_GLX_FUNCTIONS(KOR_TAKE_LINKED)
    KOR_GL_FUNCTIONS(KOR_TAKE_LINKED)
    if (argc == 2 && strcmp(argv[1], "secure") == 0)
        return drawAndTell(functions);
    if (argc < 2 || strcmp(argv[1], "thread") != 0)
        return drawAndCheck(functions);
    int status = 1;
    std::thread([&] { status = drawAndCheck(functions); }).join();
    return status;
}
