#ifndef KOR_DRAWABLE_IRECT_H
#define KOR_DRAWABLE_IRECT_H

namespace kor {

/// A rectangle in pixels, x and y on the root window.
struct IRect {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
};

} // namespace kor

#endif
