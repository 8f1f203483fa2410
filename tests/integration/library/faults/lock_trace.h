#ifndef KOR_TESTS_LIBRARY_FAULTS_LOCK_TRACE_H
#define KOR_TESTS_LIBRARY_FAULTS_LOCK_TRACE_H

#include "frames.h"

#include <map>
#include <pthread.h>

/// Frames, and the locks of the library around them: which are held at each call of the driver, and
/// in which order they are taken.
///
/// The locks' names are "visual map", "contexts", "drawables", "local display", and of the window's
/// record "record" and "copy" (its readback context's). Others of the library are left out, unless
/// told otherwise.
class LockTrace : public Frames {
  protected:
    ~LockTrace() override;

    /// Begins to record this process's locks and the driver's calls...
    void trace();
    /// ... and ends it.
    void endTrace();

    /// The calls of the driver since then, made by one thread, in order. Calls made under the same
    /// locks are one text: "local display: glXMakeCurrent glPixelStorei"; "-" is no lock.
    std::vector<std::string> callsUnderLocks(pid_t thread) const;
    /// The locks that a thread has taken since then: "record under local display".
    std::vector<std::string> taken(pid_t thread) const;
    /// The same with the library's nameless locks as "A", "B"... in the order in which they appear.
    std::vector<std::string> takenWithNameless(pid_t thread) const;

    /// The thread that has the lock now; 0: none.
    static pid_t ownerOfDrawablesLock();
    static pid_t ownerOfCopyLock(const kor::gl::DrawableInfo& record);

    /// The threads that read pixels and that paint.
    pid_t workerThread() const;
    pid_t painterThread() const;

  private:
    using Letters = std::map<const pthread_mutex_t*, std::string>;
    /// Empty for a lock without a name; letters gets a new one where it is given.
    std::string nameOf(const pthread_mutex_t* mutex, Letters* letters = nullptr) const;
    std::string namesOf(const std::vector<const pthread_mutex_t*>& held,
                        Letters* letters = nullptr) const;
    std::vector<std::string> taken(pid_t thread, Letters* letters) const;
};

#endif
