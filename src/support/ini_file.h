#ifndef KOR_SUPPORT_INI_FILE_H
#define KOR_SUPPORT_INI_FILE_H

#include "support/ini_error.h"

#include <cstdio>
#include <memory>

namespace kor {

/// One INI file in memory. Section and name are matched without regard to case and written back in
/// capitals. Complaints go to stderr and into the error state; an error blocks the three value
/// operations until the next parse. One thread at a time.
class IniFile {
  public:
    IniFile(const char* fileName, bool parseNow);
    virtual ~IniFile();
    IniFile(const IniFile&) = delete;
    IniFile& operator=(const IniFile&) = delete;

    void setFilename(const char* fileName, bool parseNow);
    const char* getFilename() const;
    /// Reads fileName, or the current file when null.
    bool parse(const char* fileName);
    /// Reads the current file from stream, which it closes; null: the file could not be opened.
    bool parseOpened(FILE* stream);
    /// Writes to fileName, or to the current file when null.
    bool write(const char* fileName);

    /// The stored text (not a copy; valid until the entry changes) or null.
    const char* getValue(const char* section, const char* name) const;
    /// True when stored.
    bool setValue(const char* section, const char* name, const char* value, bool noOverwrite);
    bool removeValue(const char* section, const char* name);

    /// Null when there is no error.
    const IniError* getParserState() const;

  private:
    struct Private;
    std::unique_ptr<Private> d_;
};

} // namespace kor

#endif
