#ifndef KOR_SUPPORT_HANDLE_TEXT_H
#define KOR_SUPPORT_HANDLE_TEXT_H

#include <cstdint>

/// A foreign pointer handle (context, fbconfig) as the log shows it: its low 32 bits, for %x.
inline unsigned handleText(const void* handle) {
    return static_cast<unsigned>(reinterpret_cast<uintptr_t>(handle));
}

#endif
