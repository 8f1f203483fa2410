#pragma once

#include <string>

namespace korsession {

// Makes a folder that only the user can enter, or sees that the one that is there is the user's own
// and nobody else can write to it: in /tmp someone else could have made it first. `whose` and
// `otherwise` are for the message: whose folder it is, and how another one is named. Throws
// Failure.
void makePrivateFolder(const std::string& path, const std::string& whose,
                       const std::string& otherwise);

} // namespace korsession
