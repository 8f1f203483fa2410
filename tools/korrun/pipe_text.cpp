#include "pipe_text.h"

#include "failure.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>

namespace korrun {

Pipe makePipe() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        throw Failure(StatusMissing, std::string("cannot make a pipe: ") + std::strerror(errno));
    return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

namespace {

// Keeps a broken pipe from ending the process while it exists; the write fails instead. The
// signal's disposition is left as it is, since programs that are started inherit it.
class BrokenPipeGuard {
  public:
    BrokenPipeGuard() {
        sigemptyset(&m_brokenPipe);
        sigaddset(&m_brokenPipe, SIGPIPE);
        sigprocmask(SIG_BLOCK, &m_brokenPipe, &m_before);
    }
    ~BrokenPipeGuard() {
        const timespec atOnce{};
        sigtimedwait(&m_brokenPipe, nullptr, &atOnce);
        sigprocmask(SIG_SETMASK, &m_before, nullptr);
    }
    BrokenPipeGuard(const BrokenPipeGuard&) = delete;
    BrokenPipeGuard& operator=(const BrokenPipeGuard&) = delete;

  private:
    sigset_t m_brokenPipe{};
    sigset_t m_before{};
};

} // namespace

bool writeText(int descriptor, const std::string& text) {
    const BrokenPipeGuard guard;
    std::size_t written = 0;
    while (written < text.size()) {
        const ssize_t count = write(descriptor, text.data() + written, text.size() - written);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return false;
        written += static_cast<std::size_t>(count);
    }
    return true;
}

ReadResult readLine(int descriptor, std::string& line, Clock::time_point deadline,
                    int stopDescriptor) {
    line.clear();
    while (true) {
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (left <= 0)
            return ReadResult::TimedOut;
        pollfd waited[2] = {{descriptor, POLLIN, 0}, {stopDescriptor, POLLIN, 0}};
        const int timeout = static_cast<int>(std::min<long long>(left, 60000));
        const int ready = poll(waited, stopDescriptor >= 0 ? 2 : 1, timeout);
        if (ready < 0 && errno != EINTR)
            return ReadResult::End;
        if (ready <= 0)
            continue;
        if (waited[1].revents != 0)
            return ReadResult::Interrupted;
        // One character at a time: what follows the line belongs to the next reader.
        char character = 0;
        const ssize_t count = read(descriptor, &character, 1);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return line.empty() ? ReadResult::End : ReadResult::Line;
        if (character == '\n')
            return ReadResult::Line;
        line += character;
    }
}

} // namespace korrun
