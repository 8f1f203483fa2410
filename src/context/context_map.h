#ifndef KOR_CONTEXT_CONTEXT_MAP_H
#define KOR_CONTEXT_CONTEXT_MAP_H

#include "core/gl_headers.h"
#include "display/shared_connection.h"
#include "support/bucket_map.h"
#include "support/mutex.h"
#include "visual/visual_map.h"

namespace kor::gl {

/// What the library knows of one context of the application: a local context whose handle the
/// application holds as its own. Owned by the context map; read and written under its mutex.
class ContextInfo {
  public:
    ContextInfo(Display* display, GLXContext context, LocalVisualInfo* visualInfo,
                GLXFBConfig fbconfig, LocalDisplay local = LocalDisplay());
    /// Gives up the application display's hold on its local connection; never under a lock.
    virtual ~ContextInfo();
    ContextInfo(const ContextInfo&) = delete;
    ContextInfo& operator=(const ContextInfo&) = delete;

    Display* display; // the application display that it was made on; null once that is closed
    GLXContext context;
    LocalVisualInfo* visualInfo; // not owned
    GLXFBConfig fbconfig;        // the local one that was really used
    GLenum drawBuffer;           // as glDrawBuffer last set it
    GLenum renderMode = GL_RENDER;
    GLuint samplesQuery = 0;       // a GL_SAMPLES_PASSED query; goes with the context
    bool forceNextReadback = true; // pixels changed that a samples query does not count
    bool current = false;          // to some thread
    bool destroyed = false;        // by the application, while it was current
    bool leftBehind = false;       // that thread has ended
    bool debugCallbackRegistered = false;
    LocalDisplay local; // where it lives, which stays open for as long as the record is there

    bool doubleBuffered() const { return visualInfo != nullptr && visualInfo->doubleBuffered; }
};

/// From context handle to record. To be used under getContextMutex(), which is never held while a
/// record is deleted.
using ContextMap = BucketMap<GLXContext, ContextInfo*>;
ContextMap& getContextMap();
Mutex& getContextMutex();

/// The record of a context, or null. The caller holds the context mutex.
ContextInfo* findContext(GLXContext ctx);

} // namespace kor::gl

/// Notes a new context, made on that local connection. A record that the handle had before is
/// replaced and left alone. Throws std::bad_alloc, and has noted nothing then.
void addToContextMap(Display* dpy, GLXContext ctx, kor::gl::LocalVisualInfo* lvi,
                     GLXFBConfig fbconfig,
                     const kor::gl::LocalDisplay& local = kor::gl::LocalDisplay());

/// The local fbconfig of a context; null (and an ERROR line) when it is unknown.
GLXFBConfig getFBConfig(GLXContext ctx);

#endif
