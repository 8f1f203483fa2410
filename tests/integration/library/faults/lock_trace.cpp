#include "lock_trace.h"

#include "interposed.h"

#include "context/context_map.h"
#include "display/displays.h"
#include "drawable/registry.h"
#include "transport/readback_context.h"
#include "visual/visual_map.h"

#include <algorithm>
#include <mutex>
#include <unistd.h>

extern char __data_start;
extern char _end;

// Members that only the library itself may reach: an explicit instantiation may name them.
namespace {

template <typename Tag, typename Tag::Type Member> struct Reveal {
    friend typename Tag::Type revealed(Tag /*tag*/) { return Member; }
};
struct CopyLock {
    using Type = kor::Mutex kor::gl::ReadbackContext::*;
    friend Type revealed(CopyLock tag);
};
struct RecordLock {
    using Type = kor::Mutex kor::gl::DrawableInfo::*;
    friend Type revealed(RecordLock tag);
};
struct ReadbackOfRecord {
    using Type = std::atomic<kor::gl::ReadbackContext*> kor::gl::DrawableInfo::*;
    friend Type revealed(ReadbackOfRecord tag);
};
template struct Reveal<CopyLock, &kor::gl::ReadbackContext::copyLock_>;
template struct Reveal<RecordLock, &kor::gl::DrawableInfo::mutex>;
template struct Reveal<ReadbackOfRecord, &kor::gl::DrawableInfo::readbackContext>;

using Mutexes = std::vector<const pthread_mutex_t*>;

struct Taken {
    pid_t thread;
    const pthread_mutex_t* mutex;
    Mutexes under;
};
struct CallUnder {
    pid_t thread;
    std::string name;
    Mutexes held;
};

std::mutex traceMutex; // guards the next two
std::vector<Taken> takings;
std::vector<CallUnder> callsSeen;

thread_local Mutexes heldHere;
thread_local bool inside = false; // of the hooks below, whose own mutex does not count

/// The recorder's own mutex, which the hooks do not see.
class Recorder {
  public:
    Recorder() : before_(inside) {
        inside = true;
        traceMutex.lock();
    }
    ~Recorder() {
        traceMutex.unlock();
        inside = before_;
    }
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

  private:
    bool before_;
};

const pthread_mutex_t* address(const kor::Mutex& mutex) {
    // The pthread mutex is all that there is in a kor::Mutex.
    static_assert(sizeof(kor::Mutex) == sizeof(pthread_mutex_t));
    return reinterpret_cast<const pthread_mutex_t*>(&mutex);
}

void lockTaken(pthread_mutex_t* mutex) {
    if (inside)
        return;
    {
        const Recorder recorder;
        takings.push_back({gettid(), mutex, heldHere});
    }
    heldHere.push_back(mutex);
}

void lockGoes(pthread_mutex_t* mutex) {
    if (inside)
        return;
    const auto found = std::find(heldHere.rbegin(), heldHere.rend(), mutex);
    if (found != heldHere.rend())
        heldHere.erase(std::next(found).base());
}

} // namespace

LockTrace::~LockTrace() {
    endTrace();
}

void LockTrace::endTrace() {
    kor::test::afterLock = nullptr;
    kor::test::beforeUnlock = nullptr;
    gl.onCall("", nullptr);
}

void LockTrace::trace() {
    gl.onCall("", [](const fake::Call& call) {
        const Recorder recorder;
        callsSeen.push_back({call.thread, call.name, heldHere});
    });
    kor::test::beforeUnlock = lockGoes;
    kor::test::afterLock = lockTaken;
    const Recorder recorder;
    takings.clear();
    callsSeen.clear();
}

std::string LockTrace::nameOf(const pthread_mutex_t* mutex, Letters* letters) const {
    if (mutex == address(kor::gl::getVisualMapMutex()))
        return "visual map";
    if (mutex == address(kor::gl::getContextMutex()))
        return "contexts";
    if (mutex == address(kor::gl::getLocalDrawablesMutex()))
        return "drawables";
    if (mutex == address(getLocalDisplayMutex()))
        return "local display";
    if (const kor::gl::DrawableRef current = record()) {
        if (mutex == address((*current).*revealed(RecordLock{})))
            return "record";
        const kor::gl::ReadbackContext* context = (*current).*revealed(ReadbackOfRecord{});
        if (context != nullptr && mutex == address(context->*revealed(CopyLock{})))
            return "copy";
    }
    // The library's process-wide locks are on the heap, this program's own are not.
    const auto* place = reinterpret_cast<const char*>(mutex);
    if (letters == nullptr || (place >= &__data_start && place < &_end))
        return "";
    const auto letter = static_cast<char>('A' + letters->size());
    return letters->try_emplace(mutex, 1, letter).first->second;
}

std::string LockTrace::namesOf(const Mutexes& held, Letters* letters) const {
    std::string text;
    for (const pthread_mutex_t* mutex : held) {
        const std::string name = nameOf(mutex, letters);
        if (!name.empty())
            text += (text.empty() ? "" : ", ") + name;
    }
    return text;
}

std::vector<std::string> LockTrace::callsUnderLocks(pid_t thread) const {
    std::vector<CallUnder> seen;
    {
        const Recorder recorder;
        seen = callsSeen;
    }
    std::vector<std::string> texts;
    std::string last = "none yet";
    for (const CallUnder& call : seen) {
        if (call.thread != thread)
            continue;
        const std::string held = namesOf(call.held);
        if (held == last)
            texts.back() += " " + call.name;
        else
            texts.push_back((held.empty() ? "-" : held) + ": " + call.name);
        last = held;
    }
    return texts;
}

std::vector<std::string> LockTrace::taken(pid_t thread) const {
    return taken(thread, nullptr);
}

std::vector<std::string> LockTrace::takenWithNameless(pid_t thread) const {
    Letters letters;
    return taken(thread, &letters);
}

std::vector<std::string> LockTrace::taken(pid_t thread, Letters* letters) const {
    std::vector<Taken> seen;
    {
        const Recorder recorder;
        seen = takings;
    }
    std::vector<std::string> texts;
    for (const Taken& taking : seen) {
        if (taking.thread != thread)
            continue;
        const std::string name = nameOf(taking.mutex, letters);
        if (name.empty())
            continue;
        const std::string under = namesOf(taking.under, letters);
        texts.push_back(under.empty() ? name : name + " under " + under);
    }
    return texts;
}

pid_t LockTrace::ownerOfDrawablesLock() {
    return address(kor::gl::getLocalDrawablesMutex())->__data.__owner;
}

pid_t LockTrace::ownerOfCopyLock(const kor::gl::DrawableInfo& record) {
    const kor::gl::ReadbackContext* context = record.*revealed(ReadbackOfRecord{});
    return address(context->*revealed(CopyLock{}))->__data.__owner;
}

pid_t LockTrace::workerThread() const {
    const auto reads = gl.callsOf("glReadPixels");
    return reads.empty() ? 0 : reads.back().thread;
}

pid_t LockTrace::painterThread() const {
    for (const LogLine& line : log())
        if (line.function.find("XImagePainter::setup(") != std::string::npos)
            return static_cast<pid_t>(line.thread);
    return 0;
}
