// What the adapter must not take for the system's library: one that says that it is a front of
// ours.
#pragma GCC visibility push(default)
extern "C" {
void glXSwapBuffers() {}
extern const char kor_front_marker[];
const char kor_front_marker[] = "a front";
}
