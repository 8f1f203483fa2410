// The two displays: reachable, allowed, and with all that is needed.
#include "application_display.h"
#include "doctor_fixture.h"

#include <X11/Xauth.h>
#include <cstdio>
#include <cstdlib>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using namespace kor::test;
using testing::HasSubstr;
using testing::Not;

namespace {

/// Writes an authority file with one cookie for every display.
void writeCookie(const std::string& file, std::string cookie) {
    char kind[] = "MIT-MAGIC-COOKIE-1";
    char number[] = "";
    Xauth entry{};
    entry.family = FamilyWild;
    entry.number = number;
    entry.name = kind;
    entry.name_length = sizeof kind - 1;
    entry.data = cookie.data();
    entry.data_length = static_cast<unsigned short>(cookie.size());
    FILE* stream = fopen(file.c_str(), "w");
    ASSERT_NE(stream, nullptr);
    EXPECT_NE(XauWriteAuth(stream, &entry), 0);
    fclose(stream);
}

} // namespace

TEST_F(SessionTest, DisplaysThatServeAreWell) {
    const Diagnosis found = diagnoseSession();
    for (const char* check :
         {"application-display", "kor-v1", "visuals", "glx", "shared-memory", "gpu-display-name",
          "gpu-display", "gpu-display-distinct", "gpu-display-glx"})
        EXPECT_THAT(found[check], HasStatus("ok")) << check;
    EXPECT_THAT(found["application-display"].result, HasSubstr(m_session.name() + " answers"));
    EXPECT_THAT(found["application-display"].result, HasSubstr("320x240"));
    EXPECT_THAT(found["gpu-display-name"].result,
                HasSubstr(m_local.name() + ", from the session's server"));
}

TEST_F(DoctorTest, UnsetDisplayIsSaid) {
    const Diagnosis found = diagnoseBlindly();
    EXPECT_EQ(found.exitStatus, 2);
    EXPECT_THAT(found["application-display"], HasStatus("broken"));
    EXPECT_THAT(found["application-display"].result, HasSubstr("DISPLAY is not set"));
    EXPECT_THAT(found["application-display"].advice, HasSubstr("korrun --session"));
    for (const char* check : {"kor-v1", "visuals", "glx", "shared-memory"}) {
        EXPECT_THAT(found[check], HasStatus("skipped")) << check;
        EXPECT_THAT(found[check].result, HasSubstr("session's display")) << check;
    }
}

TEST_F(DoctorTest, MissingServersAreSaid) {
    const Diagnosis found = diagnose({{"DISPLAY", ":59001"}, {"KOR_GL_DISPLAY", noDisplay}});
    for (const char* check : {"application-display", "gpu-display"}) {
        EXPECT_THAT(found[check], HasStatus("broken")) << check;
        EXPECT_THAT(found[check].result, HasSubstr("no server")) << check;
    }
    EXPECT_THAT(found["gpu-display"].result, HasSubstr(noDisplay));
    EXPECT_THAT(found["gl-version"], HasStatus("skipped"));
}

TEST_F(DoctorTest, NamesThatAreNoneAreSaid) {
    const Diagnosis found =
        diagnose({{"DISPLAY", "nonsense"}, {"KOR_GL_DISPLAY", "no-such-host.invalid:0"}});
    EXPECT_THAT(found["application-display"].result, HasSubstr("no name of a display"));
    EXPECT_THAT(found["gpu-display"].result, HasSubstr("no-such-host.invalid is not known"));
}

TEST_F(SessionTest, MissingScreenIsSaid) {
    const Diagnosis found = diagnoseSession({{"KOR_GL_DISPLAY", m_local.name() + ".7"}});
    EXPECT_THAT(found["gpu-display"], HasStatus("broken"));
    EXPECT_THAT(found["gpu-display"].result, HasSubstr("no screen 7"));
}

TEST_F(SessionTest, MissingCookieIsToldApartFromNoServer) {
    put("empty", "");
    const Diagnosis empty = diagnoseSession({{"XAUTHORITY", path("empty")}});
    EXPECT_THAT(empty["application-display"], HasStatus("broken"));
    EXPECT_THAT(empty["application-display"].result, HasSubstr("does not admit this user"));
    EXPECT_THAT(empty["application-display"].result, HasSubstr("has no cookie for it"));
    EXPECT_THAT(empty["application-display"].advice, HasSubstr("xauth"));

    const Diagnosis missing = diagnoseSession({{"XAUTHORITY", path("nowhere")}});
    EXPECT_THAT(missing["application-display"].result, HasSubstr(path("nowhere") + " is missing"));
    EXPECT_THAT(missing["application-display"].result, Not(HasSubstr("no server")));
}

TEST_F(SessionTest, WrongCookieOfTheGpuDisplayIsSaid) {
    writeCookie(path("another"), "0123456789abcdef");
    const XServer guarded({.kind = XServer::Kind::Xvfb,
                           .width = 320,
                           .height = 240,
                           .arguments = {"-auth", path("another")}});
    const Diagnosis refused = diagnoseSession({{"KOR_GL_DISPLAY", guarded.name()}});
    EXPECT_THAT(refused["application-display"], HasStatus("ok"));
    EXPECT_THAT(refused["gpu-display"], HasStatus("broken"));
    EXPECT_THAT(refused["gpu-display"].result, HasSubstr("is not its own"));
    EXPECT_THAT(refused["gl-version"], HasStatus("skipped"));
}

TEST_F(SessionTest, ServerThatIsNoXkorIsSaid) {
    const Diagnosis found =
        diagnoseSession({{"DISPLAY", m_local.name()}, {"KOR_GL_DISPLAY", noDisplay}});
    EXPECT_THAT(found["application-display"], HasStatus("ok"));
    EXPECT_THAT(found["kor-v1"], HasStatus("broken"));
    EXPECT_THAT(found["kor-v1"].advice, HasSubstr("Xkor"));
    EXPECT_THAT(found["gpu-display-name"].result, HasSubstr("variable KOR_GL_DISPLAY"));
}

TEST_F(SessionTest, VisualsThatCannotBePaintedAreSaid) {
    const XServer composite = startSession(m_local.name(), {"+extension", "Composite"});
    const Diagnosis odd = diagnoseSession({{"DISPLAY", composite.name()}});
    EXPECT_THAT(odd["visuals"], HasStatus("warning"));
    EXPECT_THAT(odd["visuals"].result, HasSubstr("depth 32"));
    EXPECT_THAT(odd["visuals"].advice, HasSubstr("-extension Composite"));

    const XServer shallow = startLocal({"-screen", "0", "320x240x16"});
    const Diagnosis poor = diagnoseSession({{"DISPLAY", shallow.name()}});
    EXPECT_THAT(poor["visuals"], HasStatus("broken"));
    EXPECT_THAT(poor["visuals"].advice, HasSubstr("depth 24"));
}

TEST_F(SessionTest, MissingGlxIsSaidOfEitherDisplay) {
    const XServer plain = startLocal({"-extension", "GLX"});
    const Diagnosis found =
        diagnoseSession({{"DISPLAY", plain.name()}, {"KOR_GL_DISPLAY", m_local.name()}});
    EXPECT_THAT(found["glx"], HasStatus("broken"));
    EXPECT_THAT(found["gpu-display-glx"], HasStatus("ok"));
    const Diagnosis other = diagnoseSession({{"KOR_GL_DISPLAY", plain.name()}});
    EXPECT_THAT(other["glx"], HasStatus("ok"));
    EXPECT_THAT(other["gpu-display-glx"], HasStatus("broken"));
    EXPECT_THAT(other["gl-version"], HasStatus("skipped"));
}

TEST_F(SessionTest, GpuDisplaysNameIsTracedToItsSource) {
    const std::string file = put(".config/kor/kor-gl.conf", "[gl]\ngl-display = " + m_local.name());
    EXPECT_EQ(diagnoseSession()["gpu-display-name"].result,
              m_local.name() + ", from " + file + ", line 2");
    EXPECT_EQ(
        diagnoseSession({{"KOR_GL_DISPLAY", m_local.name() + ".0"}})["gpu-display-name"].result,
        m_local.name() + ".0, from variable KOR_GL_DISPLAY");
}

TEST_F(SessionTest, GuessOfTheGpuDisplayIsAWarning) {
    const XServer unknowing = startSession("");
    const Diagnosis found = diagnoseSession({{"DISPLAY", unknowing.name()}});
    EXPECT_THAT(found["gpu-display-name"], HasStatus("warning"));
    EXPECT_THAT(found["gpu-display-name"].result, HasSubstr(":0.0, a guess"));
    EXPECT_THAT(found["gpu-display-name"].advice, HasSubstr("KOR_GL_DISPLAY"));
}

TEST_F(SessionTest, SessionsServerAsGpuDisplayIsRefusedUnderAnyName) {
    for (const std::string& name :
         {m_session.name(), m_session.name() + ".0", "unix" + m_session.name()}) {
        const Diagnosis found = diagnoseSession({{"KOR_GL_DISPLAY", name}});
        EXPECT_THAT(found["gpu-display-distinct"], HasStatus("broken")) << name;
        EXPECT_THAT(found["gpu-display-distinct"].result, HasSubstr("session's own")) << name;
    }
}

TEST_F(DoctorTest, ServerThatSaysNothingIsGivenUp) {
    // A socket of a display's name on which nobody ever answers.
    const int number = 59500 + static_cast<int>(getpid() % 400);
    const std::string name = "/tmp/.X11-unix/X" + std::to_string(number);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    name.copy(address.sun_path + 1, sizeof address.sun_path - 2); // abstract: leaves no file
    const int silent = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(bind(silent, reinterpret_cast<const sockaddr*>(&address),
                   static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size())),
              0);
    ASSERT_EQ(listen(silent, 5), 0);
    setenv("DISPLAY", (":" + std::to_string(number)).c_str(), 1);
    kordoctor::Section section = kordoctor::applicationDisplaySection();
    section.patience = std::chrono::seconds(1);
    kordoctor::Facts facts;
    const auto checks = kordoctor::runSection(section, facts);
    close(silent);
    EXPECT_EQ(checks[0].verdict, kordoctor::Verdict::Broken);
    EXPECT_THAT(checks[0].result, HasSubstr("no answer within 1 seconds"));
    EXPECT_THAT(checks[0].advice, HasSubstr("hangs"));
}
