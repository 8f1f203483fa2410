#include "watch.h"

#include "check.h"
#include "failure.h"
#include "file_descriptor.h"
#include "statistics.h"
#include "transport/statistics_page.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace kordoctor {

namespace {

namespace files = std::filesystem;
using Clock = std::chrono::steady_clock;
using korrun::ProcessStatistics;
using korrun::WindowStatistics;

constexpr int statusCannotWatch = 2;
constexpr auto interval = std::chrono::seconds(1);
// Enough for an interval of many fast windows, and soon used up when we are gone.
constexpr uint32_t timedFrames = 5000;

[[noreturn]] void refuse(pid_t process, const std::string& why) {
    throw korrun::Failure(statusCannotWatch,
                          "process " + std::to_string(process) + " cannot be watched: " + why);
}

bool hasLoadedLibrary(pid_t process) {
    std::ifstream maps("/proc/" + std::to_string(process) + "/maps");
    for (std::string line; std::getline(maps, line);)
        if (line.find("/libGL_KOR.so") != std::string::npos)
            return true;
    return false;
}

// The page among the open files of the process.
korrun::FileDescriptor openPage(pid_t process) {
    const std::string own = "/proc/" + std::to_string(process);
    std::error_code error;
    if (!files::exists(own, error))
        refuse(process, "there is no such process");
    const files::directory_iterator open_files(own + "/fd", error);
    if (error)
        refuse(process,
               "its files cannot be looked at (" + error.message() + "): be its user, or root");
    for (const auto& entry : open_files) {
        const std::string target = files::read_symlink(entry.path(), error).string();
        const std::string name = target.substr(target.rfind('/') + 1);
        if (!name.starts_with(kor::gl::statisticsFileName) &&
            !target.starts_with(std::string("/memfd:") + kor::gl::statisticsFileName))
            continue;
        korrun::FileDescriptor file(::open(entry.path().c_str(), O_RDWR | O_CLOEXEC | O_NONBLOCK));
        if (!file.isOpen())
            refuse(process, std::string("its counters cannot be opened: ") + strerror(errno));
        const auto statistics = korrun::readStatistics(file.get());
        // A child that was forked has its parent's.
        if (statistics && statistics->process == process)
            return file;
    }
    refuse(process, hasLoadedLibrary(process)
                        ? "it has not finished a frame yet"
                        : "it does not use KOR-GL (see kordoctor -- PROGRAM); or it is the parent "
                          "of one that does");
}

struct Rates {
    WindowStatistics now;
    double rendered; // frames a second
    double painted;
    double dropped;
    double hidden;
    double readback; // milliseconds a frame; negative when none was timed
    double painting;
};

Rates ratesOf(const WindowStatistics& now, const WindowStatistics& before, double seconds) {
    const auto rate = [&](uint64_t WindowStatistics::*member) {
        return static_cast<double>(now.*member - before.*member) / seconds;
    };
    const auto timed = static_cast<double>(now.timed - before.timed);
    const auto time = [&](uint64_t WindowStatistics::*member) {
        return timed > 0 ? static_cast<double>(now.*member - before.*member) / timed / 1e6 : -1.0;
    };
    return {now,
            rate(&WindowStatistics::rendered),
            rate(&WindowStatistics::painted),
            rate(&WindowStatistics::dropped),
            rate(&WindowStatistics::hidden),
            time(&WindowStatistics::readbackNanoseconds),
            time(&WindowStatistics::paintingNanoseconds)};
}

// Windows that are there now, each compared with itself a while ago.
std::vector<Rates> compare(const ProcessStatistics& now, const ProcessStatistics& before,
                           double seconds) {
    std::vector<Rates> rates;
    for (const WindowStatistics& window : now.windows) {
        if (window.ended)
            continue;
        const auto same = std::find_if(
            before.windows.begin(), before.windows.end(), [&](const WindowStatistics& w) {
                // A line may have been given to another window of that id since.
                return w.window == window.window && !w.ended && w.rendered <= window.rendered &&
                       w.painted <= window.painted && w.timed <= window.timed;
            });
        rates.push_back(
            ratesOf(window, same == before.windows.end() ? WindowStatistics{} : *same, seconds));
    }
    return rates;
}

std::string milliseconds(double value, const char* none) {
    char text[32];
    std::snprintf(text, sizeof text, "%.2f", value);
    return value < 0 ? none : text;
}

void printText(const std::vector<Rates>& rates) {
    std::printf("%-12s %-11s %-16s %10s %9s %9s %9s %11s %11s\n", "window", "size", "painted by",
                "rendered/s", "painted/s", "dropped/s", "hidden/s", "readback ms", "painting ms");
    for (const Rates& r : rates) {
        char window[32];
        std::snprintf(window, sizeof window, "0x%llx",
                      static_cast<unsigned long long>(r.now.window));
        const std::string size = std::to_string(r.now.width) + "x" + std::to_string(r.now.height);
        std::printf("%-12s %-11s %-16s %10.1f %9.1f %9.1f %9.1f %11s %11s\n", window, size.c_str(),
                    r.now.strategy.c_str(), r.rendered, r.painted, r.dropped, r.hidden,
                    milliseconds(r.readback, "-").c_str(), milliseconds(r.painting, "-").c_str());
    }
    if (rates.empty())
        std::puts("no window is there");
}

void printJson(pid_t process, const std::vector<Rates>& rates) {
    std::printf("{\"process\": %d, \"windows\": [", static_cast<int>(process));
    const char* separator = "";
    for (const Rates& r : rates) {
        std::printf("%s{\"window\": %llu, \"width\": %u, \"height\": %u, \"strategy\": %s, "
                    "\"rendered\": %.1f, \"painted\": %.1f, \"dropped\": %.1f, \"hidden\": %.1f, "
                    "\"readbackMilliseconds\": %s, \"paintingMilliseconds\": %s}",
                    separator, static_cast<unsigned long long>(r.now.window), r.now.width,
                    r.now.height, jsonString(r.now.strategy).c_str(), r.rendered, r.painted,
                    r.dropped, r.hidden, milliseconds(r.readback, "null").c_str(),
                    milliseconds(r.painting, "null").c_str());
        separator = ", ";
    }
    std::puts("]}");
}

// Signals that ask us to end, taken where we wait.
sigset_t blockSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : {SIGINT, SIGTERM, SIGHUP})
        sigaddset(&signals, number);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    return signals;
}

} // namespace

int watchProcess(pid_t process, std::optional<double> seconds, bool json) {
    // Before the look at its files: the number cannot pass to another process from here on.
    const korrun::FileDescriptor alive(static_cast<int>(syscall(SYS_pidfd_open, process, 0)));
    const korrun::FileDescriptor page = openPage(process);
    const sigset_t signals = blockSignals();
    const auto hasEnded = [&] {
        pollfd file{alive.get(), POLLIN, 0};
        return alive.isOpen() ? poll(&file, 1, 0) > 0 : kill(process, 0) != 0 && errno == ESRCH;
    };

    const Clock::time_point begin = Clock::now();
    korrun::requestTiming(page.get(), timedFrames);
    Clock::time_point then = begin;
    ProcessStatistics before = korrun::readStatistics(page.get()).value_or(ProcessStatistics{});
    for (bool over = false; !over;) {
        Clock::duration pause = interval;
        if (seconds) {
            const auto left = begin +
                              std::chrono::duration_cast<Clock::duration>(
                                  std::chrono::duration<double>(*seconds)) -
                              Clock::now();
            over = left <= interval;
            pause = std::max(Clock::duration::zero(), std::min<Clock::duration>(left, interval));
        }
        const auto nanoseconds = std::chrono::duration_cast<std::chrono::nanoseconds>(pause);
        const timespec time{static_cast<time_t>(nanoseconds.count() / 1'000'000'000),
                            static_cast<long>(nanoseconds.count() % 1'000'000'000)};
        over = sigtimedwait(&signals, nullptr, &time) > 0 || over;
        over = hasEnded() || over;
        const Clock::time_point moment = Clock::now();
        const auto now = korrun::readStatistics(page.get());
        if (!now)
            refuse(process, "its counters are damaged");
        const double passed = std::max(std::chrono::duration<double>(moment - then).count(), 0.001);
        const std::vector<Rates> rates = compare(*now, before, passed);
        json ? printJson(process, rates) : printText(rates);
        if (std::fflush(stdout) != 0)
            return statusCannotWatch; // nobody reads any more
        before = *now;
        then = moment;
        korrun::requestTiming(page.get(), timedFrames);
    }
    return 0;
}

} // namespace kordoctor
