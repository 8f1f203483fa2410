#ifndef KOR_CORE_TSD_H
#define KOR_CORE_TSD_H

#include "core/gl_headers.h"

#include <X11/Xlib.h>
#include <atomic>
#include <memory>
#include <pthread.h>

namespace kor {

using TLSKey = pthread_key_t;

/// Makes a thread-specific-data key whose values are passed to destroy at thread exit. The value
/// (TLSKey)-1 when the system has none left (logged for the usual reason, too many keys).
TLSKey createTLSKey(void (*destroy)(void*));

namespace gl {

class DrawableInfo;
class SharedConnection;

/// What the library knows of one application thread. Made by getTSD() in that thread, touched by
/// that thread only but for its application display, destroyed when it exits. Fields start null.
///
/// The two drawable fields name records that other threads may delete from the registry at any
/// time; they are changed only through nameDrawable() (drawable/drawable_info.h), which keeps the
/// record's memory alive for as long as it is named.
class TSD {
  public:
    virtual ~TSD();

    TSD();
    TSD(const TSD&) = delete;
    TSD& operator=(const TSD&) = delete;

    // The application display the thread last set up. Another thread that closes the display
    // clears it (forgetAppDisplay), and sets the flag.
    std::atomic<Display*> appDisplay{nullptr};
    std::atomic<bool> appDisplayClosed{false};
    Display* appDisplay2 = nullptr; // our own connection to it, owned
    XExtCodes* extCodes = nullptr;  // of "KOR-V1" on appDisplay2; owned by that connection
    DrawableInfo* currentDrawable = nullptr;
    DrawableInfo* currentReadDrawable = nullptr;
    GLXContext currentContext = nullptr;   // as the application holds it; null: none current
    GLXContext throwawayContext = nullptr; // a spare local context; never destroyed on purpose

    /// The last answer of the pairing of displays, which is asked at every call: good as long as
    /// the thread's application display is the same and no pair has been changed since.
    struct {
        Display* appDisplay = nullptr;
        std::shared_ptr<SharedConnection> connection;
        unsigned generation = 0;
    } lastPair;
};

/// False before kor_init and after kor_fini.
bool threadRecordsAreKept();

/// The calling thread's record, or null: none is made.
TSD* knownTSD();

/// An application display is closed: no thread's record refers to it from now on, wherever its
/// address may come up again. Takes the lock of the list of records.
void forgetAppDisplay(Display* appDpy);

} // namespace gl
} // namespace kor

/// The calling thread's record, made at the first call; null before kor_init and after kor_fini.
kor::gl::TSD* getTSD();

#endif
