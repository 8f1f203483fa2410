#pragma once

#include <string>
#include <vector>

namespace korrun {

// The session's secret: 16 random bytes that open its servers.
std::string makeCookie();

// Writes the authority file that the session's servers are started with: the cookie alone, so that
// none of the user's other cookies opens them. Throws Failure.
void writeServerAuthority(const std::string& file, const std::string& cookie);

// Writes the authority file of the session's clients: the cookie for each of `displayNumbers` under
// any host name, then the user's own entries from `userFile` (may be empty or missing), so that
// displays outside the session stay reachable. Throws Failure.
void writeClientAuthority(const std::string& file, const std::string& cookie,
                          const std::vector<std::string>& displayNumbers,
                          const std::string& userFile);

// The authority file that Xlib uses at the moment; empty when the user has none.
std::string userAuthorityFile();

} // namespace korrun
