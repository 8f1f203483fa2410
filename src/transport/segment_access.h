#ifndef KOR_TRANSPORT_SEGMENT_ACCESS_H
#define KOR_TRANSPORT_SEGMENT_ACCESS_H

#include <X11/Xlib.h>

namespace kor::gl {

/// The mode of a segment that the server of the connection has to attach: the user's alone where
/// that server runs as the same user, everyone's where it does not or its user cannot be told.
int segmentMode(Display* display);

/// For a segment that this process has attached and the server was asked to attach: from now on
/// none but its owner can. Returns false when nobody but this process has attached it.
bool closeSegment(int segment);

} // namespace kor::gl

#endif
