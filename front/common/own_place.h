#ifndef KOR_FRONT_OWN_PLACE_H
#define KOR_FRONT_OWN_PLACE_H

#include <climits>

namespace kor::front {

/// Where this library itself lies. Noted while it is loaded (noteOwnPlace), when a relative path
/// still means what the dynamic linker made of it. In memory of the library's own, so that nothing
/// is left behind when it is unloaded.
struct OwnPlace {
    const char* loadedAs;     // the name under which the dynamic linker knows it
    char directory[PATH_MAX]; // absolute, without links; the other libraries are found from here
};
const OwnPlace& ownPlace();
void noteOwnPlace();

/// True when the file at that path is this library's own.
bool isOwnFile(const char* path);

/// True when that dlopen handle is this library or another copy of it, or depends on one.
bool leadsToAFront(void* handle);

} // namespace kor::front

#endif
