#include "display/displays.h"
#include "display/same_host.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr size_t maxDisplayString = 511;
constexpr size_t maxNames = 16;

struct DisplayName {
    std::string host;
    std::string display;
};

/// Without a colon the whole text is the host and the display part is ":0.0", colon included: a
/// bare host name and the same name followed by ":0.0" differ. That asymmetry is wanted.
DisplayName splitDisplayString(const char* text) {
    const std::string copy = strlen(text) <= maxDisplayString ? text : "";
    const size_t colon = copy.find(':');
    if (colon == std::string::npos)
        return {copy, ":0.0"};
    return {copy.substr(0, colon), copy.substr(colon + 1)};
}

bool isDottedAddress(const std::string& name) {
    return name[0] >= '0' && name[0] <= '9' && std::count(name.begin(), name.end(), '.') == 3;
}

/// Null when the name cannot be resolved. The result is the resolver's own, valid until its next
/// call.
const hostent* resolve(const std::string& name, bool reportAddress) {
    if (!isDottedAddress(name)) {
        const hostent* host = gethostbyname(name.c_str());
        if (host == nullptr)
            fprintf(stderr, "no gethostbyname for %s\n", name.c_str());
        return host;
    }
    uint32_t address = 0;
    const char* part = name.c_str();
    for (int i = 0; i < 4 && part != nullptr; ++i) {
        address = address * 256 + static_cast<uint32_t>(strtoul(part, nullptr, 10));
        part = strchr(part, '.');
        part = part != nullptr ? part + 1 : nullptr;
    }
    address = htonl(address);
    const hostent* host = gethostbyaddr(&address, 4, AF_INET);
    if (host == nullptr && reportAddress)
        fprintf(stderr, "no gethostbyaddr for %s\n", name.c_str());
    return host;
}

} // namespace

namespace kor::gl {

bool isSameHost(const std::string& x, const std::string& y) {
    if (x == y)
        return true;
    if (x.empty() || y.empty()) {
        const auto matches = [&](const std::string& self) {
            return x.empty() ? isSameHost(self, y) : isSameHost(x, self);
        };
        if (matches("localhost"))
            return true;
        char self[256];
        if (gethostname(self, sizeof self) != 0)
            return false;
        self[sizeof self - 1] = '\0';
        return self[0] != '\0' && matches(self);
    }

    const hostent* host = resolve(x, true);
    if (host == nullptr)
        return false;
    std::vector<std::string> names{host->h_name};
    for (char** alias = host->h_aliases; *alias != nullptr && names.size() < maxNames; ++alias)
        names.emplace_back(*alias);

    host = resolve(y, false);
    if (host == nullptr)
        return false;
    const auto known = [&](const char* name) {
        return std::find(names.begin(), names.end(), name) != names.end();
    };
    if (known(host->h_name))
        return true;
    for (char** alias = host->h_aliases; *alias != nullptr; ++alias) {
        if (known(*alias))
            return true;
    }
    return false;
}

bool isSameDisplayName(const char* a, const char* b) {
    const DisplayName first = splitDisplayString(a);
    const DisplayName second = splitDisplayString(b);
    return isSameHost(first.host, second.host) && first.display == second.display;
}

} // namespace kor::gl

bool korIsSameXDisplay(Display* a, Display* b) {
    return kor::gl::isSameDisplayName(DisplayString(a), DisplayString(b));
}
