#include "library_search.h"

#include "search.h"

#include <algorithm>
#include <deque>
#include <elf.h>
#include <sstream>
#include <unistd.h>

namespace kordoctor {

namespace {

constexpr size_t mostLibraries = 2000; // of one program

struct Found {
    std::string path;
    std::string through;
};

std::string folderOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash);
}

// $ORIGIN, $LIB and $PLATFORM as the dynamic linker replaces them.
std::string replaceTokens(std::string entry, const std::string& origin, int bits) {
    const std::pair<const char*, std::string> tokens[] = {
        {"ORIGIN", origin},
        {"LIB", bits == 64 ? "lib/x86_64-linux-gnu" : "lib/i386-linux-gnu"},
        {"PLATFORM", bits == 64 ? "x86_64" : "i686"}};
    for (const auto& [name, value] : tokens)
        for (const std::string& token : {std::string("${") + name + "}", std::string("$") + name})
            for (size_t at = entry.find(token); at != std::string::npos; at = entry.find(token))
                entry.replace(at, token.size(), value);
    return entry;
}

bool fits(const std::string& path, int bits) {
    if (access(path.c_str(), R_OK) != 0)
        return false;
    const auto elf = readElf(path);
    return elf && elf->bits == bits && elf->machine == (bits == 64 ? EM_X86_64 : EM_386);
}

std::string searchFolders(const std::string& folders, const std::string& name,
                          const std::string& origin, int bits) {
    if (folders.empty())
        return "";
    std::istringstream list(folders);
    for (std::string folder; std::getline(list, folder, ':');) {
        std::string path =
            (folder.empty() ? "." : replaceTokens(folder, origin, bits)) + "/" + name;
        if (fits(path, bits))
            return path;
    }
    return "";
}

std::string searchSystem(const std::string& name, int bits) {
    for (const std::string& path : kor::front::libraryCandidates({}, name))
        if (fits(path, bits))
            return path;
    // The front looks for its own kind only.
    for (const char* folder : {"/lib/i386-linux-gnu", "/usr/lib/i386-linux-gnu", "/lib32",
                               "/usr/lib32", "/lib/x86_64-linux-gnu", "/usr/lib/x86_64-linux-gnu"})
        if (std::string path = std::string(folder) + "/" + name; fits(path, bits))
            return path;
    return "";
}

// `rpaths`: those of the library that needs it and of the ones that led there, in that order.
Found find(const std::string& name, int bits, const std::vector<std::string>& rpaths,
           const std::string& libraryPath, const std::string& runpath, const std::string& origin) {
    if (name.find('/') != std::string::npos)
        return {fits(name, bits) ? name : "", "its path"};
    for (const std::string& rpath : rpaths)
        if (std::string path = searchFolders(rpath, name, origin, bits); !path.empty())
            return {path, "RPATH"};
    if (std::string path = searchFolders(libraryPath, name, origin, bits); !path.empty())
        return {path, "LD_LIBRARY_PATH"};
    if (std::string path = searchFolders(runpath, name, origin, bits); !path.empty())
        return {path, "RUNPATH"};
    return {searchSystem(name, bits), "system"};
}

struct Pending {
    std::string path;
    ElfFile elf;
    std::vector<std::string> rpaths;
};

} // namespace

std::vector<LoadedLibrary> findLibraries(const std::string& program, const ElfFile& elf,
                                         const std::string& libraryPath) {
    std::vector<LoadedLibrary> libraries;
    std::deque<Pending> pending;
    const auto resolved = [](const std::string& rpath, const std::string& path, int bits) {
        return replaceTokens(rpath, folderOf(path), bits);
    };
    pending.push_back({program, elf, {resolved(elf.rpath, program, elf.bits)}});
    for (; !pending.empty() && libraries.size() < mostLibraries; pending.pop_front()) {
        const Pending current = pending.front();
        // A RUNPATH switches the RPATHs of those that led here off.
        const auto rpaths =
            current.elf.runpath.empty() ? current.rpaths : std::vector<std::string>{};
        for (const std::string& name : current.elf.needed) {
            if (std::any_of(libraries.begin(), libraries.end(),
                            [&](const LoadedLibrary& library) { return library.name == name; }))
                continue;
            const Found found = find(name, elf.bits, rpaths, libraryPath, current.elf.runpath,
                                     folderOf(current.path));
            libraries.push_back({name, found.path, found.through, current.path});
            if (found.path.empty())
                continue;
            if (const auto library = readElf(found.path)) {
                std::vector<std::string> inherited = {
                    resolved(library->rpath, found.path, elf.bits)};
                inherited.insert(inherited.end(), current.rpaths.begin(), current.rpaths.end());
                pending.push_back({found.path, *library, inherited});
            }
        }
    }
    return libraries;
}

std::string findLibrary(const std::string& name, int bits, const std::string& libraryPath) {
    return find(name, bits, {}, libraryPath, "", ".").path;
}

} // namespace kordoctor
