#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kordoctor {

// What the dynamic linker reads of a program or library.
struct ElfFile {
    int bits = 0;         // 64 or 32
    uint16_t machine = 0; // EM_X86_64, EM_386 or another
    bool isDynamic = false;
    std::string interpreter;         // the dynamic linker that it names; empty for libraries
    std::vector<std::string> needed; // the libraries that it names
    std::string rpath;               // looked at before LD_LIBRARY_PATH; without a runpath only
    std::string runpath;             // looked at after it
    std::string korVersion;          // the version note of this system's parts; empty for others
};

// Reads the file; nothing when it is none, or damaged.
std::optional<ElfFile> readElf(const std::string& path);

// The texts in the file that are nothing but the absolute path of a file of that name: what it may
// open by itself. Each once, in their order.
std::vector<std::string> pathsWithin(const std::string& path, const std::string& name);

} // namespace kordoctor
