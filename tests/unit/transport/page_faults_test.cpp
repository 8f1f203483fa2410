// The page of counters where the system refuses: the frames go on without it.
#include <gtest/gtest.h> // before the X headers, which make words of its into macros

#include "transport/frame_statistics.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// Which calls fail from now on.
bool noRoom, noMemoryFile, noSize, noMapping;

} // namespace

// The linker sends every call of these functions that this program's objects make to __wrap_NAME.
extern "C" {

int __real_posix_fallocate(int, off_t, off_t);
int __wrap_posix_fallocate(int file, off_t from, off_t length) {
    return noRoom ? ENOSPC : __real_posix_fallocate(file, from, length);
}

int __real_memfd_create(const char*, unsigned);
int __wrap_memfd_create(const char* name, unsigned flags) {
    return noMemoryFile ? -1 : __real_memfd_create(name, flags);
}

int __real_ftruncate(int, off_t);
int __wrap_ftruncate(int file, off_t length) {
    return noSize ? -1 : __real_ftruncate(file, length);
}

void* __real_mmap(void*, size_t, int, int, int, off_t);
void* __wrap_mmap(void* at, size_t length, int protection, int flags, int file, off_t from) {
    return noMapping ? MAP_FAILED : __real_mmap(at, length, protection, flags, file, from);
}
}

namespace {

long openFiles() {
    const std::filesystem::directory_iterator files("/proc/self/fd");
    return std::distance(begin(files), end(files));
}

/// In a process that has no page yet: opens one with a folder of that name, and paints a frame all
/// the same. The number of files that stay open, or -1.
int openWithFolder(const std::string& folder) {
    const pid_t child = fork();
    if (child == 0) {
        setenv(kor::gl::statisticsVariable, folder.c_str(), 1);
        const long before = openFiles();
        kor::gl::openStatisticsPage();
        const long after = openFiles();
        kor::gl::FrameStatistics statistics;
        statistics.rendered(false);
        statistics.begins(0x77);
        statistics.transferred();
        statistics.painted(640, 480, true);
        statistics.failed();
        _exit(static_cast<int>(after - before));
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

class PageFaults : public testing::Test {
  protected:
    PageFaults() { mkdtemp(folder.data()); }
    ~PageFaults() override {
        noRoom = noMemoryFile = noSize = noMapping = false;
        std::filesystem::remove_all(folder);
    }
    std::string folder = testing::TempDir() + "kor-page-faults.XXXXXX";
};

} // namespace

TEST_F(PageFaults, AFolderWithoutRoomKeepsNoFileAndThePageIsInMemory) {
    noRoom = true;
    EXPECT_EQ(openWithFolder(folder), 1);
    EXPECT_TRUE(std::filesystem::is_empty(folder));
}

TEST_F(PageFaults, AFolderOfTooLongANameLeavesThePageInMemory) {
    EXPECT_EQ(openWithFolder(std::string(5000, 'f')), 1);
}

TEST_F(PageFaults, WithoutAnyFileThereIsNoPage) {
    noRoom = noMemoryFile = true;
    EXPECT_EQ(openWithFolder(folder), 0);
}

TEST_F(PageFaults, AMemoryFileThatCannotGrowIsClosedAgain) {
    noSize = true;
    EXPECT_EQ(openWithFolder(""), 0);
}

TEST_F(PageFaults, AFileThatCannotBeMappedIsClosedAgain) {
    noMapping = true;
    EXPECT_EQ(openWithFolder(folder), 0);
}
