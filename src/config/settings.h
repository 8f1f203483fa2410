#ifndef KOR_CONFIG_SETTINGS_H
#define KOR_CONFIG_SETTINGS_H

#include "config/settings_lookup.h"
#include "support/relaxed.h"
#include "support/singleton.h"

namespace kor::conf {

/// The library's settings, read once at start into typed fields (one per row of settings.def). They
/// are read without a lock; only construction and reload() write them, and the query entry points,
/// which turn useSampleQueries off. Texts are owned by the settings; null means no value.
class Settings : public kor::Settings, public kor::Singleton<Settings> {
  public:
    Settings();
    ~Settings() override;
    void parse() override;
    void freeSettings();

    /// Creates the singleton (it is never destroyed).
    static void init();
    /// Reads the files that were found at construction again. Not synchronised with readers.
    static void reload();

    template <typename T> using Field = kor::Relaxed<T>;
    using text = char*;
#define KOR_SETTING(type, field, key, section, env, def, description) Field<type> field;
#include "config/settings.def"
#undef KOR_SETTING
};

/// The settings, created at the first call.
inline Settings& settings() {
    return *Settings::instance();
}

} // namespace kor::conf

#endif
