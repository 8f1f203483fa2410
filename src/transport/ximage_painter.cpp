#include "transport/ximage_painter.h"

#include "config/settings.h"
#include "support/forked_child.h"
#include "support/log.h"
#include "support/mutex.h"
#include "transport/error_watch.h"

#include <atomic>
#include <sys/ipc.h>
#include <sys/shm.h>

namespace kor::gl {

namespace {

/// The copyback thread's, which painters clean up on.
struct PaintersConnection {
    Mutex mutex; // held by a painter's end and by the closing; guards the next one
    bool open = true;
};
PerProcess<PaintersConnection> connection;

/// The connection on which a mode is being detected, or null.
std::atomic<Display*> detectingOn{nullptr};
/// The handler that stood there before the first detection, or the last that stood there since.
/// Kept afterwards: an application that exchanged handlers meanwhile may put ours back at any time.
std::atomic<XErrorHandler> handlerBefore{nullptr};

/// Puts the painter's error handler in the place of the application's, and takes it away again.
class DetectionHandler {
  public:
    explicit DetectionHandler(Display* display) {
        detectingOn = display;
        previous_ = XSetErrorHandler(XImagePainter::handleXShmError);
        if (previous_ != XImagePainter::handleXShmError)
            handlerBefore = previous_;
    }
    ~DetectionHandler() {
        // Where the application has set another one meanwhile, that one stays.
        const XErrorHandler current = XSetErrorHandler(previous_);
        if (current != XImagePainter::handleXShmError)
            XSetErrorHandler(current);
        detectingOn = nullptr;
    }
    DetectionHandler(const DetectionHandler&) = delete;
    DetectionHandler& operator=(const DetectionHandler&) = delete;

  private:
    XErrorHandler previous_;
};

} // namespace

kor::Relaxed<bool> XImagePainter::m_lastSetupFailed{false};

XImagePainter::XImagePainter(Window window) : m_window(window) {
    m_shmInfo.shmid = -1;
    m_shmInfo.readOnly = False;
}

XImagePainter::~XImagePainter() {
    if (m_image == nullptr || m_display == nullptr)
        return;
    const Lock lock(connection->mutex);
    if (!connection->open) {
        // The server forgets the segment with the connection; only our side is left.
        if (m_shmInfo.shmaddr != nullptr)
            shmdt(m_shmInfo.shmaddr);
        XDestroyImage(m_image);
        return;
    }
    detachSegment();
    destroyImage();
    XSync(m_display, True);
}

void XImagePainter::connectionCloses() {
    const Lock lock(connection->mutex);
    connection->open = false;
}

void XImagePainter::detachSegment() {
    if (m_shmInfo.shmaddr == nullptr)
        return;
    if (m_serverAttached)
        XShmDetach(m_display, &m_shmInfo);
    m_serverAttached = false;
    shmdt(m_shmInfo.shmaddr);
    m_shmInfo.shmaddr = nullptr;
}

void XImagePainter::destroyImage() {
    if (m_image != nullptr)
        XDestroyImage(m_image);
    m_image = nullptr;
}

bool XImagePainter::setup(Display* display, VisualID visual, int width, int height) {
    m_visualID = visual;
    m_display = display;
    KOR_DEBUG("START");
    m_lastSetupFailed = false;
    const int strategy = conf::settings().copybackStrategy;
    if (strategy == 2) {
        KOR_DEBUG("Forcing usage of non-shared memory");
        m_useShm = false;
    } else if (strategy != 0) {
        KOR_DEBUG("Forcing usage of shared memory");
        m_useShm = true;
    } else if (m_autoDetectPending) {
        bool decided = false;
        const bool result = detect(display, visual, width, height, decided);
        if (decided)
            return result;
    } else if (m_sharedMemoryEnded && !hasImage(width, height)) {
        m_useShm = true;
        m_sharedMemoryEnded = false;
    }
    if (m_useShm && !hasImage(width, height)) {
        const bool result = strategy == 0 ? makeDetectedImage(display, visual, width, height)
                                          : makeForcedImage(display, visual, width, height);
        KOR_DEBUG("DONE");
        return result;
    }
    KOR_DEBUG("Setting up XImagePainter %s shared memory", m_useShm ? "with" : "without");
    const bool result = setupXImagePainterInternal(m_useShm, display, visual, width, height);
    KOR_DEBUG("DONE");
    return result;
}

// The log names setup, of which these are steps.
#define DETECT_LOG(level, word, ...)                                                               \
    KOR_LOG_AT("KORGL", level, word,                                                               \
               "bool kor::gl::XImagePainter::setup(Display*, VisualID, int, int)", false,          \
               __VA_ARGS__)
#define DETECT_DEBUG(...) DETECT_LOG(LogDebug, "DEBUG", __VA_ARGS__)

/// Tries shared memory once. Without the extension nothing is decided here but the mode.
bool XImagePainter::detect(Display* display, VisualID visual, int width, int height,
                           bool& decided) {
    m_autoDetectPending = false;
    const DetectionHandler handler(display);
    m_useShm = XShmQueryExtension(display) != False;
    DETECT_DEBUG("Now performing auto detect - X extension for shared memory available: %s",
                 m_useShm ? "true" : "false");
    if (!m_useShm) {
        DETECT_DEBUG("Shared memory extension is not available, forcing non-shared memory");
        return false;
    }
    decided = true;
    DETECT_DEBUG("Shared memory extension seems available, continuing checks..");
    if (trySharedImage(display, visual, width, height)) {
        DETECT_DEBUG("Setup with shmem SUCCEEDED");
        DETECT_DEBUG("DONE");
        return true;
    }
    DETECT_DEBUG("Shared memory setup failed, falling back to non-shared");
    m_useShm = false;
    m_lastSetupFailed = false;
    ErrorWatch watch(display, ErrorWatch::Keep);
    bool result = setupXImagePainterInternal(false, display, visual, width, height);
    hear(watch);
    if (m_lastSetupFailed) {
        DETECT_LOG(LogError, "ERROR",
                   "Could not setup XImagePainter - shared and non-shared memory failure");
        result = false;
    } else {
        DETECT_DEBUG("Setup without shmem returned %s", result ? "SUCCESS" : "FAILURE");
    }
    DETECT_DEBUG("DONE");
    return result;
}

/// An image in shared memory that the server has attached and put. Otherwise false, and nothing is
/// left of it on either side. Errors are heard by the painter alone.
bool XImagePainter::trySharedImage(Display* display, VisualID visual, int width, int height) {
    ErrorWatch watch(display, ErrorWatch::Keep);
    m_watch = &watch;
    const bool made = setupXImagePainterInternal(true, display, visual, width, height);
    m_watch = nullptr;
    hear(watch);
    if (made && !m_lastSetupFailed && !m_segmentRefused)
        return true;
    if (m_image != nullptr) { // it was the server that refused it
        detachSegment();
        destroyImage();
    }
    return false;
}

/// Another image in the mode that was detected before. Shared memory may have come to an end since:
/// then this image does without it, and the next one tries it again.
bool XImagePainter::makeDetectedImage(Display* display, VisualID visual, int width, int height) {
    DETECT_DEBUG("Setting up XImagePainter with shared memory");
    if (trySharedImage(display, visual, width, height))
        return true;
    DETECT_DEBUG("Shared memory setup failed, falling back to non-shared");
    m_useShm = false;
    m_sharedMemoryEnded = true;
    return setupXImagePainterInternal(false, display, visual, width, height);
}

/// Another image in shared memory, come what may. Errors go where they go.
bool XImagePainter::makeForcedImage(Display* display, VisualID visual, int width, int height) {
    DETECT_DEBUG("Setting up XImagePainter with shared memory");
    ErrorWatch watch(display, ErrorWatch::Listen);
    m_watch = &watch;
    const bool result = setupXImagePainterInternal(true, display, visual, width, height);
    m_watch = nullptr;
    return result;
}

#undef DETECT_DEBUG
#undef DETECT_LOG

bool XImagePainter::hasImage(int width, int height) const {
    return m_image != nullptr && m_image->width == width && m_image->height == height;
}

void XImagePainter::hear(ErrorWatch& watch) {
    for (XErrorEvent& error : watch.take())
        note(error);
}

int XImagePainter::handleXShmError(Display* display, XErrorEvent* event) {
    const XErrorHandler before = handlerBefore;
    if (before != nullptr && display != detectingOn)
        return before(display, event);
    note(*event);
    return 0;
}

void XImagePainter::note(const XErrorEvent& error) {
    m_lastSetupFailed = true;
    char text[500];
    XGetErrorText(error.display, error.error_code, text, sizeof text);
    KOR_LOG_AT("KORGL", LogDebug, "DEBUG",
               "static int kor::gl::XImagePainter::handleXShmError(Display*, XErrorEvent*)", false,
               "X error detected with code %u: %s", static_cast<unsigned>(error.error_code), text);
}

char* XImagePainter::getBuffer() const {
    return m_image != nullptr ? m_image->data : nullptr;
}

void XImagePainter::draw(Display* display, int width, int height) {
    if (!canDraw())
        return;
    KOR_DEBUG("XPutting image on %lx, size %d %d", m_window, width, height);
    const auto w = static_cast<unsigned>(width);
    const auto h = static_cast<unsigned>(height);
    if (m_useShm)
        XShmPutImage(display, m_window, m_gc, m_image, 0, 0, 0, 0, w, h, False);
    else
        XPutImage(display, m_window, m_gc, m_image, 0, 0, 0, 0, w, h);
    XFlush(display);
}

} // namespace kor::gl
