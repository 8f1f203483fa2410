#include "actions.h"
#include "children.h"
#include "desktop.h"
#include "environment.h"
#include "failure.h"
#include "gl_display.h"
#include "keeper.h"
#include "log_folder.h"
#include "password.h"
#include "pipe_text.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace korsession {

using korrun::Clock;
using korrun::Failure;
using korrun::ReadResult;

namespace {

// The keepers bound each of their own steps; this only guards against ones that were stopped.
constexpr std::chrono::seconds startingPatience{240};
constexpr std::chrono::seconds endingPatience{60};

void say(const std::string& message) {
    std::fprintf(stderr, "korsession: %s\n", message.c_str());
}

std::vector<std::string> findCommand(const Options& options) {
    if (options.command.empty())
        return findDesktop();
    std::vector<std::string> command = options.command;
    const std::string program = korrun::findProgram(command[0]);
    if (program.empty())
        throw Failure(korrun::StatusNotFound, command[0] + " was not found");
    std::error_code error;
    command[0] = std::filesystem::absolute(program, error);
    return command;
}

SessionPlan makePlan(const Options& options) {
    SessionPlan plan;
    plan.installation = korrun::findInstallation();
    if (plan.installation.server.empty())
        throw Failure(korrun::StatusMissing, "the session's server Xkor is not beside " +
                                                 plan.installation.korrun +
                                                 ": install the package xserver-kor");
    plan.command = findCommand(options);
    plan.size = options.size;
    plan.display = options.display.value_or("");
    plan.glDisplay = korrun::chooseGlDisplay(options.glDisplay, false, say);
    if (plan.glDisplay.empty()) {
        plan.xvfb = korrun::findProgram("Xvfb");
        if (plan.xvfb.empty())
            throw Failure(korrun::StatusMissing,
                          "no GPU display answers, and Xvfb, which would render in software, is "
                          "not installed: install the package xvfb");
    }
    plan.viewing = {"-vnc"};
    if (options.vncPort)
        plan.viewing.push_back(*options.vncPort);
    if (options.web) {
        plan.viewing.emplace_back("-web");
        if (options.webPort)
            plan.viewing.push_back(*options.webPort);
    }
    if (options.listen) {
        plan.viewing.insert(plan.viewing.end(), {"-vnc-listen", *options.listen});
        if (options.web)
            plan.viewing.insert(plan.viewing.end(), {"-web-listen", *options.listen});
    }
    return plan;
}

// The password stands behind the "#" of the page's address, which browsers keep to themselves.
std::string completePage(const std::string& page, const std::string& password) {
    if (page.empty() || password.empty())
        return page;
    return page + "#password=" + password;
}

} // namespace

int start(const Options& options) {
    SessionPlan plan = makePlan(options);
    // Found missing only now, it would be found missing with everything running already.
    korrun::chooseFront(plan.installation, korrun::Front::Auto);
    korrun::avoidFront(plan.installation);
    plan.logFolder = makeLogFolder(options.logFolder);
    const SessionFolder folder;
    std::string password;
    korrun::Pipe answers;
    pid_t keeper = -1;
    try {
        if (options.insecure) {
            plan.viewing.emplace_back("-vnc-insecure");
        } else {
            std::error_code error;
            plan.passwordFile =
                options.passwordFile
                    ? std::filesystem::absolute(*options.passwordFile, error).string()
                    : folder.file("password");
            if (!options.passwordFile) {
                password = makePassword(plan.passwordFile);
                std::ofstream(folder.file("clear-password")) << password << "\n";
            }
            plan.viewing.insert(plan.viewing.end(), {"-vnc-password", plan.passwordFile});
        }
        answers = korrun::makePipe();
        keeper = fork();
        if (keeper < 0)
            throw Failure(korrun::StatusMissing,
                          std::string("cannot start a process: ") + std::strerror(errno));
    } catch (const std::exception&) {
        folder.remove();
        throw;
    }
    if (keeper == 0) {
        answers.readEnd.close();
        runOuterKeeper(plan, folder, answers.writeEnd.get());
    }
    answers.writeEnd.close();

    const Clock::time_point deadline = Clock::now() + startingPatience;
    std::vector<std::string> lines;
    std::string line;
    while (korrun::readLine(answers.readEnd.get(), line, deadline) == ReadResult::Line)
        lines.push_back(line);
    if (lines.size() < 6 || lines[0] != "ready") {
        // Nothing is left running when this has been said. A keeper that has failed ends by itself;
        // of one that is killed the inner one hears.
        endChild(keeper, endingPatience);
        std::string message;
        for (std::size_t i = 1; i < lines.size() && lines[0] == "failed"; ++i)
            message += (message.empty() ? "" : "\n") + lines[i];
        throw Failure(korrun::StatusMissing,
                      message.empty() ? "the session did not start (logs: " + plan.logFolder + ")"
                                      : message);
    }
    const std::string page = completePage(lines[2], password);
    std::printf("session %s: open %s (VNC viewer: %s; logs: %s)\n", lines[1].c_str(),
                page.empty() ? lines[3].c_str() : page.c_str(), lines[3].c_str(), lines[4].c_str());
    return 0;
}

int list() {
    for (const Entry& entry : runningSessions()) {
        const auto fact = [&](const char* name) {
            const auto found = entry.facts.find(name);
            return found == entry.facts.end() ? std::string() : found->second;
        };
        if (entry.facts.empty()) {
            std::printf("(starting)\n");
            continue;
        }
        std::string password;
        std::ifstream(entry.folder + "/clear-password") >> password;
        const std::string page = completePage(fact(factPage), password);
        std::printf("session %s: open %s (VNC viewer: %s; command: %s; logs: %s)\n",
                    fact(factDisplay).c_str(), page.empty() ? fact(factVnc).c_str() : page.c_str(),
                    fact(factVnc).c_str(), fact(factCommand).c_str(), fact(factLogs).c_str());
        std::fflush(stdout);
        if (const std::string complaint = complaintAbout(fact(factLogs)); !complaint.empty())
            say(fact(factDisplay) + ": " + complaint);
    }
    return 0;
}

} // namespace korsession
