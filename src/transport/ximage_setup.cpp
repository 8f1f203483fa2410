#include "transport/ximage_painter.h"

#include "support/log.h"
#include "transport/error_watch.h"
#include "transport/segment_access.h"

#include <cstdlib>
#include <memory>
#include <sys/ipc.h>
#include <sys/shm.h>

namespace kor::gl {

namespace {

constexpr const char* setupFunction =
    "bool kor::gl::XImagePainter::setupXImagePainterInternal(bool, Display*, VisualID, int, int)";
#define SETUP_DEBUG(...) KOR_LOG_AT("KORGL", LogDebug, "DEBUG", setupFunction, false, __VA_ARGS__)
#define SETUP_INFO(...) KOR_LOG_AT("KORGL", LogInfo, "INFO", setupFunction, false, __VA_ARGS__)
#define SETUP_ERROR(...) KOR_LOG_AT("KORGL", LogError, "ERROR", setupFunction, true, __VA_ARGS__)

struct FreeWithX {
    void operator()(void* memory) const { XFree(memory); }
};

void logSize(const XImage& image) {
    SETUP_DEBUG("size: %d x %d, depth: %d, bytes per line: %d", image.width, image.height,
                image.depth, image.bytes_per_line);
}

} // namespace

bool XImagePainter::setupXImagePainterInternal(bool useShm, Display* display, VisualID visual,
                                               int width, int height) {
    if (useShm)
        SETUP_DEBUG("Trying to setup shared memory for image painter");
    else
        SETUP_DEBUG("Trying to setup image painter with low performance non-shared memory");
    if (m_image != nullptr) {
        if (m_image->width == width && m_image->height == height)
            return true;
        SETUP_DEBUG("freeing old image");
        detachSegment();
        destroyImage();
    }
    if (m_gc == nullptr) {
        m_gc = XCreateGC(display, m_window, 0, nullptr);
        if (m_gc == nullptr) {
            SETUP_DEBUG("XCreateGC failed");
            return false;
        }
    }
    if (useShm) {
        m_shmInfo.shmid = -1;
        m_shmInfo.shmaddr = nullptr;
    }

    XVisualInfo wanted{};
    wanted.visualid = visual;
    int count = 0;
    const std::unique_ptr<XVisualInfo, FreeWithX> visuals(
        XGetVisualInfo(display, VisualIDMask, &wanted, &count));
    if (visuals != nullptr) {
        const XVisualInfo* chosen = nullptr;
        for (int i = 0; i < count && chosen == nullptr; ++i) {
            if (visuals.get()[i].depth == 24)
                chosen = &visuals.get()[i];
        }
        if (chosen == nullptr) {
            SETUP_ERROR("Could not create XImage with depth 24");
            return false;
        }
        const bool made = useShm ? makeSharedImage(display, *chosen, width, height)
                                 : makePlainImage(display, *chosen, width, height);
        if (!made)
            return false;
    }
    if (!useShm) {
        XSync(display, False);
        return true; // also without an image: the caller finds no buffer then
    }
    return attachSegment(display, width, height);
}

/// Makes the image and its segment, as far as they can be had: attachSegment tells what is missing.
bool XImagePainter::makeSharedImage(Display* display, const XVisualInfo& visual, int width,
                                    int height) {
    m_image = XShmCreateImage(display, visual.visual, static_cast<unsigned>(visual.depth), ZPixmap,
                              nullptr, &m_shmInfo, static_cast<unsigned>(width),
                              static_cast<unsigned>(height));
    if (m_image != nullptr) {
        logSize(*m_image);
        const size_t bytes =
            static_cast<size_t>(m_image->bytes_per_line) * static_cast<size_t>(height);
        m_shmInfo.shmid = shmget(IPC_PRIVATE, bytes, IPC_CREAT | segmentMode(display));
    }
    return true;
}

bool XImagePainter::makePlainImage(Display* display, const XVisualInfo& visual, int width,
                                   int height) {
    const size_t bytes = static_cast<size_t>(width) * 4 * static_cast<size_t>(height);
    auto* data = static_cast<char*>(malloc(bytes));
    if (data == nullptr) {
        SETUP_ERROR("Could not allocate data for XImage");
        return false;
    }
    m_image = XCreateImage(display, visual.visual, static_cast<unsigned>(visual.depth), ZPixmap, 0,
                           data, static_cast<unsigned>(width), static_cast<unsigned>(height), 8, 0);
    if (m_image == nullptr) {
        free(data);
        return true;
    }
    XInitImage(m_image); // NOLINT(clang-analyzer-unix.Malloc): the image owns the data
    logSize(*m_image);
    return true;
}

/// Attaches the segment on both sides and tries the whole path once.
bool XImagePainter::attachSegment(Display* display, int width, int height) {
    if (m_shmInfo.shmid == -1) {
        m_sharedMemoryEnded = true;
        SETUP_ERROR("unable to create shared memory segment");
        destroyImage();
        return false;
    }
    void* address = shmat(m_shmInfo.shmid, nullptr, 0);
    if (address == reinterpret_cast<void*>(-1)) {
        m_sharedMemoryEnded = true;
        SETUP_ERROR("unable to attach shared memory segment");
        shmdt(address);
        shmctl(m_shmInfo.shmid, IPC_RMID, nullptr);
        destroyImage();
        return false;
    }
    m_shmInfo.shmaddr = static_cast<char*>(address);
    m_image->data = m_shmInfo.shmaddr;
    XSync(display, False);
    if (!XShmAttach(display, &m_shmInfo)) {
        SETUP_ERROR("unable to attach shared memory segment");
        shmdt(m_shmInfo.shmaddr);
        m_shmInfo.shmaddr = nullptr;
        shmctl(m_shmInfo.shmid, IPC_RMID, nullptr);
        destroyImage();
        return false;
    }
    const unsigned long attaching = XNextRequest(display) - 1;
    XSync(display, False);
    m_serverAttached = m_watch == nullptr || !m_watch->refused(attaching);
    // A server elsewhere may have found another segment under our segment's number.
    m_segmentRefused = !closeSegment(m_shmInfo.shmid) || !m_serverAttached;
    // Marked at once: it lives on while the server and this process are attached, and vanishes with
    // them, however they end.
    shmctl(m_shmInfo.shmid, IPC_RMID, nullptr);
    if (m_segmentRefused) {
        SETUP_INFO("the X server has not attached the shared memory segment of window %lx",
                   m_window);
        return true; // as where a put is refused
    }
    if (!XShmPutImage(display, m_window, m_gc, m_image, 0, 0, 0, 0, static_cast<unsigned>(width),
                      static_cast<unsigned>(height), False)) {
        SETUP_ERROR("unable to put image on shared memory segment");
        m_serverAttached = false;
        shmdt(m_shmInfo.shmaddr);
        m_shmInfo.shmaddr = nullptr;
        destroyImage();
        return false;
    }
    XSync(display, False);
    return true;
}

} // namespace kor::gl
