// windows_stress: windows that end at random moments by every hand that can end one.
//   --how     program, client, kill, manager, resized or between: who ends the window, and when;
//             close: the program closes the connection on which it made the window and drew
//   --rounds  so many windows
//   --handler 1: the program has an error handler and goes on drawing while the window goes;
//             0: it has none, and draws nothing more once the end has begun
//   --current 0: no context is current on the thread when the window goes
#include "stress.h"

#include <cstdio>
#include <thread>

using namespace kor::client;
using namespace kor::stress;

namespace {

constexpr int kCheckEvery = 6;

struct World {
    Display* display; // draws
    Display* other;   // another client of the server
    Display* owner;   // the client that XKillClient is to end; null where there is none
    Window frame;     // of the window manager; None where there is none
    Window window;
    std::string how;
};

void endWindow(World& world, Random& random) {
    if (world.how == "program" || world.how == "between") {
        XDestroyWindow(world.display, world.window);
        XSync(world.display, False);
    } else if (world.how == "kill") {
        XKillClient(world.other, world.window);
        XSync(world.other, False);
    } else if (world.how == "manager") {
        XDestroyWindow(world.other, world.frame);
        XSync(world.other, False);
    } else {
        if (world.how == "resized")
            for (int i = random.below(6); i >= 0; --i) {
                XResizeWindow(world.other, world.window,
                              static_cast<unsigned>(20 + random.below(120)),
                              static_cast<unsigned>(20 + random.below(120)));
                XSync(world.other, False);
            }
        XDestroyWindow(world.other, world.window);
        XSync(world.other, False);
    }
}

// The connection that XKillClient ends shall not end the program.
int passOver(Display* /*display*/) {
    return 0;
}
void stayAlive(Display* /*display*/, void* /*data*/) {}

void drawFrames(const World& world, Random& random, int most) {
    for (int frame = random.below(most); frame >= 0; --frame) {
        drawColour(random.below(65536));
        glXSwapBuffers(world.display, world.window);
    }
}

// Whatever went before, perhaps under the same id, the window shows what is drawn.
void checkPicture(const World& world, const Rectangle& place, int round) {
    const Picture picture(place.width, place.height, static_cast<unsigned>(round) % 256);
    glViewport(0, 0, place.width, place.height);
    drawQuad(picture);
    glXSwapBuffers(world.display, world.window);
    requireShown(world.display, world.window, picture, "window " + std::to_string(round));
}

// A window, its context and its connection; ids and addresses are those of the one before.
void liveOnOwnConnection(Random& random, int round) {
    World world{openDisplay(), nullptr, nullptr, None, None, "close"};
    {
        const Windows windows(world.display);
        const Rectangle place{random.below(300), random.below(300), 20 + random.below(120),
                              20 + random.below(120)};
        world.window = windows.open(place);
        const GLXContext context = createContext(world.display, windows.visual());
        makeCurrent(world.display, world.window, context);
        drawFrames(world, random, 3);
        if (round % kCheckEvery == 0)
            checkPicture(world, place, round);
        glXMakeCurrent(world.display, None, nullptr);
        glXDestroyContext(world.display, context);
        if (random.oneIn(2))
            XDestroyWindow(world.display, world.window);
    }
    XCloseDisplay(world.display);
}

} // namespace

int main(int count, char** words) {
    const Options options(count, words);
    const int rounds = options.number("rounds", 100);
    const bool handler = options.number("handler", 1) != 0;
    const bool current = options.number("current", 1) != 0;
    Random random(options.number("seed", 1));
    XInitThreads();
    if (handler)
        countErrors();
    XSetIOErrorHandler(passOver);
    World world{openDisplay(), openDisplay(), nullptr, None, None, options.text("how", "program")};
    const Windows windows(world.display);
    GLXContext context = createContext(world.display, windows.visual());

    for (int round = 0; round < rounds; ++round) {
        if (round == rounds / 10)
            measure("begin");
        if (world.how == "close") {
            liveOnOwnConnection(random, round);
            continue;
        }
        const Rectangle place{random.below(300), random.below(300), 20 + random.below(120),
                              20 + random.below(120)};
        if (world.how == "manager") {
            world.frame = windows.open({place.x, place.y, 200, 200}, None, world.other);
            world.window = windows.open({2, 20, place.width, place.height});
            // As a window manager does it: the other client takes the window into its frame.
            XReparentWindow(world.other, world.window, world.frame, 2, 20);
            XSync(world.other, False);
        } else if (world.how == "kill") {
            world.owner = openDisplay();
            XSetIOErrorExitHandler(world.owner, stayAlive, nullptr);
            world.window = windows.open(place, None, world.owner);
        } else {
            world.window = windows.open(place);
        }
        makeCurrent(world.display, world.window, context);
        drawFrames(world, random, 3);
        if (round % kCheckEvery == 0)
            checkPicture(world, place, round);
        if (!current)
            glXMakeCurrent(world.display, None, nullptr);
        if (handler && current && world.how != "program" && world.how != "between") {
            Random theirs(round, 1);
            const int wait = random.below(4000);
            std::thread hand([&world, &theirs, wait] {
                theirs.pause(wait);
                endWindow(world, theirs);
            });
            drawFrames(world, random, 6);
            hand.join();
        } else {
            if (world.how != "between")
                random.pause(4000);
            endWindow(world, random);
            if (handler && current && random.oneIn(3))
                drawFrames(world, random, 2);
        }
        if (current)
            glXMakeCurrent(world.display, None, nullptr);
        if (world.owner != nullptr) {
            XCloseDisplay(world.owner);
            world.owner = nullptr;
        }
        if (random.oneIn(16)) {
            glXDestroyContext(world.display, context);
            context = createContext(world.display, windows.visual());
        }
    }

    const Rectangle last{10, 10, 120, 90};
    world.window = windows.open(last);
    makeCurrent(world.display, world.window, context);
    checkPicture(world, last, rounds);
    measure("end");
    glXMakeCurrent(world.display, None, nullptr);
    glXDestroyContext(world.display, context);
    XDestroyWindow(world.display, world.window);
    XSync(world.display, False);
    std::printf("rounds %d\nerrors %d\n", rounds, countedErrors());
    return passed("windows_stress");
}
