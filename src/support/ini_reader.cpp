#include "support/ini_reader.h"

#include "support/log.h"

#include <cctype>
#include <cstdlib>
#include <cstring>

namespace kor {

namespace {

constexpr int lineBufferSize = 200;
constexpr unsigned sectionBufferSize = 50;

bool isSpace(char c) {
    return isspace(static_cast<unsigned char>(c)) != 0;
}

char* stripTrailing(char* text) {
    char* end = text + strlen(text);
    while (end > text && isSpace(end[-1]))
        --end;
    *end = '\0';
    return text;
}

char* skipLeading(char* text) {
    while (isSpace(*text))
        ++text;
    return text;
}

/// The first wanted character, or the ";" that starts a comment (one that follows white space
/// within text), or the end. A ";" that begins text is no comment: an address or a list may start
/// so.
char* findOrComment(char* text, char wanted) {
    bool afterSpace = false;
    while (*text != '\0' && *text != wanted && !(afterSpace && *text == ';')) {
        afterSpace = isSpace(*text);
        ++text;
    }
    return text;
}

} // namespace

IniReader::IniReader(const char* fileName) {
    if (fileName == nullptr)
        seterr(IniInvalidArgument, "Invalid argument", 0);
    else
        takeFile(fileName, fopen(fileName, "r"));
}

IniReader::IniReader(const char* fileName, FILE* stream) {
    takeFile(fileName, stream);
}

void IniReader::takeFile(const char* fileName, FILE* stream) {
    fileName_ = strdup(fileName);
    if (fileName_ == nullptr)
        seterr(IniOutOfMemory, "Out of memory.", 0);
    stream_ = stream;
    if (stream_ == nullptr)
        seterr(IniNoSuchFile, "No such file or directory.", 0);
}

IniReader::~IniReader() {
    free(fileName_);
    if (stream_ != nullptr)
        fclose(stream_);
}

bool IniReader::parseIniFile(Handler handler, void* user) {
    if (handler == nullptr) {
        seterr(IniNoUserFunction, "No user function available.", 0);
        return false;
    }
    if (stream_ == nullptr)
        return false;

    char buffer[lineBufferSize];
    char section[sectionBufferSize] = "";
    // Longer lines arrive in pieces, and each piece is a line of its own.
    for (int line = 1; fgets(buffer, sizeof buffer, stream_) != nullptr; ++line) {
        char* text = skipLeading(stripTrailing(buffer));
        if (*text == '\0' || *text == '#' || *text == ';')
            continue;
        if (*text == '[') {
            char* end = findOrComment(text + 1, ']');
            if (*end != ']') {
                seterr(IniParserError, "Parser error.", line);
                return false;
            }
            *end = '\0';
            korSprintf(section, sizeof section, "%s", text + 1);
            continue;
        }
        char* separator = findOrComment(text, '=');
        if (*separator != '=')
            separator = findOrComment(text, ':');
        if (*separator != '=' && *separator != ':') {
            seterr(IniParserError, "Parser error.", line);
            return false;
        }
        *separator = '\0';
        const char* name = stripTrailing(text);
        char* value = skipLeading(separator + 1);
        *findOrComment(value, '\0') = '\0';
        stripTrailing(value);
        if (handler(user, section, name, value) == 0) {
            seterr(IniUserFunctionError, "User function error.", line);
            return false;
        }
    }
    return true;
}

const IniError* IniReader::getParserState() const {
    return error_ ? &state_ : nullptr;
}

void IniReader::seterr(int code, const char* text, int line) {
    error_ = true;
    state_.errnum = code;
    state_.linenum = line;
    korSprintf(state_.errstr, sizeof state_.errstr, "%s", text);
}

} // namespace kor
