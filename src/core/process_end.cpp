#include "core/process_end.h"

#include "config/settings.h"
#include "core/thread_end.h"
#include "support/failures.h"

namespace kor::gl {

std::atomic<bool> processEndBegun{false};

} // namespace kor::gl

void kor_process_ends() try {
    if (!kor::gl::processEndBegun.exchange(true) && kor::conf::settings().cleanupAtexit)
        kor::gl::stopCopyback();
}
KOR_OTHERWISE()
