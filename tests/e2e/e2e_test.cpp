// Every client through the whole road: the front library in place of the system's, an Xkor as the
// application display and a software Xvfb as the local display, both started for this one test.
#include "cases.h"
#include "session.h"

#include <gtest/gtest.h>

namespace kor::e2e {
namespace {

class ClientTest : public testing::TestWithParam<ClientCase> {};
class VendorClientTest : public testing::TestWithParam<ClientCase> {};
class BothFrontsClientTest : public testing::TestWithParam<ClientCase> {};

void expectItShowsWhatItDraws(Road road, const ClientCase& row) {
    const Session session(road, row.screenWidth, row.screenHeight);
    const test::CommandResult result =
        runCommand(session.client(row.command, row.environment), kClientTime);
    EXPECT_TRUE(usedLibrary(result)) << summary(result);
    EXPECT_EQ(result.status, 0) << summary(result);
    EXPECT_NE(result.output.find("passed"), std::string::npos) << summary(result);
    EXPECT_EQ(result.errors.find("X Error"), std::string::npos) << summary(result);
    EXPECT_EQ(result.errors.find("Xlib:"), std::string::npos) << summary(result);
}

TEST_P(ClientTest, ShowsWhatItDraws) {
    expectItShowsWhatItDraws(Road::Library, GetParam());
}

TEST_P(VendorClientTest, ShowsWhatItDraws) {
    expectItShowsWhatItDraws(Road::Vendor, GetParam());
}

// The classic front asks the system's libraries about an application display whose server names the
// vendor front.
TEST_P(BothFrontsClientTest, ShowsWhatItDraws) {
    expectItShowsWhatItDraws(Road::Both, GetParam());
}

// The pixels come by no other road: when the library transports nothing, the window stays as it
// was, and the client notices.
TEST(Client, NoticesThatNothingIsTransported) {
    const Session session(Road::Library);
    const test::CommandResult result = runCommand(
        session.client({"swap_client"}, {"KOR_GL_NO_READBACK=1", "KOR_CLIENT_PATIENCE=1"}),
        kClientTime);
    EXPECT_TRUE(usedLibrary(result)) << summary(result);
    EXPECT_EQ(result.status, 1) << summary(result);
    EXPECT_NE(result.errors.find("pixels differ"), std::string::npos) << summary(result);
}

std::string caseName(const testing::TestParamInfo<ClientCase>& info) {
    return info.param.name;
}

INSTANTIATE_TEST_SUITE_P(Clients, ClientTest, testing::ValuesIn(clientCases()), caseName);
INSTANTIATE_TEST_SUITE_P(Library, ClientTest, testing::ValuesIn(libraryCases()), caseName);
INSTANTIATE_TEST_SUITE_P(Clients, VendorClientTest, testing::ValuesIn(clientCases()), caseName);
INSTANTIATE_TEST_SUITE_P(Library, VendorClientTest, testing::ValuesIn(libraryCases()), caseName);
INSTANTIATE_TEST_SUITE_P(Clients, BothFrontsClientTest, testing::ValuesIn(clientCases()), caseName);

} // namespace
} // namespace kor::e2e
