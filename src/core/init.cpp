#include "config/settings.h"
#include "core/entry_points.h"
#include "core/system_gl.h"
#include "core/thread_end.h"
#include "core/tls_key.h"
#include "support/failures.h"
#include "support/forked_child.h"
#include "support/log.h"
#include "support/process.h"

#include <cstdio>
#include <cstdlib>

namespace {

// Set once, never cleared: there is no way back from either.
std::atomic<int> initDone{0};
std::atomic<int> finiDone{0};

/// A child goes on with what kor_init has set up, and has an end of its own, even if it was forked
/// while its parent was at its end.
kor::InForkedChild beginAfresh([] {
    if (finiDone.exchange(0) != 0)
        kor::gl::renewTSDKey();
});

constexpr const char* wordSize = sizeof(void*) == 8 ? "64" : "32";

} // namespace

void kor_init(void* sysGLHandle) try {
    KOR_DEBUG("START");
    if (initDone.exchange(1) != 0) {
        KOR_DEBUG("already done");
        return;
    }
    KOR_INFO("TESSERA KOR-GL %s (%s bit version)", KOR_VERSION, wordSize);
    char name[1024];
    korGetCurrentProcessName(name, sizeof name);
    KOR_INFO("Application executable %s", name);

    // What the entry points call is there even if there is no memory for the rest.
    const kor::OnFailure begin([&] {
        kor::gl::createTSDKey();
        setup_sysgl(sysGLHandle);
    });
    kor::conf::Settings::init();
    const kor::conf::Settings& settings = kor::conf::settings();
    kor::gl::createTSDKey();

    if (settings.verbose || settings.printKorVersion) {
        fprintf(stderr, "TESSERA KOR-GL %s (%s bit version)\n", KOR_VERSION, wordSize);
        fprintf(stderr, "Copyright TESSERA s.r.l. All rights reserved.\n"
                        "Provided as it is, without warranty of any kind.\n\n");
    }
    // The driver's own destructors crash when the library that uses it is still at work.
    if (settings.disableDriverUnload)
        setenv("__GL_NO_DSO_FINALIZER", "1", 1);
    // With this set the driver serves one thread only; the readback needs two.
    if (getenv("__GL_SINGLE_THREADED") != nullptr) {
        KOR_ERROR_ECHO("environment variable __GL_SINGLE_THREADED is set. Unable to continue");
        exit(1);
    }
    setup_sysgl(sysGLHandle);
    KOR_DEBUG("DONE");
}
KOR_OTHERWISE()

void kor_fini() try {
    KOR_DEBUG("START");
    if (finiDone.exchange(1) != 0) {
        KOR_DEBUG("already done");
        return;
    }
    kor::gl::stopCopyback();
    kor::gl::deleteTSDKey();
    KOR_DEBUG("DONE");
}
KOR_OTHERWISE()
