#ifndef KOR_SERVER_MODULE_KORV1_H
#define KOR_SERVER_MODULE_KORV1_H

/// The extension itself, apart from how the server loads it. The server's main thread only.

/// Sets the name that GetGLDisplay answers with; a null or empty name means none. The text is
/// copied. Returns 0 when no memory is left. Called before the extension is initialised.
int korV1SetGLDisplay(const char* name);

/// Adds the extension to the server; called once in every server generation.
void korV1Init(void);

#endif
