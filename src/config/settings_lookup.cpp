#include "config/settings_lookup.h"

#include "support/ini_file.h"
#include "support/text.h"
#include "support/trusted_file.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <strings.h>
#include <unistd.h>

namespace kor {

namespace {

struct FreeText {
    void operator()(char* text) const { free(text); }
};
using OwnedText = std::unique_ptr<char, FreeText>;

constexpr size_t directoryBufferSize = 1024;
// What an environment value may need, its terminating zero included; a longer one counts as unset.
constexpr size_t textBufferSize = 1024;
constexpr size_t numberBufferSize = 32;
constexpr size_t boolBufferSize = 8;

bool isEmpty(const char* text) {
    return text == nullptr || *text == '\0';
}

/// The variable's value; null when it is unset or too long to be a directory's name.
const char* directoryVariable(const char* name) {
    const char* value = getenv(name);
    return value != nullptr && strlen(value) < directoryBufferSize ? value : nullptr;
}

/// Appends tail; a directory that then does not fit becomes empty.
void appendToBase(char* base, const char* tail) {
    const size_t length = strlen(base);
    if (korStrcpy(base + length, static_cast<unsigned>(directoryBufferSize - length), tail) != 0)
        base[0] = '\0';
}

/// The path of the user's file (owned by the caller), or null when the user has no place for one.
char* userFileName(const char* fileName) {
    const char* home = directoryVariable("HOME");
    const char* own = directoryVariable("KOR_GL_USER_CONFDIR");
    if (!isEmpty(own))
        return korBuildFilename(own, fileName, nullptr);
    if (own == nullptr) {
        char base[directoryBufferSize] = "";
        if (const char* xdg = directoryVariable("XDG_CONFIG_HOME")) {
            appendToBase(base, xdg);
        } else if (!isEmpty(home)) {
            appendToBase(base, home);
            appendToBase(base, "/.config");
        }
        if (base[0] != '\0')
            appendToBase(base, "/kor");
        if (base[0] != '\0')
            return korBuildFilename(base, fileName, nullptr);
    }
    return isEmpty(home) ? nullptr : korBuildFilename(home, ".kor", "conf", fileName, nullptr);
}

/// The administrator's file is looked for in the working directory, not beside the system file.
/// That is deliberate: it overrides for what is started there.
char* adminFileName(const char* fileName) {
    const size_t size = strlen(fileName) + sizeof ".admin";
    auto* name = static_cast<char*>(malloc(size));
    if (name != nullptr)
        snprintf(name, size, "%s.admin", fileName);
    return name;
}

bool exists(const char* path) {
    return path != nullptr && access(path, F_OK) == 0;
}

IniFile* openFile(const char* path) {
    return exists(path) ? new IniFile(path, false) : nullptr;
}

/// Apart from the others, so that leak checkers can tell this object: see Settings::parse().
[[gnu::noinline]] IniFile* openSystemFile(const char* path) {
    return exists(path) ? new IniFile(path, false) : nullptr;
}

enum class Reading { Parsed, Broken, Refused };

/// Reads the file. After a complaint it is Broken when it cannot be parsed, and Refused when what
/// stands in its place is not to be read.
Reading readFile(IniFile& file, bool ofSystem = false) {
    const TrustedFile opened = openSettingsFile(file.getFilename(), ofSystem);
    if (opened.refusal != nullptr) {
        fprintf(stderr, "Settings file \"%s\" is not used: it %s\n", file.getFilename(),
                opened.refusal);
        return Reading::Refused;
    }
    file.parseOpened(opened.stream);
    const IniError* error = file.getParserState();
    if (error == nullptr)
        return Reading::Parsed;
    fprintf(stderr, "Cannot parse settings file \"%s\":<errnum %d> <linenum %d> <errstr %s>\n",
            file.getFilename(), error->errnum, error->linenum, error->errstr);
    return Reading::Broken;
}

/// Deletes the object and clears its slot.
void drop(IniFile*& slot) {
    delete slot;
    slot = nullptr;
}

/// Copies the variable's value, without the white space around it, into buffer. False when it is
/// unset, does not fit as it stands, or is only white space.
bool environmentValue(const char* name, char* buffer, size_t size) {
    const char* value = getenv(name);
    if (value == nullptr || korStrcpy(buffer, static_cast<unsigned>(size), value) != 0)
        return false;
    const auto isSpace = [](char c) { return isspace(static_cast<unsigned char>(c)) != 0; };
    char* begin = buffer;
    while (isSpace(*begin))
        ++begin;
    size_t length = strlen(begin);
    while (length > 0 && isSpace(begin[length - 1]))
        --length;
    memmove(buffer, begin, length);
    buffer[length] = '\0';
    return length > 0;
}

const char* fileValue(const IniFile* file, const char* section, const char* key) {
    return file != nullptr ? file->getValue(section, key) : nullptr;
}

/// True for what no type takes: no text, the empty text and the word for no value.
bool isNoValue(const char* text) {
    return isEmpty(text) || strcmp(text, "<null>") == 0;
}

/// A whole text as a base-10 integer.
bool wholeInteger(const char* text, long* value) {
    char* end = nullptr;
    *value = strtol(text, &end, 10);
    return end != text && *end == '\0';
}

} // namespace

Settings::Settings(const char* fileName) {
    const OwnedText systemName(korBuildFilename("/etc", "kor", fileName, nullptr));
    const OwnedText adminName(adminFileName(fileName));
    const OwnedText userName(userFileName(fileName));
    adminFile_ = openFile(adminName.get());
    userFile_ = openFile(userName.get());
    systemFile_ = openSystemFile(systemName.get());
}

Settings::~Settings() {
    closeIniFiles();
}

void Settings::parse() {
    if (adminFile_ != nullptr && readFile(*adminFile_) != Reading::Parsed)
        drop(adminFile_);
    if (userFile_ != nullptr && readFile(*userFile_) != Reading::Parsed)
        drop(userFile_);
    if (systemFile_ == nullptr)
        return;
    switch (readFile(*systemFile_, true)) {
    case Reading::Parsed:
        break;
    case Reading::Refused: // as if there were none
        drop(systemFile_);
        break;
    case Reading::Broken:
        // Wanted as it is: a broken system file takes the user's file with it, and its own object
        // is kept until the process ends. The emptied user slot is consulted as one without file.
        drop(userFile_);
        systemFile_ = nullptr;
        break;
    }
}

void Settings::closeIniFiles() {
    drop(adminFile_);
    drop(userFile_);
    drop(systemFile_);
}

/// Goes through the sources in their order until convert(text, &result) accepts one. False when
/// none does.
template <typename Value, typename Convert>
static bool lookUp(const IniFile* const (&files)[3], size_t bufferSize, const char* envName,
                   const char* section, const char* key, Value* result, Convert convert) {
    const auto [admin, user, system] = files;
    char buffer[textBufferSize];
    if (convert(fileValue(admin, section, key), result))
        return true;
    if (environmentValue(envName, buffer, bufferSize) && convert(buffer, result))
        return true;
    return convert(fileValue(user, section, key), result) ||
           convert(fileValue(system, section, key), result);
}

/// Makes of a conversion with an error flag one that tells its success.
template <typename Value> static auto converter(Value (*convert)(const char*, bool*)) {
    return [convert](const char* text, Value* result) {
        bool invalid = false;
        *result = convert(text, &invalid);
        return !invalid;
    };
}

char* Settings::stringSetting(const char* envName, const char* section, const char* key,
                              const char* defaultValue) const {
    char* value = nullptr;
    const auto convert = [](const char* text, char** result) {
        *result = toString(text);
        return *result != nullptr;
    };
    if (lookUp({adminFile_, userFile_, systemFile_}, textBufferSize, envName, section, key, &value,
               convert))
        return value;
    return defaultValue != nullptr ? strdup(defaultValue) : nullptr;
}

int Settings::intSetting(const char* envName, const char* section, const char* key,
                         int defaultValue) const {
    int value = 0;
    return lookUp({adminFile_, userFile_, systemFile_}, numberBufferSize, envName, section, key,
                  &value, converter(toInt))
               ? value
               : defaultValue;
}

double Settings::doubleSetting(const char* envName, const char* section, const char* key,
                               double defaultValue) const {
    double value = 0;
    return lookUp({adminFile_, userFile_, systemFile_}, numberBufferSize, envName, section, key,
                  &value, converter(toDouble))
               ? value
               : defaultValue;
}

bool Settings::boolSetting(const char* envName, const char* section, const char* key,
                           bool defaultValue) const {
    bool value = false;
    return lookUp({adminFile_, userFile_, systemFile_}, boolBufferSize, envName, section, key,
                  &value, converter(toBool))
               ? value
               : defaultValue;
}

char* Settings::toString(const char* text) {
    if (isNoValue(text))
        return nullptr;
    char* copy = strdup(text);
    if (copy == nullptr)
        throw std::bad_alloc(); // half the settings are none: they are read again at the next use
    return copy;
}

int Settings::toInt(const char* text, bool* invalid) {
    long value = 0;
    *invalid = isNoValue(text) || !wholeInteger(text, &value);
    return *invalid ? 0 : static_cast<int>(value);
}

double Settings::toDouble(const char* text, bool* invalid) {
    *invalid = true;
    if (isNoValue(text))
        return 0;
    char* end = nullptr;
    const double value = strtod(text, &end);
    *invalid = end == text || *end != '\0';
    return *invalid ? 0 : value;
}

bool Settings::toBool(const char* text, bool* invalid) {
    *invalid = false;
    if (!isNoValue(text)) {
        long value = 0;
        if (strcasecmp(text, "false") == 0)
            return false;
        if (strcasecmp(text, "true") == 0)
            return true;
        if (wholeInteger(text, &value) && (value == 0 || value == 1))
            return value == 1;
    }
    *invalid = true;
    return false;
}

} // namespace kor
