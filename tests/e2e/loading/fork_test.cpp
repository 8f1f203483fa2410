// Children of programs that draw: a forked child starts afresh, and its parent goes on.
#include <gtest/gtest.h> // before the X headers, whose macros have names of its types

#include "session.h"

#include <cstdlib>

namespace kor::e2e {
namespace {

class Fork : public testing::TestWithParam<Road> {
  protected:
    void expectPassed(const std::vector<std::string>& arguments) const {
        const Session session(GetParam());
        test::Command command = session.command({"fork_client"});
        command.arguments = {KOR_LOADING_BIN_DIR "/fork_client"};
        command.arguments.insert(command.arguments.end(), arguments.begin(), arguments.end());
        const test::CommandResult result = runCommand(command, std::chrono::seconds(100));
        EXPECT_TRUE(usedLibrary(result)) << summary(result);
        EXPECT_EQ(result.status, 0) << summary(result);
        EXPECT_NE(result.output.find("passed"), std::string::npos) << summary(result);
    }
};

TEST_P(Fork, AChildOfAThreadWithAContextOpensTheDisplayAndDraws) {
    expectPassed({"draws", "1"});
}

TEST_P(Fork, ChildrenMadeAtRandomPointsOfAFrameDrawAndTheParentGoesOn) {
    const char* count = std::getenv("KOR_TEST_FORKS"); // more of them, by hand
    expectPassed({"draws", count != nullptr ? count : "20"});
}

TEST_P(Fork, AChildThatDrawsNothingExitsAndTheParentGoesOn) {
    expectPassed({"exits"});
}

TEST_P(Fork, AChildThatEndsItsParentsContextEndsItself) {
    expectPassed({"inherits"});
}

TEST_P(Fork, AChildsChildDrawsWhileTheOthersGoOn) {
    expectPassed({"again"});
}

INSTANTIATE_TEST_SUITE_P(Fronts, Fork, testing::Values(Road::Library, Road::Vendor),
                         [](const auto& road) {
                             return road.param == Road::Library ? "Classic" : "Vendor";
                         });

} // namespace
} // namespace kor::e2e
