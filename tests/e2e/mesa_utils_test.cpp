// Programs that know nothing of tests: glxinfo and glxgears of mesa-utils.
#include <gtest/gtest.h> // before the X headers, whose macros have names of its types

#include "gears.h"
#include "session.h"

#include <vector>

namespace kor::e2e {
namespace {

using namespace std::chrono_literals;

class MesaUtils : public testing::TestWithParam<Road> {};

TEST_P(MesaUtils, GlxinfoTellsTheLocalRenderer) {
    const Session session(GetParam());
    const test::CommandResult result = runCommand(session.command({"glxinfo"}), 60s);
    EXPECT_TRUE(usedLibrary(result)) << summary(result);
    EXPECT_EQ(result.status, 0) << summary(result);
    for (const char* const line :
         {"direct rendering: Yes", "OpenGL renderer string: ", "GLX_TESSERA_kor", "TESSERA s.r.l."})
        EXPECT_NE(result.output.find(line), std::string::npos) << line << '\n' << summary(result);
    EXPECT_EQ(result.errors.find("rror"), std::string::npos) << summary(result);
}

void expectOurGears(const Session& session, const test::Command& command) {
    const std::string errors = expectTurningGears(session.display(), command);
    EXPECT_NE(errors.find("TESSERA KOR-GL "), std::string::npos) << errors;
}

TEST_P(MesaUtils, GlxgearsTurnsInItsWindow) {
    const Session session(GetParam());
    expectOurGears(session, session.command({"glxgears", "-geometry", "300x300+20+30"}));
}

TEST_P(MesaUtils, GlxgearsTurnsOnADisplayThatIsNotTheDefault) {
    const Session session(GetParam());
    const std::vector<std::string> arguments = {"glxgears", "-geometry", "300x300+20+30",
                                                "-display", session.display()};
    expectOurGears(session, session.command(arguments, {"DISPLAY=:65000"}));
    test::XServer::Options options;
    options.kind = test::XServer::Kind::Xvfb;
    const test::XServer another(options);
    expectOurGears(session, session.command(arguments, {"DISPLAY=" + another.name()}));
}

INSTANTIATE_TEST_SUITE_P(Fronts, MesaUtils,
                         testing::Values(Road::Library, Road::Vendor, Road::Both),
                         [](const auto& road) {
                             return road.param == Road::Library  ? "Classic"
                                    : road.param == Road::Vendor ? "Vendor"
                                                                 : "Both";
                         });

} // namespace
} // namespace kor::e2e
