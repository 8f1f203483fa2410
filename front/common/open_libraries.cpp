#include "open_libraries.h"

#include "environment.h"
#include "own_place.h"
#include "report.h"
#include "search.h"

#include <cstring>
#include <dlfcn.h>
#include <string>
#include <sys/stat.h>

namespace kor::front {

namespace {

// Once a call has been routed its target must never go away, whoever closes what.
constexpr int openFlags = RTLD_LAZY | RTLD_LOCAL | RTLD_NODELETE;

const char* lastError() {
    const char* error = dlerror();
    return error == nullptr ? "no reason given" : error;
}

bool exists(const std::string& path) {
    struct stat file {};
    return stat(path.c_str(), &file) == 0;
}

/// What is wrong with a library that cannot be the system's, for the report.
struct Refusal {
    std::string reason;
};

void* openUnlessOurs(const std::string& path, Refusal& refusal) {
    if (isOwnFile(path.c_str())) {
        refusal.reason = path + " is this library itself";
        return nullptr;
    }
    // Not yet for good: another copy of the front must go again.
    void* handle = dlopen(path.c_str(), RTLD_LAZY | RTLD_LOCAL);
    if (handle == nullptr) {
        refusal.reason = lastError();
        return nullptr;
    }
    if (leadsToAFront(handle)) {
        dlclose(handle);
        refusal.reason = path + " is a copy of this library";
        return nullptr;
    }
    dlopen(path.c_str(), openFlags | RTLD_NOLOAD);
    return handle;
}

} // namespace

void openSystemLibrary(Libraries& libraries, bool trusted) {
    Refusal refusal;
    const char* given = trusted ? environmentValue("KOR_FRONT_SYSTEM_GL") : nullptr;
    if (given != nullptr && *given != '\0') {
        libraries.system = openUnlessOurs(given, refusal);
        if (libraries.system == nullptr)
            report("the system's GL library cannot be opened as KOR_FRONT_SYSTEM_GL says: %s. "
                   "OpenGL does nothing in this process.",
                   refusal.reason.c_str());
        else
            libraries.systemPath = strdup(given);
        return;
    }

    SearchPlaces places;
    places.libraryPath = trusted ? environmentValue("LD_LIBRARY_PATH") : nullptr;
    std::string looked;
    for (const std::string& path : libraryCandidates(places, "libGL.so.1")) {
        if (exists(path)) {
            libraries.system = openUnlessOurs(path, refusal);
            if (libraries.system != nullptr) {
                libraries.systemPath = strdup(path.c_str());
                return;
            }
        }
        looked += (looked.empty() ? "" : ", ") + path;
    }
    if (!refusal.reason.empty())
        looked += " (" + refusal.reason + ")";
    report("the system's GL library is missing; looked for %s. OpenGL does nothing in this "
           "process. KOR_FRONT_SYSTEM_GL may name it.",
           looked.c_str());
}

void openAdapter(Libraries& libraries, const char* place) {
    const std::string path = std::string(ownPlace().directory) + "/" + place;
    libraries.adapter = dlopen(path.c_str(), openFlags);
    if (libraries.adapter == nullptr)
        report("the adapter to the system's GL library cannot be opened: %s. Drivers are used "
               "without the help that some of them need.",
               lastError());
}

void* openKorLibrary(std::initializer_list<const char*> places, bool trusted) {
    // Another front of this process may have opened it, from wherever: there is one per process.
    if (void* handle = dlopen("libGL_KOR.so", openFlags | RTLD_NOLOAD); handle != nullptr)
        return handle;
    const char* given = trusted ? environmentValue("KOR_FRONT_LIBRARY") : nullptr;
    if (given != nullptr && *given != '\0') {
        void* handle = dlopen(given, openFlags);
        if (handle == nullptr)
            report("the library cannot be opened as KOR_FRONT_LIBRARY says: %s. This process uses "
                   "the system's OpenGL alone.",
                   lastError());
        return handle;
    }
    std::string looked;
    std::string reason;
    for (const char* place : places) {
        const std::string path = std::string(ownPlace().directory) + "/" + place;
        looked += (looked.empty() ? "" : " and ") + path;
        if (!exists(path))
            continue;
        if (void* handle = dlopen(path.c_str(), openFlags); handle != nullptr)
            return handle;
        reason = std::string(" (") + lastError() + ")";
    }
    report("libGL_KOR.so is missing; looked for %s%s. This process uses the system's OpenGL alone.",
           looked.c_str(), reason.c_str());
    return nullptr;
}

} // namespace kor::front
