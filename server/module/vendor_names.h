#ifndef KOR_SERVER_MODULE_VENDOR_NAMES_H
#define KOR_SERVER_MODULE_VENDOR_NAMES_H

/// GL's vendor-neutral dispatch library asks a server, screen by screen, which vendors' libraries a
/// client shall try, in their order. From here on the server answers "kor" first and its own names
/// after it, so that clients on a machine with our vendor library use it and all others do what
/// they did before. Nothing else that is said to GLX is touched. Called once in every server
/// generation, on the server's main thread, whether or not GLX is initialised by then.
void korVendorNamesInit(void);

#endif
