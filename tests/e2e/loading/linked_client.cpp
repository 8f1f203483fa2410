// Linked with a GL library, or with libGLX and libOpenGL: two programs are made of this.
//   linked_client [thread]   thread: no GL call is made on the main thread
#include "drawing.h"

#include <cstring>
#include <thread>

int main(int argc, char** argv) {
    using namespace kor::loading;
    Functions functions;
    KOR_GLX_FUNCTIONS(KOR_TAKE_LINKED)
    KOR_GL_FUNCTIONS(KOR_TAKE_LINKED)
    if (argc < 2 || strcmp(argv[1], "thread") != 0)
        return drawAndCheck(functions);
    int status = 1;
    std::thread([&] { status = drawAndCheck(functions); }).join();
    return status;
}
