#ifndef KOR_FRONT_REPORT_H
#define KOR_FRONT_REPORT_H

namespace kor::front {

/// One line on stderr for the person who runs the application, introduced by "KOR-GL: " and cut at
/// 4 KiB; written in one piece, so that lines of several threads do not mix.
void report(const char* format, ...) __attribute__((format(printf, 1, 2)));

} // namespace kor::front

#endif
