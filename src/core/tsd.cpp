#include "core/tsd.h"

#include "core/thread_end.h"
#include "core/tls_key.h"
#include "support/forked_child.h"
#include "support/log.h"

#include <atomic>
#include <cerrno>

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

TSD::~TSD() {
    KOR_DEBUG("START");
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
