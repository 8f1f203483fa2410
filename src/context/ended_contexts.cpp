#include "context/context_map.h"
#include "core/thread_end.h"
#include "display/display_end.h"
#include "display/local_call.h"

#include <memory>
#include <vector>

namespace kor::gl {

void leaveContextBehind(const TSD& tsd) {
    if (tsd.currentContext == nullptr)
        return;
    std::unique_ptr<ContextInfo> ended; // deleted outside the lock
    const Lock lock(getContextMutex());
    ContextInfo* record = findContext(tsd.currentContext);
    if (record == nullptr)
        return;
    record->leftBehind = true;
    if (record->display == nullptr) { // it has waited for this thread alone
        getContextMap().remove(tsd.currentContext);
        ended.reset(record);
    }
}

void endContextsOf(Display* appDpy) {
    struct Ended {
        GLXContext context;
        LocalDisplay local;                  // none: the application has destroyed it already
        std::unique_ptr<ContextInfo> record; // null: the thread that has it current leaves it first
    };
    std::vector<Ended> ended;
    {
        const Lock lock(getContextMutex());
        getContextMap().any([&](GLXContext context, ContextInfo* record) {
            if (record->display != appDpy)
                return false;
            record->display = nullptr;
            const bool stays = record->current && !record->leftBehind;
            ended.push_back({context, record->destroyed ? LocalDisplay() : record->local,
                             std::unique_ptr<ContextInfo>(stays ? nullptr : record)});
            record->destroyed = true;
            return false; // every record is looked at
        });
        for (const Ended& context : ended) {
            if (context.record != nullptr)
                getContextMap().remove(context.context);
        }
    }
    for (const Ended& context : ended) {
        if (context.local)
            callLocal(system_glXDestroyContext, context.local.get(), context.context);
    }
}

} // namespace kor::gl
