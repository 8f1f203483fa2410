// A thread whose function has returned is not joined (see kor::Thread::join), which the thread
// sanitizer takes for a leak.
extern "C" __attribute__((visibility("default"))) const char* __tsan_default_suppressions();

const char* __tsan_default_suppressions() {
    return "thread:support/thread.h\n";
}
