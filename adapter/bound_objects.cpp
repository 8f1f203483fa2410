#include "bound_objects.h"

#include "driver.h"
#include "helper_context.h"
#include "late_destroy.h"
#include "query_state.h"
#include "support/forked_child.h"

#include <atomic>
#include <dlfcn.h>

namespace kor::adapter {
namespace {

void endContext(Display* display, GLXContext context) {
    forgetQuery(context); // first: the driver may give the address to the next context
    const ContextForDestroying current(display);
    driver.glXDestroyContext(display, context);
}

/// What a call leaves to be destroyed once the lock is gone.
struct Remains {
    Display* display = nullptr;
    GLXContext context = nullptr;
    GLXDrawable drawables[2] = {None, None};
    DrawableEntry entries[2];
    int count = 0;

    void destroy() const {
        if (context)
            endContext(display, context);
        for (int i = 0; i < count; i++)
            destroyLater(display, drawables[i], entries[i]);
    }
};

void useDrawable(LocalDisplay& local, GLXDrawable drawable) {
    const auto found = local.drawables.find(drawable);
    if (found != local.drawables.end())
        found->second.users++;
}

void leaveDrawable(LocalDisplay& local, GLXDrawable drawable, Remains& remains) {
    const auto found = local.drawables.find(drawable);
    if (found == local.drawables.end() || found->second.users == 0 || --found->second.users > 0 ||
        !found->second.doomed)
        return;
    remains.drawables[remains.count] = drawable;
    remains.entries[remains.count++] = found->second;
    local.drawables.erase(found);
}

void leaveContext(LocalDisplay& local, GLXContext context, Remains& remains) {
    const auto found = local.contexts.find(context);
    if (found == local.contexts.end() || --found->second.users > 0)
        return;
    if (found->second.doomed)
        remains.context = context;
    local.contexts.erase(found);
}

void enter(const Binding& binding) {
    if (!binding.context)
        return;
    const std::lock_guard lock(tablesMutex());
    LocalDisplay* local = findLocalDisplay(binding.display);
    if (!local || !local->countsBindings)
        return;
    local->contexts[binding.context].users++;
    useDrawable(*local, binding.draw);
    if (binding.read != binding.draw)
        useDrawable(*local, binding.read);
}

bool isDoomed(const LocalDisplay& local, GLXContext context) {
    const auto found = local.contexts.find(context);
    return found != local.contexts.end() && found->second.doomed;
}

enum class IfDoomed { Leave, Keep };

/// False when the binding was kept, since its context was destroyed.
bool leave(const Binding& binding, IfDoomed ifDoomed = IfDoomed::Leave) {
    if (!binding.context)
        return true;
    Remains remains;
    remains.display = binding.display;
    {
        const std::lock_guard lock(tablesMutex());
        LocalDisplay* local = findLocalDisplay(binding.display);
        if (!local || !local->countsBindings)
            return true;
        if (ifDoomed == IfDoomed::Keep && isDoomed(*local, binding.context))
            return false;
        leaveContext(*local, binding.context, remains);
        leaveDrawable(*local, binding.draw, remains);
        if (binding.read != binding.draw)
            leaveDrawable(*local, binding.read, remains);
    }
    remains.destroy();
    return true;
}

/// A thread that ends leaves what it has current.
struct ThreadBinding {
    Binding binding;
    /// What it had current before, when that was a destroyed context: the library takes a context
    /// away for one make-current (to read a frame, to change a pbuffer's size) and gives it back
    /// with the next. Only a second change tells that the application itself has left it.
    Binding lingering;
    bool isParents = false; // what the driver has current was so in the parent of this process
    ~ThreadBinding() {
        leave(lingering);
        leave(binding);
    }
};

thread_local ThreadBinding threadBinding;

/// What the thread that forked has current belongs to the parent.
InForkedChild forgetBinding([] {
    threadBinding.binding = Binding();
    threadBinding.lingering = Binding();
    threadBinding.isParents = true;
});

/// Mesa's own idea of the thread's context, by which it knows what to flush; null elsewhere.
std::atomic<void (*)(void*)> setMesaContext{nullptr};

/// True when the thread changes nothing: what it has current is counted already.
bool isCurrent(const Binding& wanted) {
    const ThreadBinding& mine = threadBinding; // found once: the way to it is not free
    return wanted == mine.binding && !mine.lingering.context;
}

} // namespace

void addDrawable(Display* display, GLXDrawable drawable, GLXFBConfig fbconfig,
                 DestroyDrawable destroy, const PlainSize& plainSize, Pixmap backing) {
    if (drawable == None)
        return;
    DrawableEntry entry;
    entry.plainSize = plainSize;
    entry.backing = backing;
    entry.fbconfig = fbconfig;
    entry.destroy = destroy;
    int doubleBuffered = 0;
    if (driver.glXGetFBConfigAttrib)
        driver.glXGetFBConfigAttrib(display, fbconfig, GLX_DOUBLEBUFFER, &doubleBuffered);
    entry.doubleBuffered = doubleBuffered != 0;
    const std::lock_guard lock(tablesMutex());
    if (LocalDisplay* local = findLocalDisplay(display))
        local->drawables.insert_or_assign(drawable, entry);
}

void destroyDrawable(Display* display, GLXDrawable drawable, DestroyDrawable destroy) {
    DrawableEntry entry;
    entry.destroy = destroy;
    bool known = false;
    {
        const std::lock_guard lock(tablesMutex());
        if (LocalDisplay* local = findLocalDisplay(display)) {
            const auto found = local->drawables.find(drawable);
            if (found != local->drawables.end() && found->second.users > 0) {
                found->second.doomed = true;
                return;
            }
            if (found != local->drawables.end()) {
                entry = found->second;
                known = true;
                local->drawables.erase(found);
            }
        }
    }
    entry.destroy = destroy;
    if (!known) // nothing that was made here, or dead already: let the driver answer
        return destroy(display, drawable);
    destroyLater(display, drawable, entry);
    beginRow(display, drawable);
}

void destroyContext(Display* display, GLXContext context) {
    {
        const std::lock_guard lock(tablesMutex());
        if (LocalDisplay* local = findLocalDisplay(display)) {
            const auto found = local->contexts.find(context);
            if (found != local->contexts.end()) {
                found->second.doomed = true;
                return;
            }
        }
    }
    endContext(display, context);
}

void keepCurrentContext(Display* display, GLXContext context) {
    if (driver.glXGetCurrentContext() != context || driver.glXGetCurrentDisplay() != display)
        return;
    bool known = false;
    {
        const std::lock_guard lock(tablesMutex());
        const LocalDisplay* local = findLocalDisplay(display);
        if (local && local->countsBindings)
            return;
        known = local != nullptr;
    }
    if (!known)
        addLocalDisplay(display, false);
    countBindings(display);
    const Binding current{display, driver.glXGetCurrentDrawable(),
                          driver.glXGetCurrentReadDrawable(), context};
    enter(current);
    threadBinding.binding = current;
}

DrawableUse::DrawableUse(Display* display, GLXDrawable drawable)
    : display_(display), drawable_(drawable) {
    const std::lock_guard lock(tablesMutex());
    LocalDisplay* local = findLocalDisplay(display);
    if (!local)
        return;
    const auto found = local->drawables.find(drawable);
    if (found == local->drawables.end())
        return;
    found->second.users++;
    entry_ = found->second;
    known_ = true;
    losesFront_ = local->forgetsFront && entry_.doubleBuffered;
}

DrawableUse::~DrawableUse() {
    if (!known_)
        return;
    Remains remains;
    remains.display = display_;
    {
        const std::lock_guard lock(tablesMutex());
        if (LocalDisplay* local = findLocalDisplay(display_))
            leaveDrawable(*local, drawable_, remains);
    }
    remains.destroy();
}

unsigned DrawableUse::width() {
    askSize();
    return entry_.width;
}

unsigned DrawableUse::height() {
    askSize();
    return entry_.height;
}

void DrawableUse::askSize() {
    if (entry_.width > 0)
        return;
    driver.glXQueryDrawable(display_, drawable_, GLX_WIDTH, &entry_.width);
    driver.glXQueryDrawable(display_, drawable_, GLX_HEIGHT, &entry_.height);
    const std::lock_guard lock(tablesMutex());
    if (LocalDisplay* local = findLocalDisplay(display_)) {
        const auto found = local->drawables.find(drawable_);
        if (found != local->drawables.end()) {
            found->second.width = entry_.width;
            found->second.height = entry_.height;
        }
    }
}

void learnMesaContext() {
    if (setMesaContext.load(std::memory_order_relaxed) != nullptr)
        return;
    if (void* library = dlopen("libglapi.so.0", RTLD_LAZY | RTLD_NOLOAD))
        setMesaContext = reinterpret_cast<void (*)(void*)>(dlsym(library, "_glapi_set_context"));
}

void leaveParentsBinding(Display* display) {
    if (__builtin_expect(!threadBinding.isParents, 1))
        return;
    threadBinding.isParents = false;
    if (auto* setContext = setMesaContext.load(std::memory_order_relaxed))
        setContext(nullptr);
    // A dispatch that tells children apart has forgotten it by itself.
    if (driver.glXGetCurrentContext && driver.glXMakeContextCurrent &&
        driver.glXGetCurrentContext())
        driver.glXMakeContextCurrent(display, None, None, nullptr);
}

BindingChange::BindingChange(Display* display, GLXDrawable draw, GLXDrawable read,
                             GLXContext context)
    : wanted_{display, draw, read, context}, changes_(!isCurrent(wanted_)) {
    leaveParentsBinding(display);
    if (changes_)
        enter(wanted_);
}

void BindingChange::finish(bool accepted) {
    if (!changes_)
        return;
    if (!accepted) {
        leave(wanted_);
        return;
    }
    ThreadBinding& mine = threadBinding;
    const Binding old = mine.binding;
    const Binding lingering = mine.lingering;
    mine.binding = wanted_;
    mine.lingering = Binding();
    if (!leave(old, old.context != wanted_.context ? IfDoomed::Keep : IfDoomed::Leave))
        mine.lingering = old;
    leave(lingering);
}

} // namespace kor::adapter
