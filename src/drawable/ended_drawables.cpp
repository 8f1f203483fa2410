#include "display/display_end.h"
#include "drawable/registry.h"

#include <vector>

namespace kor::gl {

void endDrawablesOf(Display* appDpy, const IdRange& created) {
    std::vector<DrawableInfo*> ended;
    {
        const Lock lock(getLocalDrawablesMutex());
        DrawableList& list = getLocalDrawablesList();
        for (auto entry = list.begin(); entry != list.end();) {
            DrawableInfo* record = *entry;
            if (record->appDisplay != appDpy) {
                ++entry;
                continue;
            }
            record->appDisplay = nullptr; // others may name it for long
            if (record->type == WindowDrawable && !created.contains(record->appDrawable) &&
                record->isNamedElsewhere()) {
                ++entry;
                continue;
            }
            entry = list.unlink(entry);
            ended.push_back(record);
        }
    }
    // Outside the lock, as in clearDeletedDrawables().
    for (DrawableInfo* record : ended)
        discard(record);
}

} // namespace kor::gl
