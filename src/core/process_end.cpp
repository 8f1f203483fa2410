#include "core/process_end.h"

#include "config/settings.h"
#include "core/thread_end.h"

namespace kor::gl {

std::atomic<bool> processEndBegun{false};

} // namespace kor::gl

void kor_process_ends() {
    if (!kor::gl::processEndBegun.exchange(true) && kor::conf::settings().cleanupAtexit)
        kor::gl::stopCopyback();
}
