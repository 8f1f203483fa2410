#include "keeper.h"

#include "authority.h"
#include "failure.h"
#include "process_group.h"
#include "server.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <optional>
#include <poll.h>
#include <sys/prctl.h>
#include <unistd.h>
#include <vector>

namespace korrun {

namespace {

constexpr std::chrono::seconds startingPatience{60}; // for each server, on a busy machine
constexpr std::chrono::seconds commandPatience{3};   // between asking the command and ending it

// The session's folder of files that nobody else may read.
class PrivateFolder {
  public:
    PrivateFolder() {
        const char* temporary = std::getenv("TMPDIR");
        for (const char* place : {temporary, "/tmp"}) {
            if (!place || !*place)
                continue;
            m_path = std::string(place) + "/korrun.XXXXXX";
            if (mkdtemp(m_path.data()))
                return;
        }
        throw Failure(StatusMissing,
                      std::string("cannot make a folder in /tmp: ") + std::strerror(errno));
    }
    ~PrivateFolder() {
        std::error_code error;
        std::filesystem::remove_all(m_path, error);
    }
    PrivateFolder(const PrivateFolder&) = delete;
    PrivateFolder& operator=(const PrivateFolder&) = delete;
    std::string file(const char* name) const { return m_path + "/" + name; }

  private:
    std::string m_path;
};

class Keeper {
  public:
    Keeper(int requests, int answers) : m_requests(requests), m_answers(answers) {}
    void start(const SessionPlan& plan);
    // Returns when korrun is done or gone.
    void wait();

  private:
    void endCommand() const;

    int m_requests;
    int m_answers;
    pid_t m_command = -1;
    // In this order: the files go last, the local display after the server whose clients use it.
    PrivateFolder m_folder;
    std::unique_ptr<Server> m_local;
    std::unique_ptr<Server> m_application;
};

void Keeper::start(const SessionPlan& plan) {
    const std::string cookie = makeCookie();
    const std::string serverAuthority = m_folder.file("server-authority");
    writeServerAuthority(serverAuthority, cookie);

    const std::string size =
        std::to_string(plan.size.width) + "x" + std::to_string(plan.size.height);
    std::vector<std::string> numbers;
    std::string glDisplay = plan.glDisplay;
    if (glDisplay.empty()) {
        m_local = std::make_unique<Server>(
            "Xvfb", plan.xvfb,
            std::vector<std::string>{"-screen", "0", size + "x24", "+extension", "GLX", "+render",
                                     "-noreset", "-nolisten", "tcp", "-auth", serverAuthority},
            m_folder.file("Xvfb.log"), Clock::now() + startingPatience, m_requests);
        numbers.push_back(m_local->number());
        glDisplay = ":" + m_local->number() + ".0";
    }
    m_application = std::make_unique<Server>(
        "Xkor", plan.xkor,
        std::vector<std::string>{"-geometry", size, "-gldisplay", glDisplay, "-auth",
                                 serverAuthority},
        m_folder.file("Xkor.log"), Clock::now() + startingPatience, m_requests);
    numbers.push_back(m_application->number());

    const std::string authority = m_folder.file("Xauthority");
    writeClientAuthority(authority, cookie, numbers, userAuthorityFile());
    writeText(m_answers,
              "ready\n:" + m_application->number() + ".0\n" + glDisplay + "\n" + authority + "\n");
}

void Keeper::wait() {
    std::vector<Server*> watched{m_application.get()};
    if (m_local)
        watched.push_back(m_local.get());
    while (true) {
        std::vector<pollfd> descriptors{{m_requests, POLLIN, 0}};
        for (const Server* server : watched)
            descriptors.push_back({server->endDescriptor(), POLLIN, 0});
        if (poll(descriptors.data(), descriptors.size(), -1) < 0) {
            if (errno == EINTR)
                continue;
            return endCommand();
        }
        for (std::size_t i = watched.size(); i > 0; --i) {
            if (descriptors[i].revents == 0)
                continue;
            const auto ended = watched.begin() + static_cast<std::ptrdiff_t>(i - 1);
            writeText(m_answers, "lost " + (*ended)->name() + "\n");
            watched.erase(ended);
        }
        if (descriptors[0].revents == 0)
            continue;
        std::string line;
        if (readLine(m_requests, line, Clock::now() + std::chrono::seconds(5)) != ReadResult::Line)
            return endCommand(); // korrun was killed: nobody else looks after the command
        if (line == "done")
            return;
        if (line.starts_with("command "))
            m_command = static_cast<pid_t>(std::strtol(line.c_str() + 8, nullptr, 10));
    }
}

void Keeper::endCommand() const {
    if (m_command <= 1 || kill(-m_command, SIGTERM) != 0)
        return;
    const Clock::time_point deadline = Clock::now() + commandPatience;
    while (isGroupAlive(m_command) && Clock::now() < deadline)
        poll(nullptr, 0, 20);
    kill(-m_command, SIGKILL);
}

// Leaves the standard descriptors, which lead nowhere, and the two pipes, which
// get the numbers 3 and 4.
void keepOnly(int& requests, int& answers) {
    const int requestsCopy = fcntl(requests, F_DUPFD, 10);
    const int answersCopy = fcntl(answers, F_DUPFD, 10);
    const int nothing = open("/dev/null", O_RDWR);
    dup2(nothing, 0);
    dup2(nothing, 1);
    dup2(nothing, 2);
    requests = dup3(requestsCopy, 3, O_CLOEXEC);
    answers = dup3(answersCopy, 4, O_CLOEXEC);
    close_range(5, ~0U, 0);
}

} // namespace

void runKeeper(const SessionPlan& plan, int requests, int answers) {
    setsid();
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE, SIGTSTP})
        signal(number, SIG_IGN);
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    keepOnly(requests, answers);
    try {
        Keeper keeper(requests, answers);
        keeper.start(plan);
        keeper.wait();
    } catch (const std::exception& failure) {
        writeText(answers, std::string("failed\n") + failure.what() + "\n");
    }
    _exit(0);
}

} // namespace korrun
