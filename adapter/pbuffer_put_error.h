#ifndef KOR_ADAPTER_PBUFFER_PUT_ERROR_H
#define KOR_ADAPTER_PBUFFER_PUT_ERROR_H

#include "core/gl_headers.h"

namespace kor::adapter {

/// Cause: Mesa's software rasterisers (22.3) put images of the visual's depth into a pbuffer, which
/// the server made as deep as the config's colours and alpha together. For configs of depth 24 with
/// 8 bits of alpha the server answers every such PutImage, of the core protocol or of MIT-SHM, with
/// BadMatch, at some later time, and Xlib's default handler ends the process. The pixels that GL
/// sees are right.
///
/// dropPbufferPutErrors makes that error vanish on a connection, and no other. An error carries no
/// drawable, but the number of the request that it answers; so the connection's output is watched,
/// and an error is dropped only if all of these hold:
///   - it is BadMatch in answer to core PutImage or to MIT-SHM PutImage;
///   - the request went to a pbuffer (addPbuffer), to which only a driver can put, or it did not
///     pass through Xlib at all: then a driver wrote it that speaks to the server directly, since
///     everything else here uses Xlib.
/// A put of anyone else, with whatever error, reaches the error handler as ever. Only connections
/// whose driver was seen to do it are watched. Called while the connection is the calling thread's
/// own; ends with XCloseDisplay.
void dropPbufferPutErrors(Display* display);

/// Tells of a pbuffer that was made, or that is gone, on a connection. A connection that is not
/// watched ignores it. Any thread.
void addPbuffer(Display* display, GLXPbuffer pbuffer);
void removePbuffer(Display* display, GLXPbuffer pbuffer);

} // namespace kor::adapter

#endif
