#pragma once

#include "elf_file.h"
#include "installation.h"
#include "section.h"

#include <string>

namespace kordoctor {

// The check "program-front": which front serves the program at `path` when korrun starts it, and
// what keeps it from being served. `elf` is what was read of it.
void checkProgramFront(Findings& findings, const std::string& path, const ElfFile& elf,
                       const korrun::Installation& installation);

} // namespace kordoctor
