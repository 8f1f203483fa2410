#include "section.h"

#include "pipe_text.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kordoctor {

namespace {

// Neither is found in what people or drivers write.
constexpr char fieldEnd = '\x1f';
constexpr char recordEnd = '\x1e';

constexpr size_t longestOutput = 1 << 20; // what a child that babbles can cost

std::vector<std::string> split(const std::string& text, char end) {
    std::vector<std::string> parts;
    size_t begin = 0;
    for (size_t at = text.find(end); at != std::string::npos; at = text.find(end, begin)) {
        parts.push_back(text.substr(begin, at - begin));
        begin = at + 1;
    }
    return parts;
}

// What became of the process that made the checks.
struct Outcome {
    std::string records;
    std::string said; // its standard error
    std::optional<std::string> lost;
};

std::string describeEnd(int waitStatus) {
    if (WIFSIGNALED(waitStatus))
        return "the process that tried it was ended by signal " +
               std::to_string(WTERMSIG(waitStatus)) + " (" + strsignal(WTERMSIG(waitStatus)) + ")";
    return "the process that tried it ended by itself, with status " +
           std::to_string(WEXITSTATUS(waitStatus));
}

[[noreturn]] void examineInChild(const Section& section, int records, int errors) {
    // A crash is a finding, told by its signal, even where something in this process handles it.
    for (const int number : {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT})
        signal(number, SIG_DFL);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const rlimit none{0, 0}; // a driver's crash is reported, not dumped
    setrlimit(RLIMIT_CORE, &none);
    dup2(errors, STDERR_FILENO);
    try {
        Findings findings(records);
        section.examine(findings);
    } catch (const std::exception& failure) {
        korrun::writeText(STDERR_FILENO, failure.what());
        _exit(70);
    }
    _exit(0); // no handlers: drivers have some of their own that may hang
}

// Collects what the child writes until both pipes are closed, or it is over, or the time is.
bool collect(int records, int errors, korrun::Clock::time_point deadline, Outcome& outcome) {
    pollfd files[] = {{records, POLLIN, 0}, {errors, POLLIN, 0}};
    std::string* texts[] = {&outcome.records, &outcome.said};
    while (files[0].fd >= 0) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - korrun::Clock::now());
        if (left.count() <= 0)
            return false;
        if (poll(files, 2, static_cast<int>(left.count())) <= 0)
            continue;
        for (size_t i = 0; i < 2; ++i) {
            if (files[i].fd < 0 || files[i].revents == 0)
                continue;
            char buffer[4096];
            const ssize_t got = read(files[i].fd, buffer, sizeof buffer);
            if (got > 0 && texts[i]->size() < longestOutput)
                texts[i]->append(buffer, static_cast<size_t>(got));
            else if (got == 0 || (got < 0 && errno != EINTR))
                files[i].fd = -1; // poll passes over it
        }
    }
    // The standard error may be kept open by what a driver has started; take what is there.
    char buffer[4096];
    fcntl(errors, F_SETFL, O_NONBLOCK);
    for (ssize_t got = 0; (got = read(errors, buffer, sizeof buffer)) > 0;)
        if (outcome.said.size() < longestOutput)
            outcome.said.append(buffer, static_cast<size_t>(got));
    return true;
}

Outcome runChild(const Section& section) {
    Outcome outcome;
    korrun::Pipe records = korrun::makePipe();
    korrun::Pipe errors = korrun::makePipe();
    const pid_t child = fork();
    if (child < 0) {
        outcome.lost = std::string("no process could be started for it: ") + strerror(errno);
        return outcome;
    }
    if (child == 0)
        examineInChild(section, records.writeEnd.get(), errors.writeEnd.get());
    records.writeEnd.close();
    errors.writeEnd.close();
    const bool inTime = collect(records.readEnd.get(), errors.readEnd.get(),
                                korrun::Clock::now() + section.patience, outcome);
    if (!inTime)
        kill(child, SIGKILL);
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (!inTime)
        outcome.lost = "no answer within " + std::to_string(section.patience.count()) + " seconds";
    else if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
        outcome.lost = describeEnd(status);
    return outcome;
}

Check& checkOf(std::vector<Check>& checks, const std::string& id) {
    const auto found =
        std::find_if(checks.begin(), checks.end(), [&](const Check& c) { return c.id == id; });
    if (found != checks.end())
        return *found;
    checks.push_back({id, id, Verdict::Skipped, "", ""});
    return checks.back();
}

// Puts the records into the checks; returns the check that was begun and not concluded, if any.
std::string applyRecords(const std::string& text, std::vector<Check>& checks, Facts& facts) {
    std::string current;
    bool open = false;
    for (const std::string& record : split(text, recordEnd)) {
        const std::vector<std::string> fields = split(record, fieldEnd);
        if (fields.size() != 3)
            continue;
        if (fields[0] == "fact") {
            facts[fields[1]] = fields[2];
        } else if (fields[0] == "begin") {
            current = fields[1];
            open = true;
            Check& check = checkOf(checks, current);
            if (!fields[2].empty())
                check.title = fields[2];
        } else {
            Check& check = checkOf(checks, current);
            check.verdict = fields[0] == "ok"        ? Verdict::Ok
                            : fields[0] == "skipped" ? Verdict::Skipped
                            : fields[0] == "warning" ? Verdict::Warning
                                                     : Verdict::Broken;
            check.result = fields[1];
            check.advice = fields[2];
            open = false;
        }
    }
    return open ? current : "";
}

} // namespace

void Findings::record(const std::vector<std::string>& fields) {
    std::string text;
    for (const std::string& field : fields)
        text += oneLine(field) + fieldEnd;
    text += recordEnd;
    if (m_text != nullptr)
        *m_text += text;
    else
        korrun::writeText(m_descriptor, text);
}

void Findings::begin(const std::string& id, const std::string& title) {
    record({"begin", id, title});
}
void Findings::ok(const std::string& result) {
    record({"ok", result, ""});
}
void Findings::warning(const std::string& result, const std::string& advice) {
    record({"warning", result, advice});
}
void Findings::broken(const std::string& result, const std::string& advice) {
    record({"broken", result, advice});
}
void Findings::skipped(const std::string& reason) {
    record({"skipped", reason, ""});
}
void Findings::fact(const std::string& name, const std::string& value) {
    record({"fact", name, value});
}

std::vector<Check> runSection(const Section& section, Facts& facts) {
    std::vector<Check> checks;
    for (const Section::Announced& announced : section.checks)
        checks.push_back({announced.id, announced.title, Verdict::Skipped, "", ""});

    Outcome outcome;
    if (section.patience.count() > 0) {
        outcome = runChild(section);
    } else {
        Findings findings(outcome.records);
        section.examine(findings);
    }
    const std::string open = applyRecords(outcome.records, checks, facts);
    if (outcome.lost) {
        const std::string said = oneLine(outcome.said);
        // The one that was begun, or, before the first, the first.
        Check& check = open.empty() && !checks.empty() ? checks.front() : checkOf(checks, open);
        check.verdict = Verdict::Broken;
        check.result = *outcome.lost + (said.empty() ? "" : "; it said: " + said.substr(0, 400));
        check.advice = section.adviceWhenLost;
    }
    const auto cause = std::find_if(checks.begin(), checks.end(), [](const Check& check) {
        return check.verdict == Verdict::Broken;
    });
    for (Check& check : checks)
        if (check.verdict == Verdict::Skipped && check.result.empty())
            check.result =
                cause == checks.end() ? "not tried" : "not tried: see \"" + cause->title + "\"";
    return checks;
}

} // namespace kordoctor
