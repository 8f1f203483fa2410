#include "transport/copyback.h"

#include "config/settings.h"
#include "core/process_end.h"
#include "core/thread_end.h"
#include "display/connections.h"
#include "drawable/registry.h"
#include "support/failures.h"
#include "support/forked_child.h"
#include "support/log.h"
#include "transport/frame_statistics.h"
#include "transport/ximage_painter.h"

#include <algorithm>
#include <atomic>
#include <unistd.h>

namespace kor::gl {

namespace {

uint32_t intervalOf(int framesPerSecond) {
    return framesPerSecond > 0 ? 1'000'000U / static_cast<uint32_t>(framesPerSecond) : 1'000'000U;
}

std::atomic<bool> made{false};

/// The thread is the parent's: a child that paints makes one of its own.
InForkedChild forgetCopyback([] {
    made = false;
    Copyback::forgetParents();
});

} // namespace

Copyback::Copyback()
    : wake_(0), thread_(this), frameInterval_(intervalOf(conf::settings().copybackFrameRate)) {
    // The thread runs by now, but sleeps on the wake semaphore until this object is complete.
    timer_.start();
    made = true;
}

void Copyback::unblock() {
    wake_.V(korWhereInfo{});
}

void Copyback::stop() {
    KOR_DEBUG("START");
    {
        const Lock lock(stopLock_);
        stopFlag_ = true;
    }
    wake_.V(korWhereInfo{});
    KOR_DEBUG("DONE");
}

bool Copyback::checkStop() {
    const Lock lock(stopLock_);
    return stopFlag_;
}

bool Copyback::waitForEnd() {
    constexpr uint64_t kMost = 990'000; // microseconds: a second, with what the last pause takes
    constexpr uint64_t kPause = 500;
    const uint64_t end = timer_.getTime() + kMost;
    while (!thread_.ended()) {
        // The thread itself may end the process, from an error handler of the application's.
        const uint64_t now = timer_.getTime();
        if (now >= end || thread_.isCaller())
            return false;
        usleep(static_cast<useconds_t>(std::min(kPause, end - now)));
    }
    return true;
}

void Copyback::doCopyback(Display* display) try {
    wake_.P(korWhereInfo{});
    if (checkStop())
        return;
    if (frameInterval_ != 0) {
        // One whole interval in every pass, whatever has gone by: the pause is the rate limit.
        const int64_t elapsed = timer_.elapsedMicro();
        const int64_t deadline = frameInterval_ + elapsed;
        usleep(static_cast<useconds_t>(deadline - elapsed));
    }
    if (checkStop())
        return;
    const Lock lock(getLocalDrawablesMutex());
    for (DrawableInfo* record : getLocalDrawablesList()) {
        if (record != nullptr)
            record->copyback(display);
    }
}
KOR_OTHERWISE() // the next pass tries again

CopybackThread::CopybackThread(Copyback* copyback) : copyback_(copyback) {
    start(this, callback);
}

CopybackThread::~CopybackThread() {
    KOR_DEBUG("START");
    join();
    KOR_DEBUG("DONE");
}

bool CopybackThread::callback(CopybackThread* self) {
    self->svc();
    return true;
}

void CopybackThread::svc() {
    KOR_DEBUG("START");
    Display* display = openConnection(nullptr, CopybackConnection);
    if (display == nullptr) {
        KOR_WARNING("Could not open the copyback display");
        return;
    }
    ensureStatisticsPage();
    while (!copyback_->checkStop())
        copyback_->doCopyback(display);
    XImagePainter::connectionCloses();
    XCloseDisplay(display);
    KOR_DEBUG("DONE");
}

void stopCopyback() {
    if (processEnds() && !made)
        return;
    Copyback::instance()->stop();
    // When the process ends, Xlib's own destructors come next and take its locks away from under
    // whoever is still inside.
    Copyback::instance()->waitForEnd();
}

} // namespace kor::gl
