// Before the X headers, whose macros have names of its types.
#include <gtest/gtest.h>

#include "framework/x_server.h"
#include "raw_client.h"

#include <memory>

/// What GLX tells its clients of vendors' libraries, on real servers.

namespace {

using namespace kor::test;

constexpr uint8_t QueryServerString = 19;
constexpr uint32_t Vendor = 1;
constexpr uint32_t VendorNames = 0x20F6;
constexpr uint8_t BadLength = 16;

class VendorNamesTest : public testing::TestWithParam<ByteOrder> {
  protected:
    static void SetUpTestSuite() {
        XServer::Options options;
        ours = std::make_unique<XServer>(options);
        options.arguments = {"-novendor"};
        silent = std::make_unique<XServer>(options);
    }
    static void TearDownTestSuite() {
        ours.reset();
        silent.reset();
    }

    static std::vector<uint8_t> request(RawClient& client, const std::vector<uint32_t>& words) {
        RequestBuilder builder(client.order());
        builder.u8(client.majorOpcode("GLX"))
            .u8(QueryServerString)
            .u16(static_cast<uint16_t>(words.size() + 1));
        for (const uint32_t word : words)
            builder.u32(word);
        return builder.bytes();
    }
    static Answer ask(const XServer& server, const std::vector<uint32_t>& words) {
        RawClient client(server.number(), GetParam());
        Answer answer = client.ask(request(client, words));
        // The stream stays in step.
        EXPECT_EQ(client.getWindowInfo(client.root()).status(), 1);
        return answer;
    }
    static std::string text(const Answer& answer) {
        EXPECT_TRUE(answer.isReply());
        const size_t length = answer.u32(12);
        EXPECT_EQ(answer.u32(4), (length + 3) / 4);
        EXPECT_EQ(answer.bytes.size(), 32 + (length + 3) / 4 * 4);
        EXPECT_GT(length, 0u);
        if (length == 0 || answer.bytes.size() < 32 + length)
            return "";
        EXPECT_EQ(answer.bytes[31 + length], 0) << "the text has no end";
        for (size_t offset = 32 + length; offset < answer.bytes.size(); ++offset)
            EXPECT_EQ(answer.bytes[offset], 0) << "server memory in the padding";
        for (const size_t offset : {1, 8, 9, 10, 11, 16, 20, 24, 28, 31})
            EXPECT_EQ(answer.bytes[offset], 0) << "server memory at offset " << offset;
        return {answer.bytes.begin() + 32,
                answer.bytes.begin() + static_cast<std::ptrdiff_t>(31 + length)};
    }

    static inline std::unique_ptr<XServer> ours;   ///< as it comes
    static inline std::unique_ptr<XServer> silent; ///< told not to name our library
};

TEST_P(VendorNamesTest, OurNameComesBeforeTheServersOwn) {
    const std::string own = text(ask(*silent, {0, VendorNames}));
    ASSERT_FALSE(own.empty());
    EXPECT_NE(own.substr(0, 3), "kor");
    EXPECT_EQ(text(ask(*ours, {0, VendorNames})), "kor " + own);
    EXPECT_EQ(text(ask(*ours, {0, VendorNames})), "kor " + own) << "asked again";
}

TEST_P(VendorNamesTest, OtherStringsAreTheServers) {
    const Answer answer = ask(*ours, {0, Vendor});
    EXPECT_EQ(text(answer), text(ask(*silent, {0, Vendor})));
}

TEST_P(VendorNamesTest, AScreenThatIsNoneIsAnErrorAsEver) {
    for (const uint32_t screen : {1u, 16u, 0xffffffffu}) {
        const Answer answer = ask(*ours, {screen, VendorNames});
        ASSERT_TRUE(answer.isError());
        EXPECT_EQ(answer.errorCode(), ask(*silent, {screen, VendorNames}).errorCode());
    }
}

TEST_P(VendorNamesTest, ARequestOfTheWrongLengthIsAnErrorAsEver) {
    for (const auto& words :
         std::vector<std::vector<uint32_t>>{{}, {0}, {0, VendorNames, VendorNames}}) {
        const Answer answer = ask(*ours, words);
        ASSERT_TRUE(answer.isError()) << words.size();
        EXPECT_EQ(answer.errorCode(), BadLength) << words.size();
    }
}

TEST_P(VendorNamesTest, ManyClientsGetTheSame) {
    const std::string first = text(ask(*ours, {0, VendorNames}));
    for (int i = 0; i < 50; ++i)
        ASSERT_EQ(text(ask(*ours, {0, VendorNames})), first);
}

INSTANTIATE_TEST_SUITE_P(Orders, VendorNamesTest,
                         testing::Values(ByteOrder::Little, ByteOrder::Big), [](const auto& order) {
                             return order.param == ByteOrder::Big ? "BigEndian" : "LittleEndian";
                         });

} // namespace
