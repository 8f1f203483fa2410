// What a program that knows nothing of GL opens: linked with the GL library.
#include "drawing.h"

extern "C" __attribute__((visibility("default"))) int draw_and_check() {
    kor::loading::Functions functions;
    KOR_GLX_FUNCTIONS(KOR_TAKE_LINKED)
    KOR_GL_FUNCTIONS(KOR_TAKE_LINKED)
    return kor::loading::drawAndCheck(functions);
}
