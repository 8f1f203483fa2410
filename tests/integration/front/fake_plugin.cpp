// A plug-in that calls a function of the test's while the dynamic linker loads it. The function's
// address is in the environment.
#include <cstdlib>

namespace {
__attribute__((constructor)) void load() {
    const char* address = getenv("FAKE_PLUGIN_CALLS");
    reinterpret_cast<void (*)()>(strtoul(address, nullptr, 16))();
}
} // namespace
