#ifndef KOR_SERVER_LAUNCHER_ADMISSION_H
#define KOR_SERVER_LAUNCHER_ADMISSION_H

#include <string>

namespace kor::server {

/// Lets programs of the launcher's own user onto the display without a cookie. cookie is the
/// server's. A failure is told on the standard error output, and programs then need the cookie.
void admitOwnUser(int display, const std::string& cookie);

} // namespace kor::server

#endif
