// Clients that share no memory with the application display's server. Where no segment is to be had
// at all, the software driver itself draws black now and then: that is tested below the driver.
#include "cases.h"
#include "session.h"

#include <gtest/gtest.h>
#include <unistd.h>

namespace kor::e2e {
namespace {

const std::string detect = "KOR_GL_COPYBACK_STRATEGY=0";

void expectItPasses(const test::Command& client) {
    const test::CommandResult result = runCommand(client, kClientTime);
    EXPECT_TRUE(usedLibrary(result)) << summary(result);
    EXPECT_EQ(result.status, 0) << summary(result);
    EXPECT_NE(result.output.find("passed"), std::string::npos) << summary(result);
    EXPECT_EQ(result.errors.find("X Error"), std::string::npos) << summary(result);
}

/// The client where its segments are not the server's.
test::Command elsewhere(test::Command client) {
    std::vector<std::string> before = {"unshare"};
    if (getuid() != 0)
        before.emplace_back("--map-root-user");
    before.insert(before.end(), {"--ipc", "--"});
    client.arguments.insert(client.arguments.begin(), before.begin(), before.end());
    return client;
}

class WithoutSharedMemory : public testing::TestWithParam<Road> {};

TEST_P(WithoutSharedMemory, DetectionShowsFramesOnAServerWithoutTheExtension) {
    const Session session(GetParam(), 1024, 768, {"-extension", "MIT-SHM"});
    expectItPasses(session.client({"resize_client"}, {detect}));
}

TEST_P(WithoutSharedMemory, DetectionShowsFramesFromAnotherIpcNamespace) {
    const Session session(GetParam());
    expectItPasses(elsewhere(session.client({"resize_client"}, {detect})));
}

TEST_P(WithoutSharedMemory, PlainImagesShowFramesFromAnotherIpcNamespace) {
    const Session session(GetParam());
    expectItPasses(elsewhere(session.client({"resize_client"}, {"KOR_GL_COPYBACK_STRATEGY=2"})));
}

TEST_P(WithoutSharedMemory, ForcedSharedMemoryShowsNothingAndEndsNoProgram) {
    const Session session(GetParam());
    const test::CommandResult result =
        runCommand(elsewhere(session.client(
                       {"swap_client"}, {"KOR_GL_COPYBACK_STRATEGY=1", "KOR_CLIENT_PATIENCE=1"})),
                   kClientTime);
    EXPECT_EQ(result.status, 1) << summary(result);
    EXPECT_NE(result.errors.find("pixels differ"), std::string::npos) << summary(result);
}

INSTANTIATE_TEST_SUITE_P(Roads, WithoutSharedMemory, testing::Values(Road::Library, Road::Vendor),
                         [](const auto& road) {
                             return road.param == Road::Library ? "Library" : "Vendor";
                         });

} // namespace
} // namespace kor::e2e
