#include "display_probe.h"

#include "adapter/vendor_names.h"
#include "pipe_text.h"

#include <X11/Xlib.h>
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <functional>
#include <optional>
#include <sys/wait.h>
#include <unistd.h>

namespace korrun {

namespace {

constexpr std::chrono::seconds patience{5};

bool hasExtension(Display* display, const char* name) {
    int opcode = 0;
    int event = 0;
    int error = 0;
    return XQueryExtension(display, name, &opcode, &event, &error) != 0;
}

DisplayState classify(Display* display) {
    if (hasExtension(display, "KOR-V1"))
        return DisplayState::IsSession;
    if (!hasExtension(display, "GLX"))
        return DisplayState::WithoutGlx;
    // Servers that drive a GPU hand its buffers to their clients by one of these.
    for (const char* sharing : {"DRI3", "DRI2", "NV-GLX"})
        if (hasExtension(display, sharing))
            return DisplayState::DrivesGpu;
    return DisplayState::RendersItself;
}

DisplayState look(const std::string& name) {
    Display* display = XOpenDisplay(name.c_str());
    if (!display)
        return DisplayState::Unreachable;
    const DisplayState state = classify(display);
    XCloseDisplay(display);
    return state;
}

bool lookForOurVendor(const std::string& name) {
    Display* display = XOpenDisplay(name.empty() ? nullptr : name.c_str());
    if (!display)
        return false;
    const auto names = kor::adapter::askVendorNames(display, DefaultScreen(display));
    XCloseDisplay(display);
    return std::find(names.begin(), names.end(), kor::adapter::ourVendor) != names.end();
}

// What a child process found out: a number of one digit.
struct Answer {
    std::optional<int> value;
    bool timedOut = false;
};

// Xlib waits for a server without end, hence the process of its own.
Answer askInChild(const std::function<int()>& question) {
    Pipe answer = makePipe();
    const pid_t child = fork();
    if (child < 0)
        return {std::nullopt, true};
    if (child == 0) {
        answer.readEnd.close();
        // Xlib has words of its own for a display that is not ours; what is found is told
        // elsewhere.
        dup2(open("/dev/null", O_WRONLY | O_CLOEXEC), STDERR_FILENO);
        const char letter = static_cast<char>('0' + question());
        writeText(answer.writeEnd.get(), std::string(1, letter) + "\n");
        _exit(0);
    }
    answer.writeEnd.close();
    std::string line;
    const ReadResult result = readLine(answer.readEnd.get(), line, Clock::now() + patience);
    kill(child, SIGKILL);
    while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
    }
    if (result == ReadResult::Line && line.size() == 1)
        return {line[0] - '0', false};
    return {std::nullopt, result == ReadResult::TimedOut};
}

} // namespace

DisplayState probeDisplay(const std::string& name) {
    const Answer answer = askInChild([&] { return static_cast<int>(look(name)); });
    if (answer.timedOut)
        return DisplayState::NoAnswer;
    // No value: Xlib ended the process because the connection broke.
    return answer.value ? static_cast<DisplayState>(*answer.value) : DisplayState::Unreachable;
}

bool namesOurVendor(const std::string& name) {
    return askInChild([&] { return lookForOurVendor(name) ? 1 : 0; }).value == 1;
}

bool isUsable(DisplayState state) {
    return state == DisplayState::DrivesGpu || state == DisplayState::RendersItself;
}

const char* describe(DisplayState state) {
    switch (state) {
    case DisplayState::DrivesGpu:
        return "drives a GPU";
    case DisplayState::RendersItself:
        return "drives no GPU";
    case DisplayState::IsSession:
        return "belongs to a session and drives no GPU";
    case DisplayState::WithoutGlx:
        return "has no GLX";
    case DisplayState::Unreachable:
        return "cannot be opened";
    case DisplayState::NoAnswer:
        return "does not answer";
    }
    return "is in an unknown state";
}

} // namespace korrun
