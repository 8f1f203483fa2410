#include "draw.h"

#include <cstdio>

namespace kor::client {
namespace {

constexpr const char* kVertexBody = R"(
void main() {
    where = place * 0.5 + 0.5;
    gl_Position = vec4(place, 0.0, 1.0);
}
)";

GLuint compile(GLenum type, const std::string& source) {
    const GLuint shader = glCreateShader(type);
    const char* const text = source.c_str();
    glShaderSource(shader, 1, &text, nullptr);
    glCompileShader(shader);
    GLint compiled = GL_FALSE;
    glGetShaderiv(shader, GL_COMPILE_STATUS, &compiled);
    if (compiled != GL_TRUE) {
        char log[1024] = "";
        glGetShaderInfoLog(shader, sizeof log, nullptr, log);
        fail(std::string("compile a shader: ") + log);
    }
    return shader;
}

std::string vertexSource(Profile profile) {
    switch (profile) {
    case Profile::Core:
        return std::string("#version 330 core\nin vec2 place;\nout vec2 where;") + kVertexBody;
    case Profile::Es3:
        return std::string("#version 300 es\nin vec2 place;\nout highp vec2 where;") + kVertexBody;
    case Profile::Es2:
        break;
    }
    return std::string("#version 100\nattribute vec2 place;\nvarying highp vec2 where;") +
           kVertexBody;
}

std::string fragmentSource(Profile profile) {
    switch (profile) {
    case Profile::Core:
        return "#version 330 core\nin vec2 where;\nuniform sampler2D picture;\nout vec4 colour;\n"
               "void main() { colour = texture(picture, where); }\n";
    case Profile::Es3:
        return "#version 300 es\nprecision highp float;\nin vec2 where;\n"
               "uniform sampler2D picture;\nout vec4 colour;\n"
               "void main() { colour = texture(picture, where); }\n";
    case Profile::Es2:
        break;
    }
    return "#version 100\nprecision highp float;\nvarying vec2 where;\n"
           "uniform sampler2D picture;\n"
           "void main() { gl_FragColor = texture2D(picture, where); }\n";
}

void uploadTexture(const Picture& picture) {
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, picture.width(), picture.height(), 0, GL_RGBA,
                 GL_UNSIGNED_BYTE, picture.glPixels().data());
}

} // namespace

void requireNoError(const std::string& what) {
    const GLenum error = glGetError();
    char text[32];
    std::snprintf(text, sizeof text, ": GL error 0x%04x", error);
    require(error == GL_NO_ERROR, what + text);
}

void drawPixels(const Picture& picture) {
    glWindowPos2i(0, 0);
    glDrawPixels(picture.width(), picture.height(), GL_RGBA, GL_UNSIGNED_BYTE,
                 picture.glPixels().data());
    requireNoError("glDrawPixels");
}

void drawQuad(const Picture& picture, const Rectangle& area) {
    GLuint texture = 0;
    glGenTextures(1, &texture);
    glBindTexture(GL_TEXTURE_2D, texture);
    uploadTexture(picture);
    glEnable(GL_TEXTURE_2D);
    glTexEnvi(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_REPLACE);
    glViewport(0, 0, picture.width(), picture.height());
    glMatrixMode(GL_PROJECTION);
    glLoadIdentity();
    glOrtho(0, picture.width(), picture.height(), 0, -1, 1); // rows from the top, as in the picture
    glMatrixMode(GL_MODELVIEW);
    glLoadIdentity();
    const auto s = [&](int x) {
        return static_cast<float>(x) / static_cast<float>(picture.width());
    };
    const auto t = [&](int y) {
        return 1.0F - static_cast<float>(y) / static_cast<float>(picture.height());
    };
    const int right = area.x + area.width;
    const int bottom = area.y + area.height;
    glBegin(GL_QUADS);
    glTexCoord2f(s(area.x), t(area.y));
    glVertex2i(area.x, area.y);
    glTexCoord2f(s(right), t(area.y));
    glVertex2i(right, area.y);
    glTexCoord2f(s(right), t(bottom));
    glVertex2i(right, bottom);
    glTexCoord2f(s(area.x), t(bottom));
    glVertex2i(area.x, bottom);
    glEnd();
    glDisable(GL_TEXTURE_2D);
    glBindTexture(GL_TEXTURE_2D, 0);
    glDeleteTextures(1, &texture);
    requireNoError("a textured quad");
}

void drawQuad(const Picture& picture) {
    drawQuad(picture, {0, 0, picture.width(), picture.height()});
}

void drawClears(const Picture& picture) {
    glEnable(GL_SCISSOR_TEST);
    for (int y = 0; y < picture.height(); ++y) {
        for (int x = 0; x < picture.width(); ++x) {
            const std::uint32_t colour = picture.colour(x, y);
            glScissor(x, picture.height() - 1 - y, 1, 1);
            glClearColor(static_cast<float>(colour >> 16U) / 255.0F,
                         static_cast<float>((colour >> 8U) & 0xFFU) / 255.0F,
                         static_cast<float>(colour & 0xFFU) / 255.0F, 1.0F);
            glClear(GL_COLOR_BUFFER_BIT);
        }
    }
    glDisable(GL_SCISSOR_TEST);
    requireNoError("scissored clears");
}

ShaderPainter::ShaderPainter(Profile profile) {
    if (profile != Profile::Es2) { // core contexts draw nothing without an array object
        GLuint array = 0;
        glGenVertexArrays(1, &array);
        glBindVertexArray(array);
    }
    const float corners[] = {-1.0F, -1.0F, 1.0F, -1.0F, -1.0F, 1.0F, 1.0F, 1.0F};
    GLuint buffer = 0;
    glGenBuffers(1, &buffer);
    glBindBuffer(GL_ARRAY_BUFFER, buffer);
    glBufferData(GL_ARRAY_BUFFER, sizeof corners, corners, GL_STATIC_DRAW);
    m_program = glCreateProgram();
    glAttachShader(m_program, compile(GL_VERTEX_SHADER, vertexSource(profile)));
    glAttachShader(m_program, compile(GL_FRAGMENT_SHADER, fragmentSource(profile)));
    glBindAttribLocation(m_program, 0, "place");
    glLinkProgram(m_program);
    GLint linked = GL_FALSE;
    glGetProgramiv(m_program, GL_LINK_STATUS, &linked);
    require(linked == GL_TRUE, "link a program");
    glEnableVertexAttribArray(0);
    glVertexAttribPointer(0, 2, GL_FLOAT, GL_FALSE, 0, nullptr);
    glUseProgram(m_program);
    glUniform1i(glGetUniformLocation(m_program, "picture"), 0);
    glGenTextures(1, &m_texture);
    glBindTexture(GL_TEXTURE_2D, m_texture);
    requireNoError("set a program up");
}

void ShaderPainter::draw(const Picture& picture) const {
    uploadTexture(picture);
    glViewport(0, 0, picture.width(), picture.height());
    glDrawArrays(GL_TRIANGLE_STRIP, 0, 4);
    requireNoError("draw with a program");
}

} // namespace kor::client
