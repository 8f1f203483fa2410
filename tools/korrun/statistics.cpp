#include "statistics.h"

#include "failure.h"
#include "file_descriptor.h"
#include "transport/statistics_page.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <unistd.h>

namespace korrun {

namespace files = std::filesystem;
using kor::gl::StatisticsLine;
using kor::gl::StatisticsPage;

namespace {

const char* strategyName(uint32_t strategy) {
    switch (strategy) {
    case StatisticsLine::SharedMemory:
        return "shared memory";
    case StatisticsLine::PlainRequests:
        return "plain requests";
    default:
        return "not painted yet";
    }
}

WindowStatistics describe(const StatisticsLine& line) {
    WindowStatistics window;
    window.window = line.window;
    window.ended = line.state == StatisticsLine::Ended;
    window.width = line.width;
    window.height = line.height;
    window.strategy = strategyName(line.strategy);
    window.rendered = line.rendered;
    window.hidden = line.hidden;
    window.painted = line.painted;
    window.dropped = line.dropped;
    window.timed = line.timed;
    window.readbackNanoseconds = line.readbackNanoseconds;
    window.paintingNanoseconds = line.paintingNanoseconds;
    if (line.last > line.begun)
        window.seconds = static_cast<double>(line.last - line.begun) / 1e9;
    return window;
}

std::string reportOf(pid_t process, const WindowStatistics& window) {
    const auto perSecond = [&](uint64_t frames) {
        return window.seconds > 0 ? static_cast<double>(frames) / window.seconds : 0.0;
    };
    const auto milliseconds = [&](uint64_t nanoseconds) {
        return window.timed > 0
                   ? static_cast<double>(nanoseconds) / static_cast<double>(window.timed) / 1e6
                   : 0.0;
    };
    char text[512];
    std::snprintf(text, sizeof text,
                  "process %d, window 0x%llx, %ux%u, %s, %.1f s: rendered %llu (%.1f/s), "
                  "painted %llu (%.1f/s), dropped %llu, hidden %llu, readback %.2f ms, "
                  "painting %.2f ms",
                  static_cast<int>(process), static_cast<unsigned long long>(window.window),
                  window.width, window.height, window.strategy.c_str(), window.seconds,
                  static_cast<unsigned long long>(window.rendered), perSecond(window.rendered),
                  static_cast<unsigned long long>(window.painted), perSecond(window.painted),
                  static_cast<unsigned long long>(window.dropped),
                  static_cast<unsigned long long>(window.hidden),
                  milliseconds(window.readbackNanoseconds),
                  milliseconds(window.paintingNanoseconds));
    return text;
}

} // namespace

std::optional<ProcessStatistics> readStatistics(int file) {
    // Read, not mapped: whoever owns the file may cut it short at any time.
    const auto page = std::make_unique<StatisticsPage>();
    if (pread(file, page.get(), sizeof *page, 0) != sizeof *page ||
        page->magic != kor::gl::statisticsMagic)
        return std::nullopt;
    ProcessStatistics statistics;
    statistics.process = static_cast<pid_t>(page->process);
    for (const StatisticsLine& line : page->lines)
        if (line.state == StatisticsLine::Live || line.state == StatisticsLine::Ended)
            statistics.windows.push_back(describe(line));
    return statistics;
}

bool requestTiming(int file, uint32_t frames) {
    return pwrite(file, &frames, sizeof frames, offsetof(StatisticsPage, timingBudget)) ==
           sizeof frames;
}

StatisticsFolder::StatisticsFolder() {
    const char* temporary = std::getenv("TMPDIR");
    m_folder = std::string(temporary && *temporary ? temporary : "/tmp") + "/korrun-stats.XXXXXX";
    if (!mkdtemp(m_folder.data()))
        throw Failure(StatusMissing, "--stats: no folder can be made in " +
                                         m_folder.substr(0, m_folder.rfind('/')) + ": " +
                                         std::strerror(errno));
    setenv(kor::gl::statisticsVariable, m_folder.c_str(), 1);
}

StatisticsFolder::~StatisticsFolder() {
    std::error_code error;
    files::remove_all(m_folder, error);
}

std::vector<std::string> StatisticsFolder::report() const {
    std::vector<std::string> lines;
    std::error_code error;
    for (const auto& entry : files::directory_iterator(m_folder, error)) {
        const FileDescriptor file(
            open(entry.path().c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
        if (!file.isOpen())
            continue;
        if (const auto statistics = readStatistics(file.get()))
            for (const WindowStatistics& window : statistics->windows)
                lines.push_back(reportOf(statistics->process, window));
    }
    std::sort(lines.begin(), lines.end());
    if (lines.empty())
        lines.emplace_back("no frame was finished");
    return lines;
}

} // namespace korrun
