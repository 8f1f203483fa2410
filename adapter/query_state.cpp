#include "query_state.h"

#include "driver.h"

#include <cstdio>
#include <cstring>

namespace kor::adapter {
namespace {

constexpr char embeddedPrefix[] = "OpenGL ES";

const char* version() {
    return driver.glGetString ? reinterpret_cast<const char*>(driver.glGetString(GL_VERSION))
                              : nullptr;
}

bool isEmbedded(const char* version) {
    return version && !std::strncmp(version, embeddedPrefix, sizeof embeddedPrefix - 1);
}

/// Select and feedback went with the core profile; OpenGL ES never had them.
bool hasRenderModes() {
    const char* const text = version();
    if (!text)
        return true; // whatever this is, let GL answer
    if (isEmbedded(text))
        return false;
    int major = 0;
    int minor = 0;
    if (std::sscanf(text, "%d.%d", &major, &minor) != 2 || major < 3 || (major == 3 && minor < 2))
        return true;
    GLint profile = 0;
    driver.glGetIntegerv(GL_CONTEXT_PROFILE_MASK, &profile);
    return (profile & GL_CONTEXT_CORE_PROFILE_BIT) == 0;
}

/// True when the target has a query that runs, or GL is to be asked since we cannot know.
bool queryRuns(GLenum target, bool unknown) {
    if (!driver.glGetQueryiv)
        return unknown;
    GLint current = 0;
    driver.glGetQueryiv(target, GL_CURRENT_QUERY, &current);
    return current != 0;
}

} // namespace

void getIntegerv(GLenum name, GLint* values) {
    if (name == GL_RENDER_MODE && !hasRenderModes())
        return;
    driver.glGetIntegerv(name, values);
}

void beginQuery(GLenum target, GLuint query) {
    if (isEmbedded(version()) || queryRuns(target, false))
        return;
    driver.glBeginQuery(target, query);
}

void endQuery(GLenum target) {
    if (isEmbedded(version()) || !queryRuns(target, true))
        return;
    driver.glEndQuery(target);
}

void getQueryObjectiv(GLuint query, GLenum name, GLint* value) {
    if (driver.glIsQuery && driver.glIsQuery(query) == GL_FALSE)
        return;
    driver.glGetQueryObjectiv(query, name, value);
}

} // namespace kor::adapter
