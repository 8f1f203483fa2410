// Preloaded: a machine without a shared memory segment left, from the n-th request on
// (KOR_STRESS_SEGMENTS, none at all by default).
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <dlfcn.h>
#include <sys/shm.h>

extern "C" __attribute__((visibility("default"))) int shmget(key_t key, size_t size,
                                                             int flags) noexcept {
    static std::atomic<int> left{
        std::getenv("KOR_STRESS_SEGMENTS") ? std::atoi(std::getenv("KOR_STRESS_SEGMENTS")) : 0};
    if (left.fetch_sub(1) <= 0) {
        left = 0;
        errno = ENOSPC;
        return -1;
    }
    using Shmget = int (*)(key_t, size_t, int);
    static const auto real = reinterpret_cast<Shmget>(dlsym(RTLD_NEXT, "shmget"));
    return real(key, size, flags);
}
