// Settings files and log files in whose place another user has put something, or that are no files:
// they are named and left alone, and nothing waits for them.
#include "config/settings_lookup.h"
#include "support/log.h"

#include "in_child.h"
#include "sandbox.h"

#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

using kor::test::ChildResult;
using kor::test::inChild;
using kor::test::Sandbox;
using testing::EndsWith;
using testing::StartsWith;

namespace {

constexpr uid_t otherUser = 1234;
constexpr uid_t thirdUser = 4321;
constexpr const char* obeyed = "[gl]\nkey = 7\n";

int failed(const char* what) {
    perror(what);
    return 99;
}

/// What stands in a file's place.
struct StandIn {
    const char* name;
    /// Puts it there; the text is what a file would hold. To be called in a child process.
    void (*put)(const std::string& path, const char* text);
    const char* refusal;
};

void write(const std::string& path, const char* text) {
    std::ofstream(path, std::ios::binary) << text;
}

void putLink(const std::string& path, const char* text) {
    write(path + ".target", text);
    std::filesystem::create_symlink(path + ".target", path);
}

void putLinkToDevice(const std::string& path, const char* /*text*/) {
    std::filesystem::create_symlink("/dev/zero", path);
}

void putDirectory(const std::string& path, const char* /*text*/) {
    std::filesystem::create_directory(path);
}

void putFifo(const std::string& path, const char* /*text*/) {
    if (mkfifo(path.c_str(), 0600) != 0)
        _exit(failed("mkfifo"));
}

/// One that another process would read from and write to.
void putOpenFifo(const std::string& path, const char* text) {
    putFifo(path, text);
    if (open(path.c_str(), O_RDWR | O_NONBLOCK) < 0)
        _exit(failed("open"));
}

void putSocket(const std::string& path, const char* /*text*/) {
    // By a short name, since a socket's has little room.
    std::filesystem::current_path(std::filesystem::path(path).parent_path());
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path, sizeof address.sun_path, "%s",
             std::filesystem::path(path).filename().c_str());
    const int end = socket(AF_UNIX, SOCK_STREAM, 0);
    if (bind(end, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        _exit(failed("bind"));
}

void putDevice(const std::string& path, const char* /*text*/) {
    write(path, "");
    kor::test::standIn = {path, "/dev/zero"};
}

void putStrangersFile(const std::string& path, const char* text) {
    write(path, text);
    if (geteuid() != 0)
        kor::test::effectiveUser = geteuid() + 1; // the file's owner is another one then
    else if (chown(path.c_str(), otherUser, otherUser) != 0)
        _exit(failed("chown"));
}

/// The file belongs to one user, the process to another, and neither is root.
void putStrangersFileBeforeAThird(const std::string& path, const char* text) {
    putStrangersFile(path, text);
    if (geteuid() != 0)
        return;
    std::filesystem::permissions(std::filesystem::path(path).parent_path(),
                                 std::filesystem::perms::all);
    if (chmod(path.c_str(), 0666) != 0 || seteuid(thirdUser) != 0)
        _exit(failed("seteuid"));
}

const StandIn standIns[] = {
    {"ALink", putLink, "is a symbolic link"},
    {"ALinkToADevice", putLinkToDevice, "is a symbolic link"},
    {"ADirectory", putDirectory, "is no regular file"},
    {"AFifo", putFifo, "is no regular file"},
    {"AFifoThatIsOpenElsewhere", putOpenFifo, "is no regular file"},
    {"ASocket", putSocket, "is no regular file"},
    {"ADevice", putDevice, "is no regular file"},
    {"AStrangersFile", putStrangersFile, "belongs to another user"},
    {"AStrangersFileBeforeAThirdUser", putStrangersFileBeforeAThird, "belongs to another user"},
};

struct Place {
    const char* name;
    const char* path;  // below the sandbox
    const char* known; // as it is named; null: by its full path
};

const Place places[] = {
    {"OfTheAdministrator", "work/kor-gl.conf.admin", "kor-gl.conf.admin"},
    {"OfTheUser", "home/.config/kor/kor-gl.conf", nullptr},
    {"OfTheSystem", "system/kor-gl.conf", "/etc/kor/kor-gl.conf"},
};

struct Read : kor::Settings {
    Read() : kor::Settings("kor-gl.conf") { kor::Settings::parse(); }
    int number() const { return intSetting("KOR_GL_TRIED", "gl", "key", 0); }
};

class TrustedFiles : public testing::Test {
  protected:
    Sandbox sandbox;
    TrustedFiles() {
        std::filesystem::create_directories(sandbox.path("home/.config/kor"));
        // Other users are to come as far as the files.
        for (const char* folder :
             {"", "work", "home", "home/.config", "home/.config/kor", "system"})
            std::filesystem::permissions(sandbox.path(folder), std::filesystem::perms(0755));
    }

    std::string complaint(const Place& place, const char* refusal) const {
        const std::string name = place.known != nullptr ? place.known : sandbox.path(place.path);
        return "Settings file \"" + name + "\" is not used: it " + refusal + "\n";
    }
};

class SettingsFiles : public TrustedFiles,
                      public testing::WithParamInterface<std::tuple<Place, StandIn>> {};

} // namespace

TEST_P(SettingsFiles, AreNamedAndLeftAlone) {
    const auto& [place, standIn] = GetParam();
    const ChildResult child = inChild([&, &place = place, &standIn = standIn] {
        standIn.put(sandbox.path(place.path), obeyed);
        std::filesystem::current_path(sandbox.path("work"));
        return Read().number();
    });
    EXPECT_EQ(child.status, 0);
    EXPECT_EQ(child.errors, complaint(place, standIn.refusal));
}

INSTANTIATE_TEST_SUITE_P(Untrusted, SettingsFiles,
                         testing::Combine(testing::ValuesIn(places), testing::ValuesIn(standIns)),
                         [](const auto& info) {
                             return std::string(std::get<0>(info.param).name) +
                                    std::get<1>(info.param).name;
                         });

TEST_F(TrustedFiles, AreTheirOwnersAndRootsOnly) {
    sandbox.writeUser(obeyed);
    kor::test::effectiveUser = geteuid();
    EXPECT_EQ(inChild([] { return Read().number(); }).status, 7);
    kor::test::effectiveUser.reset();
    if (geteuid() != 0)
        return;
    const ChildResult child = inChild([] {
        if (seteuid(thirdUser) != 0)
            return failed("seteuid");
        return Read().number();
    });
    EXPECT_EQ(child.status, 7) << "root's file, for another user";
    EXPECT_EQ(child.errors, "");
}

TEST_F(TrustedFiles, ALinkThatLeadsNowhereIsNoFile) {
    std::filesystem::create_symlink(sandbox.path("nothing"),
                                    sandbox.path("home/.config/kor/kor-gl.conf"));
    const ChildResult child = inChild([] { return Read().number(); });
    EXPECT_EQ(child.status, 0);
    EXPECT_EQ(child.errors, "");
}

TEST_F(TrustedFiles, ALinkedFolderIsFollowed) {
    std::filesystem::create_directory(sandbox.path("elsewhere"));
    sandbox.write("elsewhere/kor-gl.conf", obeyed);
    std::filesystem::create_symlink(sandbox.path("elsewhere"), sandbox.path("linked"));
    sandbox.set("KOR_GL_USER_CONFDIR", sandbox.path("linked"));
    const ChildResult child = inChild([] { return Read().number(); });
    EXPECT_EQ(child.status, 7);
    EXPECT_EQ(child.errors, "");
}

TEST_F(TrustedFiles, AMebibyteOfSettingsIsReadAndMoreIsNot) {
    const std::string path = sandbox.writeUser(obeyed + std::string(100, '\n'));
    const auto readWithSize = [&](off_t size) {
        EXPECT_EQ(truncate(path.c_str(), size), 0);
        return inChild([] { return Read().number(); });
    };
    const ChildResult largest = readWithSize(1 << 20);
    EXPECT_EQ(largest.status, 7);
    EXPECT_EQ(largest.errors, "");
    const ChildResult child = readWithSize((1 << 20) + 1);
    EXPECT_EQ(child.status, 0);
    EXPECT_EQ(child.errors,
              "Settings file \"" + path + "\" is not used: it is larger than 1 MiB\n");
    EXPECT_EQ(readWithSize(off_t{1} << 40).status, 0);
}

TEST_F(TrustedFiles, ARefusedSystemFileLeavesTheUsersInUse) {
    sandbox.writeUser(obeyed);
    const ChildResult child = inChild([&] {
        putFifo(sandbox.path("system/kor-gl.conf"), "");
        return Read().number();
    });
    EXPECT_EQ(child.status, 7);
    EXPECT_EQ(child.errors, complaint(places[2], "is no regular file"));
}

TEST_F(TrustedFiles, WhatTakesAFilesPlaceAfterItWasLookedAtIsRefusedToo) {
    const std::string path = sandbox.writeUser(obeyed);
    for (const StandIn& standIn : standIns) {
        SCOPED_TRACE(standIn.name);
        if (standIn.put == putDevice || standIn.put == putSocket)
            continue; // a socket cannot be opened, which is said otherwise
        const ChildResult child = inChild([&] {
            kor::test::onLook = [&] {
                std::filesystem::remove(path);
                standIn.put(path, obeyed);
            };
            return Read().number();
        });
        EXPECT_EQ(child.status, 0);
        EXPECT_EQ(child.errors, complaint(places[1], standIn.refusal));
        std::filesystem::remove_all(path);
        sandbox.writeUser(obeyed);
    }
}

/// There the machine's root has no name, and its files seem to be a stranger's.
TEST_F(TrustedFiles, TheSystemFileIsRootsInAUserNamespaceToo) {
    kor::test::standIn = {sandbox.path("system/kor-gl.conf"), "/usr/lib/os-release"};
    const ChildResult child = inChild([] {
        if (geteuid() == 0 && setresuid(thirdUser, thirdUser, thirdUser) != 0)
            return failed("setresuid");
        prctl(PR_SET_DUMPABLE, 1);
        const std::string user = std::to_string(geteuid());
        if (unshare(CLONE_NEWUSER) != 0)
            return failed("unshare");
        write("/proc/self/uid_map", (user + " " + user + " 1").c_str());
        struct stat status {};
        if (stat("/usr/lib/os-release", &status) != 0 || status.st_uid == 0 ||
            status.st_uid == geteuid())
            return failed("the namespace is not what it should be");
        return Read().number();
    });
    kor::test::standIn.reset();
    EXPECT_EQ(child.status, 0);
    EXPECT_EQ(child.errors, "");
}

namespace {

/// A file that the user has under two names.
void putHardLink(const std::string& path, const char* text) {
    write(path + ".target", text);
    std::filesystem::create_hard_link(path + ".target", path);
}

void putLinkToNothing(const std::string& path, const char* /*text*/) {
    std::filesystem::create_symlink(path + ".target", path);
}

class LogFiles : public TrustedFiles, public testing::WithParamInterface<StandIn> {
  protected:
    LogFiles() {
        std::filesystem::create_directory(sandbox.path("logs"));
        std::filesystem::permissions(sandbox.path("logs"), std::filesystem::perms::all);
        sandbox.set("KOR_GL_LOG_DIR", sandbox.path("logs"));
        kor::test::uptimeFile = sandbox.write("uptime", "1000.50 77.25\n");
        kor::test::executableLink = "/opt/bin/app";
    }
    ~LogFiles() override {
        kor::test::uptimeFile.clear();
        kor::test::executableLink.reset();
    }

    /// Logs once with that in the log file's place; fails when more than the complaint and the
    /// record is on stderr.
    void logWith(const StandIn& standIn) {
        const ChildResult child = inChild([&] {
            kor::test::timeOfDay = timeval{2000000000, 250000};
            setenv("TZ", "UTC", 1);
            standIn.put(sandbox.path("logs/kor-gl.20330518-031640.app." + std::to_string(getpid()) +
                                     ".log"),
                        "private");
            kor_printlog("KORGL", 1, "ERROR", "f", false, "the record");
            return 0;
        });
        const std::string path = sandbox.path("logs/kor-gl.20330518-031640.app." +
                                              std::to_string(child.process) + ".log");
        EXPECT_EQ(child.status, 0);
        EXPECT_THAT(child.errors, StartsWith("Log file \"" + path + "\" is not used: it " +
                                             standIn.refusal + "; the log goes to stderr\nE "));
        EXPECT_THAT(child.errors, EndsWith(" KORGL (f): the record\n"));
        EXPECT_EQ(std::count(child.errors.begin(), child.errors.end(), '\n'), 2);
        if (const std::string target = path + ".target"; std::filesystem::exists(target)) {
            EXPECT_EQ(std::filesystem::file_size(target), strlen("private"));
        }
    }
};

} // namespace

TEST_P(LogFiles, AreNamedAndLeftAlone) {
    logWith(GetParam());
}

INSTANTIATE_TEST_SUITE_P(Untrusted, LogFiles, testing::ValuesIn(standIns),
                         [](const auto& info) { return std::string(info.param.name); });
INSTANTIATE_TEST_SUITE_P(
    UntrustedAsLogsOnly, LogFiles,
    testing::Values(StandIn{"AHardLink", putHardLink, "has a second name (a hard link)"},
                    StandIn{"ALinkToNothing", putLinkToNothing, "is a symbolic link"}),
    [](const auto& info) { return std::string(info.param.name); });
