#include "context/debug_callback.h"

#include "core/system_gl.h"
#include "support/log.h"

namespace {

const char* typeWord(GLenum type) {
    switch (type) {
    case GL_DEBUG_TYPE_ERROR:
        return "Error";
    case GL_DEBUG_TYPE_DEPRECATED_BEHAVIOR:
        return "Deprecated behaviour";
    case GL_DEBUG_TYPE_UNDEFINED_BEHAVIOR:
        return "Undefined behaviour";
    case GL_DEBUG_TYPE_PORTABILITY:
        return "Portability";
    case GL_DEBUG_TYPE_PERFORMANCE:
        return "Performance";
    case GL_DEBUG_TYPE_OTHER:
        return "Other";
    default:
        return "Unknown";
    }
}

const char* severityWord(GLenum severity) {
    switch (severity) {
    case GL_DEBUG_SEVERITY_HIGH:
        return "High";
    case GL_DEBUG_SEVERITY_MEDIUM:
        return "Medium";
    case GL_DEBUG_SEVERITY_LOW:
        return "Low";
    default:
        return "Unknown";
    }
}

} // namespace

void APIENTRY debugCallback(GLenum /*source*/, GLenum type, GLuint /*id*/, GLenum severity,
                            GLsizei /*length*/, const GLchar* message, const void* /*userParam*/) {
    KOR_INFO("[GL DEBUG] type=%s, severity=%s: %s", typeWord(type), severityWord(severity),
             message != nullptr ? message : "");
}

namespace kor::gl {

void registerDebugCallback() {
    if (system_glEnable == nullptr || system_glDebugMessageCallback == nullptr ||
        system_glDebugMessageControl == nullptr)
        return;
    const GLuint ids = 0;
    system_glEnable(GL_DEBUG_OUTPUT_SYNCHRONOUS);
    system_glDebugMessageCallback(debugCallback, nullptr);
    system_glDebugMessageControl(GL_DONT_CARE, GL_DONT_CARE, GL_DONT_CARE, 0, &ids, GL_TRUE);
    KOR_INFO("Registered OpenGL debug callback");
}

} // namespace kor::gl
