#include "transport/readback_slice.h"

#include "core/system_gl.h"
#include "support/log.h"
#include "transport/flip_shaders.h"

#include <algorithm>

namespace kor::gl {

namespace {

// The log names performGPUReadback, of which the preparations are steps.
#define SLICE_LOG(level, word, ...)                                                                \
    KOR_LOG_AT("KORGL", level, word, "bool kor::gl::ReadbackSlice::performGPUReadback(int, int)",  \
               false, __VA_ARGS__)

GLint boundFramebuffer() {
    GLint bound = 0;
    system_glGetIntegerv(GL_FRAMEBUFFER_BINDING, &bound);
    return bound;
}

/// Makes a rectangle texture and leaves it bound.
GLuint makeTexture() {
    GLuint texture = 0;
    system_glGenTextures(1, &texture);
    system_glBindTexture(GL_TEXTURE_RECTANGLE, texture);
    system_glTexParameteri(GL_TEXTURE_RECTANGLE, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    system_glTexParameteri(GL_TEXTURE_RECTANGLE, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    return texture;
}

void allocateTexture(GLuint texture, int width, int height) {
    system_glBindTexture(GL_TEXTURE_RECTANGLE, texture);
    system_glTexImage2D(GL_TEXTURE_RECTANGLE, 0, GL_RGBA8, width, height, 0, GL_RGBA,
                        GL_UNSIGNED_BYTE, nullptr);
}

/// Makes a framebuffer on the texture and leaves it bound.
GLuint makeFramebuffer(GLuint texture) {
    GLuint framebuffer = 0;
    system_glGenFramebuffers(1, &framebuffer);
    system_glBindFramebuffer(GL_FRAMEBUFFER, framebuffer);
    system_glFramebufferTexture(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, texture, 0);
    return framebuffer;
}

GLuint compile(GLenum kind, const char* source) {
    const GLuint shader = system_glCreateShader(kind);
    system_glShaderSource(shader, 1, &source, nullptr);
    system_glCompileShader(shader);
    return shader;
}

} // namespace

ReadbackSlice::~ReadbackSlice() {
    if (targetTexture_ != 0)
        system_glDeleteTextures(1, &targetTexture_);
    if (sharedFramebuffer_ != 0)
        system_glDeleteFramebuffers(1, &sharedFramebuffer_);
    if (framebuffer_ != 0)
        system_glDeleteFramebuffers(1, &framebuffer_);
    if (program_ != 0)
        system_glDeleteProgram(program_);
    if (sourceTexture_ != 0)
        system_glDeleteTextures(1, &sourceTexture_);
}

void ReadbackSlice::prepareTextures(int frameWidth, int frameHeight) {
    if (targetTexture_ == 0 && sourceTexture_ == 0) {
        SLICE_LOG(LogDebug, "DEBUG", "Initializing GPU readback textures");
        targetTexture_ = makeTexture();
        sourceTexture_ = makeTexture();
    } else {
        system_glBindTexture(GL_TEXTURE_RECTANGLE, sourceTexture_);
    }
    if (textureWidth_ != frameWidth || textureHeight_ != frameHeight) {
        SLICE_LOG(LogDebug, "DEBUG", "Resizing GPU readback textures to new size %d x %d",
                  frameWidth, frameHeight);
        allocateTexture(targetTexture_, frameWidth, frameHeight);
        allocateTexture(sourceTexture_, frameWidth, frameHeight);
        textureWidth_ = frameWidth;
        textureHeight_ = frameHeight;
    }
}

bool ReadbackSlice::prepareProgram(GLint boundFramebuffer) {
    SLICE_LOG(LogDebug, "DEBUG", "Initializing GPU readback programs");
    framebuffer_ = makeFramebuffer(targetTexture_);
    if (system_glCheckFramebufferStatus(GL_FRAMEBUFFER) != GL_FRAMEBUFFER_COMPLETE) {
        // The framebuffer is kept: the check is made once only.
        SLICE_LOG(LogError, "ERROR", "Invalid framebuffer: 0x%X",
                  system_glCheckFramebufferStatus(GL_FRAMEBUFFER));
        return false;
    }
    program_ = system_glCreateProgram();
    const GLuint fragmentShader = compile(GL_FRAGMENT_SHADER, flipFragmentShader);
    const GLuint vertexShader = compile(GL_VERTEX_SHADER, flipVertexShader);
    system_glAttachShader(program_, vertexShader);
    system_glAttachShader(program_, fragmentShader);
    system_glLinkProgram(program_);
    system_glBindFramebuffer(GL_FRAMEBUFFER, static_cast<GLuint>(boundFramebuffer));
    return true;
}

bool ReadbackSlice::performGPUReadback(int frameWidth, int frameHeight) {
    prepareTextures(frameWidth, frameHeight);
    const GLint bound = boundFramebuffer();
    if (framebuffer_ == 0 && !prepareProgram(bound))
        return false;

    system_glActiveTexture(GL_TEXTURE0);
    system_glBindTexture(GL_TEXTURE_RECTANGLE, sourceTexture_);
    system_glCopyTexSubImage2D(GL_TEXTURE_RECTANGLE, 0, 0, 0, x, -y, frameWidth, frameHeight);

    system_glViewport(0, 0, frameWidth, frameHeight);
    system_glUseProgram(program_);
    system_glBindFramebuffer(GL_FRAMEBUFFER, framebuffer_);
    system_glUniform1f(system_glGetUniformLocation(program_, "u_texHeight_minus_one"),
                       flipUniform(frameHeight));
    system_glBindTexture(GL_TEXTURE_RECTANGLE, sourceTexture_);
    system_glUniform1i(system_glGetUniformLocation(program_, "u_tex_input"), 0);
    system_glDrawArrays(GL_TRIANGLES, 0, 3);
    system_glUseProgram(0);
    system_glBindFramebuffer(GL_FRAMEBUFFER, static_cast<GLuint>(bound));
    system_glBindTexture(GL_TEXTURE_RECTANGLE, targetTexture_);
    return true;
}

GLuint ReadbackSlice::initSharedFBO() {
    if (sharedFramebuffer_ != 0)
        system_glBindFramebuffer(GL_FRAMEBUFFER, sharedFramebuffer_);
    else
        sharedFramebuffer_ = makeFramebuffer(targetTexture_);
    return sharedFramebuffer_;
}

bool ReadbackSlice::transferToSystemMemory(char* buffer, int frameWidth, int frameHeight) {
    const GLint bound = boundFramebuffer();
    initSharedFBO();
    const int w = std::min(frameWidth - x, width);
    const int h = std::min(frameHeight - y, height);
    if (system_glPushClientAttrib != nullptr)
        system_glPushClientAttrib(GL_CLIENT_PIXEL_STORE_BIT);
    // Row j of the turned texture is row y + j of the frame from its top, so the slice's rows are
    // the texture's first h, and they belong y rows down in the image.
    system_glPixelStorei(GL_PACK_ROW_LENGTH, frameWidth);
    system_glPixelStorei(GL_PACK_SKIP_PIXELS, x);
    system_glPixelStorei(GL_PACK_SKIP_ROWS, y);
    system_glReadPixels(0, 0, w, h, GL_BGRA, GL_UNSIGNED_BYTE, buffer);
    if (system_glPopClientAttrib != nullptr)
        system_glPopClientAttrib();
    system_glBindFramebuffer(GL_FRAMEBUFFER, static_cast<GLuint>(bound));
    return true;
}

} // namespace kor::gl
