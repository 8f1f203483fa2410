#ifndef KOR_TESTS_UNIT_CONFIG_INTERPOSED_H
#define KOR_TESTS_UNIT_CONFIG_INTERPOSED_H

#include <functional>
#include <optional>
#include <string>
#include <sys/time.h>
#include <sys/types.h>
#include <utility>
#include <vector>

namespace kor::test {

/// Stands in for /etc/kor; empty: the real one.
extern std::string systemFolder;
/// What access was asked about, as asked.
extern std::vector<std::string> accessed;
/// Opened in place of /proc/uptime; empty: the real one.
extern std::string uptimeFile;
/// The text of /proc/self/exe instead of the real one; "!" is a link that cannot be read.
extern std::optional<std::string> executableLink;
/// How many of the next calls of calloc find no memory.
extern int failingAllocations;
/// Called by the next call of calloc, once.
extern std::function<void()> onAllocation;
/// Called after the next call of lstat, once.
extern std::function<void()> onLook;
/// A file's full name, and the name of what is found in its place.
extern std::optional<std::pair<std::string, std::string>> standIn;
/// The effective user instead of the real one.
extern std::optional<uid_t> effectiveUser;
/// The time of day instead of the real one.
extern std::optional<timeval> timeOfDay;

} // namespace kor::test

#endif
