#ifndef KOR_SUPPORT_INI_READER_H
#define KOR_SUPPORT_INI_READER_H

#include "support/ini_error.h"

#include <cstdio>

namespace kor {

/// Reads one INI file line by line. One thread at a time.
class IniReader {
  public:
    /// Called for every name/value line; section is empty before the first header. Zero ends the
    /// parse with an error.
    using Handler = int (*)(void* user, const char* section, const char* name, const char* value);

    explicit IniReader(const char* fileName);
    /// Reads the file of that name from stream, which it closes; null: the file could not be
    /// opened.
    IniReader(const char* fileName, FILE* stream);
    ~IniReader();
    IniReader(const IniReader&) = delete;
    IniReader& operator=(const IniReader&) = delete;

    bool parseIniFile(Handler handler, void* user);
    /// Null when there is no error; else valid until the reader goes.
    const IniError* getParserState() const;
    void seterr(int code, const char* text, int line);

  private:
    void takeFile(const char* fileName, FILE* stream);

    bool error_ = false;
    FILE* stream_ = nullptr;
    char* fileName_ = nullptr;
    IniError state_{};
};

} // namespace kor

#endif
