#include "support/undisturbed.h"

#include <utility>

namespace kor {

constinit thread_local Undisturbed::State Undisturbed::state{};

void Undisturbed::callAfterwards() {
    std::exchange(state.afterwards, nullptr)();
}

} // namespace kor
