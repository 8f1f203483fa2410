#include <gtest/gtest.h> // before the X headers, whose macros have names of its types

#include "gl_table.h"

#include <dlfcn.h>

/// What the library asks when there is no local display. The system's library ends the process.

namespace kor::test {
namespace {

template <typename Function> Function* adapted(const char* name) {
    return reinterpret_cast<Function*>(dlsym(adapterHandle(), name));
}
#define ADAPTED(name) adapted<decltype(::name)>(#name)

TEST(NoDisplay, HasNoGlx) {
    int first = 0;
    int second = 0;
    EXPECT_FALSE(ADAPTED(glXQueryExtension)(nullptr, &first, &second));
    EXPECT_FALSE(ADAPTED(glXQueryVersion)(nullptr, &first, &second));
}

TEST(NoDisplay, HasNoStrings) {
    EXPECT_EQ(ADAPTED(glXQueryExtensionsString)(nullptr, 0), nullptr);
    EXPECT_EQ(ADAPTED(glXQueryServerString)(nullptr, 0, GLX_VENDOR), nullptr);
    EXPECT_EQ(ADAPTED(glXGetClientString)(nullptr, GLX_VENDOR), nullptr);
}

} // namespace
} // namespace kor::test
