#include "core/tsd.h"

#include "core/thread_end.h"
#include "core/tls_key.h"
#include "support/forked_child.h"
#include "support/log.h"
#include "support/mutex.h"

#include <atomic>
#include <cerrno>
#include <list>

namespace {

// Written by kor_init and kor_fini, read by every entry point: a plain value by design, so relaxed.
std::atomic<kor::TLSKey> tsdKey{kor::gl::noTLSKey};

/// The record of the thread that forked belongs to the parent: what it names is used there. The
/// connection is shared by both, so that it is not even closed.
kor::InForkedChild forgetRecord([] {
    const kor::TLSKey key = tsdKey.load(std::memory_order_relaxed);
    if (key != kor::gl::noTLSKey)
        pthread_setspecific(key, nullptr);
});

void destroyTSD(void* record) {
    delete static_cast<kor::gl::TSD*>(record);
}

/// The records of all threads, behind their lock.
struct Records {
    kor::Mutex mutex;
    std::list<kor::gl::TSD*> list;
};

kor::PerProcess<Records> allRecords;

Records& records() {
    return *allRecords;
}

} // namespace

namespace kor {

TLSKey createTLSKey(void (*destroy)(void*)) {
    TLSKey key = gl::noTLSKey;
    if (pthread_key_create(&key, destroy) == EAGAIN) {
        KOR_LOG_AT("KORGL", LogError, "ERROR", "kor::TLSKey kor::createTLSKey(void (*)(void*))",
                   false, "Reached the maximum number of keys per thread: %d", 1024);
    }
    return key;
}

namespace gl {

void createTSDKey() {
    tsdKey.store(createTLSKey(destroyTSD), std::memory_order_relaxed);
}

void deleteTSDKey() {
    const TLSKey key = tsdKey.exchange(noTLSKey, std::memory_order_relaxed);
    if (key != noTLSKey)
        pthread_key_delete(key);
}

void renewTSDKey() {
    if (tsdKey.load(std::memory_order_relaxed) == noTLSKey)
        createTSDKey();
}

bool threadRecordsAreKept() {
    return tsdKey.load(std::memory_order_relaxed) != noTLSKey;
}

TSD* knownTSD() {
    const TLSKey key = tsdKey.load(std::memory_order_relaxed);
    return key != noTLSKey ? static_cast<TSD*>(pthread_getspecific(key)) : nullptr;
}

void forgetAppDisplay(Display* appDpy) {
    const Lock lock(records().mutex);
    for (TSD* tsd : records().list) {
        if (tsd->appDisplay.load() != appDpy)
            continue;
        tsd->appDisplayClosed = true;
        Display* closed = appDpy; // unless the thread has gone on to another meanwhile
        tsd->appDisplay.compare_exchange_strong(closed, nullptr);
    }
}

TSD::TSD() {
    const Lock lock(records().mutex);
    records().list.push_back(this);
}

TSD::~TSD() {
    KOR_DEBUG("START");
    {
        const Lock lock(records().mutex);
        records().list.remove(this);
    }
    leaveContextBehind(*this);
    dropCurrentDrawables(*this);
    _unsetLocalDisplay(appDisplay);
    if (appDisplay2 != nullptr) {
        KOR_DEBUG("Closing appdpy2");
        XCloseDisplay(appDisplay2);
    }
}

} // namespace gl
} // namespace kor

kor::gl::TSD* getTSD() {
    const kor::TLSKey key = tsdKey.load(std::memory_order_relaxed);
    if (key == kor::gl::noTLSKey)
        return nullptr;
    if (void* record = pthread_getspecific(key))
        return static_cast<kor::gl::TSD*>(record);
    auto* record = new kor::gl::TSD;
    pthread_setspecific(key, record);
    return record;
}
