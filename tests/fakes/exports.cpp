// The exported functions. Each is recorded, then does what its Behaviour says. They are IFUNCs, so
// that a test can take a function away: the resolver runs when the function is looked up with
// dlsym, and a null pointer is what a missing symbol gives.

#include "arguments.h"
#include "behaviour.h"

namespace fake {

namespace {

template <typename R> R fromWord(Word word) {
    if constexpr (std::is_void_v<R>)
        return;
    else if constexpr (std::is_pointer_v<R>)
        return reinterpret_cast<R>(static_cast<uintptr_t>(word));
    else
        return static_cast<R>(word);
}

template <Function Id, typename F> struct Exported;

template <Function Id, typename R, typename... A> struct Exported<Id, R(A...)> {
    static const char* name;

    static R call(A... arguments) {
        Arguments described(name);
        (described.add(arguments), ...);
        const State::Outcome outcome = State::instance().record(described.take());
        if (outcome.replaced)
            return fromWord<R>(outcome.result);
        if constexpr (requires { &Behaviour<Id>::call; })
            return Behaviour<Id>::call(arguments...);
        else
            return fromWord<R>(0);
    }
};

template <Function Id, typename R, typename... A> const char* Exported<Id, R(A...)>::name = nullptr;

/// What dlsym gives for the function of that name.
template <Function Id, typename F> F* resolve(const char* name) {
    using Stub = Exported<Id, F>;
    Stub::name = name;
    return State::instance().lacks(name) ? nullptr : &Stub::call;
}

} // namespace

} // namespace fake

extern "C" {
#define KOR_SYSTEM(function)                                                                       \
    static decltype(&::function) fake_resolve_##function() {                                       \
        return fake::resolve<fake::Function::function, decltype(::function)>(#function);           \
    }                                                                                              \
    __attribute__((ifunc("fake_resolve_" #function),                                               \
                   visibility("default"))) decltype(::function) function;
#define KOR_SYSTEM_AS(function, reported) KOR_SYSTEM(function)
#define KOR_SYSTEM_OPTIONAL(function) KOR_SYSTEM(function)
#include "core/system_functions.def"
}
