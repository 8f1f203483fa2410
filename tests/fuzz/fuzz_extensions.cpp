// Two texts of any bytes as the list of extensions that the system reports and as the blacklist.

#include "input.h"

#include "entry/extension_filter.h"
#include "support/text.h"

#include <string_view>

using kor::fuzz::require;

namespace {

/// The rule of the search, written down a second time.
bool holds(std::string_view list, std::string_view name) {
    if (name.empty() || name.find(' ') != std::string_view::npos)
        return false;
    size_t start = 0;
    for (;;) {
        const size_t hit = list.find(name, start);
        if (hit == std::string_view::npos)
            return false;
        const size_t behind = hit + name.size();
        if ((hit == start || list[hit - 1] == ' ') &&
            (behind == list.size() || list[behind] == ' '))
            return true;
        start = behind;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    kor::fuzz::Input input(data, size);
    const uint8_t which = input.byte();
    const std::string reported = input.text();
    const std::string blacklist = input.text();
    const std::string name = input.text();

    require(matchExtension(reported.c_str(), name.c_str()) == holds(reported, name),
            "a whole word is found");

    const char* list = (which & 1) != 0 ? nullptr : reported.c_str();
    const char* banned = (which & 2) != 0 ? nullptr : blacklist.c_str();
    char* result = kor::gl::filterExtensions(list, banned);
    require(result != nullptr, "there is a text");
    const std::string_view text = result;
    constexpr std::string_view own = " GLX_TESSERA_kor";
    require(text.size() >= own.size() && text.substr(text.size() - own.size()) == own,
            "our own extension comes last");
    std::string_view left = text.substr(0, text.size() - own.size());
    while (!left.empty()) {
        const size_t space = left.find(' ');
        const std::string_view word = left.substr(0, space);
        require(list != nullptr && holds(reported, word), "what is offered was reported");
        require(banned == nullptr || !holds(blacklist, word), "what is banned is not offered");
        left = space == std::string_view::npos ? std::string_view() : left.substr(space + 1);
    }
    free(result);
    return 0;
}
