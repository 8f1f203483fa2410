#include "transport/ximage_painter.h"

#include "config/settings.h"
#include "support/forked_child.h"
#include "support/log.h"
#include "support/mutex.h"

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
    XShmDetach(m_display, &m_shmInfo);
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
    }
    KOR_DEBUG("Setting up XImagePainter %s shared memory", m_useShm ? "with" : "without");
    const bool result = setupXImagePainterInternal(m_useShm, display, visual, width, height);
    KOR_DEBUG("DONE");
    return result;
}

/// Tries shared memory once. Without the extension nothing is decided here but the mode. The log
/// names setup, of which this is a step.
bool XImagePainter::detect(Display* display, VisualID visual, int width, int height,
                           bool& decided) {
#define DETECT_LOG(level, word, ...)                                                               \
    KOR_LOG_AT("KORGL", level, word,                                                               \
               "bool kor::gl::XImagePainter::setup(Display*, VisualID, int, int)", false,          \
               __VA_ARGS__)
#define DETECT_DEBUG(...) DETECT_LOG(LogDebug, "DEBUG", __VA_ARGS__)
    m_autoDetectPending = false;
    const auto previousHandler = XSetErrorHandler(handleXShmError);
    m_useShm = XShmQueryExtension(display) != False;
    DETECT_DEBUG("Now performing auto detect - X extension for shared memory available: %s",
                 m_useShm ? "true" : "false");
    if (!m_useShm) {
        DETECT_DEBUG("Shared memory extension is not available, forcing non-shared memory");
        XSetErrorHandler(previousHandler);
        return false;
    }
    decided = true;
    DETECT_DEBUG("Shared memory extension seems available, continuing checks..");
    if (setupXImagePainterInternal(true, display, visual, width, height) && !m_lastSetupFailed) {
        DETECT_DEBUG("Setup with shmem SUCCEEDED");
        XSetErrorHandler(previousHandler);
        DETECT_DEBUG("DONE");
        return true;
    }
    DETECT_DEBUG("Shared memory setup failed, falling back to non-shared");
    m_useShm = false;
    // The failed image may still be there, when it was the server that refused it.
    if (m_image != nullptr) {
        if (m_shmInfo.shmaddr != nullptr)
            shmdt(m_shmInfo.shmaddr);
        m_shmInfo.shmaddr = nullptr;
        destroyImage();
    }
    m_lastSetupFailed = false;
    bool result = setupXImagePainterInternal(false, display, visual, width, height);
    XSetErrorHandler(previousHandler);
    if (m_lastSetupFailed) {
        DETECT_LOG(LogError, "ERROR",
                   "Could not setup XImagePainter - shared and non-shared memory failure");
        result = false;
    } else {
        DETECT_DEBUG("Setup without shmem returned %s", result ? "SUCCESS" : "FAILURE");
    }
    DETECT_DEBUG("DONE");
    return result;
#undef DETECT_DEBUG
#undef DETECT_LOG
}

int XImagePainter::handleXShmError(Display* display, XErrorEvent* event) {
    m_lastSetupFailed = true;
    char text[500];
    XGetErrorText(display, event->error_code, text, sizeof text);
    KOR_DEBUG("X error detected with code %u: %s", static_cast<unsigned>(event->error_code), text);
    return 0;
}

char* XImagePainter::getBuffer() const {
    return m_image != nullptr ? m_image->data : nullptr;
}

void XImagePainter::draw(Display* display, int width, int height) {
    if (m_image == nullptr)
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
