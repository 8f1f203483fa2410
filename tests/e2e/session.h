// The servers that one end-to-end test needs, and its clients on them.
#pragma once

#include "framework/child.h"
#include "framework/x_server.h"

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace kor::e2e {

// Whose frames reach the window: the library's, between an Xkor and a software Xvfb, by way of the
// classic front in place of the system's GL library, of the vendor front that the system's loads,
// or of the classic one where the vendor front lies ready as well; or the system's own frames on a
// software Xvfb.
enum class Road { Library, Vendor, Both, System };

class Session {
  public:
    // Starts the servers; `width` and `height` are the application display's, in pixels, and
    // `arguments` further ones of its server. Throws std::runtime_error when one does not start.
    explicit Session(Road road, int width = 1024, int height = 768,
                     const std::vector<std::string>& arguments = {});

    // ":N", the display that the clients see.
    const std::string& display() const { return m_application.name(); }

    // The display that renders; there is none on Road::System.
    const std::string& local() const { return m_localName; }

    // What a program needs to run here. `environment` holds further NAME=VALUE entries.
    test::Command command(const std::vector<std::string>& arguments,
                          const std::vector<std::string>& environment = {}) const;

    // The same for one of the clients of this build, by its name.
    test::Command client(const std::vector<std::string>& arguments,
                         const std::vector<std::string>& environment = {}) const;

  private:
    Road m_road;
    test::XServer m_application;
    std::optional<test::XServer> m_local; // none on Road::System, nor where a display is given
    std::string m_localName;
};

// Whether the program met our library: Xkor renders by software for programs that do not, and their
// pictures are right as well.
bool usedLibrary(const test::CommandResult& result);

// The status, the time limit and all that a program wrote, for a failed test to tell.
std::string summary(const test::CommandResult& result);

} // namespace kor::e2e
