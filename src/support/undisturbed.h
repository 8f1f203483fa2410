#ifndef KOR_SUPPORT_UNDISTURBED_H
#define KOR_SUPPORT_UNDISTURBED_H

namespace kor {

/// What a thread must have left before the application's code may run on it: an X error handler of
/// the application's may use GLX, end the process or leave with longjmp, and must find no lock of
/// ours taken and no work of ours half done. Every held Lock counts, and so does every Undisturbed.
/// One per thread, used by that thread alone.
class Undisturbed {
  public:
    Undisturbed() { enter(); }
    ~Undisturbed() { leave(); }
    Undisturbed(const Undisturbed&) = delete;
    Undisturbed& operator=(const Undisturbed&) = delete;

    static void enter() {
        if (state.depth++ == 0)
            noteHandler();
    }
    static void leave() {
        if (--state.depth == 0 && __builtin_expect(state.afterwards != nullptr, 0))
            callAfterwards();
    }
    static bool active() { return state.depth > 0; }
    /// False when the error handler was changed since this thread's outermost one began. Then it
    /// belongs to code that waits for one error of its own, or to another thread.
    static bool handlerIsTheSame();
    /// Has a function called once, on this thread, at the end of the outermost one.
    static void afterwards(void (*function)()) { state.afterwards = function; }

  private:
    struct State {
        unsigned depth;
        void (*handler)(); // Xlib's, whose headers have macros that not every user bears
        void (*afterwards)();
    };
    static void noteHandler();
    static void callAfterwards();

    // In every lock's way, so no call for its address: the few bytes fit into what the C library
    // keeps free for libraries that are loaded late.
    [[gnu::tls_model("initial-exec")]] static constinit thread_local State state;
};

} // namespace kor

#endif
