#include "transport/frame_statistics.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <new>
#include <sys/mman.h>
#include <unistd.h>

namespace kor::gl {

namespace {

StatisticsPage* page = nullptr; // the copyback thread's; never unmapped

/// A file of its own in the folder that the environment names; -1 where that names none, or there
/// is no room: a mapping of a file that cannot grow would end the process.
int namedFile() {
    const char* folder = secure_getenv(statisticsVariable);
    if (folder == nullptr || *folder == '\0')
        return -1;
    char path[4096];
    const int length = snprintf(path, sizeof path, "%s/%s.%d", folder, statisticsFileName,
                                static_cast<int>(getpid()));
    if (length < 0 || length >= static_cast<int>(sizeof path))
        return -1;
    const int file = open(path, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (file >= 0 && posix_fallocate(file, 0, sizeof(StatisticsPage)) != 0) {
        close(file);
        unlink(path);
        return -1;
    }
    return file;
}

/// A file in memory; it stays open, for whoever looks among the process's files.
int memoryFile() {
    const int file = memfd_create(statisticsFileName, MFD_CLOEXEC | MFD_ALLOW_SEALING);
    if (file >= 0 && (ftruncate(file, sizeof(StatisticsPage)) != 0 ||
                      fcntl(file, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW) != 0)) {
        close(file);
        return -1;
    }
    return file;
}

} // namespace

void openStatisticsPage() {
    int file = namedFile();
    const bool named = file >= 0;
    if (!named)
        file = memoryFile();
    if (file < 0)
        return;
    void* memory =
        mmap(nullptr, sizeof(StatisticsPage), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    if (memory == MAP_FAILED) {
        close(file);
        return;
    }
    page = new (memory) StatisticsPage;
    page->process = static_cast<uint32_t>(getpid());
    page->timingBudget = named ? timeAllFrames : 0;
    page->magic = statisticsMagic;
}

FrameStatistics::~FrameStatistics() {
    // From here on another window may get the line.
    if (line_ != nullptr)
        line_->state = StatisticsLine::Ended;
}

uint64_t FrameStatistics::now() {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<uint64_t>(time.tv_sec) * 1'000'000'000 + static_cast<uint64_t>(time.tv_nsec);
}

/// A line that is free, or else that of the window that has ended first; null when all are in use.
/// Only the copyback thread takes lines.
StatisticsLine* FrameStatistics::claimLine(Window window) {
    if (page == nullptr)
        return nullptr;
    StatisticsLine* chosen = nullptr;
    for (StatisticsLine& line : page->lines) {
        if (line.state == StatisticsLine::Free) {
            chosen = &line;
            break;
        }
        if (line.state == StatisticsLine::Ended && (chosen == nullptr || line.last < chosen->last))
            chosen = &line;
    }
    if (chosen == nullptr)
        return nullptr;
    *chosen = StatisticsLine();
    chosen->window = window;
    chosen->rendered = rendered_;
    chosen->dropped = dropped_;
    chosen->begun = chosen->last = now();
    chosen->state = StatisticsLine::Live;
    return chosen;
}

void FrameStatistics::begins(Window window) {
    if (!claimed_) {
        claimed_ = true;
        line_ = claimLine(window);
    }
    timing_ = false;
    if (line_ == nullptr)
        return;
    const uint32_t budget = page->timingBudget;
    if (budget == 0)
        return;
    if (budget != timeAllFrames)
        page->timingBudget = budget - 1;
    timing_ = true;
    beganAt_ = now();
}

void FrameStatistics::painted(int width, int height, bool sharedMemory) {
    ++painted_;
    if (line_ == nullptr)
        return;
    line_->painted = painted_;
    line_->width = static_cast<uint32_t>(width);
    line_->height = static_cast<uint32_t>(height);
    line_->strategy = sharedMemory ? StatisticsLine::SharedMemory : StatisticsLine::PlainRequests;
    if (!timing_)
        return;
    const uint64_t end = now();
    line_->readbackNanoseconds = line_->readbackNanoseconds + (transferredAt_ - beganAt_);
    line_->paintingNanoseconds = line_->paintingNanoseconds + (end - transferredAt_);
    line_->timed = line_->timed + 1;
    line_->last = end;
}

void FrameStatistics::failed() {
    ++dropped_;
    if (line_ != nullptr)
        line_->dropped = dropped_;
}

} // namespace kor::gl
