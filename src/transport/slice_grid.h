#ifndef KOR_TRANSPORT_SLICE_GRID_H
#define KOR_TRANSPORT_SLICE_GRID_H

#include <algorithm>

namespace kor::gl {

/// How a frame is cut into slices, in pixels from its top left. Neighbouring slices overlap. The
/// frame is at least 1 x 1.
struct SliceGrid {
    static constexpr int largest = 4096; // pixels in either direction that one slice takes

    struct Cell {
        int x;
        int y;
        int width;
        int height;
    };

    SliceGrid(int frameWidth, int frameHeight)
        : frameWidth(frameWidth), frameHeight(frameHeight),
          columns((frameWidth + largest - 1) / largest),
          rows((frameHeight + largest - 1) / largest) {}

    Cell cell(int column, int row) const {
        const int x = column * (frameWidth / columns + 1);
        const int y = row * (frameHeight / rows + 1);
        return {x, y, std::min(frameWidth - x, frameWidth / columns + 17),
                std::min(frameHeight - y, frameHeight / rows + 17)};
    }

    int frameWidth;
    int frameHeight;
    int columns;
    int rows;
};

} // namespace kor::gl

#endif
