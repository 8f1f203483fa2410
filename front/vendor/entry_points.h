#ifndef KOR_FRONT_VENDOR_ENTRY_POINTS_H
#define KOR_FRONT_VENDOR_ENTRY_POINTS_H

namespace kor::front {

/// The function to call for a name that libGL_KOR.so takes over, null for any other. Before the
/// front is started it is a stub that starts it at its first call, so that asking for functions, as
/// the dispatch library does when it loads us, costs nothing; afterwards it is the library's own,
/// and null where the front could not be started. Any thread.
void* entryPoint(const char* name);

} // namespace kor::front

#endif
