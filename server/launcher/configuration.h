#ifndef KOR_SERVER_LAUNCHER_CONFIGURATION_H
#define KOR_SERVER_LAUNCHER_CONFIGURATION_H

#include "options.h"

#include <string>

namespace kor::server {

/// The configuration that makes Xorg the server described by the options: the dummy driver with one
/// screen, our module and, where viewers are let in (viewing.vncPort is set then), the VNC one, no
/// input or graphics hardware.
std::string configurationText(const Options& options);

/// A file in memory that holds the text, so that nothing of it lies about on disk. Returns its file
/// descriptor (closed on exec), which the caller owns. Throws Problem.
int configurationFile(const std::string& text);

} // namespace kor::server

#endif
