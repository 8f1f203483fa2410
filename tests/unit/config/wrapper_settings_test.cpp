#include "config/wrapper_settings.h"

#include "in_child.h"
#include "sandbox.h"

#include <cstring>
#include <gtest/gtest.h>

using kor::test::inChild;
using kor::test::Sandbox;

namespace {

TEST(WrapperSettings, HaveTheirDefaults) {
    const Sandbox sandbox;
    EXPECT_EQ(inChild([] {
                  return kor_wrapper_setting("cleanup-atexit") == 1 &&
                                 kor_wrapper_setting("disable-driver-unload") == 1 &&
                                 kor_wrapper_setting("disable-kor-gl-unload") == 0
                             ? 0
                             : 1;
              }).status,
              0);
}

TEST(WrapperSettings, ComeFromWhereTheLibrarysComeFrom) {
    Sandbox sandbox;
    sandbox.writeAdmin("[Wrapper]\ncleanup-atexit = false\n");
    sandbox.set("KOR_GL_CLEANUP_ATEXIT", "1");
    sandbox.set("KOR_GL_DISABLE_DRIVER_UNLOAD", "0");
    sandbox.set("KOR_GL_DISABLE_KOR_GL_UNLOAD", "true");
    EXPECT_EQ(inChild([] {
                  return kor_wrapper_setting("cleanup-atexit") == 0 &&
                                 kor_wrapper_setting("disable-driver-unload") == 0 &&
                                 kor_wrapper_setting("disable-kor-gl-unload") == 1
                             ? 0
                             : 1;
              }).status,
              0);
}

TEST(WrapperSettings, TheLocalDisplaysNameIsTheSetting) {
    Sandbox sandbox;
    EXPECT_EQ(inChild([] { return kor_gl_display_setting() == nullptr ? 0 : 1; }).status, 0);
    sandbox.writeUser("[gl]\ngl-display = :7.1\n");
    EXPECT_EQ(inChild([] { return strcmp(kor_gl_display_setting(), ":7.1"); }).status, 0);
}

TEST(WrapperSettings, OtherKeysAreUnknown) {
    const Sandbox sandbox;
    EXPECT_EQ(inChild([] {
                  return kor_wrapper_setting("verbose") == -1 && kor_wrapper_setting("") == -1 &&
                                 kor_wrapper_setting(nullptr) == -1
                             ? 0
                             : 1;
              }).status,
              0);
}

} // namespace
