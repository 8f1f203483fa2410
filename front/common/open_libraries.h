#ifndef KOR_FRONT_OPEN_LIBRARIES_H
#define KOR_FRONT_OPEN_LIBRARIES_H

#include <initializer_list>

namespace kor::front {

/// What the front passes calls on to: dlopen handles, which stay open for good, null where the
/// library could not be had.
struct Libraries {
    void* system = nullptr;           // the system's libGL.so.1
    void* adapter = nullptr;          // libkor-sysgl.so; the way of libGL_KOR.so to the driver
    void* kor = nullptr;              // libGL_KOR.so
    const char* systemPath = nullptr; // never freed
};

/// Each of these opens one library by its path, and says on stderr in one line when that fails and
/// where it looked; what is left is null then. trusted: whether the environment may name what is
/// loaded. Places are relative to the front's own folder.
void openSystemLibrary(Libraries& libraries, bool trusted);
void openAdapter(Libraries& libraries, const char* place);
void* openKorLibrary(std::initializer_list<const char*> places, bool trusted);

} // namespace kor::front

#endif
