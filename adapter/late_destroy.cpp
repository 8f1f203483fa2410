#include "late_destroy.h"

#include "driver.h"
#include "helper_context.h"
#include "process_end.h"
#include "support/forked_child.h"

#include <algorithm>
#include <atomic>
#include <optional>

namespace kor::adapter {

std::atomic<int> leftDrawables{0};

namespace {

// What one thread leaves at most: two windows of 3840x2160, or sixty-four of any size.
constexpr long kMostPixels = 2L * 3840 * 2160;
constexpr std::size_t kMostDrawables = 64;
// How long a thread that makes nothing current keeps others from ending it. What is made in a row
// takes milliseconds.
constexpr std::chrono::seconds kLongest(1);
using Clock = std::chrono::steady_clock;

/// How many drawables of ended threads were left, so that nobody takes the lock to find none.
std::atomic<int> orphans{0};

/// When a thread looks next for what others left too long ago, in ticks of the clock.
std::atomic<Clock::rep> nextLook{0};

/// Without a destructor: the library ends its own things of a thread after the destructors.
struct ThreadState {
    int left = 0; // not less than what the tables hold of this thread; its address is the mark
    Display* rowDisplay = nullptr;
    GLXPbuffer rowPbuffer = None; // the last destroyed, when nothing was called since
    bool ended = false;
};
thread_local ThreadState state;

struct ThreadEnd {
    bool used = false;
    ~ThreadEnd();
};

thread_local ThreadEnd threadEnd;

/// What was left is the parent's, and ends with it.
InForkedChild leaveAllToTheParent([] {
    leftDrawables = 0;
    orphans = 0;
    state = ThreadState();
});

bool isMine(const LeftDrawable& left) {
    return !left.thread || left.thread == &state;
}

/// A thread that still has it current must have left it first; the driver counts on that.
Clock::time_point whenForAll(GLXDrawable drawable) {
    if (!driver.canLendContext() || driver.glXGetCurrentDrawable() == drawable ||
        driver.glXGetCurrentReadDrawable() == drawable)
        return Clock::time_point::max();
    return Clock::now() + kLongest;
}

/// True for one thread at a time, now and then.
bool isTimeToLook(Clock::time_point now) {
    Clock::rep look = nextLook.load(std::memory_order_relaxed);
    return now.time_since_epoch().count() >= look &&
           nextLook.compare_exchange_strong(look, (now + kLongest / 2).time_since_epoch().count(),
                                            std::memory_order_relaxed);
}

int countOf(const std::vector<LeftDrawable>& all, const void* thread) {
    return static_cast<int>(
        std::count_if(all.begin(), all.end(),
                      [thread](const LeftDrawable& left) { return left.thread == thread; }));
}

long pixels(const LeftDrawable& left) {
    return static_cast<long>(left.entry.plainSize.width) * left.entry.plainSize.height;
}

/// Under tablesMutex(): takes out the oldest that are too many for this thread.
std::vector<LeftDrawable> takeSurplus(LocalDisplay& local) {
    long sum = 0;
    std::size_t count = 0;
    for (const LeftDrawable& left : local.left)
        if (isMine(left)) {
            sum += pixels(left);
            count++;
        }
    std::vector<LeftDrawable> surplus;
    for (auto left = local.left.begin();
         left != local.left.end() && count > 1 && (sum > kMostPixels || count > kMostDrawables);) {
        if (!isMine(*left)) {
            ++left;
            continue;
        }
        sum -= pixels(*left);
        count--;
        if (left->thread)
            state.left--;
        else
            orphans--;
        leftDrawables--;
        surplus.push_back(*left);
        left = local.left.erase(left);
    }
    return surplus;
}

void destroyOne(Display* display, const LeftDrawable& left) {
    left.entry.destroy(display, left.drawable);
    if (left.entry.backing != None)
        XFreePixmap(display, left.entry.backing);
}

void destroyAll(Display* display, const std::vector<LeftDrawable>& drawables) {
    if (drawables.empty())
        return;
    const ContextForDestroying context(display);
    for (const LeftDrawable& left : drawables)
        destroyOne(display, left);
}

ThreadEnd::~ThreadEnd() {
    state.ended = true;
    if (state.left == 0)
        return;
    const std::lock_guard lock(tablesMutex());
    forEachLocalDisplay([](LocalDisplay& local) {
        for (LeftDrawable& left : local.left)
            if (left.thread == &state) {
                left.thread = nullptr;
                orphans++;
            }
    });
    state.left = 0;
}

} // namespace

void destroyLater(Display* display, GLXDrawable drawable, const DrawableEntry& entry) {
    std::vector<LeftDrawable> surplus;
    const Clock::time_point forAll = whenForAll(drawable);
    {
        const std::lock_guard lock(tablesMutex());
        if (LocalDisplay* local = findLocalDisplay(display)) {
            if (state.ended) {
                orphans++;
            } else {
                threadEnd.used = true; // its destructor runs for threads that touched it
                state.left++;
            }
            leftDrawables++;
            local->left.push_back({drawable, entry, state.ended ? nullptr : &state, forAll});
            surplus = takeSurplus(*local);
        } else {
            surplus.push_back({drawable, entry, nullptr, forAll});
        }
    }
    destroyAll(display, surplus);
}

void beginRow(Display* display, GLXDrawable drawable) {
    state.rowDisplay = display;
    state.rowPbuffer = drawable;
}

GLXPbuffer takeBack(Display* display, GLXFBConfig fbconfig, const PlainSize& size) {
    if (nothingLeft())
        return None;
    const GLXPbuffer wanted = state.rowDisplay == display ? state.rowPbuffer : None;
    forgetRow();
    if (wanted == None || size == PlainSize() || !driver.canLendContext())
        return None;
    // It lives on for a thread that still has it current.
    if (driver.glXGetCurrentDrawable() == wanted || driver.glXGetCurrentReadDrawable() == wanted)
        return None;
    const std::lock_guard lock(tablesMutex());
    LocalDisplay* local = findLocalDisplay(display);
    if (!local)
        return None;
    const auto found = std::find_if(local->left.begin(), local->left.end(), [&](const auto& left) {
        return left.drawable == wanted && left.thread == &state;
    });
    if (found == local->left.end() || found->entry.fbconfig != fbconfig ||
        found->entry.plainSize != size)
        return None;
    local->drawables.insert_or_assign(wanted, found->entry);
    local->left.erase(found);
    leftDrawables--;
    state.left--;
    return wanted;
}

void destroyWhatIsLeft(Display* display) {
    const Clock::time_point now = Clock::now();
    if (state.left == 0 && orphans.load(std::memory_order_relaxed) == 0 && !isTimeToLook(now))
        return; // it is another thread's
    std::vector<LeftDrawable> mine;
    {
        const std::lock_guard lock(tablesMutex());
        if (LocalDisplay* local = findLocalDisplay(display)) {
            const auto first = std::stable_partition(
                local->left.begin(), local->left.end(),
                [now](const LeftDrawable& left) { return !isMine(left) && now < left.forAll; });
            mine.assign(first, local->left.end());
            local->left.erase(first, local->left.end());
            orphans -= countOf(mine, nullptr);
            leftDrawables -= static_cast<int>(mine.size());
        }
        state.left = 0; // counted anew: what was left on a connection that ended is not mine either
        forEachLocalDisplay([](LocalDisplay& local) { state.left += countOf(local.left, &state); });
    }
    destroyAll(display, mine);
}

void forgetRow() {
    state.rowPbuffer = None;
}

void destroyAtClose(Display* display, const std::vector<LeftDrawable>& left, const Helper& helper) {
    orphans -= countOf(left, nullptr);
    leftDrawables -= static_cast<int>(left.size());
    if (left.empty())
        return;
    std::optional<CurrentState> current;
    if (helper.pbuffer != None && !driver.glXGetCurrentContext() && !processEnds()) {
        current.emplace();
        current->change(display, helper.pbuffer, helper.context);
    }
    for (const LeftDrawable& drawable : left)
        destroyOne(display, drawable);
}

PlainSize plainSizeOf(const int* attributes) {
    PlainSize size;
    for (; attributes && *attributes != None; attributes += 2)
        if (attributes[0] == GLX_PBUFFER_WIDTH)
            size.width = attributes[1];
        else if (attributes[0] == GLX_PBUFFER_HEIGHT)
            size.height = attributes[1];
        else if (attributes[0] != GLX_PRESERVED_CONTENTS || attributes[1] == False)
            return {};
    return size.width > 0 && size.height > 0 ? size : PlainSize();
}

} // namespace kor::adapter
