#include "transport/frame_statistics.h"

#include "support/failures.h"
#include "support/forked_child.h"
#include "support/mutex.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <new>
#include <sys/mman.h>
#include <unistd.h>

namespace kor::gl {

namespace {

std::atomic<StatisticsPage*> page{nullptr}; // never unmapped
int pageFile = -1;                          // stays open

/// A child shows frames of its own: neither writes it on its parent's page, nor is it to be found
/// by way of the child.
InForkedChild forgetPage([] {
    if (page.exchange(nullptr, std::memory_order_relaxed) != nullptr)
        close(pageFile);
});

struct Opening {
    Mutex mutex; // held while the page is made; guards the next one
    bool tried = false;
};
PerProcess<Opening> opening;

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

/// Takes a line that is free, or else that of the window that has ended first; null when all are in
/// use. Several threads may look for one at the same time.
StatisticsLine* takeLine(StatisticsPage& page) {
    for (StatisticsLine& line : page.lines)
        if (line.state == StatisticsLine::Free &&
            line.state.replace(StatisticsLine::Free, StatisticsLine::Taken))
            return &line;
    while (true) {
        StatisticsLine* oldest = nullptr;
        for (StatisticsLine& line : page.lines)
            if (line.state == StatisticsLine::Ended &&
                (oldest == nullptr || line.last < oldest->last))
                oldest = &line;
        if (oldest == nullptr ||
            oldest->state.replace(StatisticsLine::Ended, StatisticsLine::Taken))
            return oldest;
    }
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
    auto* const made = new (memory) StatisticsPage;
    made->process = static_cast<uint32_t>(getpid());
    made->timingBudget = named ? timeAllFrames : 0;
    made->magic = statisticsMagic;
    pageFile = file;
    page.store(made, std::memory_order_release);
}

void ensureStatisticsPage() try {
    if (page.load(std::memory_order_acquire) != nullptr)
        return;
    const Lock lock(opening->mutex);
    if (!opening->tried && page.load(std::memory_order_relaxed) == nullptr)
        openStatisticsPage();
    opening->tried = true;
}
KOR_OTHERWISE() // nothing is counted then

FrameStatistics::~FrameStatistics() {
    // From here on another window may get the line.
    if (StatisticsLine* line = line_.load(std::memory_order_acquire))
        line->state = StatisticsLine::Ended;
}

uint64_t FrameStatistics::now() {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<uint64_t>(time.tv_sec) * 1'000'000'000 + static_cast<uint64_t>(time.tv_nsec);
}

bool FrameStatistics::claimLine(Window window) {
    // The look alone on the road of every frame: an exchange locks the bus.
    if (claimed_.load(std::memory_order_relaxed) ||
        claimed_.exchange(true, std::memory_order_relaxed))
        return false;
    ensureStatisticsPage();
    StatisticsPage* const shown = page.load(std::memory_order_acquire);
    StatisticsLine* const line = shown == nullptr ? nullptr : takeLine(*shown);
    if (line == nullptr)
        return false;
    line->strategy = StatisticsLine::Unknown;
    for (auto* size : {&line->width, &line->height})
        *size = 0;
    for (auto* counter :
         {&line->painted, &line->timed, &line->readbackNanoseconds, &line->paintingNanoseconds})
        *counter = 0;
    line->window = window;
    line->rendered = rendered_.load();
    line->dropped = dropped_.load();
    line->hidden = hidden_.load(std::memory_order_relaxed);
    line->begun = now();
    line->last = line->begun;
    line->state = StatisticsLine::Live;
    line_.store(line, std::memory_order_release);
    return true;
}

void FrameStatistics::sized(int width, int height) {
    if (StatisticsLine* line = line_.load(std::memory_order_acquire)) {
        line->width = static_cast<uint32_t>(width);
        line->height = static_cast<uint32_t>(height);
    }
}

void FrameStatistics::begins(Window window) {
    claimLine(window);
    timing_ = false;
    StatisticsPage* const shown = page.load(std::memory_order_acquire);
    if (line_.load(std::memory_order_acquire) == nullptr)
        return;
    const uint32_t budget = shown->timingBudget;
    if (budget == 0)
        return;
    if (budget != timeAllFrames)
        shown->timingBudget = budget - 1;
    timing_ = true;
    beganAt_ = now();
}

void FrameStatistics::painted(int width, int height, bool sharedMemory) {
    ++painted_;
    StatisticsLine* const line = line_.load(std::memory_order_acquire);
    if (line == nullptr)
        return;
    line->painted = painted_;
    line->width = static_cast<uint32_t>(width);
    line->height = static_cast<uint32_t>(height);
    line->strategy = sharedMemory ? StatisticsLine::SharedMemory : StatisticsLine::PlainRequests;
    if (!timing_)
        return;
    const uint64_t end = now();
    line->readbackNanoseconds = line->readbackNanoseconds + (transferredAt_ - beganAt_);
    line->paintingNanoseconds = line->paintingNanoseconds + (end - transferredAt_);
    line->timed = line->timed + 1;
    line->last = end;
}

void FrameStatistics::failed() {
    dropped_ = dropped_ + 1;
    if (StatisticsLine* line = line_.load(std::memory_order_acquire))
        line->dropped = dropped_.load();
}

} // namespace kor::gl
