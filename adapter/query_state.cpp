#include "query_state.h"

#include "driver.h"
#include "local_displays.h"
#include "support/forked_child.h"

#include <charconv>
#include <cstring>
#include <unordered_set>

namespace kor::adapter {

std::atomic<int> contextsWithQuery{0};

namespace {

/// Under tablesMutex(); lives as long as the process.
PerProcess<std::unordered_set<GLXContext>> contextsOfQueries;
InForkedChild forgetQueries([] { contextsWithQuery = 0; });

std::unordered_set<GLXContext>& queried() {
    return *contextsOfQueries;
}

void setQueryRuns(GLXContext context, bool runs) {
    const std::lock_guard lock(tablesMutex());
    if (runs)
        queried().insert(context);
    else
        queried().erase(context);
    contextsWithQuery = static_cast<int>(queried().size());
}

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
    // Asked for every frame.
    int major = 0;
    int minor = 0;
    const char* const end = text + std::strlen(text);
    const auto dot = std::from_chars(text, end, major);
    if (dot.ptr == end || *dot.ptr != '.' ||
        std::from_chars(dot.ptr + 1, end, minor).ec != std::errc() || major < 3 ||
        (major == 3 && minor < 2))
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
    setQueryRuns(driver.glXGetCurrentContext(), true);
}

void endQuery(GLenum target) {
    if (isEmbedded(version()) || !queryRuns(target, true))
        return;
    driver.glEndQuery(target);
    setQueryRuns(driver.glXGetCurrentContext(), false);
}

void getQueryObjectiv(GLuint query, GLenum name, GLint* value) {
    if (driver.glIsQuery && driver.glIsQuery(query) == GL_FALSE)
        return;
    driver.glGetQueryObjectiv(query, name, value);
}

void finishForQuery() {
    const GLXContext context = driver.glXGetCurrentContext();
    {
        const std::lock_guard lock(tablesMutex());
        if (!queried().contains(context))
            return;
    }
    driver.glFinish();
}

void forgetQuery(GLXContext context) {
    if (contextsWithQuery != 0)
        setQueryRuns(context, false);
}

} // namespace kor::adapter
