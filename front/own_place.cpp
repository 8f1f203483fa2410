#include "own_place.h"

#include <climits>
#include <cstdlib>
#include <dlfcn.h>
#include <sys/stat.h>

extern "C" {
/// By this name one copy of the front library knows another.
extern __attribute__((visibility("default"))) const char kor_front_marker[];
const char kor_front_marker[] = "KOR-GL front library";
}

namespace kor::front {

namespace {

OwnPlace findOwnPlace() {
    OwnPlace place{"", "."};
    Dl_info info{};
    if (dladdr(kor_front_marker, &info) == 0 || info.dli_fname == nullptr)
        return place;
    place.loadedAs = info.dli_fname;
    char path[PATH_MAX];
    const std::string file = realpath(info.dli_fname, path) != nullptr ? path : info.dli_fname;
    const size_t slash = file.rfind('/');
    if (slash != std::string::npos)
        place.directory = file.substr(0, slash);
    return place;
}

} // namespace

const OwnPlace& ownPlace() {
    static const OwnPlace& place = *new OwnPlace(findOwnPlace()); // outlives every destructor
    return place;
}

bool isOwnFile(const char* path) {
    struct stat own {};
    struct stat other {};
    return stat(ownPlace().loadedAs, &own) == 0 && stat(path, &other) == 0 &&
           own.st_dev == other.st_dev && own.st_ino == other.st_ino;
}

bool leadsToAFront(void* handle) {
    return dlsym(handle, "kor_front_marker") != nullptr;
}

} // namespace kor::front
