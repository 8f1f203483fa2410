#ifndef KOR_VISUAL_VISUAL_ATTRIBS_H
#define KOR_VISUAL_VISUAL_ATTRIBS_H

#include "core/gl_headers.h"

#include <X11/Xutil.h>
#include <cstdint>

namespace kor::gl {

/// What GLX says of one X visual.
struct VisualAttribs {
    int32_t visualId = 0;
    int32_t visualClass = 0;
    int32_t depth = 0; // of the X visual, in bits
    int32_t redMask = 0;
    int32_t greenMask = 0;
    int32_t blueMask = 0;
    int32_t colormapSize = 0;
    int32_t bitsPerRgb = 0;
    int32_t useGL = 0; // when it is not 1, all that follows stays 0
    int32_t bufferSize = 0;
    int32_t level = 0;
    int32_t rgba = 0;
    int32_t doubleBuffer = 0;
    int32_t stereo = 0;
    int32_t auxBuffers = 0;
    int32_t redSize = 0;
    int32_t greenSize = 0;
    int32_t blueSize = 0;
    int32_t alphaSize = 0;
    int32_t depthSize = 0; // of the depth buffer, in bits
    int32_t stencilSize = 0;
    int32_t accumRedSize = 0;
    int32_t accumGreenSize = 0;
    int32_t accumBlueSize = 0;
    int32_t accumAlphaSize = 0;
    int32_t transparentType = 0;
    int32_t transparentRed = 0; // the four: only for GLX_TRANSPARENT_RGB
    int32_t transparentGreen = 0;
    int32_t transparentBlue = 0;
    int32_t transparentAlpha = 0;
    int32_t transparentIndex = 0; // only for GLX_TRANSPARENT_INDEX
    int32_t samples = 0;          // both: only where the display supports multisampling
    int32_t sampleBuffers = 0;
    int32_t visualCaveat = 0;

    /// Asks the system's GLX about vis on dpy. The caller holds the local display mutex when dpy is
    /// a local connection.
    void fill(Display* dpy, XVisualInfo* vis, bool multisample);
};

/// Room for the longest list that populateAttribList writes.
constexpr int maxAttribList = 47;

/// Writes the GLX attribute list (pairs and a final 0) that describes a visual. Drawable type,
/// renderability and caveat are left out on purpose: the list is used to find fbconfigs on another
/// display, where they may differ.
void populateAttribList(const VisualAttribs& visual, int* out);

} // namespace kor::gl

#endif
