#ifndef KOR_DRAWABLE_TRANSPORT_OPERATIONS_H
#define KOR_DRAWABLE_TRANSPORT_OPERATIONS_H

#include <X11/Xlib.h>
#include <memory>

/// The life of the frame transport's objects, as far as the drawable record that owns them knows
/// it. Implemented in transport/transport_objects.cpp.
namespace kor::gl {

class ReadbackContext;
class FrameStatistics;
class XImagePainter;

XImagePainter* newPainter(Window window);
void deletePainter(XImagePainter* painter);

/// Counters of one window's frames, which its record and its readback context share.
std::shared_ptr<FrameStatistics> newFrameStatistics();

/// Takes back the record's counted reference; the last one stops the worker and waits for it.
void unrefReadbackContext(ReadbackContext* context);

} // namespace kor::gl

#endif
