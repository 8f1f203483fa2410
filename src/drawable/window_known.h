#ifndef KOR_DRAWABLE_WINDOW_KNOWN_H
#define KOR_DRAWABLE_WINDOW_KNOWN_H

#include "core/tsd.h"

namespace kor::gl {

/// Asks the application display whether a window exists. tsd has its connection and its extension.
/// One round trip.
bool isWindowKnown(const TSD& tsd, unsigned long window);

} // namespace kor::gl

#endif
