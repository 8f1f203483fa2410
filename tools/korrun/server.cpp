#include "server.h"

#include "failure.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

namespace korrun {

namespace {

constexpr int endingAttempts = 10;
constexpr std::chrono::milliseconds endingPatience{500};
constexpr std::chrono::seconds killingPatience{2};
constexpr int displayDescriptor = 3; // the number under which the server finds its end of the pipe

// Runs in the new process. Only calls that are safe after fork.
[[noreturn]] void becomeServer(const char* program, char* const* arguments, pid_t parent,
                               int displayEnd, int logEnd) {
    // A group of its own, so that what the server starts ends with it; and no server may outlive
    // its starter, even one that is killed outright.
    setpgid(0, 0);
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != parent)
        _exit(1);
    const int nothing = open("/dev/null", O_RDONLY);
    // Out of the way of the numbers that are assigned next.
    const int display = fcntl(displayEnd, F_DUPFD, 10);
    const int log = fcntl(logEnd, F_DUPFD, 10);
    dup2(nothing, 0);
    dup2(log, 1);
    dup2(log, 2);
    dup2(display, displayDescriptor);
    close_range(displayDescriptor + 1, ~0U, 0);
    for (int number = 1; number < NSIG; ++number)
        signal(number, SIG_DFL);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    execv(program, arguments);
    dprintf(2, "%s: %s\n", program, strerror(errno));
    _exit(127);
}

std::string endOfLog(const std::string& file) {
    std::ifstream log(file);
    std::vector<std::string> lines;
    for (std::string line; std::getline(log, line);)
        if (!line.empty())
            lines.push_back(line);
    std::string text;
    const std::size_t first = lines.size() > 12 ? lines.size() - 12 : 0;
    for (std::size_t i = first; i < lines.size(); ++i)
        text += "\n    " + lines[i];
    return text.empty() ? " It printed nothing." : " It printed:" + text;
}

// Whether a server listens on the socket, or may do so.
bool isServed(const std::string& socketFile) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    socketFile.copy(address.sun_path, sizeof(address.sun_path) - 1);
    const FileDescriptor client(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    return connect(client.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) ==
               0 ||
           errno != ECONNREFUSED;
}

} // namespace

Server::Server(const std::string& name, const std::string& program,
               const std::vector<std::string>& arguments, const std::string& logFile,
               Clock::time_point deadline, int stopDescriptor)
    : m_name(name), m_logFile(logFile) {
    Pipe display = makePipe();
    const FileDescriptor log(
        open(logFile.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (!log.isOpen())
        throw Failure(StatusMissing, "cannot write " + logFile + ": " + std::strerror(errno));

    std::vector<std::string> texts = {program, "-displayfd", std::to_string(displayDescriptor)};
    texts.insert(texts.end(), arguments.begin(), arguments.end());
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (std::string& text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);

    const pid_t parent = getpid();
    m_pid = fork();
    if (m_pid < 0)
        throw Failure(StatusMissing, "cannot start " + name + ": " + std::strerror(errno));
    if (m_pid == 0)
        becomeServer(program.c_str(), pointers.data(), parent, display.writeEnd.get(), log.get());
    setpgid(m_pid, m_pid); // as the child does; whichever comes first
    m_process = FileDescriptor(static_cast<int>(syscall(SYS_pidfd_open, m_pid, 0)));
    display.writeEnd.close();

    const ReadResult result = readLine(display.readEnd.get(), m_number, deadline, stopDescriptor);
    const bool isNumber =
        !m_number.empty() &&
        std::all_of(m_number.begin(), m_number.end(), [](char c) { return c >= '0' && c <= '9'; });
    if (result != ReadResult::Line || !isNumber) {
        stop();
        throw Failure(
            StatusMissing,
            name +
                (result == ReadResult::TimedOut ? " did not answer in time." : " did not start.") +
                endOfLog(logFile));
    }
    m_socketPath = "/tmp/.X11-unix/X" + m_number;
    m_socketFile = kor::server::FileIdentity(m_socketPath);
}

Server::~Server() {
    stop();
}

bool Server::waitForEnd(std::chrono::milliseconds patience) {
    // Waits for the whole group: what the server started and left behind has become a child of this
    // process, which adopts orphans (see the keeper).
    const Clock::time_point deadline = Clock::now() + patience;
    while (true) {
        const pid_t ended = waitpid(-m_pid, nullptr, WNOHANG);
        if (ended > 0)
            continue;
        if (ended < 0 && errno == ECHILD)
            return true;
        if (Clock::now() >= deadline)
            return false;
        poll(nullptr, 0, 10);
    }
}

void Server::stop() {
    if (m_pid <= 0)
        return;
    // Asked more than once: a server forgets a request that comes while it is still starting.
    bool ended = false;
    for (int attempt = 0; attempt < endingAttempts && !ended; ++attempt) {
        kill(-m_pid, SIGTERM);
        ended = waitForEnd(endingPatience);
    }
    if (!ended) {
        kill(-m_pid, SIGKILL);
        waitForEnd(killingPatience);
    }
    m_pid = -1;
    removeSocket();
}

void Server::removeSocket() const {
    // A server that was killed could not remove it. Another server may have taken the number
    // meanwhile: then the file is not ours, or it answers.
    if (m_socketFile.isAt(m_socketPath) && !isServed(m_socketPath))
        unlink(m_socketPath.c_str());
}

} // namespace korrun
