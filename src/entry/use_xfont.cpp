#include "config/settings.h"
#include "core/entry_points.h"
#include "core/system_gl.h"
#include "display/connections.h"
#include "display/displays.h"
#include "support/failures.h"
#include "support/log.h"

#include <X11/Xatom.h>
#include <memory>

using kor::gl::TSD;

namespace {

#define FONT_LOG(level, word, ...)                                                                 \
    KOR_LOG_AT("KORGL", level, word, "void kor_glXUseXFont(Font, int, int, int)", false,           \
               __VA_ARGS__)

struct FreeWithX {
    void operator()(char* text) const { XFree(text); }
};
using XText = std::unique_ptr<char, FreeWithX>;

/// The connection on which the application's font is looked up, by "usexfont-mode".
class FontConnection {
  public:
    FontConnection(const TSD& tsd, int mode) {
        if (mode == 1) {
            display_ = tsd.appDisplay2;
        } else if (mode == 2) {
            own_ = tsd.appDisplay != nullptr;
            if (own_)
                display_ = kor::gl::openConnection(DisplayString(tsd.appDisplay.load()),
                                                   kor::gl::FontConnection);
        } else {
            display_ = tsd.appDisplay;
        }
    }
    ~FontConnection() {
        if (own_ && display_ != nullptr)
            XCloseDisplay(display_);
    }
    FontConnection(const FontConnection&) = delete;
    FontConnection& operator=(const FontConnection&) = delete;

    Display* get() const { return display_; }

  private:
    Display* display_ = nullptr;
    bool own_ = false;
};

/// The name under which the font was loaded; null (and a line in the log) when it cannot be told.
XText nameOf(Display* display, Font font) {
    XFontStruct* info = XQueryFont(display, font);
    if (info == nullptr) {
        FONT_LOG(kor::LogError, "ERROR", "glXUseXFont failed.");
        return nullptr;
    }
    unsigned long atom = 0;
    XText name;
    if (info->properties != nullptr && XGetFontProperty(info, XA_FONT, &atom))
        name.reset(XGetAtomName(display, atom));
    XFreeFontInfo(nullptr, info, 1);
    if (name == nullptr)
        FONT_LOG(kor::LogWarning, "WARNING", "Could not get fontname.");
    return name;
}

/// The font on the local display, or a stand-in. Never freed, on purpose: display lists may be
/// built from it at any time.
XFontStruct* loadLocally(Display* local, const char* name) {
    if (XFontStruct* font = XLoadQueryFont(local, name))
        return font;
    FONT_LOG(kor::LogWarning, "WARNING", "failed to load font %s. Falling back to 'fixed'", name);
    if (XFontStruct* font = XLoadQueryFont(local, "fixed"))
        return font;
    FONT_LOG(kor::LogWarning, "WARNING", "failed to load even fixed font.");
    return nullptr;
}

/// True when the font was looked at to the end, with lists or without. By then the connection for
/// the occasion is closed again.
bool useFont(TSD& tsd, int mode, Font font, int first, int count, int listBase) {
    const FontConnection connection(tsd, mode);
    if (connection.get() == nullptr)
        return false;
    const kor::gl::LocalDisplay pinned = kor::gl::pinLocalDisplay(&tsd);
    Display* const local = pinned.get();
    if (local == nullptr)
        return false;
    const XText name = nameOf(connection.get(), font);
    if (name == nullptr)
        return false;
    const kor::Lock lock(getLocalDisplayMutex());
    if (const XFontStruct* loaded = loadLocally(local, name.get()))
        system_glXUseXFont(loaded->fid, first, count, listBase);
    return true;
}

} // namespace

void kor_glXUseXFont(Font font, int first, int count, int listBase) try {
    KOR_DEBUG("Font %d, [%d, %d], base: %d", static_cast<int>(font), first, count, listBase);
    TSD* tsd = getTSD();
    if (tsd == nullptr)
        return;
    const int mode = kor::conf::settings().usexfontMode;
    if (mode == 3)
        return;
    if (useFont(*tsd, mode, font, first, count, listBase))
        KOR_DEBUG("DONE");
}
KOR_OTHERWISE()
