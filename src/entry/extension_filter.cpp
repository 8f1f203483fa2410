#include "entry/extension_filter.h"

#include "support/text.h"

#include <cstdlib>
#include <cstring>

namespace kor::gl {

namespace {

constexpr const char* candidates[] = {
    "GLX_ARB_get_proc_address",
    "GLX_ARB_multisample",
    "GLX_ARB_create_context",
    "GLX_ARB_create_context_profile",
    "GLX_EXT_visual_info",
    "GLX_EXT_visual_rating",
    "GLX_SGIX_fbconfig",
    "GLX_SGIX_pbuffer",
    "GLX_NV_float_buffer",
    "GLX_ARB_fbconfig_float",
    "GLX_EXT_fbconfig_packed_float",
    "GLX_EXT_texture_from_pixmap",
    "GLX_EXT_framebuffer_sRGB",
};

constexpr char ownExtension[] = " GLX_TESSERA_kor";

} // namespace

char* filterExtensions(const char* reported, const char* blacklist) {
    const size_t reportedLength = reported != nullptr ? strlen(reported) : 0;
    auto* text = static_cast<char*>(malloc(reportedLength + 1 + strlen(ownExtension)));
    if (text == nullptr)
        return nullptr;
    char* end = text;
    *end = '\0';
    for (const char* candidate : candidates) {
        if (!matchExtension(reported, candidate) || matchExtension(blacklist, candidate))
            continue;
        if (end != text)
            *end++ = ' ';
        end = stpcpy(end, candidate);
    }
    stpcpy(end, ownExtension);
    return text;
}

} // namespace kor::gl
