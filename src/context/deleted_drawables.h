#ifndef KOR_CONTEXT_DELETED_DRAWABLES_H
#define KOR_CONTEXT_DELETED_DRAWABLES_H

/// Deletes the records of windows that no longer exist on the application display or whose fbconfig
/// was invalidated. Implemented in drawable/clear_deleted.cpp; asks the server once per window,
/// under the local drawables mutex.
void clearDeletedDrawables();

#endif
