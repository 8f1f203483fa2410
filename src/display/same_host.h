#ifndef KOR_DISPLAY_SAME_HOST_H
#define KOR_DISPLAY_SAME_HOST_H

#include <string>

namespace kor::gl {

/// True when two host names are equal or resolve to a common name; an empty one stands for this
/// host. Complains on stderr about names that cannot be resolved. May block in the resolver.
bool isSameHost(const std::string& x, const std::string& y);

/// True when two display strings ("host:display.screen") name the same server and screen.
bool isSameDisplayName(const char* a, const char* b);

} // namespace kor::gl

#endif
