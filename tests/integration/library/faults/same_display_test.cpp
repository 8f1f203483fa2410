// Which display names lead to the same server and screen, and what the resolver is asked for it.

#include <gmock/gmock.h>

#include "interposed.h"

#include "display/displays.h"
#include "framework/scripted_server.h"

#include <X11/Xlib.h>
#include <ostream>

namespace {

using kor::test::Host;
using Texts = std::vector<std::string>;

/// Official name "many", 20 aliases m1 to m20.
Host withManyAliases() {
    Host host{"many", {}};
    for (int i = 1; i <= 20; ++i)
        host.aliases.push_back("m" + std::to_string(i));
    return host;
}

// The longest host name that the library's buffer holds, and one letter more.
const std::string longName(255, 'h');
const std::string longerName(256, 'h');

const std::map<std::string, Host> hosts = {
    {"gpu", {"gpu.example", {"gpu", "renderer"}}},
    {"renderer", {"gpu.example", {}}},
    {"alias", {"elsewhere", {"first", "renderer"}}},
    {"desk", {"desk.example", {"desk"}}},
    {"me", {"me.example", {"me", "myself"}}},
    {"myself", {"me.example", {}}},
    {"localhost", {"localhost", {"loop"}}},
    {"loop", {"loop", {}}},
    {"address 10.1.2.3", {"gpu.example", {}}},
    {"address 44.1.2.3", {"desk.example", {}}},
    {"10.1.2", {"desk.example", {}}},
    {"1.2.3.4.5", {"desk.example", {}}},
    {longName, {longName, {}}},
    {longerName, {longerName, {}}},
    {"a.b.c.d", {"gpu.example", {}}},
    {"many", withManyAliases()},
    {"m15", {"m15", {}}},
    {"m16", {"m16", {}}},
};

struct Row {
    const char* behaviour;
    std::string a;
    std::string b;
    bool same;
    Texts lookups;
    const char* printed = "";
    const char* hostName = "me";
};

void PrintTo(const Row& row, std::ostream* out) {
    *out << row.a << " and " << row.b;
}

class SameDisplay : public testing::TestWithParam<Row> {};

/// Gives a connection another name for as long as it lives.
class Renamed {
  public:
    Renamed(Display* display, const std::string& name)
        : private_(reinterpret_cast<_XPrivDisplay>(display)), own_(private_->display_name),
          name_(name) {
        private_->display_name = name_.data();
    }
    ~Renamed() { private_->display_name = own_; }
    Renamed(const Renamed&) = delete;
    Renamed& operator=(const Renamed&) = delete;

  private:
    _XPrivDisplay private_;
    char* own_;
    std::string name_;
};

const Row rows[] = {
    {"EqualNamesAskNobody", "gpu:0.0", "gpu:0.0", true, {}},
    {"EqualUnknownNamesAskNobody", "nowhere:1", "nowhere:1", true, {}},
    {"EmptyHostsAreEqual", ":0.0", ":0.0", true, {}},
    {"DisplaysDiffer", "gpu:0.0", "gpu:1.0", false, {}},
    {"ScreensDiffer", "gpu:0.0", "gpu:0.1", false, {}},
    {"AMissingScreenIsAnotherDisplay", "gpu:0", "gpu:0.0", false, {}},
    {"ABareHostIsNotItsDisplayZero", "gpu", "gpu:0.0", false, {}},
    {"ABareHostIsNotItsDisplayZeroEitherWay", "gpu:0.0", "gpu", false, {}},
    {"TwoBareHostsAreEqual", "gpu", "gpu", true, {}},
    {"TheDisplayPartIsAllBehindTheFirstColon", "gpu::0", "gpu:0", false, {}},
    {"AnEmptyDisplayPartIsOne", "gpu:", "gpu:", true, {}},

    {"AnOfficialNameInCommon", "gpu:0", "renderer:0", true, {"gpu", "renderer"}},
    {"ANameInCommonAndAnotherDisplay", "gpu:0", "renderer:1", false, {"gpu", "renderer"}},
    {"AnAliasOfTheSecondIsAnAliasOfTheFirst", "gpu:0", "alias:0", true, {"gpu", "alias"}},
    {"AnAliasOfTheSecondIsOfficialForNobody", "alias:0", "desk:0", false, {"alias", "desk"}},
    {"NothingInCommon", "gpu:0", "desk:0", false, {"gpu", "desk"}},
    {"FifteenAliasesCount", "many:0", "m15:0", true, {"many", "m15"}},
    {"TheSixteenthAliasDoesNot", "many:0", "m16:0", false, {"many", "m16"}},
    {"AllAliasesOfTheSecondCount", "m16:0", "many:0", true, {"m16", "many"}},

    {"AnEmptyHostIsLocalhost", ":0", "localhost:0", true, {}},
    {"LocalhostIsAnEmptyHost", "localhost:0", ":0", true, {}},
    {"AnEmptyHostIsWhatLocalhostIs", ":0", "loop:0", true, {"localhost", "loop"}},
    {"AnEmptyHostIsThisHost", ":0", "me:0", true, {"localhost", "me"}},
    {"AnEmptyHostIsWhatThisHostIs",
     ":0",
     "myself:0",
     true,
     {"localhost", "myself", "me", "myself"}},
    {"AnEmptySecondHostHasTheRolesSwapped",
     "myself:0",
     ":0",
     true,
     {"myself", "localhost", "myself", "me"}},
    {"AnEmptyHostIsNoOther", ":0", "gpu:0", false, {"localhost", "gpu", "me", "gpu"}},
    {"WithoutAHostNameAnEmptyHostIsNoOther", ":0", "me:0", false, {"localhost", "me"}, "", ""},
    {"AHostNameOf255CharactersIsTaken",
     ":0",
     longName + ":0",
     true,
     {"localhost", longName},
     "",
     longName.c_str()},
    {"AHostNameOf256CharactersIsNone",
     ":0",
     longerName + ":0",
     false,
     {"localhost", longerName},
     "",
     longerName.c_str()},
    {"AnEmptyHostAndAnotherDisplay", ":0", "localhost:0.0", false, {}},

    {"AnAddressIsLookedUpAsOne", "10.1.2.3:0", "gpu:0", true, {"address 10.1.2.3", "gpu"}},
    {"AnAddressAsTheSecond", "gpu:0", "10.1.2.3:0", true, {"gpu", "address 10.1.2.3"}},
    {"NumbersOfAnAddressOverflow", "300.1.2.3:0", "desk:0", true, {"address 44.1.2.3", "desk"}},
    {"TwoDotsAreNoAddress", "10.1.2:0", "desk:0", true, {"10.1.2", "desk"}},
    {"FourDotsAreNoAddress", "1.2.3.4.5:0", "desk:0", true, {"1.2.3.4.5", "desk"}},
    {"LettersAreNoAddress", "a.b.c.d:0", "gpu:0", true, {"a.b.c.d", "gpu"}},

    {"AnUnknownFirstNameIsReported",
     "nowhere:0",
     "gpu:0",
     false,
     {"nowhere"},
     "no gethostbyname for nowhere\n"},
    {"AnUnknownFirstAddressIsReported",
     "10.9.9.9:0",
     "gpu:0",
     false,
     {"address 10.9.9.9"},
     "no gethostbyaddr for 10.9.9.9\n"},
    {"AnUnknownSecondNameIsReported",
     "gpu:0",
     "nowhere:0",
     false,
     {"gpu", "nowhere"},
     "no gethostbyname for nowhere\n"},
    {"AnUnknownSecondAddressIsNot", "gpu:0", "10.9.9.9:0", false, {"gpu", "address 10.9.9.9"}},

    {"ANameOf511CharactersIsTaken",
     std::string(509, 'x') + ":0",
     std::string(509, 'x') + ":1",
     false,
     {}},
    {"ALongerNameCountsAsEmpty",
     std::string(510, 'x') + ":0",
     std::string(510, 'x') + ":1",
     true,
     {}},
};

} // namespace

TEST_P(SameDisplay, ByTheirNames) {
    static const auto& server = *new kor::test::ScriptedServer;
    Display* a = XOpenDisplay(server.displayName().c_str());
    Display* b = XOpenDisplay(server.displayName().c_str());
    ASSERT_NE(a, nullptr);
    ASSERT_NE(b, nullptr);
    {
        const Row& row = GetParam();
        const Renamed first(a, row.a);
        const Renamed second(b, row.b);
        kor::test::resolver = &hosts;
        kor::test::hostName = row.hostName;
        kor::test::lookups.clear();
        testing::internal::CaptureStderr();
        const bool same = korIsSameXDisplay(a, b);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), row.printed);
        EXPECT_EQ(same, row.same);
        EXPECT_EQ(kor::test::lookups, row.lookups);
        kor::test::resolver = nullptr;
        kor::test::hostName = nullptr;
    }
    XCloseDisplay(a);
    XCloseDisplay(b);
}

INSTANTIATE_TEST_SUITE_P(Names, SameDisplay, testing::ValuesIn(rows),
                         [](const auto& row) { return row.param.behaviour; });
