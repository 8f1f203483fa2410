#include "behaviour.h"
#include "state.h"

#include <cstring>

namespace fake {

namespace {

void generate(const char* kind, GLsizei count, GLuint* names) {
    for (GLsizei i = 0; i < count; ++i)
        names[i] = State::instance().freshObject(kind);
}

GLint stored(GLenum name) {
    const auto& store = threadState().pixelStore;
    const auto found = store.find(name);
    return found == store.end() ? 0 : found->second;
}

} // namespace

void Behaviour<Function::glGetIntegerv>::call(GLenum name, GLint* value) {
    State::instance().integer(name, value);
}

void Behaviour<Function::glGetQueryObjectiv>::call(GLuint /*query*/, GLenum /*name*/,
                                                   GLint* value) {
    State::instance().queryResult(value);
}

void Behaviour<Function::glGenQueries>::call(GLsizei count, GLuint* names) {
    generate("query", count, names);
}

void Behaviour<Function::glGenQueriesARB>::call(GLsizei count, GLuint* names) {
    generate("query", count, names);
}

void Behaviour<Function::glGenTextures>::call(GLsizei count, GLuint* names) {
    generate("texture", count, names);
}

void Behaviour<Function::glGenFramebuffers>::call(GLsizei count, GLuint* names) {
    generate("framebuffer", count, names);
}

void Behaviour<Function::glGenBuffers>::call(GLsizei count, GLuint* names) {
    generate("buffer", count, names);
}

void Behaviour<Function::glGenVertexArrays>::call(GLsizei count, GLuint* names) {
    generate("array", count, names);
}

void Behaviour<Function::glBindFramebuffer>::call(GLenum /*target*/, GLuint /*framebuffer*/) {}

GLuint Behaviour<Function::glCreateShader>::call(GLenum /*type*/) {
    return State::instance().freshObject("shader");
}

GLuint Behaviour<Function::glCreateProgram>::call() {
    return State::instance().freshObject("program");
}

GLint Behaviour<Function::glGetUniformLocation>::call(GLuint /*program*/, const GLchar* name) {
    if (strcmp(name, "u_texHeight_minus_one") == 0)
        return 1;
    return strcmp(name, "u_tex_input") == 0 ? 2 : -1;
}

GLenum Behaviour<Function::glCheckFramebufferStatus>::call(GLenum /*target*/) {
    return GL_FRAMEBUFFER_COMPLETE;
}

GLsync Behaviour<Function::glFenceSync>::call(GLenum /*condition*/, GLbitfield /*flags*/) {
    constexpr Word fenceBase = 0xf0000000;
    return reinterpret_cast<GLsync>(
        static_cast<uintptr_t>(State::instance().fresh("fence", fenceBase)));
}

GLenum Behaviour<Function::glClientWaitSync>::call(GLsync /*fence*/, GLbitfield /*flags*/,
                                                   GLuint64 /*timeout*/) {
    return GL_ALREADY_SIGNALED;
}

void Behaviour<Function::glPixelStorei>::call(GLenum name, GLint value) {
    threadState().pixelStore[name] = value;
}

void Behaviour<Function::glPushClientAttrib>::call(GLbitfield /*mask*/) {
    threadState().savedPixelStores.push_back(threadState().pixelStore);
}

void Behaviour<Function::glPopClientAttrib>::call() {
    ThreadState& thread = threadState();
    if (thread.savedPixelStores.empty())
        return;
    thread.pixelStore = thread.savedPixelStores.back();
    thread.savedPixelStores.pop_back();
}

void Behaviour<Function::glReadPixels>::call(GLint x, GLint y, GLsizei width, GLsizei height,
                                             GLenum format, GLenum type, void* pixels) {
    if (format != GL_BGRA || type != GL_UNSIGNED_BYTE || pixels == nullptr)
        return;
    const auto pixel = State::instance().pixels();
    const GLint rowLength = stored(GL_PACK_ROW_LENGTH) > 0 ? stored(GL_PACK_ROW_LENGTH) : width;
    auto* out = static_cast<uint32_t*>(pixels);
    for (GLsizei row = 0; row < height; ++row) {
        const size_t start =
            static_cast<size_t>(stored(GL_PACK_SKIP_ROWS) + row) * static_cast<size_t>(rowLength) +
            static_cast<size_t>(stored(GL_PACK_SKIP_PIXELS));
        for (GLsizei column = 0; column < width; ++column)
            out[start + static_cast<size_t>(column)] = pixel(x + column, y + row);
    }
}

} // namespace fake
