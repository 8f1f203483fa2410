#ifndef KOR_FRONT_SEARCH_H
#define KOR_FRONT_SEARCH_H

#include <string>
#include <vector>

namespace kor::front {

/// Where to look. The members stand for what the process has, so that tests can give their own.
struct SearchPlaces {
    const char* libraryPath = nullptr;              // LD_LIBRARY_PATH; null to leave it out
    const char* linkerSettings = "/etc/ld.so.conf"; // the dynamic linker's list of folders
};

/// The paths at which the dynamic linker may find a library of that name, in its order: the entries
/// of LD_LIBRARY_PATH, the folders of the linker's settings, the standard folders. Each path once;
/// whether anything is there is not looked at.
std::vector<std::string> libraryCandidates(const SearchPlaces& places, const std::string& name);

} // namespace kor::front

#endif
