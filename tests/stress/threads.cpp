// threads_stress: many threads that make, use, share, swap and destroy at random, on a few common
// connections and on some of their own. Threads end and are followed by others.
//   --threads, --seconds, --patience (seconds without a step after which a thread counts as stuck)
//   --common  some windows are drawn into by any thread, each with a context of its own: 0 none,
//             1 without any order between them, 2 one thread at a time
#include "stress.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

using namespace kor::client;
using namespace kor::stress;

namespace {

using Clock = std::chrono::steady_clock;
constexpr int kConnections = 8;
constexpr int kStepsOfAThread = 60; // then another takes its place

// One connection that several threads use, with a context that all of them share with.
struct Connection {
    Connection()
        : display(openDisplay()), windows(display),
          config(chooseConfig(display, Buffering::Double, GLX_WINDOW_BIT | GLX_PBUFFER_BIT)),
          shared(glXCreateNewContext(display, config, GLX_RGBA_TYPE, nullptr, True)),
          common(windows.open({600, 500, 50, 50})) {
        require(shared != nullptr, "a context to share with");
    }
    Display* display;
    Windows windows;
    GLXFBConfig config;
    GLXContext shared;
    Window common;
};

struct Slot {
    std::thread thread;
    std::atomic<long> steps{0};
    std::atomic<const char*> doing{"starts"};
    std::atomic<bool> done{false};
    long seen = -1;
    Clock::time_point since = Clock::now();
};

struct World {
    std::vector<std::unique_ptr<Connection>> connections;
    std::vector<std::unique_ptr<Slot>> slots;
    std::atomic<bool> over{false};
    int common = 2;
    std::mutex inCommon;
};

class Worker {
  public:
    Worker(World& world, Slot& slot, int seed, int number)
        : m_world(world), m_slot(slot), m_random(seed, number),
          m_connection(*world.connections[static_cast<std::size_t>(m_random.below(kConnections))]),
          m_display(m_connection.display), m_place{number % 8 * 60, number / 8 % 8 * 60, 50, 50} {}

    void run() {
        m_window = m_connection.windows.open(m_place);
        makeContext();
        for (int i = 0; i < kStepsOfAThread && !m_world.over; ++i) {
            step();
            ++m_slot.steps;
        }
        say("ends");
        glXMakeCurrent(m_display, None, nullptr);
        glXDestroyContext(m_display, m_context);
        XDestroyWindow(m_display, m_window);
        XSync(m_display, False);
    }

  private:
    void say(const char* what) { m_slot.doing = what; }

    void makeContext() {
        m_context = glXCreateNewContext(m_display, m_connection.config, GLX_RGBA_TYPE,
                                        m_random.oneIn(2) ? m_connection.shared : nullptr, True);
        require(m_context != nullptr, "a context of a thread");
    }

    void drawInto(GLXDrawable drawable, int frames) {
        if (glXMakeCurrent(m_display, drawable, m_context) == False)
            return;
        for (int i = 0; i < frames; ++i) {
            glViewport(0, 0, 50, 50);
            drawColour(m_random.below(65536));
            if (m_random.oneIn(4))
                glFlush();
            glXSwapBuffers(m_display, drawable);
        }
    }

    void usePbuffer() {
        const int attributes[] = {GLX_PBUFFER_WIDTH, 20 + m_random.below(60), GLX_PBUFFER_HEIGHT,
                                  30, None};
        const GLXPbuffer pbuffer = glXCreatePbuffer(m_display, m_connection.config, attributes);
        drawInto(pbuffer, 1);
        glXMakeCurrent(m_display, None, nullptr);
        glXDestroyPbuffer(m_display, pbuffer);
    }

    void useTexture() {
        if (glXMakeCurrent(m_display, m_window, m_context) == False)
            return;
        GLuint texture = 0;
        glGenTextures(1, &texture);
        glBindTexture(GL_TEXTURE_2D, texture);
        glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, 16, 16, 0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
        glDeleteTextures(1, &texture);
    }

    void ask() {
        unsigned value = 0;
        int number = 0;
        glXQueryDrawable(m_display, m_window, GLX_WIDTH, &value);
        glXQueryContext(m_display, m_context, GLX_FBCONFIG_ID, &number);
        glXGetFBConfigAttrib(m_display, m_connection.config, GLX_DEPTH_SIZE, &number);
        glXQueryExtensionsString(m_display, DefaultScreen(m_display));
        glXIsDirect(m_display, m_context);
        glXWaitX();
        glXWaitGL();
    }

    // A connection that lives for three frames.
    void useOwnConnection() {
        Display* const display = openDisplay();
        {
            const Windows windows(display);
            const Window window = windows.open({500, 100, 40, 40});
            const GLXContext context = createContext(display, windows.visual());
            if (glXMakeCurrent(display, window, context) == True) {
                for (int i = 0; i < 3; ++i) {
                    drawColour(i * 50);
                    glXSwapBuffers(display, window);
                }
                glXMakeCurrent(display, None, nullptr);
            }
            glXDestroyContext(display, context);
            XDestroyWindow(display, window);
        }
        XCloseDisplay(display);
    }

    // Often more than one thread at once, and over the connections of others.
    void drawIntoCommonWindow() {
        say("draws into a common window");
        std::unique_lock<std::mutex> order;
        if (m_world.common == 2)
            order = std::unique_lock(m_world.inCommon);
        drawInto(m_world.connections[static_cast<std::size_t>(m_random.below(2))]->common, 4);
        glXMakeCurrent(m_display, None, nullptr);
    }

    void step() {
        switch (m_random.below(24)) {
        case 0:
            say("makes another context");
            glXMakeCurrent(m_display, None, nullptr);
            glXDestroyContext(m_display, m_context);
            makeContext();
            break;
        case 1:
            say("makes another window");
            if (m_random.oneIn(2))
                glXMakeCurrent(m_display, None, nullptr);
            XDestroyWindow(m_display, m_window);
            m_window = m_connection.windows.open(m_place);
            break;
        case 2:
        case 3:
            say("resizes");
            XResizeWindow(m_display, m_window, static_cast<unsigned>(10 + m_random.below(50)),
                          static_cast<unsigned>(10 + m_random.below(50)));
            drawInto(m_window, 2);
            break;
        case 4:
        case 5:
            say("uses a pbuffer");
            usePbuffer();
            break;
        case 6:
        case 7:
            say("uses a texture");
            useTexture();
            break;
        case 8:
        case 9:
            say("asks");
            ask();
            break;
        case 10:
            say("releases");
            glXMakeCurrent(m_display, None, nullptr);
            break;
        case 11:
            say("uses a connection of its own");
            glXMakeCurrent(m_display, None, nullptr);
            useOwnConnection();
            break;
        case 12:
        case 13:
        case 14:
            if (m_world.common != 0) {
                drawIntoCommonWindow();
                break;
            }
            [[fallthrough]];
        default:
            say("draws");
            drawInto(m_window, 1 + m_random.below(4));
        }
    }

    World& m_world;
    Slot& m_slot;
    Random m_random;
    Connection& m_connection;
    Display* m_display;
    Rectangle m_place;
    Window m_window = None;
    GLXContext m_context = nullptr;
};

// True when a slot has made no step for too long.
bool stuck(World& world, std::chrono::seconds patience) {
    bool found = false;
    for (std::size_t i = 0; i < world.slots.size(); ++i) {
        Slot& slot = *world.slots[i];
        const long steps = slot.steps;
        if (steps != slot.seen) {
            slot.seen = steps;
            slot.since = Clock::now();
        } else if (Clock::now() - slot.since > patience) {
            std::printf("stuck thread %zu: %s\n", i, slot.doing.load());
            found = true;
        }
    }
    return found;
}

} // namespace

int main(int count, char** words) {
    const Options options(count, words);
    const int threads = options.number("threads", 64);
    const int seed = options.number("seed", 1);
    const std::chrono::seconds patience(options.number("patience", 30));
    XInitThreads();
    countErrors();
    World world;
    world.common = options.number("common", 2);
    for (int i = 0; i < kConnections; ++i)
        world.connections.push_back(std::make_unique<Connection>());
    for (int i = 0; i < threads; ++i)
        world.slots.push_back(std::make_unique<Slot>());

    const auto end = Clock::now() + std::chrono::seconds(options.number("seconds", 10));
    const auto begin = Clock::now() + std::chrono::seconds(options.number("seconds", 10)) / 5;
    bool begun = false;
    int number = 0;
    long finished = 0;
    while (true) {
        world.over = Clock::now() >= end;
        if (!begun && Clock::now() >= begin) {
            measure("begin");
            begun = true;
        }
        bool all = true;
        for (const std::unique_ptr<Slot>& slot : world.slots) {
            if (slot->thread.joinable() && slot->done) {
                slot->thread.join();
                ++finished;
            }
            if (!slot->thread.joinable() && !world.over) {
                slot->done = false;
                slot->thread = std::thread([&world, one = slot.get(), seed, number] {
                    Worker(world, *one, seed, number).run();
                    ++one->steps;
                    one->done = true;
                });
                ++number;
            }
            all = all && !slot->thread.joinable();
        }
        if (all)
            break;
        if (stuck(world, patience)) {
            measure("stuck");
            std::_Exit(9);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }

    Connection& first = *world.connections.front();
    const Window window = first.windows.open({700, 10, 80, 60});
    makeCurrent(first.display, window, first.shared);
    const Picture picture(80, 60, 9);
    glViewport(0, 0, 80, 60);
    drawQuad(picture);
    glXSwapBuffers(first.display, window);
    requireShown(first.display, window, picture, "a window after all threads");
    measure("end");
    long steps = 0;
    for (const std::unique_ptr<Slot>& slot : world.slots)
        steps += slot->steps;
    std::printf("threads %ld\nsteps %ld\nerrors %d\n", finished, steps, countedErrors());
    return passed("threads_stress");
}
