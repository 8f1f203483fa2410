#ifndef KOR_ADAPTER_QUERY_STATE_H
#define KOR_ADAPTER_QUERY_STATE_H

#include "core/gl_headers.h"

namespace kor::adapter {

/// Cause: GL answers a question that does not fit the current context with an error, which stays in
/// the context until the application asks for errors and is told of one that it did not make. The
/// library ends and reads a query that may not run, and asks contexts of every kind for their
/// render mode. What GL would refuse is left out here; the result is the same, nothing is written.

void getIntegerv(GLenum name, GLint* values);
void beginQuery(GLenum target, GLuint query);
void endQuery(GLenum target);
void getQueryObjectiv(GLuint query, GLenum name, GLint* value);

} // namespace kor::adapter

#endif
