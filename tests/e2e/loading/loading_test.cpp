// Every way in which a program reaches GL, by way of each front that can serve it: the picture is
// in the window, and it came through our library.
#include <gtest/gtest.h> // before the X headers, whose macros have names of its types

#include "session.h"

#include <algorithm>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace kor::e2e {
namespace {

struct Loading {
    std::string name;
    std::vector<std::string> command;
    bool classic; // whether the classic front can serve it: it is libGL.so.1 and nothing else
};

std::vector<Loading> loadings() {
    std::vector<Loading> all = {
        {"LinkedWithGL", {"linked_gl_client"}, true},
        {"LinkedWithGLXAndOpenGL", {"linked_glvnd_client"}, false},
        {"SecondThreadFirst", {"linked_gl_client", "thread"}, true},
        {"SecondThreadFirstGLX", {"linked_glvnd_client", "thread"}, false},
        {"PlugIn", {"dlopen_client", "plugin", KOR_LOADING_PLUGIN}, true},
    };
    for (const std::string mode : {"local", "global", "deepbind"}) {
        std::string name = mode;
        name[0] = static_cast<char>(name[0] - 'a' + 'A');
        all.push_back(
            {"Dlopen" + name + "GL", {"dlopen_client", mode, "symbols", "libGL.so.1"}, true});
        all.push_back({"Dlopen" + name + "GLXAndOpenGL",
                       {"dlopen_client", mode, "symbols", "libGLX.so.0", "libOpenGL.so.0"},
                       false});
        all.push_back({"Procedures" + name + "GL",
                       {"dlopen_client", mode, "procedures", "libGL.so.1"},
                       true});
        all.push_back({"Procedures" + name + "GLX",
                       {"dlopen_client", mode, "procedures", "libGLX.so.0"},
                       false});
    }
    return all;
}

std::vector<Loading> classicLoadings() {
    std::vector<Loading> all = loadings();
    std::erase_if(all, [](const Loading& loading) { return !loading.classic; });
    return all;
}

test::Command program(const Session& session, const std::vector<std::string>& command) {
    test::Command result = session.command(command);
    result.arguments.front() = std::string(KOR_LOADING_BIN_DIR "/") + command.front();
    return result;
}

void expectPassed(const test::CommandResult& result) {
    EXPECT_TRUE(usedLibrary(result)) << summary(result);
    EXPECT_EQ(result.status, 0) << summary(result);
    EXPECT_NE(result.output.find("passed"), std::string::npos) << summary(result);
}

constexpr std::chrono::seconds kTime(60);

class VendorLoading : public testing::TestWithParam<Loading> {};
class ClassicLoading : public testing::TestWithParam<Loading> {};
class BothLoading : public testing::TestWithParam<Loading> {};

TEST_P(VendorLoading, ShowsThePicture) {
    const Session session(Road::Vendor);
    expectPassed(runCommand(program(session, GetParam().command), kTime));
}

TEST_P(ClassicLoading, ShowsThePicture) {
    const Session session(Road::Library);
    expectPassed(runCommand(program(session, GetParam().command), kTime));
}

// What goes past the classic front is served by the vendor front.
TEST_P(BothLoading, ShowsThePicture) {
    const Session session(Road::Both);
    expectPassed(runCommand(program(session, GetParam().command), kTime));
}

/// A group of this process's user that is not its first; that one where there is no other.
gid_t otherGroup() {
    if (geteuid() == 0)
        return 65534;
    std::vector<gid_t> groups(256);
    const int count = getgroups(static_cast<int>(groups.size()), groups.data());
    for (int i = 0; i < count; ++i)
        if (groups[static_cast<size_t>(i)] != getegid())
            return groups[static_cast<size_t>(i)];
    return getegid();
}

// Both fronts in one process, each once the first: only one of them may come to the library, and
// what goes to the other is drawn all the same.
TEST(Meeting, TheVendorFrontFirst) {
    const Session session(Road::Both);
    expectPassed(runCommand(
        program(session, {"dlopen_client", "meet", "libGLX.so.0", "libGL.so.1"}), kTime));
}

TEST(Meeting, TheClassicFrontFirst) {
    const Session session(Road::Both);
    expectPassed(runCommand(
        program(session, {"dlopen_client", "meet", "libGL.so.1", "libGLX.so.0"}), kTime));
}

std::string loadingName(const testing::TestParamInfo<Loading>& info) {
    return info.param.name;
}

INSTANTIATE_TEST_SUITE_P(Ways, VendorLoading, testing::ValuesIn(loadings()), loadingName);
INSTANTIATE_TEST_SUITE_P(Ways, ClassicLoading, testing::ValuesIn(classicLoadings()), loadingName);
INSTANTIATE_TEST_SUITE_P(Ways, BothLoading, testing::ValuesIn(loadings()), loadingName);

/// The fronts in processes that do more than draw.
class Lifetime : public testing::TestWithParam<Road> {
  protected:
    void expectAllIsWell(const std::vector<std::string>& command) const {
        const Session session(GetParam());
        expectPassed(runCommand(program(session, command), kTime));
    }
    // Nothing of ours is to be started by it.
    void expectNothingHappens(const std::vector<std::string>& command) const {
        const Session session(GetParam());
        const test::CommandResult result = runCommand(program(session, command), kTime);
        EXPECT_EQ(result.status, 0) << summary(result);
        EXPECT_FALSE(usedLibrary(result)) << summary(result);
    }
};

TEST_P(Lifetime, ClosedAndOpenedAThousandTimes) {
    expectAllIsWell({"process_client", "cycles", "libGL.so.1"});
}

TEST_P(Lifetime, ClosedUnusedAThousandTimes) {
    expectNothingHappens({"process_client", "unused", "libGL.so.1"});
}

TEST_P(Lifetime, ForksBeforeItsFirstCall) {
    expectAllIsWell({"process_client", "fork-before", "libGL.so.1"});
}

TEST_P(Lifetime, ForksBetweenFrames) {
    expectAllIsWell({"process_client", "fork-after", "libGL.so.1"});
}

TEST_P(Lifetime, TheApplicationHasFunctionsOfTheSameNames) {
    expectAllIsWell({"collisions_client"});
}

INSTANTIATE_TEST_SUITE_P(Fronts, Lifetime, testing::Values(Road::Library, Road::Vendor),
                         [](const auto& road) {
                             return road.param == Road::Library ? "Classic" : "Vendor";
                         });

TEST(Idle, WhoOnlyAsksForGlxPaysNothing) {
    const Session session(Road::Vendor);
    const test::CommandResult result =
        runCommand(program(session, {"process_client", "idle", "libGL.so.1"}), kTime);
    EXPECT_EQ(result.status, 0) << summary(result);
    EXPECT_FALSE(usedLibrary(result)) << summary(result);
}

/// Two displays whose drivers are two vendors': "kortest" says what it is asked.
class TwoVendors : public testing::Test {
  protected:
    test::CommandResult run(const std::string& variable, const std::string& vendor) const {
        test::Command command = program(session, {"linked_gl_client"});
        command.environment[variable] = vendor;
        command.environment["LD_LIBRARY_PATH"] =
            *command.environment["LD_LIBRARY_PATH"] + ":" KOR_LOADING_VENDORS;
        return runCommand(command, kTime);
    }
    static bool wasAsked(const test::CommandResult& result, const std::string& function,
                         const std::string& display) {
        return result.errors.find("other vendor: " + function + " " + display + "\n") !=
               std::string::npos;
    }
    Session session{Road::Vendor};
};

TEST_F(TwoVendors, TheApplicationsDisplayHasItsOwn) {
    const test::CommandResult result = run("KOR_FRONT_APP_VENDOR", "kortest");
    expectPassed(result);
    EXPECT_TRUE(wasAsked(result, "glXGetConfig", session.display()));
    EXPECT_TRUE(wasAsked(result, "glXChooseFBConfig", session.display()));
    for (const char* const function :
         {"glXGetConfig", "glXChooseFBConfig", "glXGetFBConfigAttrib", "glXCreatePbuffer"})
        EXPECT_FALSE(wasAsked(result, function, session.local())) << function;
}

TEST_F(TwoVendors, TheLocalDisplayHasItsOwn) {
    const test::CommandResult result = run("KOR_FRONT_LOCAL_VENDOR", "kortest");
    expectPassed(result);
    EXPECT_TRUE(wasAsked(result, "glXChooseFBConfig", session.local()));
    EXPECT_TRUE(wasAsked(result, "glXCreatePbuffer", session.local()));
    for (const char* const function :
         {"glXGetConfig", "glXChooseFBConfig", "glXGetFBConfigAttrib", "glXCreatePbuffer"})
        EXPECT_FALSE(wasAsked(result, function, session.display())) << function;
}

TEST_F(TwoVendors, OneThatIsNotThereServesNothing) {
    const test::CommandResult result = run("KOR_FRONT_LOCAL_VENDOR", "nobody");
    EXPECT_EQ(result.status, 1) << summary(result); // the client's own complaint
    EXPECT_NE(result.errors.find("no visual"), std::string::npos) << summary(result);
    EXPECT_NE(result.errors.find("KOR-GL: no vendor's GL library is to be had"), std::string::npos)
        << summary(result);
}

/// Sessions of korrun's own, with each front.
test::CommandResult korrun(const std::string& front, const std::string& client) {
    test::Command command;
    command.arguments = {KOR_KORRUN, "--session", "--front=" + front,
                         "sh",       "-c",        "exec " KOR_LOADING_BIN_DIR "/" + client};
    return runCommand(command, kTime);
}

void expectFront(const test::CommandResult& result, const std::string& front) {
    EXPECT_EQ(result.status, 0) << summary(result);
    EXPECT_NE(result.output.find("library: yes, front: " + front), std::string::npos)
        << summary(result);
}

TEST(KorrunFronts, EachIsGivenWhenAskedFor) {
    expectFront(korrun("glvnd", "linked_gl_client secure"), "vendor");
    expectFront(korrun("classic", "linked_gl_client secure"), "classic");
    expectFront(korrun("auto", "linked_gl_client secure"), "vendor");
}

TEST(KorrunFronts, AnOrdinaryDisplayWorksUnderTheVendorFrontOnly) {
    test::XServer::Options options;
    options.kind = test::XServer::Kind::Xvfb;
    const test::XServer other(options);
    // The session's authority file has the user's own entries in it, the other display's too.
    test::XServer::authorityFile();
    const test::CommandResult vendor =
        korrun("glvnd", "two_displays_client \"$DISPLAY\" " + other.name());
    EXPECT_EQ(vendor.status, 0) << summary(vendor);
    const test::CommandResult classic =
        korrun("classic", "two_displays_client " + other.name() + " \"$DISPLAY\"");
    EXPECT_EQ(classic.status, 20) << summary(classic);
    EXPECT_NE(classic.errors.find("You should install Xkor to use KOR"), std::string::npos)
        << summary(classic);
}

/// A program that runs with the rights of a group which its user lacks. What its environment says
/// must neither decide what is loaded nor where it writes.
TEST(RaisedPrivileges, TheEnvironmentDecidesNothing) {
    namespace fs = std::filesystem;
    const gid_t group = otherGroup();
    if (group == getegid())
        GTEST_SKIP() << "this user has no second group to make a set-group-id program of";
    char path[] = "/tmp/kor-secure-XXXXXX";
    ASSERT_NE(mkdtemp(path), nullptr);
    const fs::path folder = path;
    const fs::path client = folder / "client";
    fs::copy_file(KOR_LOADING_BIN_DIR "/secure_client", client);
    ASSERT_EQ(chown(client.c_str(), static_cast<uid_t>(-1), group), 0);
    ASSERT_EQ(chmod(client.c_str(), 02755), 0);
    ASSERT_EQ(chmod(path, 0755), 0);

    test::XServer::Options options;
    options.kind = test::XServer::Kind::Xvfb;
    const test::XServer local(options);
    options.kind = test::XServer::Kind::Xkor;
    options.glDisplay = local.name();
    const test::XServer application(options);

    test::Command command;
    command.arguments = {client, "secure"};
    command.environment = {{"DISPLAY", application.name()},
                           {"KOR_GL_DISPLAY", ":65000"},
                           {"KOR_GL_LOG_DIR", folder},
                           {"KOR_GL_LOG_LEVEL", "debug"},
                           {"KOR_FRONT_LIBRARY", "/nowhere/libGL_KOR.so"},
                           {"KOR_FRONT_LOCAL_VENDOR", "nobody"},
                           {"KOR_FRONT_APP_VENDOR", "nobody"}};
    const test::CommandResult result = runCommand(command, kTime);
    EXPECT_EQ(result.status, 0) << summary(result);
    EXPECT_NE(result.output.find("raised privileges: yes, library: yes"), std::string::npos)
        << summary(result);
    const auto entries = std::distance(fs::directory_iterator(folder), fs::directory_iterator());
    EXPECT_EQ(entries, 1) << "there is a log";
    fs::remove_all(folder);
}

/// A second display beside the session's, as any X server is.
class TwoDisplays : public testing::Test {
  protected:
    static test::XServer::Options ordinary() {
        test::XServer::Options options;
        options.kind = test::XServer::Kind::Xvfb;
        return options;
    }
    test::CommandResult run(const Session& session, std::vector<std::string> command) const {
        std::replace(command.begin(), command.end(), std::string("KOR"), session.display());
        std::replace(command.begin(), command.end(), std::string("OTHER"), other.name());
        return runCommand(program(session, command), kTime);
    }
    test::XServer other{ordinary()};
};

TEST_F(TwoDisplays, OursFirst) {
    const Session session(Road::Vendor);
    expectPassed(run(session, {"two_displays_client", "KOR", "OTHER"}));
}

TEST_F(TwoDisplays, TheOrdinaryOneFirst) {
    const Session session(Road::Vendor);
    expectPassed(run(session, {"two_displays_client", "OTHER", "KOR"}));
}

TEST_F(TwoDisplays, WithExtensionsOursFirst) {
    const Session session(Road::Vendor);
    expectPassed(run(session, {"two_displays_client", "extensions", "KOR", "OTHER"}));
}

TEST_F(TwoDisplays, WithExtensionsTheOrdinaryOneFirst) {
    const Session session(Road::Vendor);
    expectPassed(run(session, {"two_displays_client", "extensions", "OTHER", "KOR"}));
}

TEST_F(TwoDisplays, TheOrdinaryOneAloneIsNoneOfOurs) {
    const Session session(Road::Vendor);
    test::Command command = program(session, {"linked_gl_client"});
    command.environment["DISPLAY"] = other.name();
    const test::CommandResult result = runCommand(command, kTime);
    EXPECT_EQ(result.status, 0) << summary(result);
    EXPECT_FALSE(usedLibrary(result)) << summary(result);
}

TEST_F(TwoDisplays, TheClassicFrontEndsTheProcess) {
    const Session session(Road::Library);
    const test::CommandResult result = run(session, {"two_displays_client", "OTHER", "KOR"});
    EXPECT_EQ(result.status, 20) << summary(result);
    EXPECT_NE(result.errors.find("You should install Xkor to use KOR"), std::string::npos)
        << summary(result);
}

} // namespace
} // namespace kor::e2e
