#include "command.h"
#include "environment.h"
#include "failure.h"
#include "gl_display.h"
#include "installation.h"
#include "options.h"
#include "screenshot.h"
#include "session.h"
#include "statistics.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace korrun;

namespace {

void say(const std::string& message) {
    std::fprintf(stderr, "korrun: %s\n", message.c_str());
}

std::string variable(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

std::unique_ptr<Session> startSession(const Options& options, const Installation& installation) {
    SessionPlan plan;
    plan.size = options.size;
    plan.xkor = installation.server;
    if (plan.xkor.empty())
        throw Failure(StatusMissing, "the session's server Xkor is not beside " +
                                         installation.korrun +
                                         ": build it (cmake --build --preset release) or install "
                                         "the package xserver-kor");
    plan.glDisplay = chooseGlDisplay(options.glDisplay, options.verbose, say);
    if (plan.glDisplay.empty()) {
        plan.xvfb = findProgram("Xvfb");
        if (plan.xvfb.empty())
            throw Failure(StatusMissing, "no GPU display answers, and Xvfb, which would render in "
                                         "software, is not installed: apt-get install xvfb");
    }
    auto session = std::make_unique<Session>(plan);
    setenv("DISPLAY", session->applicationDisplay().c_str(), 1);
    setenv("XAUTHORITY", session->authorityFile().c_str(), 1);
    setenv("KOR_GL_DISPLAY", session->localDisplay().c_str(), 1);
    if (options.verbose) {
        say("application display " + session->applicationDisplay() + ": " + plan.xkor);
        say("local display " + session->localDisplay() + ": " +
            (plan.xvfb.empty() ? "the GPU's" : plan.xvfb));
        say("authority file " + session->authorityFile());
    }
    return session;
}

// Refuses early what would fail only when the command has run for a while.
void checkPictureFolder(const std::string& file) {
    std::error_code error;
    const std::filesystem::path path(file);
    const std::filesystem::path folder = path.has_parent_path() ? path.parent_path() : ".";
    if (std::filesystem::is_directory(path, error))
        throw Failure(StatusUsage, "--screenshot: " + file + " is a folder");
    if (!std::filesystem::is_directory(folder, error))
        throw Failure(StatusUsage, "--screenshot: there is no folder " + folder.string());
    if (access(folder.c_str(), W_OK | X_OK) != 0)
        throw Failure(StatusUsage, "--screenshot: cannot write in " + folder.string());
}

int takePicture(const std::string& file) {
    std::signal(SIGXFSZ, SIG_IGN); // a file that may not grow is to be reported, not to end us
    try {
        writePng(captureScreen(variable("DISPLAY")), file);
        return EXIT_SUCCESS;
    } catch (const std::exception& failure) {
        say(std::string("no picture: ") + failure.what());
        return StatusNoPicture;
    }
}

// Ends this process as the command ended.
int endLike(int waitStatus) {
    if (!WIFSIGNALED(waitStatus))
        return WEXITSTATUS(waitStatus);
    const int number = WTERMSIG(waitStatus);
    const rlimit none = {0, 0}; // the command has left a core file of its own, if any
    setrlimit(RLIMIT_CORE, &none);
    std::signal(number, SIG_DFL);
    std::raise(number);
    return 128 + number;
}

int reportOf(const Options& options, const CommandResult& result) {
    const bool succeeded =
        result.timeWasUp || (WIFEXITED(result.waitStatus) && WEXITSTATUS(result.waitStatus) == 0);
    if (options.screenshot && !result.pictureTaken) {
        if (!result.pictureTried)
            say("no picture: " + options.command[0] + " ended before it was due (see --after)");
        else
            say("no picture was written to " + *options.screenshot);
        if (succeeded)
            return StatusNoPicture;
    }
    return result.timeWasUp ? EXIT_SUCCESS : endLike(result.waitStatus);
}

int run(const Options& options) {
    const Installation installation = findInstallation();
    if (options.screenshot)
        checkPictureFolder(*options.screenshot);
    avoidFront(installation);
    std::unique_ptr<Session> session;
    if (options.session)
        session = startSession(options, installation);
    else if (options.glDisplay)
        setenv("KOR_GL_DISPLAY", options.glDisplay->c_str(), 1);
    if (options.screenshot && variable("DISPLAY").empty())
        throw Failure(StatusMissing, "--screenshot: there is no display to take a picture of; set "
                                     "DISPLAY or give --session");
    const Front front = useFront(installation, options.front, variable("DISPLAY"));
    if (options.verbose)
        say(std::string("front library (") + (front == Front::Glvnd ? "glvnd" : "classic") +
            ") in LD_LIBRARY_PATH " + variable("LD_LIBRARY_PATH"));

    std::optional<StatisticsFolder> statistics;
    if (options.stats)
        statistics.emplace();
    if (!options.session && !options.screenshot && !options.seconds && !options.stats)
        becomeCommand(options.command);

    CommandPlan plan;
    plan.command = options.command;
    plan.endAfter = options.seconds;
    if (options.screenshot) {
        plan.pictureAfter = options.after;
        plan.takePicture = [&] { return takePicture(*options.screenshot); };
    }
    if (session)
        plan.started = [&](pid_t leader) { session->watchCommand(leader); };
    const CommandResult result = runCommand(plan);
    std::vector<std::string> report;
    if (statistics)
        report = statistics->report();
    statistics.reset(); // its folder; this process may end by a signal from here on
    if (session)
        for (const std::string& name : session->end())
            say("the session's " + name + " had ended by itself");
    if (options.verbose && result.timeWasUp)
        say(options.command[0] + " was ended: its time was up");
    for (const std::string& line : report)
        say(line);
    return reportOf(options, result);
}

} // namespace

int main(int count, char** arguments) {
    try {
        const Options options = parseOptions({arguments + 1, arguments + count});
        if (options.help || options.version) {
            std::fputs(options.help ? helpText() : versionText(), stdout);
            return EXIT_SUCCESS;
        }
        return run(options);
    } catch (const Failure& failure) {
        say(failure.what());
        return failure.exitStatus();
    } catch (const std::exception& failure) {
        say(failure.what());
        return StatusMissing;
    }
}
