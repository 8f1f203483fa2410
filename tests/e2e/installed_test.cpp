// Installed where the dynamic linker looks, and nothing else: programs are started with an empty
// environment but for DISPLAY, XAUTHORITY and PATH, on an Xkor that knows its local display.
#include <gtest/gtest.h> // before the X headers, whose macros have names of its types

#include "framework/x_server.h"
#include "gears.h"
#include "session.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>

namespace kor::e2e {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

/// The installation lies in a scratch prefix. The linker comes to know of it by a list of folders
/// (a linker's cache) that the programs see in the place of the machine's, in a mount namespace of
/// their own; an ordinary user may have one where the kernel lets users have namespaces.
class Installed : public testing::Test {
  protected:
    static void SetUpTestSuite() {
        char path[] = "/tmp/kor-installed-XXXXXX";
        ASSERT_NE(mkdtemp(path), nullptr);
        folder = path;
        expectDone({KOR_CMAKE, "--install", KOR_BUILD_DIR, "--prefix", folder / "prefix"});
        std::ofstream(folder / "ld.so.conf")
            << (folder / "prefix" / KOR_INSTALL_LIBDIR).string() << "\ninclude /etc/ld.so.conf\n";
        expectDone(
            {"/sbin/ldconfig", "-X", "-C", folder / "ld.so.cache", "-f", folder / "ld.so.conf"});
        fs::create_directories(folder / "work");
        fs::create_directories(folder / "log");
        // The log is switched on by a file in the working folder.
        std::ofstream(folder / "work" / "kor-gl.conf.admin")
            << "[log]\nlevel=debug\ndirectory=" << (folder / "log").string() << "\n";
    }
    static void TearDownTestSuite() { fs::remove_all(folder); }

    void SetUp() override {
        test::Command trial;
        trial.arguments = {"unshare", "-rm", "true"};
        const test::CommandResult result = test::runCommand(trial);
        if (result.status != 0)
            GTEST_SKIP()
                << "this user may not have a mount namespace, so the linker cannot be told "
                   "of a scratch installation: "
                << result.errors;
        test::XServer::Options options;
        options.kind = test::XServer::Kind::Xvfb;
        local = std::make_unique<test::XServer>(options);
        options.kind = test::XServer::Kind::Xkor;
        options.glDisplay = local->name();
        application = std::make_unique<test::XServer>(options);
        for (const auto& entry : fs::directory_iterator(folder / "log"))
            fs::remove(entry.path());
    }

    static void expectDone(const std::vector<std::string>& arguments) {
        test::Command command;
        command.arguments = arguments;
        const test::CommandResult result = test::runCommand(command, 60s);
        ASSERT_EQ(result.status, 0) << arguments.front() << summary(result);
    }

    /// The program as a user on the display would start it.
    [[nodiscard]] test::Command program(const std::vector<std::string>& arguments) const {
        test::Command command;
        command.folder = folder / "work";
        command.arguments = {"unshare",
                             "-rm",
                             "sh",
                             "-c",
                             "mount --bind \"$1\" /etc/ld.so.cache && shift && exec env -i \"$@\"",
                             "sh",
                             folder / "ld.so.cache",
                             "DISPLAY=" + application->name(),
                             "XAUTHORITY=" + test::XServer::authorityFile(),
                             std::string("PATH=") + getenv("PATH")};
        command.arguments.insert(command.arguments.end(), arguments.begin(), arguments.end());
        return command;
    }

    /// What the library logged. Nothing of ours ran when it is empty.
    [[nodiscard]] static std::string log() {
        std::string text;
        for (const auto& entry : fs::directory_iterator(folder / "log")) {
            std::ifstream file(entry.path());
            text.append(std::istreambuf_iterator<char>(file), {});
        }
        return text;
    }
    void expectRenderedByTheLocalDisplay() const {
        const std::string text = log();
        EXPECT_NE(text.find("opened local display " + local->name() + " mapped"), std::string::npos)
            << text.substr(0, 4000);
    }

    static inline fs::path folder;
    std::unique_ptr<test::XServer> local;
    std::unique_ptr<test::XServer> application;
};

TEST_F(Installed, Glxinfo) {
    const test::CommandResult result = test::runCommand(program({"glxinfo"}), 60s);
    EXPECT_EQ(result.status, 0) << summary(result);
    for (const char* const line :
         {"direct rendering: Yes", "OpenGL renderer string: ", "GLX_TESSERA_kor", "TESSERA s.r.l."})
        EXPECT_NE(result.output.find(line), std::string::npos) << line << summary(result);
    expectRenderedByTheLocalDisplay();
}

TEST_F(Installed, Glxgears) {
    expectTurningGears(application->name(), program({"glxgears", "-geometry", "300x300+20+30"}));
    expectRenderedByTheLocalDisplay();
    EXPECT_NE(log().find("XPutting image"), std::string::npos) << "no frame was painted";
}

TEST_F(Installed, CoreProfile) {
    const test::CommandResult result =
        test::runCommand(program({KOR_CLIENT_BIN_DIR "/profile_client", "core"}), 60s);
    EXPECT_EQ(result.status, 0) << summary(result);
    EXPECT_NE(result.output.find("passed"), std::string::npos) << summary(result);
    expectRenderedByTheLocalDisplay();
    EXPECT_NE(log().find("XPutting image"), std::string::npos) << "no frame was painted";
}

TEST_F(Installed, TheNextVendorServesWhereWeAreNotInstalled) {
    test::Command command = program({"glxinfo"});
    // The machine's own list of folders.
    for (std::string& argument : command.arguments)
        if (argument == folder / "ld.so.cache")
            argument = "/etc/ld.so.cache";
    const test::CommandResult result = test::runCommand(command, 60s);
    EXPECT_EQ(result.status, 0) << summary(result);
    EXPECT_NE(result.output.find("OpenGL renderer string: "), std::string::npos) << summary(result);
    EXPECT_EQ(result.output.find("TESSERA"), std::string::npos) << summary(result);
    EXPECT_EQ(log(), "");
}

} // namespace
} // namespace kor::e2e
