#include "drawable/registry.h"

#include "display/users.h"
#include "support/failures.h"
#include "support/forked_child.h"

using kor::Lock;
using kor::gl::DrawableInfo;
using kor::gl::DrawableRef;

namespace kor::gl {

namespace {

PerProcess<DrawableList> localDrawables;
PerProcess<Mutex> localDrawablesMutex;

} // namespace

void DrawableList::pushFront(DrawableInfo* record) {
    if (spare_.empty()) {
        records_.push_front(record);
        return;
    }
    spare_.front() = record;
    records_.splice(records_.begin(), spare_, spare_.begin());
}

DrawableList::Iterator DrawableList::unlink(Iterator entry) {
    const Iterator next = std::next(entry);
    *entry = nullptr;
    spare_.splice(spare_.begin(), records_, entry);
    return next;
}

DrawableList& getLocalDrawablesList() {
    return *localDrawables;
}

Mutex& getLocalDrawablesMutex() {
    return *localDrawablesMutex;
}

bool anyWindowDrawableUses(Display* appDpy) {
    const Lock lock(getLocalDrawablesMutex());
    for (const DrawableInfo* record : getLocalDrawablesList()) {
        if (record->type == WindowDrawable && record->appDisplay == appDpy)
            return true;
    }
    return false;
}

} // namespace kor::gl

void pushLocalDrawable(DrawableInfo* record) {
    const kor::OnFailure undo([&] { kor::gl::discard(record); }); // when the lock is released
    const Lock lock(kor::gl::getLocalDrawablesMutex());
    kor::gl::getLocalDrawablesList().pushFront(record);
}

DrawableRef findLocalDrawable(unsigned long id) {
    const Lock lock(kor::gl::getLocalDrawablesMutex());
    for (DrawableInfo* record : kor::gl::getLocalDrawablesList()) {
        if (record->appDrawable == id)
            return DrawableRef(record);
    }
    return DrawableRef();
}

void eraseLocalDrawable(unsigned long id, kor::gl::LocalDrawableType type) {
    DrawableInfo* erased = nullptr;
    {
        const Lock lock(kor::gl::getLocalDrawablesMutex());
        kor::gl::DrawableList& list = kor::gl::getLocalDrawablesList();
        for (auto entry = list.begin(); entry != list.end(); ++entry) {
            if ((*entry)->appDrawable == id && (*entry)->type == type) {
                erased = *entry;
                list.unlink(entry);
                break;
            }
        }
    }
    if (erased == nullptr)
        return;
    if (kor::gl::TSD* tsd = getTSD()) {
        if (tsd->currentReadDrawable == erased)
            kor::gl::nameDrawable(tsd->currentReadDrawable, nullptr);
        if (tsd->currentDrawable == erased)
            kor::gl::nameDrawable(tsd->currentDrawable, nullptr);
    }
    kor::gl::discard(erased);
}
