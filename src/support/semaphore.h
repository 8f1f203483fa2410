#ifndef KOR_SUPPORT_SEMAPHORE_H
#define KOR_SUPPORT_SEMAPHORE_H

#include "support/where_info.h"

#include <cstdint>
#include <semaphore.h>

namespace kor {

/// An unnamed, process-private counting semaphore. Failures are logged at DEBUG and give false.
class Semaphore {
  public:
    explicit Semaphore(uint32_t value);
    virtual ~Semaphore();
    Semaphore(const Semaphore&) = delete;
    Semaphore& operator=(const Semaphore&) = delete;

    /// Waits, for as long as it takes; interrupted waits go on.
    bool P(const korWhereInfo& where);
    bool V(const korWhereInfo& where);
    /// Waits at most timeoutMs milliseconds; 0 only tries. False on time-out.
    bool tryP(uint32_t timeoutMs, const korWhereInfo& where);

  private:
    sem_t semaphore_{};
};

} // namespace kor

#endif
