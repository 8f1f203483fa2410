#include "support/ini_file.h"

#include "support/ini_reader.h"
#include "support/ini_table.h"

#include <cstdio>
#include <cstring>
#include <new>
#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace kor {

namespace {

constexpr std::string_view keySeparator = "::";

bool isEmpty(const char* text) {
    return text == nullptr || *text == '\0';
}

/// Capitals by the ASCII rule, so that a key means the same whatever locale the application sets.
std::string makeKey(const char* section, const char* name) {
    std::string key = std::string(section).append(keySeparator).append(name);
    for (char& c : key) {
        if (c >= 'a' && c <= 'z')
            c = static_cast<char>(c - 'a' + 'A');
    }
    return key;
}

std::string_view sectionOf(const std::string& key) {
    return std::string_view(key).substr(0, key.find(keySeparator));
}

const char* nameOf(const std::string& key) {
    return key.c_str() + key.find(keySeparator) + keySeparator.size();
}

/// What an operation says, by the reason for which it cannot be done.
struct Complaints {
    const char* error;
    const char* section;
    const char* name;
};

constexpr Complaints getComplaints = {"Cannot get value: Parser is in error state\n",
                                      "Cannot get value: Section is empty\n",
                                      "Cannot get value: Name is empty\n"};
constexpr Complaints setComplaints = {"Cannot set value: Parser is in error state\n",
                                      "Cannot set value: Section is empty\n",
                                      "Cannot set value: Name is empty\n"};
constexpr Complaints removeComplaints = {"Cannot remove value: Parser is in error state\n",
                                         "Cannot remove value: Section is empty\n",
                                         "Cannot remove value: Name is empty\n"};

} // namespace

struct IniFile::Private {
    std::optional<std::string> fileName;
    IniTable table;
    std::unique_ptr<IniError> error;

    bool hasName() const { return fileName && !fileName->empty(); }
    void setName(const char* name) {
        fileName = name != nullptr ? std::optional<std::string>(name) : std::nullopt;
    }
    void clear() {
        table.clear();
        fileName.reset();
        error.reset();
    }
    bool parse();
    bool parse(IniReader&& reader);
    bool store(const char* section, const char* name, const char* value, bool noOverwrite);
    bool refuses(const Complaints& complaints, const char* section, const char* name) const;
    bool writeTo(FILE* stream) const;
    static int storeParsed(void* self, const char* section, const char* name, const char* value);
};

int IniFile::Private::storeParsed(void* self, const char* section, const char* name,
                                  const char* value) {
    return static_cast<Private*>(self)->store(section, name, value, false) ? 1 : 0;
}

/// Reads the file into the cleared model.
bool IniFile::Private::parse() {
    if (!hasName()) {
        error =
            std::make_unique<IniError>(IniError{IniNoSuchFile, 0, "No such file or directory."});
        return false;
    }
    return parse(IniReader(fileName->c_str()));
}

bool IniFile::Private::parse(IniReader&& reader) {
    if (const IniError* state = reader.getParserState()) {
        fprintf(stderr, "Cannot open .ini file \"%s\": %s\n", fileName->c_str(), state->errstr);
        error = std::make_unique<IniError>(*state);
        return false;
    }
    if (!reader.parseIniFile(storeParsed, this)) {
        const IniError* state = reader.getParserState();
        fprintf(stderr, "Cannot parse .ini file \"%s\": %s (line %d)\n", fileName->c_str(),
                state->errstr, state->linenum);
        error = std::make_unique<IniError>(*state);
        return false;
    }
    return true;
}

bool IniFile::Private::store(const char* section, const char* name, const char* value,
                             bool noOverwrite) {
    try {
        const std::string key = makeKey(section, name);
        IniTable::Entry* entry = table.find(key);
        if (entry == nullptr)
            table.add(key, value);
        else if (noOverwrite)
            return false;
        else
            entry->value = value;
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

/// True, after one complaint on stderr, when the operation cannot be done.
bool IniFile::Private::refuses(const Complaints& complaints, const char* section,
                               const char* name) const {
    const char* complaint = nullptr;
    if (error != nullptr)
        complaint = complaints.error;
    else if (isEmpty(section))
        complaint = complaints.section;
    else if (isEmpty(name))
        complaint = complaints.name;
    if (complaint != nullptr)
        fputs(complaint, stderr);
    return complaint != nullptr;
}

bool IniFile::Private::writeTo(FILE* stream) const {
    std::set<std::string_view> sections;
    table.forEach([&](const IniTable::Entry& entry) { sections.insert(sectionOf(entry.key)); });
    bool written = true;
    for (const std::string_view section : sections) {
        written = written && fprintf(stream, "[%.*s]\n", static_cast<int>(section.size()),
                                     section.data()) >= 0;
        table.forEach([&](const IniTable::Entry& entry) {
            if (written && sectionOf(entry.key) == section)
                written = fprintf(stream, "%s = %s\n", nameOf(entry.key), entry.value.c_str()) >= 0;
        });
        written = written && fputs("\n", stream) >= 0;
    }
    return written;
}

IniFile::IniFile(const char* fileName, bool parseNow) : d_(std::make_unique<Private>()) {
    setFilename(fileName, parseNow);
}

IniFile::~IniFile() = default;

void IniFile::setFilename(const char* fileName, bool parseNow) {
    if (!parseNow) {
        d_->setName(fileName);
        return;
    }
    // The name may be the model's own text, which goes with the model.
    std::optional<std::string> name;
    if (fileName != nullptr)
        name = fileName;
    d_->clear();
    d_->fileName = std::move(name);
    d_->parse();
}

const char* IniFile::getFilename() const {
    return d_->fileName ? d_->fileName->c_str() : nullptr;
}

bool IniFile::parse(const char* fileName) {
    std::optional<std::string> name = d_->fileName;
    if (fileName != nullptr)
        name = fileName;
    d_->clear();
    d_->fileName = std::move(name);
    if (!d_->hasName())
        fputs("Cannot parse file: Filename is empty\n", stderr);
    return d_->parse();
}

bool IniFile::parseOpened(FILE* stream) {
    std::optional<std::string> name = d_->fileName;
    d_->clear();
    d_->fileName = std::move(name);
    return d_->parse(IniReader(d_->fileName ? d_->fileName->c_str() : "", stream));
}

bool IniFile::write(const char* fileName) {
    if (fileName != nullptr)
        setFilename(fileName, false);
    if (!d_->hasName())
        fputs("Cannot write file: Filename is empty\n", stderr);
    FILE* stream = fopen(d_->fileName ? d_->fileName->c_str() : "", "wt");
    if (stream == nullptr)
        return false;
    const bool written = d_->writeTo(stream);
    return fclose(stream) == 0 && written;
}

const char* IniFile::getValue(const char* section, const char* name) const {
    if (d_->refuses(getComplaints, section, name))
        return nullptr;
    const IniTable::Entry* entry = d_->table.find(makeKey(section, name));
    return entry != nullptr ? entry->value.c_str() : nullptr;
}

bool IniFile::setValue(const char* section, const char* name, const char* value, bool noOverwrite) {
    if (d_->refuses(setComplaints, section, name))
        return false;
    if (isEmpty(value)) {
        fputs("Cannot set value: Value is empty\n", stderr);
        return false;
    }
    return d_->store(section, name, value, noOverwrite);
}

bool IniFile::removeValue(const char* section, const char* name) {
    if (d_->refuses(removeComplaints, section, name))
        return false;
    return d_->table.remove(makeKey(section, name));
}

const IniError* IniFile::getParserState() const {
    return d_->error.get();
}

} // namespace kor
