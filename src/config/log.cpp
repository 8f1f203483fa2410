#include "support/log.h"

#include "config/log_folding.h"
#include "config/settings.h"
#include "support/failures.h"
#include "support/forked_child.h"
#include "support/process.h"
#include "support/trusted_file.h"

#include <cerrno>
#include <clocale>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <strings.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

struct LogRecord {
    int threshold;
    char* path; // owned; null when no directory is configured
    FILE* stream;
};

// Read without a lock: the library's first call comes from kor_init, before other threads use it.
// Threads that race for it all the same each make a record, and the first one published counts.
constinit std::atomic<LogRecord*> openLog{nullptr};

int configuredThreshold(const kor::conf::Settings& settings) {
    if (settings.verbose)
        return kor::LogDebug;
    static constexpr struct {
        const char* word;
        int level;
    } levels[] = {{"error", kor::LogError},
                  {"warning", kor::LogWarning},
                  {"info", kor::LogInfo},
                  {"debug", kor::LogDebug}};
    const char* word = settings.level;
    for (const auto& known : levels) {
        if (word != nullptr && strcasecmp(word, known.word) == 0)
            return known.level;
    }
    return kor::LogWarning;
}

/// The name of the process's executable, cut from its path in buffer.
const char* executableName(char* buffer, unsigned size) {
    if (korGetCurrentProcessExe(buffer, size) < 0)
        return "unknown";
    const char* slash = strrchr(buffer, '/');
    return slash != nullptr && slash[1] != '\0' ? slash + 1 : "unknown";
}

/// Two numbers in text, with a decimal point whatever the application's locale says.
bool parseUptime(const char* text, double* uptime) {
    const locale_t plain = newlocale(LC_NUMERIC_MASK, "C", nullptr);
    const locale_t callers = plain != nullptr ? uselocale(plain) : nullptr;
    double idle = 0;
    const bool parsed = sscanf(text, "%lf %lf", uptime, &idle) == 2;
    if (plain != nullptr) {
        uselocale(callers);
        freelocale(plain);
    }
    return parsed;
}

/// Seconds since the machine's start; false, with a warning on stderr, when it cannot be had.
bool readUptime(double* uptime) {
    FILE* file = fopen("/proc/uptime", "r");
    if (file == nullptr) {
        fputs("WARNING: Cannot open /proc/uptime file", stderr);
        return false;
    }
    char text[1024];
    const size_t length = fread(text, 1, sizeof text - 1, file);
    const int error = errno;
    fclose(file);
    if (length == 0) {
        fprintf(stderr, "WARNING: Cannot read /proc/uptime file: %s", strerror(error));
        return false;
    }
    text[length] = '\0';
    if (!parseUptime(text, uptime)) {
        fputs("WARNING: Bad data in /proc/uptime file", stderr);
        return false;
    }
    return true;
}

/// The moment of the machine's start as text: what tells one boot's process ids from another's.
bool bootStamp(char* stamp, unsigned size) {
    double uptime = 0;
    if (!readUptime(&uptime))
        return false;
    timeval now{};
    gettimeofday(&now, nullptr);
    const double seconds =
        static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_usec) / 1000000.0;
    const double rounded = seconds - uptime + 0.5;
    const auto boot = static_cast<time_t>(rounded);
    tm local{};
    tzset();
    localtime_r(&boot, &local);
    korSprintf(stamp, size, "%04d%02d%02d-%02d%02d%02d", local.tm_year + 1900, local.tm_mon + 1,
               local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
    return true;
}

/// Heap copy of the log file's path, or null when no memory is left.
char* makePath(const char* directory) {
    char executable[1024];
    const char* name = executableName(executable, sizeof executable);
    const auto size = static_cast<unsigned>(strlen(directory) + 64);
    auto* path = static_cast<char*>(malloc(size));
    if (path == nullptr)
        return nullptr;
    char stamp[64];
    if (bootStamp(stamp, sizeof stamp))
        korSprintf(path, size, "%s/kor-gl.%s.%s.%d.log", directory, stamp, name, getpid());
    else
        korSprintf(path, size, "%s/kor-gl.%s.%d.log", directory, name, getpid());
    return path;
}

/// Opens the file at path for appending, unbuffered so that every piece of a record reaches it at
/// once; stderr without a path, and also where the file cannot be opened: silently then, unless
/// something else stands in its place. The name can be guessed and the folder be writable for
/// others.
FILE* openStream(const char* path) {
    if (path == nullptr)
        return stderr;
    const kor::TrustedFile opened = kor::openLogFile(path);
    if (opened.refusal != nullptr)
        fprintf(stderr, "Log file \"%s\" is not used: it %s; the log goes to stderr\n", path,
                opened.refusal);
    if (opened.stream == nullptr)
        return stderr;
    setbuf(opened.stream, nullptr);
    return opened.stream;
}

/// Month, day and time of day, with microseconds.
void formatStamp(char* stamp, unsigned size) {
    timeval now{};
    gettimeofday(&now, nullptr);
    char text[26] = "";
    ctime_r(&now.tv_sec, text);
    korSprintf(stamp, size, "%.15s:%06d", text + 4, static_cast<int>(now.tv_usec));
}

} // namespace

namespace kor {
constinit std::atomic<int> logThreshold{LogDebug};
}

namespace {

/// The file's name has the process's id in it. A child that has something to say opens its own.
kor::InForkedChild forgetLog([] {
    openLog.store(nullptr, std::memory_order_relaxed);
    kor::logThreshold.store(kor::LogDebug, std::memory_order_relaxed);
});

} // namespace

extern "C" bool kor_open_log() try {
    if (openLog.load(std::memory_order_acquire) != nullptr)
        return false;
    auto* record = static_cast<LogRecord*>(calloc(1, sizeof(LogRecord)));
    if (record == nullptr)
        return false;
    const kor::conf::Settings& settings = kor::conf::settings();
    record->threshold = configuredThreshold(settings);
    const char* directory = settings.directory;
    if (directory != nullptr && *directory != '\0')
        record->path = makePath(directory);
    record->stream = openStream(record->path);
    LogRecord* none = nullptr;
    if (!openLog.compare_exchange_strong(none, record, std::memory_order_acq_rel)) {
        if (record->stream != stderr)
            fclose(record->stream);
        free(record->path);
        free(record);
        return false;
    }
    kor::logThreshold.store(record->threshold, std::memory_order_relaxed);
    return true;
}
KOR_OTHERWISE(false)

extern "C" bool kor_close_log() try {
    LogRecord* record = openLog.exchange(nullptr, std::memory_order_acq_rel);
    if (record == nullptr)
        return false;
    kor::logThreshold.store(kor::LogDebug, std::memory_order_relaxed);
    free(record->path);
    free(record); // the stream stays open on purpose: a late record may still be on its way to it
    return true;
}
KOR_OTHERWISE(false)

namespace {

/// Keeps the pieces of one record together: several threads write to one stream. Given back also
/// when the thread is cancelled meanwhile.
class WholeRecord {
  public:
    explicit WholeRecord(FILE* stream) : stream_(stream) { flockfile(stream_); }
    ~WholeRecord() { funlockfile(stream_); }
    WholeRecord(const WholeRecord&) = delete;
    WholeRecord& operator=(const WholeRecord&) = delete;

  private:
    FILE* stream_;
};

} // namespace

extern "C" void kor_printlog(const char* tag, int level, const char* levelWord,
                             const char* function, bool echo, const char* format, ...) {
    if (format == nullptr)
        return;
    const LogRecord* record = openLog.load(std::memory_order_acquire);
    if (record == nullptr) {
        kor_open_log();
        record = openLog.load(std::memory_order_acquire);
        if (record == nullptr)
            return;
    }
    va_list arguments;
    char end[48] = "\n";
    if (level <= kor::LogWarning && (echo || level <= record->threshold)) {
        va_start(arguments, format);
        const unsigned times = kor::timesSaid(function, format, arguments);
        va_end(arguments);
        if (!kor::isWritten(times))
            return;
        if (times >= kor::firstFolded)
            korSprintf(end, sizeof end, " (repeated %u times)\n", times);
    }
    if (echo) {
        const WholeRecord whole(stderr);
        fprintf(stderr, "%s: ", levelWord);
        va_start(arguments, format);
        vfprintf(stderr, format, arguments);
        va_end(arguments);
        fputs(end, stderr);
    }
    if (level > record->threshold)
        return;
    char stamp[25];
    formatStamp(stamp, sizeof stamp);
    FILE* stream = record->stream;
    if (stream == nullptr)
        return;
    const WholeRecord whole(stream);
    fprintf(stream, "%c %s %ld:%ld %s (%s): ", levelWord[0], stamp, static_cast<long>(getpid()),
            static_cast<long>(syscall(SYS_gettid)), tag, function);
    va_start(arguments, format);
    vfprintf(stream, format, arguments);
    va_end(arguments);
    fputs(end, stream);
}

int korSprintf(char* buffer, unsigned size, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int wanted = vsnprintf(buffer, size, format, arguments);
    va_end(arguments);
    if (wanted < 0 || size == 0)
        return 0;
    return wanted < static_cast<int>(size) ? wanted : static_cast<int>(size) - 1;
}
