#ifndef KOR_CORE_TLS_KEY_H
#define KOR_CORE_TLS_KEY_H

#include "core/tsd.h"

namespace kor::gl {

/// The value of a key that does not exist.
constexpr TLSKey noTLSKey = static_cast<TLSKey>(-1);

/// Makes, and deletes, the key of the per-thread records. Records of living threads are left alone.
void createTSDKey();
void deleteTSDKey();
/// Makes it where it has been deleted. In a forked child.
void renewTSDKey();

} // namespace kor::gl

#endif
