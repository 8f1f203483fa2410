#include "process_end.h"

#include <cstdlib>

namespace kor::adapter {

std::atomic<bool> processEndBegun{false};

void noteEndAheadOfDriver() {
    static std::atomic<bool> done{false};
    if (!done.exchange(true))
        std::atexit([] { processEndBegun = true; });
}

} // namespace kor::adapter
