#pragma once

#include <optional>
#include <string>
#include <vector>

namespace kordoctor {

// One of the files that settings may stand in.
struct SettingsFile {
    const char* whose; // "administrator's", "user's" or "system"
    std::string path;
    std::string problem;  // why the library cannot use it; empty when it can
    int problemLine = 0;  // 0: not a line's fault
    bool refused = false; // the library does not even read it: see kor::openSettingsFile
    bool ignored = false; // it is in order, but the library drops it because of another one

    struct Entry {
        std::string section;
        std::string key;
        std::string value;
        int line;
    };
    std::vector<Entry> entries; // in the file's order; none when there is a problem
};

// The files that are there, by precedence, as the library finds and reads them. Prints nothing.
std::vector<SettingsFile> readSettingsFiles();

// A setting's value, as the library sees it.
struct SettingValue {
    const char* key;
    const char* section;
    const char* variable;
    std::string type;                    // "bool", "int" or "text"
    std::string value;                   // "none" where a text has none
    bool isSet = false;                  // whether the value is one; false for a text without value
    std::string source;                  // "default", "environment KEY" or "file FILE, line N"
    std::vector<std::string> passedOver; // sources whose values cannot be read as the type
};

// Every setting in the table's order. `files` as from readSettingsFiles().
std::vector<SettingValue> readSettings(const std::vector<SettingsFile>& files);

// The one of that key.
const SettingValue& settingOf(const std::vector<SettingValue>& settings, const std::string& key);

} // namespace kordoctor
