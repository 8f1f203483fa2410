#include "picture.h"

namespace kor::client {

Picture::Picture(int width, int height, unsigned seed)
    : m_width(width), m_height(height),
      m_pixels(static_cast<std::size_t>(width) * static_cast<std::size_t>(height)) {
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const auto column = static_cast<unsigned>(x);
            const auto row = static_cast<unsigned>(y);
            // Red and green are the low bits of the column and the row; blue holds what is left of
            // them and the seed.
            const unsigned blue = (seed * 37U + (column >> 8U) * 8U + (row >> 8U)) & 0xFFU;
            m_pixels[index(x, y)] = (column & 0xFFU) << 16U | (row & 0xFFU) << 8U | blue;
        }
    }
}

void Picture::lay(const Picture& other, const Rectangle& area) {
    for (int y = area.y; y < area.y + area.height; ++y) {
        for (int x = area.x; x < area.x + area.width; ++x)
            set(x, y, other.colour(x, y));
    }
}

std::vector<std::uint8_t> Picture::glPixels() const {
    std::vector<std::uint8_t> result;
    result.reserve(m_pixels.size() * 4);
    for (int y = m_height - 1; y >= 0; --y) {
        for (int x = 0; x < m_width; ++x) {
            const std::uint32_t pixel = colour(x, y);
            result.push_back(static_cast<std::uint8_t>(pixel >> 16U));
            result.push_back(static_cast<std::uint8_t>(pixel >> 8U));
            result.push_back(static_cast<std::uint8_t>(pixel));
            result.push_back(0xFFU);
        }
    }
    return result;
}

} // namespace kor::client
