#include "core/thread_end.h"
#include "drawable/drawable_info.h"

namespace kor::gl {

void nameDrawable(DrawableInfo*& field, DrawableInfo* record) {
    if (record == field)
        return;
    DrawableInfo* const before = field;
    if (record != nullptr)
        record->name();
    field = record;
    if (before != nullptr)
        before->unname();
}

void discard(DrawableInfo* record) {
    record->release();
    record->unname();
}

void dropCurrentDrawables(TSD& tsd) {
    nameDrawable(tsd.currentDrawable, nullptr);
    nameDrawable(tsd.currentReadDrawable, nullptr);
}

} // namespace kor::gl
