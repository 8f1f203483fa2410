// An INI file of any bytes is read, written and read again: what was stored must come back.

#include "input.h"

#include "support/ini_file.h"
#include "support/ini_reader.h"

#include <map>
#include <vector>

using kor::fuzz::require;

namespace {

struct Line {
    std::string section;
    std::string name;
    std::string value;
};

int note(void* lines, const char* section, const char* name, const char* value) {
    static_cast<std::vector<Line>*>(lines)->push_back({section, name, value});
    return 1;
}

bool readLines(const std::string& path, std::vector<Line>& lines) {
    kor::IniReader reader(path.c_str());
    const bool read = reader.parseIniFile(note, &lines);
    const kor::IniError* error = reader.getParserState();
    require(read == (error == nullptr), "an error is told exactly when there is one");
    require(error == nullptr || (error->errnum == kor::IniParserError && error->linenum > 0),
            "a parse error names its line");
    return read;
}

/// What a second reading takes as something else: white space at either end was stripped before,
/// but a name that begins like a comment or a header, or a name or value that holds what ends it,
/// may come out of the first reading.
bool survivesWriting(const Line& line) {
    // Lines are read 199 bytes at a time, section names cut at 49; "::" parts section from name.
    return !line.section.empty() && !line.name.empty() && line.name[0] != '[' &&
           line.name[0] != '#' && line.name[0] != ';' && !line.value.empty() &&
           line.name.size() + line.value.size() < 190 &&
           line.section.find(':') == std::string::npos &&
           line.section.find(']') == std::string::npos &&
           line.section.find(';') == std::string::npos &&
           line.name.find_first_of("=:;") == std::string::npos &&
           line.value.find(';') == std::string::npos;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*count*/, char*** /*arguments*/) {
    kor::fuzz::silence();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string first = kor::fuzz::temporaryFolder() + "/first.ini";
    const std::string second = kor::fuzz::temporaryFolder() + "/second.ini";
    kor::fuzz::writeFile(first, std::string(reinterpret_cast<const char*>(data), size));

    std::vector<Line> lines;
    const bool readable = readLines(first, lines);
    bool plain = true;
    for (const Line& line : lines)
        plain = plain && survivesWriting(line);

    kor::IniFile file(first.c_str(), true);
    require((file.getParserState() == nullptr) == readable, "reader and file agree");
    if (!readable) {
        require(file.getValue("a", "b") == nullptr && !file.setValue("a", "b", "c", false) &&
                    !file.removeValue("a", "b"),
                "a file in its error state is neither read nor changed");
        return 0;
    }
    if (plain && !lines.empty()) {
        const Line& last = lines.back();
        const char* value = file.getValue(last.section.c_str(), last.name.c_str());
        require(value != nullptr && last.value == value, "the last of equal names counts");
    }
    require(file.write(second.c_str()), "what was read can be written");

    kor::IniFile again(second.c_str(), true);
    if (plain) {
        require(again.getParserState() == nullptr, "what was written can be read");
        for (const Line& line : lines) {
            const char* before = file.getValue(line.section.c_str(), line.name.c_str());
            const char* after = again.getValue(line.section.c_str(), line.name.c_str());
            require(before != nullptr && after != nullptr && strcmp(before, after) == 0,
                    "a value comes back as it was");
        }
        for (const Line& line : lines) {
            again.removeValue(line.section.c_str(), line.name.c_str());
            require(again.getValue(line.section.c_str(), line.name.c_str()) == nullptr,
                    "a removed value is gone");
        }
    }
    return 0;
}
