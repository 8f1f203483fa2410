#pragma once

#include "check.h"

#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace kordoctor {

// What sections learn for those that follow, by name: the GPU display's name, the session's size.
using Facts = std::map<std::string, std::string>;

// Where a section says what it finds. A check is begun, then concluded; the conclusions apply to
// the check that was begun last.
class Findings {
  public:
    // Appends each record to `text`, or, with a descriptor, writes it there at once.
    explicit Findings(std::string& text) : m_text(&text) {}
    explicit Findings(int descriptor) : m_descriptor(descriptor) {}

    // `title` may be left out for checks that the section has announced.
    void begin(const std::string& id, const std::string& title = "");
    void ok(const std::string& result);
    void warning(const std::string& result, const std::string& advice);
    void broken(const std::string& result, const std::string& advice);
    // It cannot be tried, for a reason that another section's check has told.
    void skipped(const std::string& reason);
    void fact(const std::string& name, const std::string& value);

  private:
    void record(const std::vector<std::string>& fields);

    std::string* m_text = nullptr;
    int m_descriptor = -1;
};

// Checks that are made together.
struct Section {
    struct Announced {
        const char* id;
        const char* title;
    };
    std::vector<Announced> checks; // in the order of the report; more may be begun
    // With patience the section runs in a process of its own, which may crash, hang or be ended by
    // Xlib; it is killed when the time is over.
    std::chrono::seconds patience{0};
    std::string adviceWhenLost{}; // what to do when that happens
    std::function<void(Findings&)> examine;
};

// Makes the checks. Those that were announced and not concluded are there as well: broken, when it
// was the one at which the process was lost, skipped otherwise.
std::vector<Check> runSection(const Section& section, Facts& facts);

} // namespace kordoctor
