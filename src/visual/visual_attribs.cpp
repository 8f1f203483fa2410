#include "visual/visual_attribs.h"

#include "core/system_gl.h"

namespace kor::gl {

namespace {

struct Query {
    int attribute;
    int32_t VisualAttribs::*field;
};

// In the order in which they are asked.
constexpr Query commonQueries[] = {
    {GLX_BUFFER_SIZE, &VisualAttribs::bufferSize},
    {GLX_LEVEL, &VisualAttribs::level},
    {GLX_RGBA, &VisualAttribs::rgba},
    {GLX_DOUBLEBUFFER, &VisualAttribs::doubleBuffer},
    {GLX_STEREO, &VisualAttribs::stereo},
    {GLX_AUX_BUFFERS, &VisualAttribs::auxBuffers},
    {GLX_RED_SIZE, &VisualAttribs::redSize},
    {GLX_GREEN_SIZE, &VisualAttribs::greenSize},
    {GLX_BLUE_SIZE, &VisualAttribs::blueSize},
    {GLX_ALPHA_SIZE, &VisualAttribs::alphaSize},
    {GLX_DEPTH_SIZE, &VisualAttribs::depthSize},
    {GLX_STENCIL_SIZE, &VisualAttribs::stencilSize},
    {GLX_ACCUM_RED_SIZE, &VisualAttribs::accumRedSize},
    {GLX_ACCUM_GREEN_SIZE, &VisualAttribs::accumGreenSize},
    {GLX_ACCUM_BLUE_SIZE, &VisualAttribs::accumBlueSize},
    {GLX_ACCUM_ALPHA_SIZE, &VisualAttribs::accumAlphaSize},
    {GLX_TRANSPARENT_TYPE, &VisualAttribs::transparentType},
};

constexpr Query transparentColourQueries[] = {
    {GLX_TRANSPARENT_RED_VALUE, &VisualAttribs::transparentRed},
    {GLX_TRANSPARENT_GREEN_VALUE, &VisualAttribs::transparentGreen},
    {GLX_TRANSPARENT_BLUE_VALUE, &VisualAttribs::transparentBlue},
    {GLX_TRANSPARENT_ALPHA_VALUE, &VisualAttribs::transparentAlpha},
};

constexpr Query sizeQueries[] = {
    {GLX_AUX_BUFFERS, &VisualAttribs::auxBuffers},
    {GLX_RED_SIZE, &VisualAttribs::redSize},
    {GLX_GREEN_SIZE, &VisualAttribs::greenSize},
    {GLX_BLUE_SIZE, &VisualAttribs::blueSize},
    {GLX_ALPHA_SIZE, &VisualAttribs::alphaSize},
    {GLX_DEPTH_SIZE, &VisualAttribs::depthSize},
    {GLX_STENCIL_SIZE, &VisualAttribs::stencilSize},
    {GLX_ACCUM_RED_SIZE, &VisualAttribs::accumRedSize},
    {GLX_ACCUM_GREEN_SIZE, &VisualAttribs::accumGreenSize},
    {GLX_ACCUM_BLUE_SIZE, &VisualAttribs::accumBlueSize},
    {GLX_ACCUM_ALPHA_SIZE, &VisualAttribs::accumAlphaSize},
};

} // namespace

void VisualAttribs::fill(Display* dpy, XVisualInfo* vis, bool multisample) {
    *this = VisualAttribs();
    visualId = static_cast<int32_t>(vis->visualid);
    visualClass = vis->c_class;
    depth = vis->depth;
    redMask = static_cast<int32_t>(vis->red_mask);
    greenMask = static_cast<int32_t>(vis->green_mask);
    blueMask = static_cast<int32_t>(vis->blue_mask);
    colormapSize = vis->colormap_size;
    bitsPerRgb = vis->bits_per_rgb;

    const auto ask = [&](int attribute, int32_t& field) {
        int value = 0;
        system_glXGetConfig(dpy, vis, attribute, &value);
        field = value;
    };
    ask(GLX_USE_GL, useGL);
    if (useGL != 1)
        return;
    for (const Query& query : commonQueries)
        ask(query.attribute, this->*query.field);
    if (transparentType == GLX_TRANSPARENT_RGB) {
        for (const Query& query : transparentColourQueries)
            ask(query.attribute, this->*query.field);
    } else if (transparentType == GLX_TRANSPARENT_INDEX) {
        ask(GLX_TRANSPARENT_INDEX_VALUE, transparentIndex);
    }
    if (multisample) {
        ask(GLX_SAMPLE_BUFFERS, sampleBuffers);
        ask(GLX_SAMPLES, samples);
    }
    ask(GLX_VISUAL_CAVEAT_EXT, visualCaveat);
}

void populateAttribList(const VisualAttribs& visual, int* out) {
    const auto pair = [&out](int attribute, int value) {
        *out++ = attribute;
        *out++ = value;
    };
    pair(GLX_BUFFER_SIZE, visual.bufferSize);
    pair(GLX_LEVEL, visual.level);
    pair(GLX_RENDER_TYPE, visual.rgba != 0 ? GLX_RGBA_BIT : GLX_COLOR_INDEX_BIT);
    pair(GLX_DOUBLEBUFFER, visual.doubleBuffer != 0 ? 1 : 0);
    pair(GLX_STEREO, visual.stereo != 0 ? 1 : 0);
    for (const Query& query : sizeQueries)
        pair(query.attribute, visual.*query.field);
    if (visual.transparentType == GLX_TRANSPARENT_RGB) {
        pair(GLX_TRANSPARENT_TYPE, visual.transparentType);
        for (const Query& query : transparentColourQueries)
            pair(query.attribute, visual.*query.field);
    } else if (visual.transparentType == GLX_TRANSPARENT_INDEX) {
        pair(GLX_TRANSPARENT_TYPE, visual.transparentType);
        pair(GLX_TRANSPARENT_INDEX_VALUE, visual.transparentIndex);
    }
    if (visual.sampleBuffers > 0) {
        pair(GLX_SAMPLE_BUFFERS, visual.sampleBuffers);
        pair(GLX_SAMPLES, visual.samples);
    }
    *out = None;
}

} // namespace kor::gl
