#ifndef KOR_ENTRY_EXTENSION_FILTER_H
#define KOR_ENTRY_EXTENSION_FILTER_H

namespace kor::gl {

/// The GLX extensions that are offered to the application: those of reported that the library
/// supports and blacklist does not name, and the library's own behind them. Both may be null. A
/// heap text; null when no memory is left.
char* filterExtensions(const char* reported, const char* blacklist);

} // namespace kor::gl

#endif
