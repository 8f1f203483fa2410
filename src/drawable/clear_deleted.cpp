#include "context/deleted_drawables.h"
#include "display/kor_ext.h"
#include "drawable/registry.h"
#include "drawable/window_known.h"
#include "support/log.h"

#include <vector>

using kor::gl::DrawableInfo;

namespace kor::gl {

bool isWindowKnown(const TSD& tsd, unsigned long window) {
    int visualId = 0;
    int rect[4] = {};
    return XKorExtGetWindowInfo(tsd.appDisplay2, tsd.extCodes, window, nullptr, &visualId, rect) !=
           0;
}

} // namespace kor::gl

void clearDeletedDrawables() {
    const kor::gl::TSD* tsd = getTSD();
    if (tsd == nullptr || tsd->appDisplay2 == nullptr || tsd->extCodes == nullptr)
        return;
    const kor::Undisturbed undisturbed; // until all of them are gone
    std::vector<DrawableInfo*> deleted;
    {
        const kor::Lock lock(kor::gl::getLocalDrawablesMutex());
        kor::gl::DrawableList& list = kor::gl::getLocalDrawablesList();
        deleted.reserve(list.size()); // none is lost for want of memory later
        for (auto entry = list.begin(); entry != list.end();) {
            DrawableInfo* record = *entry;
            if (record->type != kor::gl::WindowDrawable ||
                (!record->invalidatedFbconfig() &&
                 kor::gl::isWindowKnown(*tsd, record->appDrawable))) {
                ++entry;
                continue;
            }
            KOR_DEBUG("deleting 0x%x", static_cast<unsigned>(record->appDrawable));
            entry = list.unlink(entry);
            deleted.push_back(record);
        }
    }
    // Outside the lock: the end of a record takes the local display mutex and joins its worker.
    for (DrawableInfo* record : deleted)
        kor::gl::discard(record);
}
