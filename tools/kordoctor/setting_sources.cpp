#include "setting_sources.h"

#include "config/settings_lookup.h"
#include "support/ini_file.h"
#include "support/ini_reader.h"
#include "support/trusted_file.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <strings.h>

namespace kordoctor {

namespace {

constexpr const char* noSuchVariable = "KOR_GL_ "; // no shell can set it

// The library's own look-up, with one source at a time.
class OneSource : public kor::Settings {
  public:
    OneSource() : kor::Settings("kor-gl.conf") {}
    OneSource(const OneSource&) = delete;
    ~OneSource() override = default;

    struct Place {
        const char* whose;
        std::string path;
    };
    // Where the library has found files.
    std::vector<Place> places() const {
        std::vector<Place> found;
        const auto add = [&](const char* whose, const kor::IniFile* file) {
            if (file != nullptr)
                found.push_back({whose, file->getFilename()});
        };
        add("administrator's", adminFile_);
        add("user's", userFile_);
        add("system", systemFile_);
        return found;
    }

    // From now on every value comes from that file; without one, from the environment alone.
    void useFile(const SettingsFile* file) {
        closeIniFiles();
        if (file == nullptr)
            return;
        userFile_ = new kor::IniFile("", false);
        for (const SettingsFile::Entry& entry : file->entries)
            if (!entry.section.empty() && !entry.key.empty())
                userFile_->setValue(entry.section.c_str(), entry.key.c_str(), entry.value.c_str(),
                                    false);
    }

    // The value in words; nothing when the source has none that can be read as the type.
    std::optional<std::string> value(const std::string& type, const char* variable,
                                     const char* section, const char* key) const {
        // A value that does not depend on the default is the source's.
        if (type == "bool") {
            const bool first = boolSetting(variable, section, key, false);
            if (first != boolSetting(variable, section, key, true))
                return std::nullopt;
            return first ? "true" : "false";
        }
        if (type == "int") {
            const int first = intSetting(variable, section, key, 0);
            if (first != intSetting(variable, section, key, 1))
                return std::nullopt;
            return std::to_string(first);
        }
        const std::unique_ptr<char, decltype(&free)> text(
            stringSetting(variable, section, key, nullptr), &free);
        if (text == nullptr)
            return std::nullopt;
        return text.get();
    }
};

struct EntryCollector {
    std::vector<SettingsFile::Entry> entries;
    size_t stopAt = SIZE_MAX;

    static int store(void* self, const char* section, const char* name, const char* value) {
        auto& collector = *static_cast<EntryCollector*>(self);
        if (collector.entries.size() == collector.stopAt)
            return 0;
        collector.entries.push_back({section, name, value, 0});
        return 1;
    }
};

kor::TrustedFile openAsLibrary(const SettingsFile& file) {
    return kor::openSettingsFile(file.path.c_str(), strcmp(file.whose, "system") == 0);
}

// The line of each entry: the reader tells the line at which its user wants no more.
int lineOf(const SettingsFile& file, size_t entry) {
    kor::IniReader reader(file.path.c_str(), openAsLibrary(file).stream);
    EntryCollector collector;
    collector.stopAt = entry;
    reader.parseIniFile(EntryCollector::store, &collector);
    const kor::IniError* error = reader.getParserState();
    return error == nullptr ? 0 : error->linenum;
}

void readFile(SettingsFile& file) {
    const kor::TrustedFile opened = openAsLibrary(file);
    if (opened.refusal != nullptr) {
        file.refused = true;
        file.problem = opened.refusal;
        return;
    }
    if (opened.stream == nullptr) {
        file.problem = std::string("cannot be read: ") + strerror(errno);
        return;
    }
    kor::IniReader reader(file.path.c_str(), opened.stream);
    EntryCollector collector;
    reader.parseIniFile(EntryCollector::store, &collector);
    if (const kor::IniError* error = reader.getParserState()) {
        file.problem = error->errnum == kor::IniParserError
                           ? "is neither a section, a setting nor a comment"
                           : error->errstr;
        file.problemLine = error->linenum;
        return;
    }
    file.entries = std::move(collector.entries);
    for (size_t i = 0; i < file.entries.size(); ++i)
        file.entries[i].line = lineOf(file, i);
}

bool isSame(const std::string& a, const char* b) {
    return strcasecmp(a.c_str(), b) == 0;
}

// The last one counts.
const SettingsFile::Entry* entryOf(const SettingsFile& file, const SettingValue& setting) {
    const SettingsFile::Entry* found = nullptr;
    for (const SettingsFile::Entry& entry : file.entries)
        if (isSame(entry.section, setting.section) && isSame(entry.key, setting.key))
            found = &entry;
    return found;
}

bool isNoValue(const std::string& text) {
    return text.find_first_not_of(" \t\r\n\v\f") == std::string::npos || text == "<null>";
}

std::string placeOf(const SettingsFile& file, const SettingsFile::Entry& entry) {
    return file.path + ", line " + std::to_string(entry.line);
}

void consultFile(OneSource& source, const SettingsFile& file, SettingValue& setting) {
    const SettingsFile::Entry* entry = entryOf(file, setting);
    if (entry == nullptr || file.ignored)
        return;
    source.useFile(&file);
    const auto value = source.value(setting.type, noSuchVariable, setting.section, setting.key);
    if (!value && !isNoValue(entry->value))
        setting.passedOver.push_back("\"" + entry->value + "\" in " + placeOf(file, *entry));
    if (value && setting.source.empty()) {
        setting.value = *value;
        setting.source = placeOf(file, *entry);
    }
}

void consultEnvironment(OneSource& source, SettingValue& setting) {
    const char* text = getenv(setting.variable);
    if (text == nullptr)
        return;
    source.useFile(nullptr);
    const auto value = source.value(setting.type, setting.variable, setting.section, setting.key);
    if (!value && !isNoValue(text))
        setting.passedOver.push_back("\"" + std::string(text).substr(0, 80) + "\" in variable " +
                                     setting.variable);
    if (value && setting.source.empty()) {
        setting.value = *value;
        setting.source = std::string("variable ") + setting.variable;
    }
}

std::string defaultText(bool value) {
    return value ? "true" : "false";
}
std::string defaultText(int value) {
    return std::to_string(value);
}
std::string defaultText(const char* value) {
    return value == nullptr ? "" : value;
}

std::string defaultText(std::nullptr_t) {
    return "";
}

struct Row {
    SettingValue setting;
    std::string defaultValue;
};

std::vector<Row> table() {
    std::vector<Row> rows;
#define KOR_SETTING(type, field, key, section, env, def, description)                              \
    rows.push_back({{key, section, env, #type, "", false, "", {}}, defaultText(def)});
#include "config/settings.def"
#undef KOR_SETTING
    return rows;
}

} // namespace

std::vector<SettingsFile> readSettingsFiles() {
    std::vector<SettingsFile> files;
    for (const auto& [whose, path] : OneSource().places()) {
        files.push_back({whose, path, "", 0, false, false, {}});
        readFile(files.back());
    }
    // A broken system file takes the user's with it.
    if (!files.empty() && strcmp(files.back().whose, "system") == 0 &&
        !files.back().problem.empty() && !files.back().refused)
        for (SettingsFile& file : files)
            if (strcmp(file.whose, "user's") == 0)
                file.ignored = true;
    return files;
}

std::vector<SettingValue> readSettings(const std::vector<SettingsFile>& files) {
    std::vector<SettingValue> settings;
    OneSource source;
    const auto consult = [&](const char* whose, SettingValue& setting) {
        for (const SettingsFile& file : files)
            if (strcmp(file.whose, whose) == 0)
                consultFile(source, file, setting);
    };
    for (auto& [setting, defaultValue] : table()) {
        consult("administrator's", setting);
        consultEnvironment(source, setting);
        consult("user's", setting);
        consult("system", setting);
        if (setting.source.empty()) {
            setting.value = defaultValue;
            setting.source = "default";
        }
        setting.isSet = !setting.value.empty();
        settings.push_back(setting);
    }
    return settings;
}

const SettingValue& settingOf(const std::vector<SettingValue>& settings, const std::string& key) {
    const auto found = std::find_if(settings.begin(), settings.end(),
                                    [&](const SettingValue& s) { return key == s.key; });
    if (found == settings.end())
        throw std::logic_error("there is no setting " + key);
    return *found;
}

} // namespace kordoctor
