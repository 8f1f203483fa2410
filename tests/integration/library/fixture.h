#ifndef KOR_TESTS_LIBRARY_FIXTURE_H
#define KOR_TESTS_LIBRARY_FIXTURE_H

#include <gmock/gmock.h> // before X, whose macros it does not bear

#include "fake_gl.h"
#include "log_lines.h"

#include "core/entry_points.h"

#include <string>
#include <vector>

/// The library with the fake system GL below it, in a process of its own: its state is made once
/// per process, so every test runs alone (main() sees to that). Settings come from the environment
/// and from empty folders only.
class Library : public testing::Test {
  protected:
    Library();
    ~Library() override;

    /// Sets an environment variable (a setting, mostly); to be done before the first log call.
    static void set(const char* variable, const char* value);

    /// kor_init with the fake's handle.
    void start();

    /// The log from mark on; logTexts() as LogLine::text() forms it.
    std::vector<LogLine> log() const;
    std::vector<std::string> logTexts() const;
    /// What was logged before is left out from now on.
    void markLog();
    bool logged(const std::string& text) const;
    /// True when the function of that name logged the message at that level.
    bool said(char level, const std::string& function, const std::string& message) const;
    size_t timesSaid(char level, const std::string& function, const std::string& message) const;
    /// The messages of the function of that name, in order.
    std::vector<std::string> sayings(const std::string& function) const;
    size_t timesLogged(const std::string& text) const;
    /// Waits until that was logged, ten seconds at the most.
    bool waitForLog(const std::string& text) const;

    void* const handle; ///< of the fake, as dlopen gave it
    fake::Gl& gl;
    const std::string directory; ///< the test's own folder: log files, HOME and working directory

  private:
    size_t logMark_ = 0;
};

#endif
