#include "config/log_folding.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <ctime>

namespace kor {

namespace {

constexpr uint32_t longestPause = 10; // seconds between two of a series
constexpr size_t ways = 4;            // places where one line may be remembered

struct SaidLine {
    std::atomic<uint64_t> key{0};
    std::atomic<uint32_t> times{0};
    std::atomic<uint32_t> last{0}; // seconds since the machine's start
};
constinit std::array<SaidLine, 64> saidLines;

uint64_t hash(uint64_t start, const char* text) {
    for (; text != nullptr && *text != '\0'; ++text)
        start = (start ^ static_cast<unsigned char>(*text)) * 0x100000001b3;
    return start;
}

uint32_t seconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return static_cast<uint32_t>(now.tv_sec);
}

/// The place of that line; of another one that has not been said for longest, if need be.
SaidLine& placeOf(uint64_t key) {
    SaidLine* const first = &saidLines[key % (saidLines.size() / ways) * ways];
    SaidLine* oldest = first;
    for (SaidLine* line = first; line != first + ways; ++line) {
        if (line->key.load(std::memory_order_relaxed) == key)
            return *line;
        if (line->last.load(std::memory_order_relaxed) <
            oldest->last.load(std::memory_order_relaxed))
            oldest = line;
    }
    oldest->times.store(0, std::memory_order_relaxed);
    oldest->key.store(key, std::memory_order_relaxed);
    return *oldest;
}

} // namespace

unsigned timesSaid(const char* function, const char* format, va_list arguments) {
    char text[1024]; // lines that differ later only count as one
    vsnprintf(text, sizeof text, format, arguments);
    SaidLine& line = placeOf(hash(hash(0xcbf29ce484222325, function), text));
    const uint32_t now = seconds();
    const uint32_t last = line.last.exchange(now, std::memory_order_relaxed);
    if (now - last > longestPause)
        line.times.store(0, std::memory_order_relaxed);
    return line.times.fetch_add(1, std::memory_order_relaxed) + 1;
}

bool isWritten(unsigned times) {
    if (times < firstFolded)
        return true;
    while (times % 10 == 0)
        times /= 10;
    return times == 1;
}

} // namespace kor
