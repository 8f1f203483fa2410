#include "search.h"

#include "child.h"
#include "environment.h"
#include "front.h"
#include "open_libraries.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <link.h>
#include <unistd.h>

namespace {

using namespace kor::front;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

/// A folder of settings files, removed at the end.
class SettingsFolder {
  public:
    SettingsFolder() {
        char path[] = "/tmp/front-search-XXXXXX";
        EXPECT_NE(mkdtemp(path), nullptr);
        folder_ = path;
    }
    ~SettingsFolder() { std::filesystem::remove_all(folder_); }
    SettingsFolder(const SettingsFolder&) = delete;
    SettingsFolder& operator=(const SettingsFolder&) = delete;

    std::string write(const std::string& name, const std::string& text) const {
        std::ofstream(folder_ + "/" + name) << text;
        return folder_ + "/" + name;
    }

  private:
    std::string folder_;
};

std::vector<std::string> firstCandidates(const SearchPlaces& places, size_t count) {
    std::vector<std::string> candidates = libraryCandidates(places, "libGL.so.1");
    candidates.resize(std::min(candidates.size(), count));
    return candidates;
}

TEST(FrontSearch, TheLibraryPathComesFirst) {
    SearchPlaces places{"/one:/two/;:/one", "/nowhere"};
    EXPECT_THAT(firstCandidates(places, 3),
                ElementsAre("/one/libGL.so.1", "/two/libGL.so.1", "./libGL.so.1"));
    for (const char* none : {static_cast<const char*>(nullptr), ""}) {
        places.libraryPath = none;
        EXPECT_THAT(libraryCandidates(places, "libGL.so.1"), Each(StartsWith("/")));
    }
}

TEST(FrontSearch, TheStandardFoldersComeLastAndOnce) {
    const auto candidates = libraryCandidates({nullptr, "/nowhere"}, "libGL.so.1");
    EXPECT_EQ(candidates.back(), "/usr/lib/libGL.so.1");
#ifdef __x86_64__
    EXPECT_EQ(candidates.front(), "/lib/x86_64-linux-gnu/libGL.so.1");
#endif
    const auto twice = libraryCandidates({"/usr/lib:/usr/lib/", "/nowhere"}, "libGL.so.1");
    EXPECT_EQ(std::count(twice.begin(), twice.end(), "/usr/lib/libGL.so.1"), 1);
}

TEST(FrontSearch, TheLinkersSettingsAreRead) {
    const SettingsFolder folder;
    folder.write("a.part", "/a\n/b /c # not /d\n");
    folder.write("b.part", "\t/e=libc6\r\nrelative\nhwcap 1 /f\n\n#/g");
    const std::string settings = folder.write("main", "/first\ninclude *.part\n/last\n");
    EXPECT_THAT(firstCandidates({nullptr, settings.c_str()}, 6),
                ElementsAre("/first/libGL.so.1", "/a/libGL.so.1", "/b/libGL.so.1", "/c/libGL.so.1",
                            "/e/libGL.so.1", "/last/libGL.so.1"));
    EXPECT_THAT(libraryCandidates({nullptr, settings.c_str()}, "libGL.so.1"),
                Not(Contains(HasSubstr("relative"))));
}

TEST(FrontSearch, SettingsThatIncludeThemselvesComeToAnEnd) {
    const SettingsFolder folder;
    const std::string settings = folder.write("main", "/a\ninclude main\n/b\n");
    EXPECT_THAT(firstCandidates({nullptr, settings.c_str()}, 2),
                ElementsAre("/a/libGL.so.1", "/b/libGL.so.1"));
}

/// The path of an open library.
std::string pathOf(void* handle) {
    link_map* map = nullptr;
    EXPECT_EQ(dlinfo(handle, RTLD_DI_LINKMAP, static_cast<void*>(&map)), 0);
    return map->l_name;
}

TEST(FrontSearch, TheFrontPassesOverItselfAndItsCopies) {
    const ChildResult result = inChild(
        {{"LD_LIBRARY_PATH", stage + "/complete/kor:" + stage + "/bare/kor:" + stage + "/system"}},
        [] {
            const Library front(completeFront);
            EXPECT_EQ(front.says("glVertex3f"), "system:glVertex3f");
            EXPECT_EQ(front.says("glXSwapBuffers"), "kor:glXSwapBuffers");
            EXPECT_EQ(dlopen(bareFront.c_str(), RTLD_NOW | RTLD_NOLOAD), nullptr);
        });
    EXPECT_EQ(result.errors, "");
}

TEST(FrontSearch, NamedAsTheSystemItRefusesItselfAndItsCopies) {
    for (const auto& [path, reason] : {std::pair(completeFront, " is this library itself."),
                                       std::pair(bareFront, " is a copy of this library.")}) {
        const ChildResult result = inChild({{"KOR_FRONT_SYSTEM_GL", path}}, [] {
            EXPECT_EQ(Library(completeFront).says("glVertex3f"), "null");
        });
        EXPECT_EQ(countLines(result.errors), 1U) << result.errors;
        EXPECT_THAT(result.errors, HasSubstr(path + reason));
    }
}

TEST(FrontSearch, ReachedThroughALinkItStillKnowsItself) {
    const SettingsFolder folder;
    const std::string link = folder.write("x", "").substr(0, 24) + "/libGL.so.1";
    std::filesystem::create_symlink(completeFront, link);
    inChild({{"LD_LIBRARY_PATH",
              std::filesystem::path(link).parent_path().string() + ":" + stage + "/system"}},
            [&] {
                const Library front(link);
                EXPECT_EQ(front.says("glVertex3f"), "system:glVertex3f");
                EXPECT_EQ(front.says("glXSwapBuffers"), "kor:glXSwapBuffers");
            });
}

TEST(FrontSearch, TheSystemsLibraryIsFoundWithoutAnyHelp) {
    const ChildResult result = inChild({{"LD_LIBRARY_PATH", stage + "/complete/kor"}}, [] {
        const Library front(completeFront);
        EXPECT_EQ(front.call<unsigned>("glGetError"), 0U); // no context: nothing to complain about
        EXPECT_EQ(front.says("glXSwapBuffers"), "kor:glXSwapBuffers");
        const std::string path = pathOf(Library(fakeAdapter).call<void*>("fake_adapter_system"));
        EXPECT_THAT(path, testing::EndsWith("/libGL.so.1"));
        EXPECT_THAT(path, Not(StartsWith(stage)));
    });
    EXPECT_EQ(result.errors, "");
}

TEST(FrontPrivileges, TheEnvironmentDecidesNothing) {
    inChild({{"KOR_FRONT_SYSTEM_GL", fakeSystem},
             {"LD_LIBRARY_PATH", stage + "/system"},
             {"KOR_FRONT_LIBRARY", fakeKor}},
            [] {
                static Libraries libraries; // as in the front: never given back
                openSystemLibrary(libraries, false);
                ASSERT_NE(libraries.system, nullptr);
                EXPECT_THAT(pathOf(libraries.system), Not(StartsWith(stage)));
                openKorLibrary({"libGL_KOR.so"}, false);
                EXPECT_EQ(dlopen(fakeKor.c_str(), RTLD_NOW | RTLD_NOLOAD), nullptr);
            });
}

TEST(FrontPrivileges, TheSettingsAreTakenOutOfTheEnvironment) {
    inChild({{"KOR_GL_LOG_DIR", "/etc"},
             {"KOR_GL_DISPLAY", ":0"},
             {"KOR_GLX", "stays"},
             {"XKOR_GL_", "stays"}},
            [] {
                removeVariables("KOR_GL_");
                EXPECT_EQ(getenv("KOR_GL_LOG_DIR"), nullptr);
                EXPECT_EQ(getenv("KOR_GL_DISPLAY"), nullptr);
                EXPECT_STREQ(getenv("KOR_GLX"), "stays");
                EXPECT_STREQ(environmentValue("XKOR_GL_"), "stays");
                EXPECT_EQ(environmentValue("KOR_GL_DISPLAY"), nullptr);
            });
}

} // namespace
