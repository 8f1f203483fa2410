#include "launcher_fixture.h"

#include "framework/x_server.h"
#include "raw_client.h"

#include <X11/X.h>
#include <X11/Xauth.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <arpa/inet.h>
#include <fstream>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

/// What the launcher's options lead to, and what it says to wrong ones.

namespace {

using namespace kor::test;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

class LauncherOptions : public LauncherTest {
  protected:
    static std::pair<int, int> screenSize(const Launched& launched) {
        RawClient client(launched.number, ByteOrder::Little, cookieIn(launched.authority));
        const Answer root = client.getWindowInfo(client.root());
        return {root.i32(16), root.i32(20)};
    }
    static bool reachableByTcp(int number) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<uint16_t>(6000 + number));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const int end = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const bool answered =
            connect(end, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
        close(end);
        return answered;
    }
    static int visualsOfDepth32(Display* display) {
        XVisualInfo wanted{};
        wanted.depth = 32;
        int count = 0;
        XVisualInfo* visuals = XGetVisualInfo(display, VisualDepthMask, &wanted, &count);
        if (visuals)
            XFree(visuals);
        return count;
    }
};

TEST_F(LauncherOptions, HelpAndVersion) {
    for (const char* option : {"-help", "--help"}) {
        const CommandResult result = run({option});
        EXPECT_EQ(result.status, 0);
        EXPECT_NE(result.output.find("use: Xkor [:N | -displayfd FD]"), std::string::npos);
        EXPECT_EQ(result.errors, "");
    }
    for (const char* option : {"-version", "--version"}) {
        const CommandResult result = run({option});
        EXPECT_EQ(result.status, 0);
        EXPECT_TRUE(result.output.starts_with("Xkor ")) << result.output;
        EXPECT_EQ(result.errors, "");
    }
}

TEST_F(LauncherOptions, WrongGeometry) {
    for (const char* geometry :
         {"",         "x",           "800",      "800x",     "x600",      "0x0",
          "63x64",    "64x63",       "7681x100", "100x4321", "800x600x3", "-800x600",
          "800x-600", "1e3x400",     " 800x600", "800x600 ", "+800x600",  "99999999999x100",
          "800X600",  "800x600+0+0", "800*600"}) {
        SCOPED_TRACE(geometry);
        const CommandResult result = run({"-geometry", geometry});
        EXPECT_EQ(result.status, 2);
        expectOneLine(result, "geometry");
    }
}

TEST_F(LauncherOptions, WrongDisplay) {
    for (const char* display : {":", ":x", ":-1", ":1.0", ":59536", ":99999999999", ": 1"}) {
        SCOPED_TRACE(display);
        const CommandResult result = run({display});
        EXPECT_EQ(result.status, 2);
        expectOneLine(result, "is no display");
    }
    const CommandResult two = run({":4001", ":4002"});
    EXPECT_EQ(two.status, 2);
    expectOneLine(two, "two displays given, :4001 and :4002");
}

TEST_F(LauncherOptions, WrongDisplayFd) {
    for (const char* file : {"x", "-1", "55", "0", ""}) { // 0 is open, but only for reading
        SCOPED_TRACE(file);
        const CommandResult result = run({"-displayfd", file});
        EXPECT_EQ(result.status, 2);
        expectOneLine(result, "-displayfd");
    }
}

TEST_F(LauncherOptions, WrongGLDisplay) {
    for (const std::string& name :
         {std::string(), std::string("a\"b:0"), std::string("a\nb:0"), std::string(256, 'x')}) {
        const CommandResult result = run({"-gldisplay", name});
        EXPECT_EQ(result.status, 2);
        expectOneLine(result, "-gldisplay");
    }
}

TEST_F(LauncherOptions, MissingValues) {
    for (const char* option : {"-geometry", "-gldisplay", "-displayfd", "-auth", "-modulepath"}) {
        const CommandResult result = run({option});
        EXPECT_EQ(result.status, 2);
        expectOneLine(result, std::string(option) + " wants ");
    }
}

TEST_F(LauncherOptions, ConfigurationIsOurs) {
    for (const char* option : {"-config", "-xf86config"}) {
        const CommandResult result = run({option, "/etc/passwd"});
        EXPECT_EQ(result.status, 2);
        expectOneLine(result, "-configdir");
    }
}

TEST_F(LauncherOptions, UnknownOptionIsTheServersToRefuse) {
    const CommandResult result = run({":" + std::to_string(unusedNumber()), "-nosuchoption"});
    EXPECT_EQ(result.status, 1);
    expectOneLine(result, "the server did not start: Unrecognized option: -nosuchoption\n");
    const Launched failed = launch({"-nosuchoption"});
    EXPECT_EQ(failed.number, -1);
    EXPECT_EQ(failed.launcher->wait(15s), 1);
    EXPECT_EQ(remains(failed), "");
}

/// The dummy driver has no such depth: the server gives up after it has begun a log.
TEST_F(LauncherOptions, FailureNamesTheLog) {
    const int number = unusedNumber();
    const CommandResult result = run({":" + std::to_string(number), "-depth", "17"});
    EXPECT_EQ(result.status, 1);
    const fs::path log = state / "kor" / ("Xkor." + std::to_string(number) + ".log");
    expectOneLine(result, "the server did not start: no screens found (log: " + log.string() + ")");
    EXPECT_TRUE(fs::exists(log));

    const Launched failed = launch({"-depth", "17"});
    EXPECT_EQ(failed.number, -1);
    EXPECT_EQ(failed.launcher->wait(15s), 1);
    const std::string said = failed.launcher->errors();
    const size_t at = said.find("(log: ");
    ASSERT_NE(at, std::string::npos) << said;
    EXPECT_TRUE(fs::exists(said.substr(at + 6, said.find(')', at) - at - 6))) << said;
    EXPECT_EQ(remains(failed), "");
}

TEST_F(LauncherOptions, MissingParts) {
    Command missingServer = command({});
    missingServer.environment["KOR_XORG"] = "/no/such/Xorg";
    CommandResult result = runCommand(missingServer);
    EXPECT_EQ(result.status, 1);
    expectOneLine(result, "/no/such/Xorg");

    result = run({"-modulepath", runtime});
    EXPECT_EQ(result.status, 1);
    expectOneLine(result, "xserver-xorg-video-dummy");

    // A launcher that was copied without its module.
    fs::create_directory(folder / "bin");
    fs::copy(buildProgram("Xkor"), folder / "bin/Xkor");
    fs::create_directories(folder / "modules/drivers");
    fs::create_symlink("/usr/lib/xorg/modules/drivers/dummy_drv.so",
                       folder / "modules/drivers/dummy_drv.so");
    Command alone = command({"-modulepath", folder / "modules"});
    alone.arguments[0] = folder / "bin/Xkor";
    result = runCommand(alone);
    EXPECT_EQ(result.status, 1);
    expectOneLine(result, "libkor.so");
}

TEST_F(LauncherOptions, UnusableAuthorityFile) {
    CommandResult result = run({"-auth", "/no/such/file"});
    EXPECT_EQ(result.status, 1);
    expectOneLine(result, "the authority file /no/such/file cannot be read: No such file");
    std::ofstream(folder / "empty").close();
    result = run({"-auth", folder / "empty"});
    EXPECT_EQ(result.status, 1);
    expectOneLine(result, "holds no entry");
    std::ofstream(folder / "noise") << std::string(1000, '\xff');
    result = run({"-auth", folder / "noise"});
    EXPECT_EQ(result.status, 1);
    expectOneLine(result, "holds no entry");
}

TEST_F(LauncherOptions, ScreenSizes) {
    for (const auto& [width, height] : std::vector<std::pair<int, int>>{
             {64, 64}, {1001, 701}, {320, 4320}, {1024, 768}, {7680, 4320}}) {
        const std::string text = std::to_string(width) + "x" + std::to_string(height);
        SCOPED_TRACE(text);
        const Launched launched = launch({"-geometry", text});
        ASSERT_GE(launched.number, 0) << launched.launcher->errors();
        EXPECT_EQ(screenSize(launched), std::make_pair(width, height));
    }
    const Launched usual = launch();
    EXPECT_EQ(screenSize(usual), std::make_pair(1920, 1080));
}

/// RRSetScreenSize, up to the stated maximum and no further.
TEST_F(LauncherOptions, ScreenSizeChangesWhileItRuns) {
    XServer server(XServer::Options{.width = 800, .height = 600});
    RawClient client(server.number(), ByteOrder::Little);
    const uint8_t randr = client.majorOpcode("RANDR");
    ASSERT_NE(randr, 0);
    auto resize = [&](int width, int height) {
        RequestBuilder request(ByteOrder::Little);
        request.u8(randr).u8(7).u16(5).u32(client.root());
        request.u16(static_cast<uint16_t>(width)).u16(static_cast<uint16_t>(height));
        client.send(request.u32(300).u32(200).bytes());
    };
    auto expectSize = [&](uint32_t width, uint32_t height) {
        const Answer root = client.getWindowInfo(client.root());
        ASSERT_TRUE(root.isReply());
        EXPECT_EQ(root.u32(16), width);
        EXPECT_EQ(root.u32(20), height);
    };
    resize(7680, 4320);
    expectSize(7680, 4320);
    resize(1000, 700);
    expectSize(1000, 700);
    resize(7680, 4500);
    EXPECT_TRUE(client.receive().isError()) << "the screen's memory ends here";
    expectSize(1000, 700);
}

TEST_F(LauncherOptions, CompositeOnlyWhenAskedFor) {
    for (const bool wanted : {false, true}) {
        XServer::Options options;
        if (wanted)
            options.arguments = {"+extension", "Composite"};
        XServer server(options);
        Display* display = XOpenDisplay(server.name().c_str());
        ASSERT_NE(display, nullptr);
        int opcode = 0;
        int event = 0;
        int error = 0;
        EXPECT_EQ(XQueryExtension(display, "Composite", &opcode, &event, &error), wanted);
        EXPECT_EQ(visualsOfDepth32(display) > 0, wanted);
        for (const char* needed : {"KOR-V1", "GLX", "MIT-SHM", "RANDR"})
            EXPECT_TRUE(XQueryExtension(display, needed, &opcode, &event, &error)) << needed;
        XCloseDisplay(display);
    }
}

TEST_F(LauncherOptions, DepthIsPassedOn) {
    for (const int depth : {16, 24}) {
        XServer server(XServer::Options{
            .width = 700, .height = 500, .arguments = {"-depth", std::to_string(depth)}});
        Display* display = XOpenDisplay(server.name().c_str());
        ASSERT_NE(display, nullptr);
        EXPECT_EQ(DefaultDepth(display, 0), depth);
        EXPECT_EQ(DisplayWidth(display, 0), 700);
        XCloseDisplay(display);
    }
}

TEST_F(LauncherOptions, NoTcpListenerUnlessAskedFor) {
    for (const bool wanted : {false, true}) {
        const int number = unusedNumber();
        std::vector<std::string> arguments{":" + std::to_string(number)};
        if (wanted)
            arguments.insert(arguments.end(), {"-listen", "tcp"});
        const Launched launched = launch(arguments);
        ASSERT_EQ(launched.number, number) << launched.launcher->errors();
        EXPECT_EQ(reachableByTcp(number), wanted);
    }
}

TEST_F(LauncherOptions, OwnAuthorityFile) {
    const Launched launched = launch();
    ASSERT_GE(launched.number, 0) << launched.launcher->errors();
    EXPECT_NE(launched.launcher->errors().find("export DISPLAY=" + launched.name() +
                                               " XAUTHORITY=" + runtime.string() + "/"),
              std::string::npos)
        << launched.launcher->errors();
    struct stat status {};
    ASSERT_EQ(stat(launched.authority.c_str(), &status), 0) << launched.authority;
    EXPECT_EQ(status.st_mode & 07777, 0600u);
    EXPECT_TRUE(admits(launched.number, launched.authority));
    EXPECT_FALSE(admits(launched.number, ""));

    FILE* file = fopen(launched.authority.c_str(), "re");
    ASSERT_NE(file, nullptr);
    Xauth* entry = XauReadAuth(file);
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(std::string(entry->number, entry->number_length), std::to_string(launched.number))
        << "the cookie is shown to no other display";
    EXPECT_EQ(entry->data_length, 16);
    XauDisposeAuth(entry);
    EXPECT_EQ(XauReadAuth(file), nullptr);
    fclose(file);

    const Launched other = launch();
    EXPECT_FALSE(admits(other.number, launched.authority)) << "each server has its own cookie";
}

TEST_F(LauncherOptions, GivenAuthorityFileStays) {
    const Launched launched = launch({"-auth", XServer::authorityFile()});
    ASSERT_GE(launched.number, 0);
    EXPECT_EQ(launched.launcher->errors(), "");
    EXPECT_TRUE(admits(launched.number, XServer::authorityFile()));
    EXPECT_FALSE(admits(launched.number, ""));
    launched.launcher->stop();
    EXPECT_TRUE(fs::exists(XServer::authorityFile()));
}

TEST_F(LauncherOptions, LogsDoNotPileUp) {
    for (int i = 0; i < 3; ++i) {
        const Launched launched = launch();
        ASSERT_GE(launched.number, 0);
        EXPECT_TRUE(
            fs::exists(state / "kor" / ("Xkor." + std::to_string(launched.number) + ".log")));
        EXPECT_EQ(launched.launcher->stop(), 0);
        EXPECT_EQ(remains(launched), "");
    }
    const int number = unusedNumber();
    for (int i = 0; i < 3; ++i) {
        const Launched launched = launch({":" + std::to_string(number)});
        ASSERT_EQ(launched.number, number);
        launched.launcher->stop();
    }
    int logs = 0;
    for (const auto& entry : fs::directory_iterator(state / "kor"))
        logs += entry.path().filename().string().find(std::to_string(number)) != std::string::npos;
    EXPECT_EQ(logs, 2) << "the last one and the one before";
}

TEST_F(LauncherOptions, LogFolderThatCannotBeMade) {
    Command homeless = command({});
    homeless.environment["XDG_STATE_HOME"] = "/proc/none";
    homeless.environment["HOME"] = "/proc/none";
    const Launched launched = launch(homeless);
    ASSERT_GE(launched.number, 0) << launched.launcher->errors();
    const fs::path log = "/tmp/kor-" + std::to_string(geteuid()) + "/Xkor." +
                         std::to_string(launched.number) + ".log";
    EXPECT_TRUE(fs::exists(log));
    launched.launcher->stop();
    fs::remove(log);
    fs::remove(log.string() + ".old");
    std::error_code notEmpty;
    fs::remove(log.parent_path(), notEmpty);
}

TEST_F(LauncherOptions, LogFolderWithAnOddName) {
    Command odd = command({});
    odd.environment["XDG_STATE_HOME"] = folder / "a%s b%n%d";
    const Launched launched = launch(odd);
    ASSERT_GE(launched.number, 0) << launched.launcher->errors();
    EXPECT_TRUE(fs::exists(folder / "a%s b%n%d/kor" /
                           ("Xkor." + std::to_string(launched.number) + ".log")));
}

} // namespace
