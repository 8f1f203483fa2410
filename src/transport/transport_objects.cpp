#include "drawable/transport_operations.h"
#include "transport/frame_statistics.h"
#include "transport/readback_context.h"
#include "transport/ximage_painter.h"

namespace kor::gl {

XImagePainter* newPainter(Window window) {
    return new XImagePainter(window);
}

void deletePainter(XImagePainter* painter) {
    delete painter;
}

std::shared_ptr<FrameStatistics> newFrameStatistics() {
    return std::make_shared<FrameStatistics>();
}

void unrefReadbackContext(ReadbackContext* context) {
    context->unref();
}

} // namespace kor::gl
