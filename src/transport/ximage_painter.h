#ifndef KOR_TRANSPORT_XIMAGE_PAINTER_H
#define KOR_TRANSPORT_XIMAGE_PAINTER_H

#include "support/relaxed.h"

#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XShm.h>

namespace kor::gl {

class ErrorWatch;

/// Owns the X image through which the pixels of one application window reach the application
/// display: in a shared memory segment where that works, in client memory otherwise. Used by the
/// copyback thread only; the readback worker writes into the buffer between setup and draw, while
/// the copyback thread waits.
class XImagePainter {
  public:
    explicit XImagePainter(Window window);
    virtual ~XImagePainter();
    XImagePainter(const XImagePainter&) = delete;
    XImagePainter& operator=(const XImagePainter&) = delete;

    /// Chooses the mode ("copyback-strategy") and makes sure that an image of width x height pixels
    /// exists. False when it cannot be had; the next call tries again.
    bool setup(Display* display, VisualID visual, int width, int height);

    /// The image's pixels, or null without an image. 4 bytes a pixel, width x 4 bytes a row.
    char* getBuffer() const;

    Window window() const { return m_window; }
    /// The mode in which the last setup made its image, or tried to.
    bool usesSharedMemory() const { return m_useShm; }

    /// False when there is nothing that the server could paint: no image, or one in a segment that
    /// the server has not attached.
    bool canDraw() const { return m_image != nullptr && !(m_useShm && m_segmentRefused); }
    /// Puts the image at the window's origin. Does not wait for the server.
    void draw(Display* display, int width, int height);

    /// To be called before the copyback thread closes the connection that painters were set up on:
    /// painters that go later leave it alone.
    static void connectionCloses();

    /// The X error handler while the mode is being detected. Errors of other connections than the
    /// one that it is detected on go to the handler that was there before.
    static int handleXShmError(Display* display, XErrorEvent* event);

  private:
    bool detect(Display* display, VisualID visual, int width, int height, bool& decided);
    bool trySharedImage(Display* display, VisualID visual, int width, int height);
    bool makeDetectedImage(Display* display, VisualID visual, int width, int height);
    bool makeForcedImage(Display* display, VisualID visual, int width, int height);
    bool hasImage(int width, int height) const;
    static void hear(ErrorWatch& watch);
    static void note(const XErrorEvent& error);
    bool setupXImagePainterInternal(bool useShm, Display* display, VisualID visual, int width,
                                    int height);
    bool makeSharedImage(Display* display, const XVisualInfo& visual, int width, int height);
    bool makePlainImage(Display* display, const XVisualInfo& visual, int width, int height);
    bool attachSegment(Display* display, int width, int height);
    void destroyImage();
    void detachSegment();

    Window m_window;
    VisualID m_visualID = 0;
    GC m_gc = nullptr; // never freed, on purpose: it may be needed until the connection closes
    XImage* m_image = nullptr;
    XShmSegmentInfo m_shmInfo{};
    Display* m_display = nullptr; // of the last setup
    bool m_useShm = true;
    bool m_autoDetectPending = true;
    bool m_serverAttached = false;       // a segment, by the name that ours has there
    bool m_segmentRefused = false;       // the server has not attached our segment
    bool m_sharedMemoryEnded = false;    // it failed for now: the next image tries it again
    const ErrorWatch* m_watch = nullptr; // not owned; while a shared image is made

    /// Shared by all painters: set by the error handler, which any thread may run.
    static kor::Relaxed<bool> m_lastSetupFailed;
};

} // namespace kor::gl

#endif
