#include "authority.h"
#include "failure.h"

#include <X11/Xauth.h>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <sys/stat.h>

using testing::ElementsAre;

namespace {

constexpr int anInternetFamily = 0; // X.h, which names it, does not go together with gtest

struct Entry {
    int family;
    std::string number;
    std::string data;
    bool operator==(const Entry&) const = default;
};

std::vector<Entry> readEntries(const std::string& path) {
    std::vector<Entry> entries;
    std::FILE* file = std::fopen(path.c_str(), "rb");
    if (!file)
        return entries;
    while (Xauth* entry = XauReadAuth(file)) {
        entries.push_back({entry->family, std::string(entry->number, entry->number_length),
                           std::string(entry->data, entry->data_length)});
        XauDisposeAuth(entry);
    }
    std::fclose(file);
    return entries;
}

void addEntry(const std::string& path, int family, std::string number, std::string data) {
    std::string name = "MIT-MAGIC-COOKIE-1";
    std::string address = "host";
    Xauth entry{};
    entry.family = static_cast<unsigned short>(family);
    entry.address = address.data();
    entry.address_length = static_cast<unsigned short>(address.size());
    entry.number = number.data();
    entry.number_length = static_cast<unsigned short>(number.size());
    entry.name = name.data();
    entry.name_length = static_cast<unsigned short>(name.size());
    entry.data = data.data();
    entry.data_length = static_cast<unsigned short>(data.size());
    std::FILE* file = std::fopen(path.c_str(), "ab");
    ASSERT_NE(file, nullptr);
    ASSERT_EQ(XauWriteAuth(file, &entry), 1);
    std::fclose(file);
}

class AuthorityTest : public testing::Test {
  protected:
    void SetUp() override {
        m_folder = testing::TempDir() + "korrun-test.XXXXXX";
        ASSERT_NE(mkdtemp(m_folder.data()), nullptr);
    }
    void TearDown() override { std::filesystem::remove_all(m_folder); }
    std::string path(const char* name) const { return m_folder + "/" + name; }

    std::string m_folder;
};

} // namespace

TEST_F(AuthorityTest, CookiesAreLongAndDiffer) {
    EXPECT_EQ(korrun::makeCookie().size(), 16U);
    EXPECT_NE(korrun::makeCookie(), korrun::makeCookie());
}

TEST_F(AuthorityTest, ServersGetTheCookieAlone) {
    korrun::writeServerAuthority(path("server"), "secret");
    EXPECT_THAT(readEntries(path("server")), ElementsAre(Entry{FamilyWild, "", "secret"}));
}

TEST_F(AuthorityTest, ClientsGetEveryDisplayAndTheUsersOwnEntries) {
    addEntry(path("user"), FamilyLocal, "0", "gpu");
    korrun::writeClientAuthority(path("client"), "secret", {"7", "8"}, path("user"));
    EXPECT_THAT(readEntries(path("client")),
                ElementsAre(Entry{FamilyWild, "7", "secret"}, Entry{FamilyWild, "8", "secret"},
                            Entry{FamilyLocal, "0", "gpu"}));
}

TEST_F(AuthorityTest, StaleEntriesForTheSessionsNumbersAreLeftOut) {
    addEntry(path("user"), FamilyLocal, "7", "stale");
    addEntry(path("user"), FamilyWild, "7", "stale");
    addEntry(path("user"), anInternetFamily, "7", "elsewhere");
    korrun::writeClientAuthority(path("client"), "secret", {"7"}, path("user"));
    EXPECT_THAT(
        readEntries(path("client")),
        ElementsAre(Entry{FamilyWild, "7", "secret"}, Entry{anInternetFamily, "7", "elsewhere"}));
}

TEST_F(AuthorityTest, UserFileThatIsMissingOrDamagedLosesNothing) {
    korrun::writeClientAuthority(path("a"), "secret", {"7"}, path("nowhere"));
    EXPECT_THAT(readEntries(path("a")), ElementsAre(Entry{FamilyWild, "7", "secret"}));

    addEntry(path("user"), FamilyLocal, "0", "gpu");
    std::FILE* file = std::fopen(path("user").c_str(), "ab");
    std::fputs("\x01\x02 garbage", file);
    std::fclose(file);
    korrun::writeClientAuthority(path("b"), "secret", {"7"}, path("user"));
    EXPECT_THAT(readEntries(path("b")),
                ElementsAre(Entry{FamilyWild, "7", "secret"}, Entry{FamilyLocal, "0", "gpu"}));
}

TEST_F(AuthorityTest, OnlyTheOwnerMayReadTheFiles) {
    const mode_t before = umask(0);
    korrun::writeServerAuthority(path("server"), "secret");
    korrun::writeClientAuthority(path("client"), "secret", {"7"}, "");
    umask(before);
    for (const char* name : {"server", "client"}) {
        struct stat status {};
        ASSERT_EQ(stat(path(name).c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777, 0600U) << name;
    }
}

TEST_F(AuthorityTest, FolderThatIsMissingIsReported) {
    EXPECT_THROW(korrun::writeServerAuthority(path("no/server"), "secret"), korrun::Failure);
    EXPECT_THROW(korrun::writeClientAuthority(path("no/client"), "s", {"7"}, ""), korrun::Failure);
}
