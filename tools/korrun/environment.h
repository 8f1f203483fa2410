#pragma once

#include "installation.h"

#include <string>
#include <vector>

namespace korrun {

// `paths` (separated by colons) with `folders` in front; each folder stands there once.
std::string prependFolders(const std::vector<std::string>& folders, const std::string& paths);

// `paths` without `folders`.
std::string removeFolders(const std::vector<std::string>& folders, const std::string& paths);

// Lets programs that are started from here load the front library. Throws Failure when there is
// no front library.
void useFront(const Installation& installation);

// Keeps the front library out of programs that are started from here: X servers load a GL library
// of their own and must get the system's.
void avoidFront(const Installation& installation);

} // namespace korrun
