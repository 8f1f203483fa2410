#ifndef KOR_CONFIG_SETTINGS_LOOKUP_H
#define KOR_CONFIG_SETTINGS_LOOKUP_H

namespace kor {

class IniFile;

/// Finds a setting's value in, by precedence, the administrator's file, the environment, the user's
/// file and the system file. A value that does not convert is passed over without a word.
class Settings {
  public:
    /// Finds the three files of that name; reads nothing yet.
    explicit Settings(const char* fileName);
    virtual ~Settings();
    Settings(const Settings&) = delete;
    Settings& operator=(const Settings&) = delete;

    /// Reads the files. One that cannot be parsed, or that another user may have put there (see
    /// openSettingsFile), is reported on stderr and ignored from then on.
    virtual void parse();

    void closeIniFiles();

    /// Heap copy (the caller frees it) or null.
    char* stringSetting(const char* envName, const char* section, const char* key,
                        const char* defaultValue) const;
    int intSetting(const char* envName, const char* section, const char* key,
                   int defaultValue) const;
    double doubleSetting(const char* envName, const char* section, const char* key,
                         double defaultValue) const;
    bool boolSetting(const char* envName, const char* section, const char* key,
                     bool defaultValue) const;

    /// Heap copy (the caller frees it), or null when the text does not convert.
    static char* toString(const char* text);
    /// *invalid tells whether the text did not convert; the result is then 0.
    static int toInt(const char* text, bool* invalid);
    static double toDouble(const char* text, bool* invalid);
    static bool toBool(const char* text, bool* invalid);

  protected:
    // Owned; null where there is no such file.
    IniFile* userFile_ = nullptr;
    IniFile* systemFile_ = nullptr;
    IniFile* adminFile_ = nullptr;
};

} // namespace kor

#endif
