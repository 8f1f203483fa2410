#ifndef KOR_ADAPTER_QUERY_STATE_H
#define KOR_ADAPTER_QUERY_STATE_H

#include "core/gl_headers.h"

#include <atomic>

namespace kor::adapter {

/// Cause: GL answers a question that does not fit the current context with an error, which stays in
/// the context until the application asks for errors and is told of one that it did not make. The
/// library ends and reads a query that may not run, and asks contexts of every kind for their
/// render mode. What GL would refuse is left out here; the result is the same, nothing is written.

void getIntegerv(GLenum name, GLint* values);
void beginQuery(GLenum target, GLuint query);
void endQuery(GLenum target);
void getQueryObjectiv(GLuint query, GLenum name, GLint* value);

/// Cause: llvmpipe frees a query that still runs together with its context, while its rasteriser
/// may still be counting for it (Mesa 22.3: a heap that is corrupt now and then). The library's
/// query runs on when the application destroys its context, so what was drawn is finished before a
/// thread leaves a context with such a query.

/// How many contexts have a query that the library began and did not end.
extern std::atomic<int> contextsWithQuery;

/// Finishes what the current context of the thread draws, if such a query runs in it. Before a
/// thread makes another context current, or none.
void finishForQuery();
inline void finishBeforeLeaving() {
    if (__builtin_expect(contextsWithQuery.load(std::memory_order_relaxed) != 0, 0))
        finishForQuery();
}

/// The context is about to go, and its query with it.
void forgetQuery(GLXContext context);

} // namespace kor::adapter

#endif
