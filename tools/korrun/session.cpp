#include "session.h"

#include "failure.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <sys/wait.h>
#include <unistd.h>

namespace korrun {

namespace {

// The keeper bounds each of its own steps; these only guard against a keeper that was stopped.
constexpr std::chrono::seconds startingPatience{150};
constexpr std::chrono::seconds endingPatience{30};

void waitFor(pid_t process) {
    while (waitpid(process, nullptr, 0) < 0 && errno == EINTR) {
    }
}

} // namespace

Session::Session(const SessionPlan& plan) : m_requests(makePipe()), m_answers(makePipe()) {
    m_keeper = fork();
    if (m_keeper < 0)
        throw Failure(StatusMissing,
                      std::string("cannot start a process: ") + std::strerror(errno));
    if (m_keeper == 0) {
        m_requests.writeEnd.close();
        m_answers.readEnd.close();
        runKeeper(plan, m_requests.readEnd.get(), m_answers.writeEnd.get());
    }
    m_requests.readEnd.close();
    m_answers.writeEnd.close();

    const Clock::time_point deadline = Clock::now() + startingPatience;
    std::string line;
    const auto next = [&] {
        return readLine(m_answers.readEnd.get(), line, deadline) == ReadResult::Line;
    };
    if (next() && line == "ready" && next()) {
        m_applicationDisplay = line;
        if (next()) {
            m_localDisplay = line;
            if (next()) {
                m_authorityFile = line;
                return;
            }
        }
    }
    std::string message;
    if (line == "failed")
        while (next())
            message += (message.empty() ? "" : "\n") + line;
    end();
    throw Failure(StatusMissing, message.empty() ? "the session did not start" : message);
}

void Session::watchCommand(pid_t leader) {
    writeText(m_requests.writeEnd.get(), "command " + std::to_string(leader) + "\n");
}

std::vector<std::string> Session::end() {
    std::vector<std::string> lost;
    if (m_keeper <= 0)
        return lost;
    writeText(m_requests.writeEnd.get(), "done\n");
    m_requests.writeEnd.close();
    // The keeper's end of the pipe closes when it is through.
    const Clock::time_point deadline = Clock::now() + endingPatience;
    std::string line;
    ReadResult result = ReadResult::Line;
    while ((result = readLine(m_answers.readEnd.get(), line, deadline)) == ReadResult::Line)
        if (line.starts_with("lost "))
            lost.push_back(line.substr(5));
    if (result == ReadResult::TimedOut)
        kill(m_keeper, SIGKILL); // its servers end with it
    waitFor(m_keeper);
    m_keeper = -1;
    if (!m_authorityFile.empty()) {
        // The keeper has done so, unless it was killed.
        std::error_code error;
        std::filesystem::remove_all(std::filesystem::path(m_authorityFile).parent_path(), error);
    }
    return lost;
}

} // namespace korrun
