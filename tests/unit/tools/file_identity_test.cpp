// Which socket a server that ends may remove: its own, not the one that another has just made.
#include "server/launcher/file_identity.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using kor::server::FileIdentity;

namespace {

class FileIdentityTest : public testing::Test {
  protected:
    void SetUp() override {
        m_path = testing::TempDir() + "file-identity.XXXXXX";
        ASSERT_NE(mkdtemp(m_path.data()), nullptr);
        m_folder = m_path;
        m_path += "/socket";
    }
    void TearDown() override { std::filesystem::remove_all(m_folder); }

    // A socket on which nobody listens, as each is for a moment.
    void makeSocket() const {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        m_path.copy(address.sun_path, sizeof address.sun_path - 1);
        const int end = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        EXPECT_EQ(bind(end, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        close(end);
    }

    std::string m_folder;
    std::string m_path;
};

} // namespace

TEST_F(FileIdentityTest, AFileStaysTheSame) {
    makeSocket();
    EXPECT_TRUE(FileIdentity(m_path).isAt(m_path));
}

TEST_F(FileIdentityTest, ALaterSocketOfTheSameNameIsAnother) {
    makeSocket();
    const FileIdentity first(m_path);
    for (int i = 0; i < 5; ++i) {
        std::filesystem::remove(m_path);
        usleep(20000); // beyond the grain of file times, as the start of a server is
        makeSocket();
        EXPECT_FALSE(first.isAt(m_path));
    }
}

TEST_F(FileIdentityTest, WhatIsGoneOrNeverWasIsNowhere) {
    const FileIdentity never(m_path);
    makeSocket();
    EXPECT_FALSE(never.isAt(m_path));
    const FileIdentity gone(m_path);
    std::filesystem::remove(m_path);
    EXPECT_FALSE(gone.isAt(m_path));
    EXPECT_FALSE(FileIdentity().isAt(m_path));
}
