// The clients themselves are put to the test: on the system's GL library and a software Xvfb they
// pass, so what they find elsewhere is not of their own making.
#include "cases.h"
#include "session.h"

#include <gtest/gtest.h>

namespace kor::e2e {
namespace {

class DirectTest : public testing::TestWithParam<ClientCase> {};

TEST_P(DirectTest, ShowsWhatItDraws) {
    const ClientCase& row = GetParam();
    const Session session(Road::System, row.screenWidth, row.screenHeight);
    const test::CommandResult result =
        runCommand(session.client(row.command, row.environment), kClientTime);
    EXPECT_EQ(result.status, 0) << summary(result);
    EXPECT_NE(result.output.find("passed"), std::string::npos) << summary(result);
}

INSTANTIATE_TEST_SUITE_P(Clients, DirectTest, testing::ValuesIn(clientCases()),
                         [](const testing::TestParamInfo<ClientCase>& info) {
                             return info.param.name;
                         });

} // namespace
} // namespace kor::e2e
