#include "config/settings.h"

#include <cstdlib>

namespace kor::conf {

Settings::Settings() : kor::Settings("kor-gl.conf") {
    Settings::parse();
}

Settings::~Settings() {
    freeSettings();
}

void Settings::parse() {
    kor::Settings::parse();
    freeSettings();
#define KOR_READ_bool boolSetting
#define KOR_READ_int intSetting
#define KOR_READ_text stringSetting
#define KOR_SETTING(type, field, key, section, env, def, description)                              \
    field = KOR_READ_##type(env, section, key, def);
#include "config/settings.def"
#undef KOR_SETTING
}

void Settings::freeSettings() {
    const auto freeText = [](Field<text>& field) {
        free(field);
        field = nullptr;
    };
#define KOR_FREE_bool(field)
#define KOR_FREE_int(field)
#define KOR_FREE_text(field) freeText(field);
#define KOR_SETTING(type, field, key, section, env, def, description) KOR_FREE_##type(field)
#include "config/settings.def"
#undef KOR_SETTING
}

void Settings::init() {
    instance();
}

void Settings::reload() {
    instance()->parse();
}

} // namespace kor::conf
