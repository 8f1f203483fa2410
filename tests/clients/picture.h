// The pictures that the clients draw and expect. Every pixel's colour tells where it belongs and
// which picture it is of, so a row, a column or a frame that is out of place is found and can be
// named. Nothing here needs a display.
#pragma once

#include <cstdint>
#include <vector>

namespace kor::client {

struct Rectangle {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
};

class Picture {
  public:
    // width and height in pixels, 1 or more; pictures of different seeds (0 to 255) differ in every
    // pixel.
    Picture(int width, int height, unsigned seed);

    int width() const { return m_width; }
    int height() const { return m_height; }

    // The colour 0xRRGGBB of the pixel at column x from the left and row y from the top.
    std::uint32_t colour(int x, int y) const { return m_pixels[index(x, y)]; }

    // Puts the part `area` of another picture of the same size over this one.
    void lay(const Picture& other, const Rectangle& area);

    void set(int x, int y, std::uint32_t colour) { m_pixels[index(x, y)] = colour; }

    // R, G, B, A bytes with the bottom row first, as GL wants them.
    std::vector<std::uint8_t> glPixels() const;

  private:
    std::size_t index(int x, int y) const {
        return static_cast<std::size_t>(y) * static_cast<std::size_t>(m_width) +
               static_cast<std::size_t>(x);
    }

    int m_width;
    int m_height;
    std::vector<std::uint32_t> m_pixels;
};

} // namespace kor::client
