#ifndef KOR_SERVER_MODULE_SCREEN_SIZE_H
#define KOR_SERVER_MODULE_SCREEN_SIZE_H

/// Lets the screen take any size while the server runs, whoever asks for it: xrandr, or the viewer
/// of a remote desktop. The server's main thread only.

/// Sets the largest size from a text "WIDTHxHEIGHT" in pixels; null leaves screens as they are.
/// Returns 0 when the text is none. Called before the extension is initialised.
int korScreenSizeSetLargest(const char* size);

/// Called once in every server generation, when the screens are there.
void korScreenSizeInit(void);

#endif
