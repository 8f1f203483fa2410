#include "start.h"

#include "report.h"

#include <dlfcn.h>

/// The classic front: what an application loads in place of the system's libGL.so.1.
///
/// It exports every function that the system's library exports (symbols.def), each as one jump
/// through a slot (stubs_*.S). The first call of each function finds no target in its slot and
/// comes to resolve.cpp, which looks the target up, once: the entry point of libGL_KOR.so if that
/// has one of the name (core/entry_points.def), else the system's own function. From then on the
/// front is a jump and nothing else.
///
/// The first call of all starts the front: the system's library is found by its path and opened,
/// then libGL_KOR.so and the adapter, which lie beside this library, and kor_init is called. A
/// process that never calls GL or GLX loads none of them.
namespace kor::front {

namespace {

/// The handle through which the library reaches the driver: the adapter's, or for want of it the
/// system library's own.
void* driverHandle(Libraries& opened) {
    openAdapter(opened, "libkor-sysgl.so");
    if (opened.adapter == nullptr)
        return opened.system;
    auto* init = reinterpret_cast<bool (*)(void*)>(dlsym(opened.adapter, "kor_adapter_init"));
    if (init != nullptr && init(opened.system))
        return opened.adapter;
    report("the adapter cannot work with %s; drivers are used without the help that some of them "
           "need.",
           opened.systemPath);
    opened.adapter = nullptr;
    return opened.system;
}

} // namespace

void start(Libraries& opened) {
    const bool trusted = trustEnvironment();
    openSystemLibrary(opened, trusted);
    if (opened.system == nullptr)
        return;
    KorLibrary library;
    // The system's vendor-neutral dispatch may have come to the library before us, by way of the
    // vendor front. Then calls reach it through the system's library.
    if (findKor(library, openKorLibrary({"../libGL_KOR.so", "libGL_KOR.so"}, trusted)) &&
        claimKor(library))
        startKor(library, driverHandle(opened));
}

} // namespace kor::front
