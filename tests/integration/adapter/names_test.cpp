#include <gmock/gmock.h> // before the macros of Xlib

#include "fresh_adapter.h"
#include "gl_table.h"

#include <cstdio>
#include <dlfcn.h>
#include <set>
#include <vector>

namespace kor::test {
namespace {

const std::vector<std::string>& libraryNames() {
    static const std::vector<std::string> names = {
#define KOR_SYSTEM(name) #name,
#define KOR_SYSTEM_AS(name, reported) #name,
#define KOR_SYSTEM_OPTIONAL(name) #name,
#include "core/system_functions.def"
#undef KOR_SYSTEM
#undef KOR_SYSTEM_AS
#undef KOR_SYSTEM_OPTIONAL
    };
    return names;
}

/// The functions that stand before the driver's, on purpose.
const std::set<std::string> fixedNames = {"glXSwapBuffers",
                                          "glXMakeCurrent",
                                          "glXMakeContextCurrent",
                                          "glXCreatePbuffer",
                                          "glXCreateGLXPbufferSGIX",
                                          "glXCreatePixmap",
                                          "glXCreateGLXPixmapWithConfigSGIX",
                                          "glXDestroyPbuffer",
                                          "glXDestroyGLXPbufferSGIX",
                                          "glXDestroyPixmap",
                                          "glXDestroyGLXPixmap",
                                          "glXDestroyContext",
                                          "glXCreateNewContext",
                                          "glXCreateContextAttribsARB",
                                          "glXCreateContextWithConfigSGIX",
                                          "glXChooseFBConfig",
                                          "glXChooseFBConfigSGIX",
                                          "glXGetFBConfigs",
                                          "glXGetFBConfigAttrib",
                                          "glXGetFBConfigAttribSGIX",
                                          "glXGetVisualFromFBConfig",
                                          "glXGetVisualFromFBConfigSGIX",
                                          "glXQueryExtension",
                                          "glXQueryVersion",
                                          "glXQueryExtensionsString",
                                          "glXQueryServerString",
                                          "glXGetClientString",
                                          "glGetIntegerv",
                                          "glBeginQuery",
                                          "glEndQuery",
                                          "glGetQueryObjectiv"};

TEST(Names, AreAbsentBeforeTheDriverIsKnown) {
    const FreshAdapter adapter;
    for (const std::string& name : libraryNames())
        EXPECT_EQ(adapter.find(name.c_str()), nullptr) << name;
}

TEST(Names, AreTheOnesThatTheDriverHas) {
    const FreshAdapter adapter;
    void* driver = openLibrary(KOR_OBEDIENT_DRIVER);
    ASSERT_TRUE(adapter.init(driver));
    int present = 0;
    for (const std::string& name : libraryNames()) {
        EXPECT_EQ(adapter.find(name.c_str()) != nullptr, dlsym(driver, name.c_str()) != nullptr)
            << name;
        present += adapter.find(name.c_str()) != nullptr ? 1 : 0;
    }
    EXPECT_GT(present, 10);
    EXPECT_LT(present, 151) << "this driver was to lack some";
}

TEST(Names, AreAllThereWithTheSystemsLibrary) {
    ASSERT_EQ(libraryNames().size(), 151U);
    for (const std::string& name : libraryNames()) {
        void* const drivers = dlsym(systemHandle(), name.c_str());
        void* const ours = dlsym(adapterHandle(), name.c_str());
        ASSERT_TRUE(drivers) << name;
        if (fixedNames.contains(name))
            EXPECT_TRUE(ours && ours != drivers) << name;
        else
            EXPECT_EQ(ours, drivers) << name << " must cost nothing";
    }
}

TEST(Names, NothingElseIsExported) {
    std::set<std::string> exported;
    FILE* nm = popen("nm -D --defined-only " KOR_ADAPTER_PATH, "r");
    ASSERT_TRUE(nm);
    char line[512];
    while (std::fgets(line, sizeof line, nm)) {
        const std::string text(line);
        const std::size_t start = text.rfind(' ') + 1;
        exported.insert(text.substr(start, text.find_last_not_of('\n') + 1 - start));
    }
    ASSERT_EQ(pclose(nm), 0);
    std::set<std::string> reviewed(libraryNames().begin(), libraryNames().end());
    reviewed.insert({"kor_adapter_driver_function", "kor_adapter_init", "kor_adapter_init_vendors",
                     "kor_adapter_local_display"});
    EXPECT_THAT(exported, testing::ContainerEq(reviewed));
}

TEST(Init, RefusesWhatLeadsBackToOurselves) {
    const FreshAdapter adapter;
    EXPECT_FALSE(adapter.init(nullptr));
    EXPECT_FALSE(adapter.init(adapter.handle())) << "the adapter itself";
    EXPECT_FALSE(adapter.init(openLibrary(KOR_FAKE_FRONT))) << "a front, wherever it lies";
    EXPECT_FALSE(adapter.init(adapter.openBeside(KOR_OBEDIENT_DRIVER)))
        << "whatever is installed beside the adapter";
    EXPECT_FALSE(adapter.init(openLibrary("libX11.so.6"))) << "no GL library";
    EXPECT_EQ(adapter.find("glXSwapBuffers"), nullptr);
    EXPECT_TRUE(adapter.init(openLibrary(KOR_OBEDIENT_DRIVER)));
}

TEST(Init, KeepsToItsFirstHandle) {
    const FreshAdapter adapter;
    void* driver = openLibrary(KOR_OBEDIENT_DRIVER);
    ASSERT_TRUE(adapter.init(driver));
    EXPECT_TRUE(adapter.init(driver));
    EXPECT_FALSE(adapter.init(systemHandle()));
    EXPECT_EQ(adapter.find("glClear"), dlsym(driver, "glClear"));
}

} // namespace
} // namespace kor::test
