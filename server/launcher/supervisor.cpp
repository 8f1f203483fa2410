#include "supervisor.h"

#include "admission.h"
#include "authority.h"
#include "configuration.h"
#include "display_in_use.h"
#include "janitor.h"
#include "server_files.h"
#include "server_output.h"
#include "server_process.h"
#include "viewing.h"
#include "web_server.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kor::server {

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto startTakesAtMost = std::chrono::seconds(60);
constexpr auto endTakesAtMost = std::chrono::seconds(10);
constexpr size_t keptOutput = 16384;

/// Reads what is there. False at the end of the file.
bool readSome(int file, std::string& text) {
    char buffer[4096];
    const ssize_t got = read(file, buffer, sizeof buffer);
    if (got > 0)
        text.append(buffer, static_cast<size_t>(got));
    return got > 0 || (got == -1 && (errno == EINTR || errno == EAGAIN));
}

/// Whether a read returns at once.
bool isReadable(int file) {
    pollfd waiting{file, POLLIN, 0};
    return poll(&waiting, 1, 0) > 0;
}

void writeAll(int file, const std::string& text) {
    size_t done = 0;
    while (done < text.size()) {
        const ssize_t put = write(file, text.data() + done, text.size() - done);
        if (put == -1 && errno != EINTR)
            return; // nobody reads it
        done += put > 0 ? static_cast<size_t>(put) : 0;
    }
}

class Supervisor {
  public:
    explicit Supervisor(const Options& options)
        : m_options(options), m_parent(getppid()), m_parentWaits(usr1Ignored()) {}
    ~Supervisor() {
        for (const int file : {m_signals, m_server.display, m_server.output})
            if (file != -1)
                close(file);
    }
    Supervisor(const Supervisor&) = delete;
    Supervisor& operator=(const Supervisor&) = delete;

    int run();

  private:
    static bool usr1Ignored() {
        struct sigaction action {};
        sigaction(SIGUSR1, nullptr, &action);
        return action.sa_handler == SIG_IGN;
    }
    /// The number that the server is told to take; none when it is to look for a free one.
    [[nodiscard]] std::optional<int> displayAtStart() const {
        if (!m_options.display && m_options.displayFd)
            return std::nullopt;
        return m_options.display.value_or(0);
    }
    void takeSignals();
    void start();
    [[nodiscard]] std::vector<std::string> serverArguments(const std::string& modulePath);
    void supervise();
    void handleSignal();
    void handleDisplay();
    void handleWebServer();
    void announce();
    void giveUp(const std::string& reason);
    void handleOutput();
    void checkTime();
    [[nodiscard]] int waitMilliseconds() const;
    [[nodiscard]] std::string whereIsTheLog() const;

    Options m_options;
    const pid_t m_parent;
    const bool m_parentWaits; ///< started by xinit or its like, which wait for SIGUSR1
    int m_signals = -1;
    std::unique_ptr<Authority> m_authority; ///< null: the caller gave one
    ServerProcess m_server;
    Janitor m_janitor;
    WebServer m_webServer;
    std::string m_logFolder;
    std::string m_number;         ///< what the server has written of its display number so far
    std::string m_output;         ///< the last part of what the server printed before it was ready
    std::optional<int> m_display; ///< once the server takes clients
    std::string m_givenUp;        ///< why the launcher itself ends the server; empty: it does not
    bool m_ready = false;         ///< everything runs, and whoever asked has been told
    int m_asked = 0;              ///< the signal that told it to end; 0: none
    bool m_ended = false;
    int m_status = 0;
    Clock::time_point m_deadline = Clock::time_point::max();
};

void Supervisor::takeSignals() {
    sigset_t taken;
    sigemptyset(&taken);
    for (const int number : {SIGTERM, SIGINT, SIGHUP, SIGQUIT, SIGUSR1, SIGUSR2, SIGCHLD})
        sigaddset(&taken, number);
    sigprocmask(SIG_BLOCK, &taken, nullptr);
    signal(SIGPIPE, SIG_IGN);
    signal(SIGCHLD, SIG_DFL); // an inherited "ignore" would take the server's status away
    m_signals = signalfd(-1, &taken, SFD_CLOEXEC | SFD_NONBLOCK);
    if (m_signals == -1)
        throw Problem(Problem::StartFailed, std::string("no signals: ") + strerror(errno));
}

std::vector<std::string> Supervisor::serverArguments(const std::string& modulePath) {
    const std::optional<int> number = displayAtStart();
    std::vector<std::string> arguments;
    if (number)
        arguments.push_back(":" + std::to_string(*number));
    // Ours come first: of contrary options the server heeds the last.
    arguments.insert(arguments.end(),
                     {"-displayfd", std::to_string(serverDisplayFile), "-config",
                      "/proc/self/fd/" + std::to_string(serverConfigurationFile),
                      // No sections from the machine's own folder: they describe its own screens.
                      "-configdir", "/proc/self", "-modulepath", modulePath, "-noreset",
                      "-nolisten", "tcp", "-quiet", "-extension", "Composite", "-auth",
                      m_authority ? m_authority->path() : m_options.authority});
    if (!m_options.ownLog) {
        std::string folder;
        for (const char character : m_logFolder) // the server expands %s in the name
            folder += character == '%' && !number ? "%%" : std::string(1, character);
        arguments.insert(
            arguments.end(),
            {"-logfile", folder + "/Xkor." + (number ? std::to_string(*number) : "%s") + ".log"});
    }
    arguments.insert(arguments.end(), m_options.further.begin(), m_options.further.end());
    return arguments;
}

/// As the server itself says; nothing when it has not come as far as writing one.
std::string Supervisor::whereIsTheLog() const {
    constexpr const char* mark = "log file at \"";
    const size_t begin = m_output.find(mark);
    if (begin == std::string::npos)
        return "";
    const size_t name = begin + strlen(mark);
    const std::string path = m_output.substr(name, m_output.find('"', name) - name);
    const bool renamed = path == pendingLog(m_logFolder, m_server.process);
    return " (log: " + (renamed ? failedLog(m_logFolder) : path) + ")";
}

void Supervisor::start() {
    const ServerFiles files = findServerFiles(m_options);
    const std::optional<int> number = displayAtStart();
    if (!m_options.authority.empty())
        checkAuthority(m_options.authority);
    if (number)
        checkDisplayFree(*number);
    if (!m_options.ownLog)
        m_logFolder = logFolder();
    takeSignals();
    prepareViewing(m_options.viewing, number, files.modulePath);
    const int configuration = configurationFile(configurationText(m_options));

    Janitor::Remains remains;
    if (m_options.authority.empty()) {
        m_authority = std::make_unique<Authority>();
        remains.authority = m_authority->path();
    }
    remains.logFolder = m_logFolder;
    m_janitor.start(remains);
    if (m_authority)
        m_authority->write(number);
    m_server = startServer(files.program, serverArguments(files.modulePath), configuration);
    m_janitor.setServer(m_server.process);
    if (number)
        m_janitor.setDisplay(*number);
    close(configuration);
    m_deadline = Clock::now() + startTakesAtMost;
}

void Supervisor::handleSignal() {
    signalfd_siginfo info{};
    while (read(m_signals, &info, sizeof info) == static_cast<ssize_t>(sizeof info)) {
        const int number = static_cast<int>(info.ssi_signo);
        if (number != SIGCHLD) {
            kill(m_server.process, number);
            if ((number == SIGTERM || number == SIGINT) && !m_asked) {
                m_asked = number;
                m_deadline = Clock::now() + endTakesAtMost;
            }
            continue;
        }
        int status = 0;
        if (waitpid(m_server.process, &status, WNOHANG) == m_server.process) {
            m_ended = true;
            m_status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        }
    }
}

void Supervisor::handleDisplay() {
    const bool more = readSome(m_server.display, m_number);
    if (const size_t end = m_number.find('\n'); end != std::string::npos) {
        m_display = atoi(m_number.c_str());
        m_janitor.setDisplay(*m_display);
        if (m_options.viewing.web && !m_asked) {
            try {
                m_webServer.start(m_options.viewing);
                m_janitor.setWebServer(m_webServer.process());
            } catch (const Problem& problem) {
                giveUp(problem.what());
            }
        } else {
            announce();
        }
    }
    if (m_display || !more) {
        close(m_server.display);
        m_server.display = -1;
    }
}

/// Without the page that was asked for there is no start; a page that is lost later takes no
/// session with it.
void Supervisor::handleWebServer() {
    using State = WebServer::State;
    const bool wasThere = m_webServer.process() > 0;
    const State state = m_webServer.look();
    if (state == State::Serving && !m_ready && !m_asked)
        announce();
    if (state != State::Ended || !wasThere)
        return;
    // What it said last; whoever inherited the pipe may keep it open.
    while (m_webServer.output() != -1 && isReadable(m_webServer.output()))
        m_webServer.handleOutput(m_options.verbose);
    if (!m_ready && !m_asked)
        giveUp("the web server did not start: " + m_webServer.lastLine());
    else if (!m_asked)
        fprintf(stderr, "Xkor: the web server has ended: browsers no longer reach display :%d\n",
                *m_display);
}

void Supervisor::giveUp(const std::string& reason) {
    m_givenUp = reason;
    m_asked = SIGTERM;
    m_deadline = Clock::now() + endTakesAtMost;
    kill(m_server.process, m_asked);
}

/// Tells everybody who waits for it that the server can be used.
void Supervisor::announce() {
    m_ready = true;
    if (!m_asked)
        m_deadline = Clock::time_point::max();
    if (m_authority) {
        try {
            m_authority->write(m_display);
        } catch (const Problem& problem) { // the entry for every number still serves
            fprintf(stderr, "Xkor: %s\n", problem.what());
        }
        fprintf(stderr, "Xkor: to use this server: export DISPLAY=:%d XAUTHORITY=%s\n", *m_display,
                m_authority->path().c_str());
    }
    if (m_options.viewing.vnc)
        fprintf(stderr, "Xkor: to look at it with a VNC viewer: %s\n",
                vncHost(m_options.viewing).c_str());
    if (m_options.viewing.web)
        fprintf(stderr, "Xkor: to look at it in a browser: %s\n",
                webPage(m_options.viewing).c_str());
    if (m_parentWaits) {
        // Such a parent gives its clients no authority file that it was not told of.
        if (m_authority)
            admitOwnUser(*m_display, m_authority->cookie());
        if (getppid() == m_parent)
            kill(m_parent, SIGUSR1);
    }
    if (m_options.displayFd) {
        writeAll(*m_options.displayFd, std::to_string(*m_display) + "\n");
        close(*m_options.displayFd);
    }
}

void Supervisor::handleOutput() {
    std::string text;
    if (!readSome(m_server.output, text)) {
        close(m_server.output);
        m_server.output = -1;
    }
    // Even a quiet server announces its successful end.
    if (m_options.verbose || (m_ready && !text.starts_with("(II) ")))
        writeAll(STDERR_FILENO, text);
    if (!m_ready) {
        m_output += text;
        if (m_output.size() > keptOutput)
            m_output.erase(0, m_output.size() - keptOutput);
    }
}

/// A server that neither starts nor ends in time is killed.
void Supervisor::checkTime() {
    if (m_asked && !m_ended)
        kill(m_server.process, m_asked); // it may not have heard it: it begins by ignoring it
    if (Clock::now() < m_deadline)
        return;
    fprintf(stderr, "Xkor: the server does not %s: it is killed\n", m_asked ? "end" : "start");
    kill(m_server.process, SIGKILL);
    m_deadline = Clock::time_point::max();
}

int Supervisor::waitMilliseconds() const {
    if (m_asked)
        return 100;
    if (m_display && !m_ready)
        return 20; // the web server says nothing when it begins to listen
    if (m_deadline == Clock::time_point::max())
        return -1;
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(m_deadline - Clock::now()).count();
    return left < 0 ? 0 : static_cast<int>(left) + 1;
}

void Supervisor::supervise() {
    while (!m_ended) {
        // poll() passes over an entry whose file is -1.
        pollfd files[] = {{m_signals, POLLIN, 0},
                          {m_server.display, POLLIN, 0},
                          {m_server.output, POLLIN, 0},
                          {m_webServer.output(), POLLIN, 0}};
        if (poll(files, std::size(files), waitMilliseconds()) == -1 && errno != EINTR)
            break;
        if (files[1].revents)
            handleDisplay();
        if (files[2].revents)
            handleOutput();
        if (files[3].revents)
            m_webServer.handleOutput(m_options.verbose);
        if (files[0].revents)
            handleSignal();
        handleWebServer();
        checkTime();
    }
    // What the server said last may still be in the pipe; whoever inherited it may keep it open.
    while (m_server.output != -1 && isReadable(m_server.output))
        handleOutput();
}

int Supervisor::run() {
    start();
    supervise();
    m_webServer.stop();
    m_janitor.finish();
    if (!m_givenUp.empty())
        throw Problem(Problem::StartFailed, m_givenUp);
    if (m_ready || m_asked)
        return m_status;
    throw Problem(Problem::StartFailed,
                  "the server did not start: " + reasonOf(m_output) + whereIsTheLog());
}

} // namespace

int runServer(const Options& options) {
    return Supervisor(options).run();
}

} // namespace kor::server
