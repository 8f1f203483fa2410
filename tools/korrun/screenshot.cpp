#include "screenshot.h"

#include "failure.h"

#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <bit>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <png.h>
#include <unistd.h>

namespace korrun {

namespace {

struct CloseDisplay {
    void operator()(Display* display) const { XCloseDisplay(display); }
};

struct DestroyImage {
    void operator()(XImage* image) const { XDestroyImage(image); }
};

// One colour of a pixel, as a byte.
class Channel {
  public:
    explicit Channel(unsigned long mask)
        : m_mask(mask), m_shift(mask ? std::countr_zero(mask) : 0), m_largest(mask >> m_shift) {}
    std::uint8_t of(unsigned long pixel) const {
        if (m_largest == 0)
            return 0;
        return static_cast<std::uint8_t>(((pixel & m_mask) >> m_shift) * 255 / m_largest);
    }

  private:
    unsigned long m_mask;
    int m_shift;
    unsigned long m_largest;
};

} // namespace

void writePng(const Picture& picture, const std::string& file) {
    const std::string unfinished = file + "." + std::to_string(getpid()) + ".part";
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = picture.width;
    image.height = picture.height;
    image.format = PNG_FORMAT_RGB;
    if (!png_image_write_to_file(&image, unfinished.c_str(), 0, picture.pixels.data(), 0,
                                 nullptr)) {
        const std::string reason = image.message;
        unlink(unfinished.c_str());
        throw Failure(StatusNoPicture, "cannot write " + file + ": " + reason);
    }
    if (std::rename(unfinished.c_str(), file.c_str()) != 0) {
        const std::string reason = std::strerror(errno);
        unlink(unfinished.c_str());
        throw Failure(StatusNoPicture, "cannot write " + file + ": " + reason);
    }
}

Picture captureScreen(const std::string& displayName) {
    const std::unique_ptr<Display, CloseDisplay> display(XOpenDisplay(displayName.c_str()));
    if (!display)
        throw Failure(StatusNoPicture, "display " + displayName + " cannot be opened");
    const Window root = DefaultRootWindow(display.get());
    XWindowAttributes attributes;
    if (!XGetWindowAttributes(display.get(), root, &attributes))
        throw Failure(StatusNoPicture, "the screen of " + displayName + " cannot be asked");
    if (attributes.visual->c_class != TrueColor)
        throw Failure(StatusNoPicture, "the screen of " + displayName + " is not in true colour");

    Picture picture;
    picture.width = static_cast<unsigned>(attributes.width);
    picture.height = static_cast<unsigned>(attributes.height);
    const std::unique_ptr<XImage, DestroyImage> image(
        XGetImage(display.get(), root, 0, 0, picture.width, picture.height, AllPlanes, ZPixmap));
    if (!image)
        throw Failure(StatusNoPicture, "the screen of " + displayName + " cannot be read");
    const Channel red(attributes.visual->red_mask);
    const Channel green(attributes.visual->green_mask);
    const Channel blue(attributes.visual->blue_mask);
    picture.pixels.reserve(std::size_t{picture.width} * picture.height * 3);
    for (int y = 0; y < attributes.height; ++y) {
        for (int x = 0; x < attributes.width; ++x) {
            const unsigned long pixel = XGetPixel(image.get(), x, y);
            picture.pixels.push_back(red.of(pixel));
            picture.pixels.push_back(green.of(pixel));
            picture.pixels.push_back(blue.of(pixel));
        }
    }
    return picture;
}

} // namespace korrun
