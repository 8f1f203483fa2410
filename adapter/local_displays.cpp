#include "local_displays.h"

#include "driver.h"
#include "late_destroy.h"
#include "support/forked_child.h"

#include <X11/Xlibint.h>
#undef min
#undef max

#include <unistd.h>

namespace kor::adapter {

std::atomic<bool> helpNeeded{false};

namespace {

using Table = std::unordered_map<Display*, LocalDisplay>;

// Both live until the process ends: threads may still swap while it exits.
struct Tables {
    std::mutex mutex;
    Table displays;
};
PerProcess<Tables> allTables;
InForkedChild needNoHelpYet([] { helpNeeded.store(false, std::memory_order_relaxed); });

Tables& tables() {
    return *allTables;
}

void endLocalDisplay(Display* display, const LocalDisplay& closed) {
    std::vector<Helper> helpers;
    for (const auto& idle : closed.idleHelpers)
        helpers.insert(helpers.end(), idle.second.begin(), idle.second.end());
    destroyAtClose(display, closed.left, helpers.empty() ? Helper() : helpers.front());
    for (const Helper& helper : helpers) {
        driver.glXDestroyContext(display, helper.context);
        if (helper.pbuffer != None)
            driver.glXDestroyPbuffer(display, helper.pbuffer);
    }
}

int forgetDisplay(Display* display, XExtCodes* /*codes*/) {
    Table::node_type closed;
    {
        const std::lock_guard lock(tables().mutex);
        closed = tables().displays.extract(display);
    }
    if (closed.empty() || closed.mapped().owner != getpid())
        return 0;
    endLocalDisplay(display, closed.mapped());
    return 0;
}

} // namespace

std::mutex& tablesMutex() {
    return tables().mutex;
}

LocalDisplay* findLocalDisplay(Display* display) {
    const auto found = tables().displays.find(display);
    return found == tables().displays.end() ? nullptr : &found->second;
}

void forEachLocalDisplay(void (*visit)(LocalDisplay&)) {
    for (auto& entry : tables().displays)
        visit(entry.second);
}

void addLocalDisplay(Display* display, bool forgetsFront) {
    XExtCodes* codes = XAddExtension(display);
    if (!codes)
        return; // without it the entry would outlive the connection
    XESetCloseDisplay(display, codes->extension, forgetDisplay);
    LocalDisplay entry;
    entry.owner = getpid();
    entry.forgetsFront = forgetsFront;
    const std::lock_guard lock(tables().mutex);
    tables().displays.insert_or_assign(display, std::move(entry));
}

void countBindings(Display* display) {
    const std::lock_guard lock(tables().mutex);
    LocalDisplay* local = findLocalDisplay(display);
    if (!local)
        return;
    local->countsBindings = true;
    helpNeeded.store(true, std::memory_order_relaxed);
}

} // namespace kor::adapter
