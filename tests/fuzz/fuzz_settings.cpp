// One value as an environment variable and as a user's setting: every type converts it or passes it
// over, by rules that are written down a second time here.

#include "input.h"

#include "config/settings.h"
#include "support/ini_file.h"

#include <cerrno>
#include <cmath>
#include <memory>
#include <optional>
#include <strings.h>
#include <unistd.h>

using kor::fuzz::require;

namespace {

constexpr const char* variable = "KOR_GL_FUZZED";

struct FreeText {
    void operator()(char* text) const { free(text); }
};
using OwnedText = std::unique_ptr<char, FreeText>;

bool isNone(const std::string& text) {
    return text.empty() || text == "<null>";
}

/// Base 10, white space and a sign in front, nothing behind.
std::optional<long> integer(const std::string& text) {
    size_t i = text.find_first_not_of(" \t\n\v\f\r");
    if (isNone(text) || i == std::string::npos)
        return std::nullopt;
    if (text[i] == '+' || text[i] == '-')
        ++i;
    if (i == text.size() || text.find_first_not_of("0123456789", i) != std::string::npos)
        return std::nullopt;
    return strtol(text.c_str(), nullptr, 10);
}

std::optional<bool> boolean(const std::string& text) {
    if (strcasecmp(text.c_str(), "true") == 0)
        return true;
    if (strcasecmp(text.c_str(), "false") == 0)
        return false;
    const std::optional<long> number = integer(text);
    if (number && (*number == 0 || *number == 1))
        return *number == 1;
    return std::nullopt;
}

/// What the environment gives to a look-up with so much room.
std::optional<std::string> asVariable(const std::string& text, size_t room) {
    const char* space = " \t\n\v\f\r";
    const size_t begin = text.find_first_not_of(space);
    if (text.size() >= room || begin == std::string::npos)
        return std::nullopt;
    return text.substr(begin, text.find_last_not_of(space) - begin + 1);
}

void checkConversions(const std::string& text) {
    bool invalid = false;
    const int number = kor::Settings::toInt(text.c_str(), &invalid);
    require(invalid == !integer(text), "an integer is digits with a sign at most");
    require(number == (invalid ? 0 : static_cast<int>(*integer(text))), "an integer's value");

    const bool flag = kor::Settings::toBool(text.c_str(), &invalid);
    require(invalid == !boolean(text), "a boolean is true, false, 0 or 1");
    require(flag == boolean(text).value_or(false), "a boolean's value");

    const double real = kor::Settings::toDouble(text.c_str(), &invalid);
    require(!invalid || real == 0, "an invalid number is 0");
    require(!integer(text) || !invalid, "every integer is a number");

    const OwnedText copy(kor::Settings::toString(text.c_str()));
    require((copy == nullptr) == isNone(text), "only nothing is no text");
    require(copy == nullptr || text == copy.get(), "a text is its own copy");
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*count*/, char*** /*arguments*/) {
    kor::fuzz::silence();
    const std::string& folder = kor::fuzz::temporaryFolder();
    setenv("KOR_GL_USER_CONFDIR", folder.c_str(), 1);
    return chdir(folder.c_str());
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    kor::fuzz::Input input(data, size);
    const std::string value = input.text();
    const std::string file = input.rest();
    checkConversions(value);

    kor::fuzz::writeFile(kor::fuzz::temporaryFolder() + "/fuzzed.conf", file);
    setenv(variable, value.c_str(), 1);
    kor::Settings settings("fuzzed.conf");
    settings.parse();

    constexpr int otherInteger = -4711;
    const int number = settings.intSetting(variable, "gl", "key", otherInteger);
    if (const auto text = asVariable(value, 32); text && integer(*text))
        require(number == static_cast<int>(*integer(*text)), "the environment precedes the user");
    const bool flag = settings.boolSetting(variable, "gl", "key", true);
    if (const auto text = asVariable(value, 8); text && boolean(*text))
        require(flag == *boolean(*text), "the environment precedes the user");
    const OwnedText text(settings.stringSetting(variable, "gl", "key", "other"));
    require(text != nullptr, "a text with a default is never null");
    if (const auto wanted = asVariable(value, 1024); wanted && !isNone(*wanted))
        require(*wanted == text.get(), "the environment precedes the user");
    else if (file.empty())
        require(number == otherInteger && strcmp(text.get(), "other") == 0,
                "with nothing else the default counts");
    settings.doubleSetting(variable, "gl", "key", 0.5);
    return 0;
}
