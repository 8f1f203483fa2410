// What a program's windows cost in the end, beside the same program on the system's own GL library.
#include "session.h"

#include <gtest/gtest.h>

#include <cstdio>

namespace kor::e2e {
namespace {

constexpr std::chrono::seconds kTime(80);

struct MemoryCase {
    std::string name;
    std::vector<std::string> command;
    std::vector<std::string> environment = {};
    int windows = 1; // at a time
};

void PrintTo(const MemoryCase& row, std::ostream* out) {
    *out << row.name;
}

struct Memory {
    long resident = 0; // KB
    int segments = 0;
};

Memory memoryOf(Road road, const MemoryCase& row) {
    const Session session(road);
    const test::CommandResult result =
        runCommand(session.client(row.command, row.environment), kTime);
    EXPECT_EQ(result.status, 0) << summary(result);
    EXPECT_EQ(usedLibrary(result), road != Road::System) << summary(result);
    Memory memory;
    EXPECT_EQ(std::sscanf(result.output.c_str(), "resident %ld segments %d", &memory.resident,
                          &memory.segments),
              2)
        << summary(result);
    return memory;
}

class MemoryTest : public testing::TestWithParam<MemoryCase> {};

// A window costs a pbuffer, a second context, a worker with a third one, two textures and an image;
// that is constant and allowed for. What would be kept of every size or window is far more.
TEST_P(MemoryTest, StaysWithinABoundOfTheSystemsOwn) {
    const MemoryCase& row = GetParam();
    const Memory direct = memoryOf(Road::System, row);
    const Memory ours = memoryOf(Road::Library, row);
    EXPECT_LE(ours.resident, 2 * direct.resident + row.windows * 40'000);
    EXPECT_LE(ours.segments, direct.segments + 10 + row.windows * 6);
    RecordProperty("direct", std::to_string(direct.resident) + " KB, " +
                                 std::to_string(direct.segments) + " segments");
    RecordProperty("ours", std::to_string(ours.resident) + " KB, " + std::to_string(ours.segments) +
                               " segments");
}

INSTANTIATE_TEST_SUITE_P(
    Programs, MemoryTest,
    testing::Values(MemoryCase{.name = "ResizedAtEveryFrame",
                               .command = {"memory_client", "resizes", "300"}},
                    MemoryCase{.name = "ResizedAtEveryFrameWithoutReadback",
                               .command = {"memory_client", "resizes", "300"},
                               .environment = {"KOR_GL_NO_READBACK=1"}},
                    MemoryCase{.name = "ResizedInFourThreads",
                               .command = {"memory_client", "threads", "120"},
                               .windows = 4},
                    MemoryCase{.name = "WindowsDestroyedWithNoContextCurrent",
                               .command = {"memory_client", "windows", "60"},
                               .environment = {"KOR_GL_FREE_DRAWABLES_WITHOUT_CONTEXT=1"}}),
    [](const testing::TestParamInfo<MemoryCase>& info) { return info.param.name; });

} // namespace
} // namespace kor::e2e
