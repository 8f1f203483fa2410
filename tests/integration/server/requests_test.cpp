// Before the X headers, whose macros have names of its types.
#include <gtest/gtest.h>

#include "framework/x_server.h"
#include "raw_client.h"

#include <X11/X.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/security.h>
#include <atomic>
#include <cstdlib>
#include <memory>
#include <random>
#include <thread>

/// GetGLDisplay, and what the extension does with requests that are none of its own.

namespace {

using namespace kor::test;

std::string nameIn(const Answer& answer) {
    return {answer.bytes.begin() + 32, answer.bytes.begin() + 32 + answer.u32(8)};
}

class GLDisplay : public testing::TestWithParam<ByteOrder> {
  protected:
    static Answer answerFor(const std::string& name) {
        XServer::Options options;
        options.glDisplay = name;
        XServer server(options);
        RawClient client(server.number(), GetParam());
        Answer answer = client.getGLDisplay();
        // The stream stays in step, and the answer the same.
        EXPECT_EQ(client.getGLDisplay().u32(8), answer.u32(8));
        EXPECT_EQ(client.getWindowInfo(client.root()).status(), 1);
        return answer;
    }
    static void expectName(const std::string& name) {
        SCOPED_TRACE(name);
        const Answer answer = answerFor(name);
        ASSERT_TRUE(answer.isReply());
        EXPECT_EQ(answer.status(), 1);
        const size_t words = (name.size() + 3) / 4;
        EXPECT_EQ(answer.u32(4), words);
        EXPECT_EQ(answer.u32(8), name.size());
        for (size_t offset = 12; offset < 32; ++offset)
            EXPECT_EQ(answer.bytes[offset], 0) << "server memory at offset " << offset;
        ASSERT_EQ(answer.bytes.size(), 32 + 4 * words);
        EXPECT_EQ(nameIn(answer), name);
        for (size_t offset = 32 + name.size(); offset < answer.bytes.size(); ++offset)
            EXPECT_EQ(answer.bytes[offset], 0) << "server memory in the padding";
    }
};

TEST_P(GLDisplay, NamesOfEveryPadding) {
    for (const char* name : {":0.0", ":10.0", "gpu:10", ":0", "gpu:0.0"})
        expectName(name);
}

TEST_P(GLDisplay, UnusualNames) {
    expectName("a b#c%s\\n'$HOME:0");
    expectName(std::string(252, 'h') + ":0");
    expectName(std::string(253, 'h') + ":0");
}

TEST_P(GLDisplay, NoneGiven) {
    const Answer answer = answerFor("");
    ASSERT_EQ(answer.bytes.size(), 32u);
    EXPECT_TRUE(answer.isReply());
    for (const size_t offset : {1, 4, 5, 6, 7, 8, 9, 10, 11})
        EXPECT_EQ(answer.bytes[offset], 0) << offset;
}

INSTANTIATE_TEST_SUITE_P(Orders, GLDisplay, testing::Values(ByteOrder::Little, ByteOrder::Big),
                         [](const auto& order) {
                             return order.param == ByteOrder::Big ? "BigEndian" : "LittleEndian";
                         });

class Requests : public testing::TestWithParam<ByteOrder> {
  protected:
    void SetUp() override { client = std::make_unique<RawClient>(server.number(), GetParam()); }

    void expectError(uint8_t code, uint8_t minor, const std::vector<uint32_t>& words) {
        SCOPED_TRACE("minor " + std::to_string(minor) + " with " + std::to_string(words.size()) +
                     " words");
        const Answer answer = client->ask(client->korRequest(minor, words));
        ASSERT_TRUE(answer.isError());
        EXPECT_EQ(answer.errorCode(), code);
        EXPECT_EQ(answer.u16(8), minor);
        EXPECT_EQ(answer.bytes[10], client->majorOpcode("KOR-V1"));
        EXPECT_EQ(client->getWindowInfo(client->root()).status(), 1) << "the client goes on";
    }

    XServer server{XServer::Options{.glDisplay = ":7"}};
    std::unique_ptr<RawClient> client;
};

TEST_P(Requests, WrongLengths) {
    expectError(BadLength, 0, {});
    expectError(BadLength, 0, {client->root()});
    expectError(BadLength, 0, {client->root(), 0, 0});
    expectError(BadLength, 0, std::vector<uint32_t>(1000, client->root()));
    expectError(BadLength, 1, {0});
    expectError(BadLength, 1, {0, 0});
}

TEST_P(Requests, UnknownMinorCodes) {
    for (const int minor : {2, 3, 127, 128, 255}) {
        expectError(BadRequest, static_cast<uint8_t>(minor), {});
        expectError(BadRequest, static_cast<uint8_t>(minor), {client->root(), 0});
    }
}

/// The extended form has a zero where the length was, and the length in a word of its own.
TEST_P(Requests, ExtendedLengthForm) {
    const uint8_t bigRequests = client->majorOpcode("BIG-REQUESTS");
    ASSERT_NE(bigRequests, 0);
    RequestBuilder enable(GetParam());
    ASSERT_TRUE(client->ask(enable.u8(bigRequests).u8(0).u16(1).bytes()).isReply());

    const uint8_t kor = client->majorOpcode("KOR-V1");
    RequestBuilder right(GetParam());
    right.u8(kor).u8(0).u16(0).u32(4).u32(client->root()).u32(0);
    EXPECT_EQ(client->ask(right.bytes()).status(), 1);
    RequestBuilder wrong(GetParam());
    wrong.u8(kor).u8(0).u16(0).u32(5).u32(client->root()).u32(0).u32(0);
    const Answer answer = client->ask(wrong.bytes());
    ASSERT_TRUE(answer.isError());
    EXPECT_EQ(answer.errorCode(), BadLength);
}

/// The server's own policy keeps untrusted clients from extensions that it does not know as safe.
TEST_P(Requests, UntrustedClientLearnsNothing) {
    Display* display = XOpenDisplay(server.name().c_str());
    ASSERT_NE(display, nullptr);
    const Window window =
        XCreateSimpleWindow(display, DefaultRootWindow(display), 0, 0, 9, 9, 0, 0, 0);
    XSync(display, False);
    ASSERT_EQ(client->getWindowInfo(static_cast<uint32_t>(window)).status(), 1);

    // SecurityGenerateAuthorization for an untrusted client.
    const uint8_t security = client->majorOpcode("SECURITY");
    ASSERT_NE(security, 0);
    const std::string protocol = "MIT-MAGIC-COOKIE-1";
    RequestBuilder generate(GetParam());
    generate.u8(security).u8(1).u16(static_cast<uint16_t>(4 + (protocol.size() + 3) / 4));
    generate.u16(static_cast<uint16_t>(protocol.size())).u16(0);
    generate.u32(XSecurityTrustLevel).text(protocol).u32(XSecurityClientUntrusted);
    const Answer authority = client->ask(generate.bytes());
    ASSERT_TRUE(authority.isReply());
    const std::string cookie(authority.bytes.begin() + 32,
                             authority.bytes.begin() + 32 + authority.u16(12));

    RawClient untrusted(server.number(), GetParam(), cookie);
    EXPECT_EQ(untrusted.majorOpcode("KOR-V1"), 0) << "the extension is not even shown";
    RequestBuilder request(GetParam());
    request.u8(client->majorOpcode("KOR-V1")).u8(0).u16(3);
    request.u32(static_cast<uint32_t>(window)).u32(0);
    EXPECT_TRUE(untrusted.ask(request.bytes()).isError());
    XCloseDisplay(display);
}

TEST_P(Requests, WithoutTheCookieNoConnection) {
    EXPECT_THROW(RawClient(server.number(), GetParam(), std::string(16, 'x')), std::runtime_error);
    EXPECT_THROW(RawClient(server.number(), GetParam(), ""), std::runtime_error);
}

/// Sends random requests in batches, and checks that each gets the one answer that it must get.
void bombard(int display, ByteOrder order, unsigned seed, int requests) {
    std::mt19937 random(seed);
    auto below = [&](uint32_t limit) { return static_cast<uint32_t>(random() % limit); };
    RawClient client(display, order);
    const uint32_t windows[] = {client.root(), 0, 0xFFFFFFFF};

    for (int done = 0; done < requests;) {
        struct Sent {
            uint8_t minor;
            std::vector<uint32_t> words;
        };
        std::vector<Sent> batch(1 + below(60));
        std::vector<std::vector<uint8_t>> bytes;
        for (Sent& sent : batch) {
            sent.minor = static_cast<uint8_t>(below(4) == 0 ? random() : below(2));
            sent.words.resize(below(8) == 0 ? below(200) : below(4));
            for (uint32_t& word : sent.words)
                word = below(2) == 0 ? windows[below(std::size(windows))]
                                     : static_cast<uint32_t>(random());
            bytes.push_back(client.korRequest(sent.minor, sent.words));
        }
        client.sendAll(bytes);
        for (const Sent& sent : batch) {
            const Answer answer = client.receive();
            ASSERT_FALSE(answer.bytes.empty()) << "the connection is gone";
            if (sent.minor > 1) {
                ASSERT_TRUE(answer.isError());
                ASSERT_EQ(answer.errorCode(), BadRequest);
            } else if (sent.words.size() != (sent.minor == 0 ? 2u : 0u)) {
                ASSERT_TRUE(answer.isError());
                ASSERT_EQ(answer.errorCode(), BadLength);
            } else if (sent.minor == 0) {
                ASSERT_TRUE(answer.isReply());
                ASSERT_EQ(answer.bytes.size(), 32u);
                if (sent.words[0] == client.root()) {
                    ASSERT_EQ(answer.status(), 1);
                    ASSERT_EQ(answer.u32(16), 1024u);
                }
            } else {
                ASSERT_TRUE(answer.isReply());
                ASSERT_EQ(nameIn(answer), ":7");
            }
        }
        done += static_cast<int>(batch.size());
    }
}

TEST(Stress, RandomRequestsOfSeveralClients) {
    const int requests = getenv("KOR_STRESS") ? 100000 : 4000;
    constexpr int clients = 4;
    XServer server(XServer::Options{.glDisplay = ":7"});
    std::vector<std::thread> threads;
    threads.reserve(clients);
    for (unsigned i = 0; i < clients; ++i)
        threads.emplace_back(bombard, server.number(), i % 2 ? ByteOrder::Big : ByteOrder::Little,
                             i + 1, requests / clients);
    for (std::thread& thread : threads)
        thread.join();
    RawClient client(server.number(), ByteOrder::Little);
    EXPECT_EQ(client.getWindowInfo(client.root()).status(), 1);
    EXPECT_TRUE(server.process().running());
    EXPECT_EQ(server.stop(), 0);
}

/// A client that ends in the middle of a request takes nothing with it.
TEST_P(Requests, ClientThatBreaksOff) {
    for (int i = 0; i < 20; ++i) {
        RawClient broken(server.number(), GetParam());
        std::vector<uint8_t> request = broken.korRequest(0, {broken.root(), 0});
        request.resize(1 + static_cast<size_t>(i) % 11);
        broken.send(request);
    }
    for (int i = 0; i < 20; ++i) {
        RawClient deaf(server.number(), GetParam());
        deaf.sendAll(std::vector<std::vector<uint8_t>>(50, deaf.korRequest(1, {})));
    }
    EXPECT_EQ(client->getWindowInfo(client->root()).status(), 1);
}

INSTANTIATE_TEST_SUITE_P(Orders, Requests, testing::Values(ByteOrder::Little, ByteOrder::Big),
                         [](const auto& order) {
                             return order.param == ByteOrder::Big ? "BigEndian" : "LittleEndian";
                         });

} // namespace
