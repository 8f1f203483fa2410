// requests_stress: requests of any bytes to the server's extension, from many clients at once and
// in both byte orders. Needs DISPLAY and XAUTHORITY.
//   --clients, --seconds
// Lengths are right in most requests. Where they are not, every word begins with the extension's
// opcode, so that whatever the server takes for the next request is the extension's as well: what a
// client may do with the server's other requests is none of this.
#include "integration/server/raw_client.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>

using namespace kor::test;

namespace {

using Clock = std::chrono::steady_clock;
std::atomic<long> sent{0};
std::atomic<long> connections{0};
std::atomic<long> refused{0};
std::atomic<long> wrong{0};

int displayNumber() {
    const char* const name = std::getenv("DISPLAY");
    return name != nullptr && name[0] == ':' ? std::atoi(name + 1) : -1;
}

std::vector<uint8_t> anyBytes(std::mt19937& random, uint8_t opcode, size_t words) {
    std::vector<uint8_t> bytes;
    for (size_t i = 0; i < words; ++i) {
        bytes.push_back(opcode);
        bytes.push_back(static_cast<uint8_t>(random() % 4 == 0 ? random() : random() % 2));
        // One of them is the length's low byte, whichever the order.
        bytes.push_back(static_cast<uint8_t>(random() % 8 == 0 ? random() % 3 : 0));
        bytes.push_back(static_cast<uint8_t>(random() % 5));
    }
    return bytes;
}

// A connection's life: it ends as it likes, in the middle of a request too.
void live(int display, const std::string& cookie, std::mt19937& random) {
    const ByteOrder order = random() % 2 == 0 ? ByteOrder::Little : ByteOrder::Big;
    RawClient client(display, order, cookie);
    ++connections;
    const bool lying = random() % 3 == 0;
    const uint8_t opcode = client.majorOpcode("KOR-V1");
    for (int batch = static_cast<int>(random() % 20); batch >= 0; --batch) {
        if (lying) {
            client.sendAll({anyBytes(random, opcode, 1 + random() % 300)});
            ++sent;
            continue;
        }
        std::vector<std::vector<uint8_t>> requests(1 + random() % 30);
        for (std::vector<uint8_t>& request : requests) {
            std::vector<uint32_t> words(random() % 3 == 0 ? random() % 200 : 2);
            for (uint32_t& word : words)
                word = random() % 3 == 0 ? client.root() : static_cast<uint32_t>(random());
            const bool known = random() % 3 != 0;
            request =
                client.korRequest(static_cast<uint8_t>(known ? random() % 2 : random()), words);
        }
        client.sendAll(requests);
        sent += static_cast<long>(requests.size());
        for (size_t i = 0; i < requests.size(); ++i) {
            const Answer answer = client.receive();
            if (answer.bytes.empty() || (!answer.isReply() && !answer.isError())) {
                ++wrong;
                return;
            }
        }
    }
}

} // namespace

int main(int count, char** words) {
    std::map<std::string, int> options{{"--clients", 50}, {"--seconds", 10}, {"--seed", 1}};
    for (int i = 1; i + 1 < count; i += 2)
        options[words[i]] = std::atoi(words[i + 1]);
    const int display = displayNumber();
    const char* const file = std::getenv("XAUTHORITY");
    if (display < 0 || file == nullptr) {
        std::fprintf(stderr, "failed: DISPLAY and XAUTHORITY name a local server\n");
        return 1;
    }
    const std::string cookie = cookieIn(file);
    const auto end = Clock::now() + std::chrono::seconds(options["--seconds"]);
    std::vector<std::thread> threads;
    for (int i = 0; i < options["--clients"]; ++i)
        threads.emplace_back([&, i] {
            std::mt19937 random(static_cast<unsigned>(options["--seed"] * 1000 + i));
            while (Clock::now() < end) {
                try {
                    live(display, cookie, random);
                } catch (const std::exception&) {
                    ++refused; // the server is full for a moment, or gone: the end tells
                }
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    std::printf("requests %ld\nconnections %ld\nrefused %ld\nwrong %ld\n", sent.load(),
                connections.load(), refused.load(), wrong.load());
    for (const ByteOrder order : {ByteOrder::Little, ByteOrder::Big}) {
        RawClient client(display, order, cookie);
        if (client.getWindowInfo(client.root()).status() != 1) {
            std::fprintf(stderr, "failed: a right request is not answered at the end\n");
            return 1;
        }
    }
    std::printf("requests_stress: passed\n");
    return wrong == 0 ? 0 : 1;
}
