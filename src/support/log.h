#ifndef KOR_SUPPORT_LOG_H
#define KOR_SUPPORT_LOG_H

#include "support/export.h"

#include <atomic>

/// The process-wide log. Declared on the lowest floor, since everything logs; implemented in
/// src/config/log.cpp, which needs the settings.

extern "C" {

/// Writes one record. tag is "KORGL" (GL code) or "KOR" (support classes); level is 1 to 4 with
/// its word in levelWord ("ERROR", "WARNING", "INFO", "DEBUG"); function is the caller's full
/// signature; echo also prints the message on stderr, whatever the threshold. Any thread; lines of
/// several threads may interleave. Never fails visibly.
KOR_EXPORT void kor_printlog(const char* tag, int level, const char* levelWord,
                             const char* function, bool echo, const char* format, ...)
    __attribute__((format(printf, 6, 7)));

/// Opens the log (threshold, directory and file name come from the settings and stay fixed while
/// it is open). False when it is open already or no memory is left. The first kor_printlog calls
/// it.
KOR_EXPORT bool kor_open_log();

/// Forgets the log; the stream stays open on purpose. False when there was none. For the front
/// library; nothing in the library calls it.
KOR_EXPORT bool kor_close_log();
}

/// Bounded formatting: at most size bytes with the terminator. Returns the number of characters
/// written, size - 1 when the text was cut.
int korSprintf(char* buffer, unsigned size, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

namespace kor {

enum LogLevel { LogError = 1, LogWarning = 2, LogInfo = 3, LogDebug = 4 };

/// The threshold as the log macros see it: LogDebug while no log is open (so that the first call
/// gets through and opens it), the log's own threshold afterwards.
extern std::atomic<int> logThreshold;

/// True when a record of that level may be written. Costs one load and one comparison.
inline bool logs(int level) {
    return __builtin_expect(level <= logThreshold.load(std::memory_order_relaxed), 0);
}

} // namespace kor

/// Log with an explicit tag, level, word, function text and echo flag. A record below the threshold
/// evaluates no argument and formats nothing.
#define KOR_LOG_AT(tag, level, word, function, echo, ...)                                          \
    do {                                                                                           \
        if ((echo) || ::kor::logs(level))                                                          \
            kor_printlog(tag, level, word, function, echo, __VA_ARGS__);                           \
    } while (false)

/// The GL code's calls, with the enclosing function's signature...
#define KOR_DEBUG(...)                                                                             \
    KOR_LOG_AT("KORGL", ::kor::LogDebug, "DEBUG", __PRETTY_FUNCTION__, false, __VA_ARGS__)
#define KOR_INFO(...)                                                                              \
    KOR_LOG_AT("KORGL", ::kor::LogInfo, "INFO", __PRETTY_FUNCTION__, false, __VA_ARGS__)
#define KOR_WARNING(...)                                                                           \
    KOR_LOG_AT("KORGL", ::kor::LogWarning, "WARNING", __PRETTY_FUNCTION__, false, __VA_ARGS__)
#define KOR_ERROR(...)                                                                             \
    KOR_LOG_AT("KORGL", ::kor::LogError, "ERROR", __PRETTY_FUNCTION__, false, __VA_ARGS__)
/// ... and an error meant for the user: also printed on stderr.
#define KOR_ERROR_ECHO(...)                                                                        \
    KOR_LOG_AT("KORGL", ::kor::LogError, "ERROR", __PRETTY_FUNCTION__, true, __VA_ARGS__)

/// The support classes' calls; their records carry a tag of their own.
#define KOR_SUPPORT_DEBUG(...)                                                                     \
    KOR_LOG_AT("KOR", ::kor::LogDebug, "DEBUG", __PRETTY_FUNCTION__, false, __VA_ARGS__)

#endif
