#include "core/process_claim.h"

#include <atomic>

int kor_claim_process(const void* front) {
    static std::atomic<const void*> owner{nullptr};
    const void* before = nullptr;
    if (front == nullptr)
        return owner.load() == nullptr ? 1 : 0;
    return owner.compare_exchange_strong(before, front) || before == front ? 1 : 0;
}
