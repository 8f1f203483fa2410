#ifndef KOR_TESTS_ADAPTER_OBEDIENT_DRIVER_H
#define KOR_TESTS_ADAPTER_OBEDIENT_DRIVER_H

/// A made-up driver for cases in which a driver must do as told: one colour for each buffer of a
/// pbuffer, no server, no lock (so that a forked child finds none taken). It has few of the names
/// that the library looks for. Controlled through these functions, found with dlsym.
extern "C" {

/// Whether a front buffer survives a swap (at first it does).
void obedientKeepFront(bool keep);
/// Calls of all its GL and GLX functions but the glXGet ones so far.
int obedientCalls();
/// Contexts made so far.
int obedientContexts();
/// Of these, the ones that were not destroyed.
int obedientLiveContexts();
/// Pbuffers that were made and not destroyed.
int obedientLivePbuffers();
/// Times that a pbuffer or a context was destroyed by a thread with no context current.
int obedientBareDestroys();
/// The colour that new pbuffers have in both buffers (black at first).
void obedientNewPbuffersHave(int colour);
/// The colour in the back buffer.
int obedientBack(unsigned long drawable);
/// Times that a context was made current while another thread had it.
int obedientViolations();
/// The colour in the front buffer: red in the upper byte, green in the lower.
int obedientFront(unsigned long drawable);
/// The most threads that were inside glXSwapBuffers at a time; each stays there for a moment.
int obedientSwapsAtOnce();
}

#endif
