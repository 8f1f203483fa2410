#include "adapter/request_stream.h"

#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace kor::adapter {
namespace {

std::string word(std::uint32_t value) {
    std::string bytes(4, '\0');
    std::memcpy(bytes.data(), &value, 4);
    return bytes;
}

/// A request of `length` words, its first word being the resource.
std::string request(int major, int minor, std::uint32_t resource, std::uint16_t length) {
    std::string bytes(std::size_t{length} * 4, 'x');
    bytes[0] = static_cast<char>(major);
    bytes[1] = static_cast<char>(minor);
    std::memcpy(bytes.data() + 2, &length, 2);
    if (length > 1)
        bytes.replace(4, 4, word(resource));
    return bytes;
}

/// A request with the long length of BIG-REQUESTS.
std::string bigRequest(int major, std::uint32_t resource, std::uint32_t length) {
    std::string bytes(std::size_t{length} * 4, 'y');
    bytes.replace(0, 4, std::string{static_cast<char>(major), 2, 0, 0});
    bytes.replace(4, 4, word(length));
    if (length > 2)
        bytes.replace(8, 4, word(resource));
    return bytes;
}

struct Seen {
    int major;
    int minor;
    std::uint32_t resource;
    std::size_t number; // counted from 1 over the whole output
    bool operator==(const Seen&) const = default;
};

void PrintTo(const Seen& seen, std::ostream* stream) {
    *stream << "request " << seen.number << ": " << seen.major << "." << seen.minor << " on "
            << seen.resource;
}

/// Reads an output in pieces. `begun` counts the requests that Xlib has numbered at each piece.
std::vector<Seen> readPieces(const std::string& output, std::size_t pieceSize,
                             const std::vector<std::size_t>& starts) {
    RequestStream stream;
    std::vector<Seen> seen;
    for (std::size_t at = 0; at < output.size(); at += pieceSize) {
        const std::string piece = output.substr(at, pieceSize);
        std::size_t last = 0;
        while (last < starts.size() && starts[last] < at + piece.size())
            last++;
        stream.read(piece.data(), piece.size(), [&](const RequestHead& head) {
            seen.push_back({head.major, head.minor, head.resource, last - head.later});
        });
    }
    return seen;
}

TEST(RequestStream, FindsEveryRequestHoweverItIsCut) {
    const std::vector<std::string> requests = {
        request(72, 2, 0x200001, 10), request(43, 0, 0, 1),          bigRequest(72, 0x300002, 7),
        request(130, 3, 0x300003, 9), bigRequest(99, 0, 2),          request(14, 0, 0x300004, 2),
        request(43, 0, 0, 1),         request(72, 2, 0x300005, 200),
    };
    std::string output;
    std::vector<std::size_t> starts;
    for (const std::string& one : requests) {
        starts.push_back(output.size());
        output += one;
    }
    const std::vector<Seen> wanted = {
        {72, 2, 0x200001, 1}, {43, 0, 0, 2},        {72, 2, 0x300002, 3}, {130, 3, 0x300003, 4},
        {99, 2, 0, 5},        {14, 0, 0x300004, 6}, {43, 0, 0, 7},        {72, 2, 0x300005, 8}};
    EXPECT_EQ(readPieces(output, output.size(), starts), wanted);
    // Xlib never cuts a head; a cut between a head and its data, and between requests, is usual.
    for (const std::size_t piece : {12U, 16U, 20U, 40U, 41U, 100U}) {
        std::vector<Seen> seen = readPieces(output, piece, starts);
        ASSERT_EQ(seen.size(), wanted.size()) << piece;
        for (std::size_t i = 0; i < seen.size(); i++) {
            EXPECT_EQ(seen[i].major, wanted[i].major) << piece;
            EXPECT_EQ(seen[i].resource, wanted[i].resource) << piece;
        }
    }
}

TEST(RequestStream, NumbersRequestsWhoseDataComesInOtherPieces) {
    const std::string first = request(72, 0, 1, 100);
    const std::string second = request(72, 0, 2, 6);
    const std::string output = first + second;
    const std::vector<Seen> wanted = {{72, 0, 1, 1}, {72, 0, 2, 2}};
    EXPECT_EQ(readPieces(output, 24, {0, first.size()}), wanted);
    EXPECT_EQ(readPieces(output, 400, {0, first.size()}), wanted);
    EXPECT_EQ(readPieces(output, 424, {0, first.size()}), wanted);
}

TEST(RequestStream, ReadsNonsenseToItsEnd) {
    RequestStream stream;
    std::string nonsense(1000, '\0'); // lengths of 0 words
    int heads = 0;
    stream.read(nonsense.data(), nonsense.size(), [&](const RequestHead&) { heads++; });
    EXPECT_EQ(heads, 125) << "each takes the eight bytes of a head with a long length";
}

} // namespace
} // namespace kor::adapter
