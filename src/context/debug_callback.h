#ifndef KOR_CONTEXT_DEBUG_CALLBACK_H
#define KOR_CONTEXT_DEBUG_CALLBACK_H

#include "core/gl_headers.h"

/// Logs one message of the driver.
void APIENTRY debugCallback(GLenum source, GLenum type, GLuint id, GLenum severity, GLsizei length,
                            const GLchar* message, const void* userParam);

namespace kor::gl {

/// Lets the current context report to debugCallback. Does nothing where the driver cannot.
void registerDebugCallback();

} // namespace kor::gl

#endif
