#include "keeper.h"

#include "authority.h"
#include "children.h"
#include "desktop.h"
#include "environment.h"
#include "failure.h"
#include "log_folder.h"
#include "pipe_text.h"
#include "process_group.h"
#include "server.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <memory>
#include <poll.h>
#include <sstream>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <unistd.h>

namespace korsession {

using korrun::Clock;
using korrun::Failure;
using korrun::FileDescriptor;
using korrun::Server;

namespace {

constexpr std::chrono::seconds serverPatience{60};   // for each to start, on a busy machine
constexpr std::chrono::seconds commandPatience{5};   // for a desktop to say goodbye
constexpr std::chrono::seconds childrenPatience{12}; // an Xkor on its own takes up to ten
constexpr int startAttempts = 3;

void say(const std::string& message) {
    std::fprintf(stderr, "korsession: %s\n", message.c_str());
}

std::string contentsOf(const std::string& path) {
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

// What follows the mark, to the end of its line.
std::string restAfter(const std::string& text, const std::string& mark) {
    const std::size_t found = text.rfind(mark);
    if (found == std::string::npos)
        return "";
    const std::size_t begin = found + mark.size();
    return text.substr(begin, text.find('\n', begin) - begin);
}

// Between fork and exec. The environment has been prepared by the caller.
[[noreturn]] void becomeCommand(const std::vector<char*>& arguments, pid_t parent, int log) {
    setpgid(0, 0);
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != parent)
        _exit(1);
    const int nothing = open("/dev/null", O_RDONLY);
    dup2(nothing, 0);
    dup2(log, 1);
    dup2(log, 2);
    close_range(3, ~0U, 0);
    for (int number = 1; number < NSIG; ++number)
        signal(number, SIG_DFL);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    execv(arguments[0], arguments.data());
    dprintf(2, "korsession: %s: %s\n", arguments[0], strerror(errno));
    _exit(127);
}

FileDescriptor openLog(const std::string& path) {
    FileDescriptor file(
        open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (!file.isOpen())
        throw Failure(korrun::StatusMissing, "cannot write " + path + ": " + std::strerror(errno));
    return file;
}

// The signals that a keeper hears of by reading.
FileDescriptor takeSignals() {
    sigset_t taken;
    sigemptyset(&taken);
    for (const int number : {SIGTERM, SIGINT, SIGCHLD})
        sigaddset(&taken, number);
    sigprocmask(SIG_SETMASK, &taken, nullptr);
    for (const int number : {SIGHUP, SIGQUIT, SIGPIPE, SIGTSTP, SIGUSR1, SIGUSR2})
        signal(number, SIG_IGN);
    signal(SIGXFSZ, SIG_IGN); // a log that may not grow is no reason to die
    return FileDescriptor(signalfd(-1, &taken, SFD_CLOEXEC | SFD_NONBLOCK));
}

class Keeper {
  public:
    Keeper(const SessionPlan& plan, const SessionFolder& folder) : m_plan(plan), m_folder(folder) {}
    Facts start(int stopDescriptor);
    // Returns when the session is over.
    void wait(int signals);
    void end();

  private:
    std::string log(const char* name) const { return m_plan.logFolder + "/" + name; }
    void startServers(int stopDescriptor);
    void startApplicationDisplay(const std::string& glDisplay, const std::string& authority,
                                 int stopDescriptor);
    void startCommand();

    const SessionPlan& m_plan;
    const SessionFolder& m_folder;
    Facts m_facts;
    pid_t m_command = -1;
    // In this order: the local display goes after the server whose clients use it.
    std::unique_ptr<Server> m_local;
    std::unique_ptr<Server> m_application;
};

void Keeper::startApplicationDisplay(const std::string& glDisplay, const std::string& authority,
                                     int stopDescriptor) {
    std::vector<std::string> arguments;
    if (!m_plan.display.empty())
        arguments.push_back(m_plan.display);
    arguments.insert(arguments.end(), {"-geometry", m_plan.size, "-gldisplay", glDisplay, "-auth",
                                       authority, "-logfile", log("Xorg.log")});
    arguments.insert(arguments.end(), m_plan.viewing.begin(), m_plan.viewing.end());
    for (int attempt = 1;; ++attempt) {
        const std::string file = log("Xkor.log");
        std::error_code error;
        std::filesystem::remove(file, error); // it may be there from an earlier session
        try {
            m_application =
                std::make_unique<Server>("Xkor", m_plan.installation.server, arguments, file,
                                         Clock::now() + serverPatience, stopDescriptor);
            break;
        } catch (const Failure&) {
            const std::string printed = contentsOf(file);
            // Ports that were free a moment ago can have been taken by another session.
            if (printed.find("ddress already in use") != std::string::npos &&
                attempt < startAttempts)
                continue;
            const std::string reason = restAfter(printed, "Xkor: ");
            if (reason.empty())
                throw;
            throw Failure(korrun::StatusMissing, "Xkor: " + reason);
        }
    }
    const std::string printed = contentsOf(log("Xkor.log"));
    m_facts[factDisplay] = ":" + m_application->number();
    m_facts[factVnc] = restAfter(printed, "with a VNC viewer: ");
    // It is the log that tells where to look; the disk can have filled up since it was tried.
    if (m_facts[factVnc].empty())
        throw Failure(korrun::StatusMissing,
                      "Xkor has started, but what it says cannot be read in " + log("Xkor.log") +
                          (complaintAbout(m_plan.logFolder).empty() ? "" : ": the disk is full"));
    if (const std::string page = restAfter(printed, "in a browser: "); !page.empty())
        m_facts[factPage] = page;
}

void Keeper::startServers(int stopDescriptor) {
    // X servers load a GL library of their own, which must be the system's.
    korrun::avoidFront(m_plan.installation);
    const std::string cookie = korrun::makeCookie();
    const std::string serverAuthority = m_folder.file("server-authority");
    korrun::writeServerAuthority(serverAuthority, cookie);
    std::vector<std::string> numbers;
    std::string glDisplay = m_plan.glDisplay;
    if (glDisplay.empty()) {
        m_local = std::make_unique<Server>(
            "Xvfb", m_plan.xvfb,
            std::vector<std::string>{"-screen", "0", m_plan.size + "x24", "+extension", "GLX",
                                     "+render", "-noreset", "-nolisten", "tcp", "-auth",
                                     serverAuthority},
            log("Xvfb.log"), Clock::now() + serverPatience, stopDescriptor);
        numbers.push_back(m_local->number());
        glDisplay = ":" + m_local->number() + ".0";
    }
    startApplicationDisplay(glDisplay, serverAuthority, stopDescriptor);
    numbers.push_back(m_application->number());
    const std::string authority = m_folder.file("Xauthority");
    korrun::writeClientAuthority(authority, cookie, numbers, korrun::userAuthorityFile());

    setenv("DISPLAY", (":" + m_application->number() + ".0").c_str(), 1);
    setenv("XAUTHORITY", authority.c_str(), 1);
    setenv("KOR_GL_DISPLAY", glDisplay.c_str(), 1);
    m_facts[factGlDisplay] = glDisplay;
}

void Keeper::startCommand() {
    korrun::useFront(m_plan.installation, korrun::Front::Auto, "");
    leaveCallersSession();
    const FileDescriptor output = openLog(log("command.log"));
    std::vector<std::string> texts = m_plan.command;
    std::vector<char*> arguments;
    arguments.reserve(texts.size() + 1);
    for (std::string& text : texts) {
        m_facts[factCommand] += (m_facts[factCommand].empty() ? "" : " ") + text;
        arguments.push_back(text.data());
    }
    arguments.push_back(nullptr);
    const pid_t parent = getpid();
    m_command = fork();
    if (m_command < 0)
        throw Failure(korrun::StatusMissing,
                      "cannot start " + m_plan.command[0] + ": " + std::strerror(errno));
    if (m_command == 0)
        becomeCommand(arguments, parent, output.get());
    setpgid(m_command, m_command); // whoever comes first
}

Facts Keeper::start(int stopDescriptor) {
    startServers(stopDescriptor);
    startCommand();
    m_facts[factLogs] = m_plan.logFolder;
    if (!m_plan.passwordFile.empty())
        m_facts[factPassword] = m_plan.passwordFile;
    m_folder.writeFacts(m_facts);
    return m_facts;
}

void Keeper::wait(int signals) {
    std::vector<Server*> servers{m_application.get()};
    if (m_local)
        servers.push_back(m_local.get());
    while (true) {
        std::vector<pollfd> descriptors{{signals, POLLIN, 0}};
        for (const Server* server : servers)
            descriptors.push_back({server->endDescriptor(), POLLIN, 0});
        if (poll(descriptors.data(), descriptors.size(), -1) < 0 && errno != EINTR)
            return;
        signalfd_siginfo info{};
        while (read(signals, &info, sizeof info) == static_cast<ssize_t>(sizeof info))
            if (info.ssi_signo != SIGCHLD)
                return say("asked to end");
        for (std::size_t i = 0; i < servers.size(); ++i)
            if (descriptors[i + 1].revents != 0)
                return say(servers[i]->name() + " has ended, and the session with it");
        if (collectEnded(m_command))
            return say("the command has ended, and the session with it");
    }
}

void Keeper::end() {
    if (m_command > 0) {
        kill(-m_command, SIGTERM);
        const Clock::time_point deadline = Clock::now() + commandPatience;
        while (korrun::isGroupAlive(m_command) && Clock::now() < deadline) {
            collectEnded(-1);
            poll(nullptr, 0, 20);
        }
        kill(-m_command, SIGKILL);
    }
    m_application.reset();
    m_local.reset();
}

[[noreturn]] void runInnerKeeper(const SessionPlan& plan, const SessionFolder& folder, int answers,
                                 pid_t outer) {
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != outer)
        _exit(1);
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    const FileDescriptor signals = takeSignals();
    {
        Keeper keeper(plan, folder);
        try {
            // Whoever is asked to end while starting has a signal to read.
            sigset_t ending;
            sigemptyset(&ending);
            sigaddset(&ending, SIGTERM);
            sigaddset(&ending, SIGINT);
            const FileDescriptor asked(signalfd(-1, &ending, SFD_CLOEXEC));
            const Facts facts = keeper.start(asked.get());
            std::string line = "ready\n";
            for (const char* name : {factDisplay, factPage, factVnc, factLogs, factCommand}) {
                const auto fact = facts.find(name);
                line += (fact == facts.end() ? "" : fact->second) + "\n";
            }
            // Nobody knows of a session whose start was broken off.
            if (!korrun::writeText(answers, line))
                throw Failure(korrun::StatusMissing, "its start was broken off");
            close(answers);
            keeper.wait(signals.get());
        } catch (const std::exception& failure) {
            say(failure.what());
            korrun::writeText(answers, std::string("failed\n") + failure.what() + "\n");
        }
        keeper.end();
    }
    endChildren(childrenPatience);
    folder.remove();
    _exit(0);
}

} // namespace

void runOuterKeeper(const SessionPlan& plan, const SessionFolder& folder, int answers) {
    setsid();
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    const FileDescriptor signals = takeSignals();
    const pid_t outer = getpid();
    pid_t inner = -1;
    try {
        // Nothing of the shell that started it stays open but what is needed.
        const FileDescriptor log = openLog(plan.logFolder + "/korsession.log");
        const int nothing = open("/dev/null", O_RDONLY | O_CLOEXEC);
        dup2(nothing, 0);
        dup2(log.get(), 1);
        dup2(log.get(), 2);
        folder.writeKeeper(outer);
        for (int file = 3; file < 1024; ++file)
            if (file != answers && file != folder.lock() && file != signals.get() &&
                file != log.get())
                close(file);
        inner = fork();
        if (inner == 0)
            runInnerKeeper(plan, folder, answers, outer);
        if (inner < 0)
            throw Failure(korrun::StatusMissing,
                          std::string("cannot start a process: ") + std::strerror(errno));
    } catch (const std::exception& failure) {
        korrun::writeText(answers, std::string("failed\n") + failure.what() + "\n");
        folder.remove();
        _exit(1);
    }
    close(answers);
    bool ended = false;
    while (!ended) {
        pollfd waiting{signals.get(), POLLIN, 0};
        poll(&waiting, 1, -1);
        signalfd_siginfo info{};
        while (read(signals.get(), &info, sizeof info) == static_cast<ssize_t>(sizeof info))
            if (info.ssi_signo != SIGCHLD)
                kill(inner, SIGTERM);
        ended = collectEnded(inner);
    }
    endChildren(childrenPatience);
    folder.remove();
    _exit(0);
}

} // namespace korsession
