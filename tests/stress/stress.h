// What the stress programs share: options, random choices that a seed gives again, windows that
// come and go, and the points at which they stand still to be measured from outside.
#pragma once

#include "client.h"
#include "draw.h"

#include <atomic>
#include <map>
#include <random>
#include <string>

namespace kor::stress {

// "--name value" pairs of a command line; a name that the program does not ask for is an error of
// whoever wrote the call and is not found.
class Options {
  public:
    Options(int count, char** words);
    [[nodiscard]] int number(const std::string& name, int otherwise) const;
    [[nodiscard]] std::string text(const std::string& name, const std::string& otherwise) const;

  private:
    std::map<std::string, std::string> m_values;
};

// The choices of one thread.
class Random {
  public:
    // Threads of one seed have different numbers, and so different choices.
    explicit Random(int seed, int thread = 0)
        : m_engine(static_cast<unsigned>(seed) * 1000003U + static_cast<unsigned>(thread)) {}
    // From 0 to limit - 1.
    int below(int limit) {
        return static_cast<int>(m_engine() % static_cast<unsigned>(limit > 0 ? limit : 1));
    }
    bool oneIn(int count) { return below(count) == 0; }
    // Waits up to so many microseconds.
    void pause(int most);

  private:
    std::mt19937 m_engine;
};

// Says "measure NAME" and stands still until a line comes (or the input's end, when run by hand).
void measure(const std::string& name);

// Counts the X errors instead of ending the process.
void countErrors();
int countedErrors();

// A visual with its colormap, once for all windows of one connection.
class Windows {
  public:
    explicit Windows(Display* display, client::Buffering buffering = client::Buffering::Double);
    ~Windows();
    Windows(const Windows&) = delete;
    Windows& operator=(const Windows&) = delete;

    // A mapped window that the server has shown. `parent` None: the root. The window is made on
    // `display`, another connection to the same server, where one is given.
    Window open(const client::Rectangle& place, Window parent = None,
                Display* display = nullptr) const;
    [[nodiscard]] XVisualInfo* visual() const { return m_visual; }
    [[nodiscard]] Display* display() const { return m_display; }

  private:
    Display* m_display;
    XVisualInfo* m_visual;
    Colormap m_colormap;
};

// Clears the current drawable to one colour.
void drawColour(int colour);

} // namespace kor::stress
