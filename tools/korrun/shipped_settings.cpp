#include "shipped_settings.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <strings.h>

namespace korrun {

namespace {

constexpr const char* fileName = "kor-gl.conf";

struct ShippedSetting {
    const char* section;
    const char* key;
    const char* variable;
    const char* value;
};

constexpr ShippedSetting shippedSettings[] = {
#define KOR_SHIPPED(section, key, variable, value) {section, key, variable, value},
#include "config/shipped_settings.def"
#undef KOR_SHIPPED
};

std::string trimmed(const std::string& text) {
    constexpr const char* blanks = " \t\r\n\v\f";
    const size_t begin = text.find_first_not_of(blanks);
    return begin == std::string::npos
               ? ""
               : text.substr(begin, text.find_last_not_of(blanks) - begin + 1);
}

bool isSame(const std::string& a, const std::string& b) {
    return strcasecmp(a.c_str(), b.c_str()) == 0;
}

// What stands behind a semicolon after white space is a comment.
std::string withoutComment(const std::string& value) {
    for (size_t i = 1; i < value.size(); ++i)
        if (value[i] == ';' && std::isspace(static_cast<unsigned char>(value[i - 1])) != 0)
            return value.substr(0, i);
    return value;
}

} // namespace

std::vector<std::string> settingsFiles() {
    std::vector<std::string> files;
    const char* own = std::getenv("KOR_GL_USER_CONFDIR");
    const char* xdg = std::getenv("XDG_CONFIG_HOME");
    const char* home = std::getenv("HOME");
    const std::string userHome = home != nullptr ? home : "";
    if (own != nullptr && *own != '\0')
        files.push_back(std::string(own) + "/" + fileName);
    else if (own == nullptr && xdg != nullptr && *xdg != '\0')
        files.push_back(std::string(xdg) + "/kor/" + fileName);
    else if (own == nullptr && xdg == nullptr && !userHome.empty())
        files.push_back(userHome + "/.config/kor/" + fileName);
    else if (!userHome.empty())
        files.push_back(userHome + "/.kor/conf/" + fileName);
    files.push_back(std::string("/etc/kor/") + fileName);
    return files;
}

bool setsKey(const std::string& file, const std::string& section, const std::string& key) {
    // A pipe in the file's place would hold the reader up for ever.
    std::error_code error;
    if (!std::filesystem::is_regular_file(file, error))
        return false;
    std::ifstream lines(file);
    std::string current;
    for (std::string line; std::getline(lines, line);) {
        line = trimmed(line);
        if (line.empty() || line[0] == '#' || line[0] == ';')
            continue;
        if (line[0] == '[') {
            current = line.substr(1, line.find(']') - 1);
            continue;
        }
        size_t separator = line.find('=');
        if (separator == std::string::npos)
            separator = line.find(':');
        if (separator == std::string::npos || !isSame(current, section) ||
            !isSame(trimmed(line.substr(0, separator)), key))
            continue;
        const std::string value = trimmed(withoutComment(line.substr(separator + 1)));
        if (!value.empty() && value != "<null>")
            return true;
    }
    return false;
}

void giveShippedSettings() {
    const std::vector<std::string> files = settingsFiles();
    for (const ShippedSetting& setting : shippedSettings)
        if (std::none_of(files.begin(), files.end(), [&](const std::string& file) {
                return setsKey(file, setting.section, setting.key);
            }))
            setenv(setting.variable, setting.value, 0);
}

} // namespace korrun
