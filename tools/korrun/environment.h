#pragma once

#include "installation.h"
#include "options.h"

#include <string>
#include <vector>

namespace korrun {

// `paths` (separated by colons) with `folders` in front; each folder stands there once.
std::string prependFolders(const std::vector<std::string>& folders, const std::string& paths);

// `paths` without `folders`.
std::string removeFolders(const std::vector<std::string>& folders, const std::string& paths);

// Those of the folders with our vendor library that the dynamic linker has to be told of: it must
// be found by 64-bit programs and by 32-bit programs, as far as there is one for them.
// `loaderCache` is the dynamic linker's list of libraries.
std::vector<std::string>
foldersUnknownToLoader(const Installation& installation,
                       const std::string& loaderCache = "/etc/ld.so.cache");

// The kind of front library that is used when this one is wanted; Classic or Glvnd. Throws Failure
// when there is no such front library.
Front chooseFront(const Installation& installation, Front wanted);

// Lets programs that are started from here load the front library with the settings of an
// installation, and changes no more of the environment than that takes. The display is the one that
// they get; empty: the one that DISPLAY names. Returns the kind that they load. Throws as
// chooseFront does.
Front useFront(const Installation& installation, Front wanted, const std::string& display);

// Keeps the front library out of programs that are started from here: X servers load a GL library
// of their own and must get the system's.
void avoidFront(const Installation& installation);

} // namespace korrun
