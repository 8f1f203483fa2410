#ifndef KOR_DRAWABLE_REGISTRY_H
#define KOR_DRAWABLE_REGISTRY_H

#include "drawable/drawable_info.h"

#include <list>

namespace kor::gl {

/// The local drawables list: every record that is in use, the newest first, so that a look-up by id
/// finds the newest record of that id. Nodes of erased records are kept for later insertions.
class DrawableList {
  public:
    using Iterator = std::list<DrawableInfo*>::iterator;

    void pushFront(DrawableInfo* record);
    /// Unlinks the entry, gives its node to the spares and returns the next one.
    Iterator unlink(Iterator entry);
    Iterator begin() { return records_.begin(); }
    Iterator end() { return records_.end(); }
    size_t size() const { return records_.size(); }

  private:
    std::list<DrawableInfo*> records_;
    std::list<DrawableInfo*> spare_;
};

/// To be used under getLocalDrawablesMutex(), which the copyback thread holds for a whole paint
/// pass and which is never held while a record is deleted. Both live as long as the process.
DrawableList& getLocalDrawablesList();
Mutex& getLocalDrawablesMutex();

} // namespace kor::gl

/// Hands a record to the registry. Throws std::bad_alloc, and has discarded the record then.
void pushLocalDrawable(kor::gl::DrawableInfo* record);

/// The newest record of an application drawable, of any type, or null.
kor::gl::DrawableRef findLocalDrawable(unsigned long id);

/// Ends the newest record of that id and type, if there is one. The calling thread's current
/// drawables forget it; other threads are not looked at.
void eraseLocalDrawable(unsigned long id, kor::gl::LocalDrawableType type);

/// The record of an application window, made at the first call; null when the window is unknown or
/// its visual has no mapping. fbconfig is the local one of the context to be made current; another
/// one than the record's replaces the record. tsd null means the calling thread's.
kor::gl::DrawableRef getDrawableInfo(Display* dpy, Window window, GLXFBConfig fbconfig,
                                     kor::gl::TSD* tsd);

#endif
