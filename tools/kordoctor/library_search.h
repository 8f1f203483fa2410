#pragma once

#include "elf_file.h"

#include <string>
#include <vector>

namespace kordoctor {

// One library that a program would load at its start.
struct LoadedLibrary {
    std::string name;
    std::string path;     // empty: the dynamic linker finds none
    std::string through;  // by what it was found: "RPATH", "LD_LIBRARY_PATH", "RUNPATH" or "system"
    std::string neededBy; // the path of the program or library that names it
};

// Walks through the libraries that the program names, and those that these name, as the dynamic
// linker does at the program's start; each once. What is opened later cannot be known.
// `libraryPath` stands for LD_LIBRARY_PATH.
std::vector<LoadedLibrary> findLibraries(const std::string& program, const ElfFile& elf,
                                         const std::string& libraryPath);

// Where the dynamic linker would find that library of that kind for a program without RPATH;
// empty: nowhere.
std::string findLibrary(const std::string& name, int bits, const std::string& libraryPath);

} // namespace kordoctor
