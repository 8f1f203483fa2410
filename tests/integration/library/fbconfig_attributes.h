#ifndef KOR_TESTS_LIBRARY_FBCONFIG_ATTRIBUTES_H
#define KOR_TESTS_LIBRARY_FBCONFIG_ATTRIBUTES_H

#include <GL/glx.h>
#include <string>
#include <utility>
#include <vector>

/// Attributes of an fbconfig with the names that the log has for them.
using AttributeNames = std::vector<std::pair<int, std::string>>;

/// What every log of fbconfig attributes knows, and what one of them knows besides.
inline AttributeNames fbconfigAttributes(const AttributeNames& more) {
    AttributeNames attributes = {
        {GLX_BUFFER_SIZE, "GLX_BUFFER_SIZE"},
        {GLX_LEVEL, "GLX_LEVEL"},
        {GLX_DOUBLEBUFFER, "GLX_DOUBLEBUFFER"},
        {GLX_STEREO, "GLX_STEREO"},
        {GLX_AUX_BUFFERS, "GLX_AUX_BUFFERS"},
        {GLX_RED_SIZE, "GLX_RED_SIZE"},
        {GLX_GREEN_SIZE, "GLX_GREEN_SIZE"},
        {GLX_BLUE_SIZE, "GLX_BLUE_SIZE"},
        {GLX_ALPHA_SIZE, "GLX_ALPHA_SIZE"},
        {GLX_DEPTH_SIZE, "GLX_DEPTH_SIZE"},
        {GLX_STENCIL_SIZE, "GLX_STENCIL_SIZE"},
        {GLX_ACCUM_RED_SIZE, "GLX_ACCUM_RED_SIZE"},
        {GLX_ACCUM_GREEN_SIZE, "GLX_ACCUM_GREEN_SIZE"},
        {GLX_ACCUM_BLUE_SIZE, "GLX_ACCUM_BLUE_SIZE"},
        {GLX_ACCUM_ALPHA_SIZE, "GLX_ACCUM_ALPHA_SIZE"},
        {GLX_CONFIG_CAVEAT, "GLX_CONFIG_CAVEAT"},
        {GLX_X_VISUAL_TYPE, "GLX_X_VISUAL_TYPE"},
        {GLX_TRANSPARENT_TYPE, "GLX_TRANSPARENT_TYPE"},
        {GLX_TRANSPARENT_INDEX_VALUE, "GLX_TRANSPARENT_INDEX_VALUE"},
        {GLX_TRANSPARENT_RED_VALUE, "GLX_TRANSPARENT_RED_VALUE"},
        {GLX_TRANSPARENT_GREEN_VALUE, "GLX_TRANSPARENT_GREEN_VALUE"},
        {GLX_TRANSPARENT_BLUE_VALUE, "GLX_TRANSPARENT_BLUE_VALUE"},
        {GLX_TRANSPARENT_ALPHA_VALUE, "GLX_TRANSPARENT_ALPHA_VALUE"},
        {GLX_RENDER_TYPE, "GLX_RENDER_TYPE"},
        {GLX_DRAWABLE_TYPE, "GLX_DRAWABLE_TYPE"},
        {GLX_X_RENDERABLE, "GLX_X_RENDERABLE"},
        {GLX_FBCONFIG_ID, "GLX_FBCONFIG_ID"},
    };
    attributes.insert(attributes.end(), more.begin(), more.end());
    return attributes;
}

#endif
