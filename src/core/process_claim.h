#ifndef KOR_CORE_PROCESS_CLAIM_H
#define KOR_CORE_PROCESS_CLAIM_H

#include "support/export.h"

extern "C" {
/// For the front libraries, of which two may meet in one process: the first to claim it routes
/// calls to this library, the other leaves it alone. front is any address of the front's own.
/// Returns 1 when the process is that front's, 0 when it is another's. A null front claims nothing
/// and learns whether the process is claimed: 0 when it is. Any thread.
KOR_EXPORT int kor_claim_process(const void* front);
}

#endif
