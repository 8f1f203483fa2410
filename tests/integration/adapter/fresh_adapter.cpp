#include "fresh_adapter.h"

#include "adapter/adapter.h"

#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>

namespace kor::test {

namespace fs = std::filesystem;

void* openLibrary(const std::string& path) {
    void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle) {
        std::fprintf(stderr, "%s\n", dlerror());
        std::abort();
    }
    return handle;
}

FreshAdapter::FreshAdapter() {
    std::string pattern = fs::temp_directory_path() / "kor-adapter-XXXXXX";
    if (!mkdtemp(pattern.data()))
        std::abort();
    folder_ = pattern;
    handle_ = openBeside(KOR_ADAPTER_PATH);
}

FreshAdapter::~FreshAdapter() {
    fs::remove_all(folder_);
}

void* FreshAdapter::find(const char* name) const {
    return dlsym(handle_, name);
}

bool FreshAdapter::init(void* systemHandle) const {
    return find<decltype(kor_adapter_init)>("kor_adapter_init")(systemHandle);
}

void* FreshAdapter::openBeside(const std::string& library) const {
    return openCopy(library, folder_);
}

void* FreshAdapter::openElsewhere(const std::string& library) const {
    const std::string elsewhere = folder_ + "/elsewhere";
    fs::create_directory(elsewhere);
    return openCopy(library, elsewhere);
}

void* FreshAdapter::openCopy(const std::string& library, const std::string& folder) {
    const fs::path copy = fs::path(folder) / fs::path(library).filename();
    fs::copy_file(library, copy, fs::copy_options::overwrite_existing);
    return openLibrary(copy);
}

} // namespace kor::test
