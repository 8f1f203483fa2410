#ifndef KOR_CONFIG_LOG_FOLDING_H
#define KOR_CONFIG_LOG_FOLDING_H

#include <cstdarg>

/// Keeps a line that is said again and again, once a frame for instance, from filling the log.
namespace kor {

/// How often that function has said that, this time included; counting begins anew when ten seconds
/// have gone by without it. Any thread; it takes no lock. Counts can be a little off when several
/// threads say the same at once, and begin anew when too many different lines are being repeated.
unsigned timesSaid(const char* function, const char* format, va_list arguments);

/// Whether a line is written the n-th time: the first three, then the 10th, 100th and so on.
bool isWritten(unsigned times);

/// From which time on a line tells how often it was said.
constexpr unsigned firstFolded = 4;

} // namespace kor

#endif
