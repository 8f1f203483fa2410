#include "core/entry_points.h"
#include "core/system_gl.h"
#include "display/displays.h"
#include "support/failures.h"
#include "support/log.h"
#include "visual/visual_map.h"

#include <algorithm>
#include <cstdlib>
#include <memory>

namespace {

struct Free {
    void operator()(void* memory) const { free(memory); }
};

struct RequestLine {
    int attribute;
    const char* line;
};

constexpr RequestLine requestLines[] = {
    {GLX_BUFFER_SIZE, "GLX_BUFFER_SIZE %d"},
    {GLX_LEVEL, "GLX_LEVEL %d"},
    {GLX_DOUBLEBUFFER, "GLX_DOUBLEBUFFER %d"},
    {GLX_STEREO, "GLX_STEREO %d"},
    {GLX_AUX_BUFFERS, "GLX_AUX_BUFFERS %d"},
    {GLX_RED_SIZE, "GLX_RED_SIZE %d"},
    {GLX_GREEN_SIZE, "GLX_GREEN_SIZE %d"},
    {GLX_BLUE_SIZE, "GLX_BLUE_SIZE %d"},
    {GLX_ALPHA_SIZE, "GLX_ALPHA_SIZE %d"},
    {GLX_DEPTH_SIZE, "GLX_DEPTH_SIZE %d"},
    {GLX_STENCIL_SIZE, "GLX_STENCIL_SIZE %d"},
    {GLX_ACCUM_RED_SIZE, "GLX_ACCUM_RED_SIZE %d"},
    {GLX_ACCUM_GREEN_SIZE, "GLX_ACCUM_GREEN_SIZE %d"},
    {GLX_ACCUM_BLUE_SIZE, "GLX_ACCUM_BLUE_SIZE %d"},
    {GLX_ACCUM_ALPHA_SIZE, "GLX_ACCUM_ALPHA_SIZE %d"},
    {GLX_CONFIG_CAVEAT, "GLX_CONFIG_CAVEAT %d"},
    {GLX_X_VISUAL_TYPE, "GLX_X_VISUAL_TYPE %d"},
    {GLX_TRANSPARENT_TYPE, "GLX_TRANSPARENT_TYPE %d"},
    {GLX_TRANSPARENT_INDEX_VALUE, "GLX_TRANSPARENT_INDEX_VALUE %d"},
    {GLX_TRANSPARENT_RED_VALUE, "GLX_TRANSPARENT_RED_VALUE %d"},
    {GLX_TRANSPARENT_GREEN_VALUE, "GLX_TRANSPARENT_GREEN_VALUE %d"},
    {GLX_TRANSPARENT_BLUE_VALUE, "GLX_TRANSPARENT_BLUE_VALUE %d"},
    {GLX_TRANSPARENT_ALPHA_VALUE, "GLX_TRANSPARENT_ALPHA_VALUE %d"},
    {GLX_RENDER_TYPE, "GLX_RENDER_TYPE %d"},
    {GLX_DRAWABLE_TYPE, "GLX_DRAWABLE_TYPE %d"},
    {GLX_X_RENDERABLE, "GLX_X_RENDERABLE %d"},
    {GLX_FBCONFIG_ID, "GLX_FBCONFIG_ID %x"},
    {GLX_SAMPLES, "GLX_SAMPLES %d"},
};

void logRequest(const int* list) {
    constexpr const char* function =
        "__GLXFBConfigRec** kor_glXChooseFBConfig(Display*, int, const int*, int*)";
    if (!kor::logs(kor::LogDebug))
        return;
    while (list != nullptr && *list != None) {
        const int attribute = *list++;
        const RequestLine* known =
            std::find_if(std::begin(requestLines), std::end(requestLines),
                         [&](const RequestLine& row) { return row.attribute == attribute; });
        if (known != std::end(requestLines))
            KOR_LOG_AT("KORGL", kor::LogDebug, "DEBUG", function, false, known->line, *list++);
        else // whether a value follows cannot be told: only the word itself is skipped
            KOR_LOG_AT("KORGL", kor::LogDebug, "DEBUG", function, false, "unknown attribute %x",
                       attribute);
    }
}

} // namespace

GLXFBConfig* kor_glXChooseFBConfig(Display* dpy, int /*screen*/, const int* attribList,
                                   int* nelements) try {
    KOR_DEBUG("START");
    kor::gl::TSD* tsd = getTSD();
    if (!_setupAppDisplay(dpy, tsd))
        return nullptr;
    const kor::gl::LocalDisplay pinned = kor::gl::pinLocalDisplay(tsd);
    Display* const local = pinned.get();
    if (local == nullptr) {
        KOR_DEBUG("no local display");
        return nullptr;
    }
    logRequest(attribList);
    int uncounted = 0;
    int* count = nelements != nullptr ? nelements : &uncounted;
    GLXFBConfig* configs = nullptr;
    {
        const kor::Lock lock(getLocalDisplayMutex());
        configs = system_glXChooseFBConfig(local, DefaultScreen(local), attribList, count);
    }
    if (configs == nullptr || nelements == nullptr) {
        if (configs != nullptr)
            XFree(configs);
        return nullptr;
    }
    const std::unique_ptr<GLXFBConfig[], Free> kept(static_cast<GLXFBConfig*>(
        malloc(sizeof(GLXFBConfig) * static_cast<size_t>(std::max(*nelements, 1)))));
    if (kept == nullptr) {
        KOR_ERROR("could not allocate fbconfig array");
        XFree(configs);
        return nullptr;
    }
    const kor::OnFailure undo([&] { XFree(configs); });
    int keptCount = 0;
    for (int i = 0; i < *nelements; ++i) {
        if (_getLVI(dpy, configs[i], tsd) != nullptr)
            kept[keptCount++] = configs[i];
    }
    std::copy_n(kept.get(), keptCount, configs);
    *nelements = keptCount;
    return configs;
}
KOR_OTHERWISE(nullptr)

GLXFBConfig* kor_glXGetFBConfigs(Display* dpy, int screen, int* nelements) try {
    KOR_DEBUG("START");
    return kor_glXChooseFBConfig(dpy, screen, nullptr, nelements);
}
KOR_OTHERWISE(nullptr)

GLXFBConfigSGIX* kor_glXChooseFBConfigSGIX(Display* dpy, int screen, int* attribList,
                                           int* nelements) try {
    KOR_DEBUG("START");
    return kor_glXChooseFBConfig(dpy, screen, attribList, nelements);
}
KOR_OTHERWISE(nullptr)
