// From exec to the first painted frame: a trivial client on the application display through the
// front, by turns with the same client rendered directly by the local display's server. The screen
// is looked at from outside; the client tells when it has got where.

#include "support/comparison.h"
#include "support/window.h"

#include <X11/Xutil.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <poll.h>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

using namespace kor::bench;

namespace {

constexpr unsigned long colour = 0x33cc66; // what the client clears its window with
constexpr double patience = 20e6;          // microseconds

const char* const stageNames[] = {
    "main",           "XOpenDisplay", "glXChooseVisual", "glXCreateContext", "window on the screen",
    "glXMakeCurrent", "drawn",        "glXSwapBuffers",  "painted"};

struct Client {
    pid_t process = -1;
    int input = -1;  // closing it ends the client
    int output = -1; // what it tells
};

struct Environment {
    std::string display;
    std::string libraryPath; // empty: none
};

Client start(const std::string& program, const Environment& environment) {
    int input[2];
    int output[2];
    if (pipe(input) != 0 || pipe(output) != 0)
        fail("no pipe");
    Client client;
    client.process = fork();
    if (client.process < 0)
        fail("no process");
    if (client.process == 0) {
        dup2(input[0], STDIN_FILENO);
        dup2(output[1], STDOUT_FILENO);
        for (int file : {input[0], input[1], output[0], output[1]})
            close(file);
        setenv("DISPLAY", environment.display.c_str(), 1);
        if (environment.libraryPath.empty())
            unsetenv("LD_LIBRARY_PATH");
        else
            setenv("LD_LIBRARY_PATH", environment.libraryPath.c_str(), 1);
        execl(program.c_str(), program.c_str(), nullptr);
        _exit(127);
    }
    close(input[0]);
    close(output[1]);
    client.input = input[1];
    client.output = output[0];
    return client;
}

/// The colour in the middle of where the client's window comes up.
unsigned long colourOnScreen(Display* display) {
    XImage* image =
        XGetImage(display, DefaultRootWindow(display), 150, 150, 1, 1, AllPlanes, ZPixmap);
    if (image == nullptr)
        return 0;
    const unsigned long pixel = XGetPixel(image, 0, 0) & 0xffffff;
    XDestroyImage(image);
    return pixel;
}

/// Looks at the screen until it shows the colour, or no longer does.
double waitForColour(Display* display, bool shown, pid_t process) {
    const double begin = microseconds();
    while ((colourOnScreen(display) == colour) != shown) {
        if (microseconds() - begin > patience) {
            kill(process, SIGKILL);
            fail(shown ? "the client's frame does not come" : "the client's window does not go");
        }
        usleep(300);
    }
    return microseconds();
}

/// When each stage was reached, by the client's own account; microseconds.
std::map<std::string, double> readStages(int file) {
    std::string text;
    const double begin = microseconds();
    for (;;) {
        pollfd readable{file, POLLIN, 0};
        if (poll(&readable, 1, 1000) > 0) {
            char piece[512];
            const ssize_t size = read(file, piece, sizeof piece);
            if (size <= 0)
                break;
            text.append(piece, static_cast<size_t>(size));
        }
        if (text.find("glXSwapBuffers\n") != std::string::npos)
            break;
        if (microseconds() - begin > patience)
            fail("the client tells nothing");
    }
    std::map<std::string, double> stages;
    for (size_t at = 0; at < text.size();) {
        const size_t end = text.find('\n', at);
        const std::string line = text.substr(at, end - at);
        const size_t blank = line.find(' ');
        if (blank != std::string::npos)
            stages[line.substr(blank + 1)] = std::atof(line.c_str());
        if (end == std::string::npos)
            break;
        at = end + 1;
    }
    return stages;
}

/// Ends the client; the processor time that it has used, in milliseconds.
double end(const Client& client) {
    close(client.input);
    close(client.output);
    const double begin = microseconds();
    rusage used{};
    while (wait4(client.process, nullptr, WNOHANG, &used) == 0) {
        if (microseconds() - begin > patience)
            kill(client.process, SIGKILL);
        usleep(1000);
    }
    const auto milliseconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_usec) / 1e3;
    };
    return milliseconds(used.ru_utime) + milliseconds(used.ru_stime);
}

/// Milliseconds from exec to each stage, and at last of processor time in the client.
std::vector<double> measure(const std::string& program, const Environment& environment,
                            Display* screen) {
    const double begin = microseconds();
    const Client client = start(program, environment);
    const double painted = waitForColour(screen, true, client.process);
    std::map<std::string, double> stages = readStages(client.output);
    stages["painted"] = painted;
    std::vector<double> times;
    for (const char* name : stageNames) {
        if (stages.count(name) == 0)
            fail(std::string("the client does not tell when it reached ") + name);
        times.push_back((stages[name] - begin) / 1000);
    }
    times.push_back(end(client));
    waitForColour(screen, false, client.process);
    return times;
}

double medianOf(const std::vector<std::vector<double>>& runs, size_t stage) {
    std::vector<double> values;
    values.reserve(runs.size());
    for (const auto& run : runs)
        values.push_back(run[stage]);
    return median(values);
}

} // namespace

int main(int count, char** arguments) {
    if (count != 4)
        fail("usage: first_frame CLIENT FRONT-FOLDER ROUNDS");
    signal(SIGPIPE, SIG_IGN);
    const std::string client = arguments[1];
    const Environment through{needVariable("DISPLAY"), arguments[2]};
    const Environment direct{needVariable("KOR_GL_DISPLAY"), ""};
    const int rounds = parseCount(arguments[3]);
    Display* application = openDisplay(through.display);
    Display* local = openDisplay(direct.display);

    std::vector<std::vector<double>> library;
    std::vector<std::vector<double>> floor;
    for (int round = -1; round < rounds; round++) { // one to warm up
        const auto ours = measure(client, through, application);
        const auto directly = measure(client, direct, local);
        if (round < 0)
            continue;
        library.push_back(ours);
        floor.push_back(directly);
    }
    const auto print = [&](const char* name, size_t stage) {
        printf("{\"name\": \"first frame\", \"stage\": \"%s\", \"rounds\": %d, "
               "\"direct_ms\": %.2f, \"library_ms\": %.2f}\n",
               name, rounds, medianOf(floor, stage), medianOf(library, stage));
    };
    for (size_t stage = 0; stage < std::size(stageNames); stage++)
        print(stageNames[stage], stage);
    print("processor time", std::size(stageNames));
    return 0;
}
