#include "own_place.h"

#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <sys/stat.h>

extern "C" {
/// By this name one copy of the front library knows another.
extern __attribute__((visibility("default"))) const char kor_front_marker[];
const char kor_front_marker[] = "KOR-GL front library";
}

namespace kor::front {

namespace {
OwnPlace place{"", "."};
} // namespace

void noteOwnPlace() {
    Dl_info info{};
    if (dladdr(kor_front_marker, &info) == 0 || info.dli_fname == nullptr)
        return;
    place.loadedAs = info.dli_fname;
    if (realpath(info.dli_fname, place.directory) == nullptr) {
        strcpy(place.directory, "."); // an incomplete path may be in there
        return;
    }
    if (char* slash = strrchr(place.directory, '/'); slash != nullptr)
        *slash = '\0';
}

const OwnPlace& ownPlace() {
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
