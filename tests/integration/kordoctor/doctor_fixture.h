#ifndef KOR_TESTS_INTEGRATION_KORDOCTOR_DOCTOR_FIXTURE_H
#define KOR_TESTS_INTEGRATION_KORDOCTOR_DOCTOR_FIXTURE_H

#include "framework/child.h"
#include "framework/x_server.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <map>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace kor::test {

/// One check, as kordoctor reports it in JSON.
struct Finding {
    std::string status = "no such check";
    std::string result;
    std::string advice;
};

inline std::ostream& operator<<(std::ostream& stream, const Finding& finding) {
    return stream << finding.status << ": " << finding.result << " -> " << finding.advice;
}

/// What kordoctor has said.
struct Diagnosis {
    int exitStatus = -1;
    std::string output;
    std::string errors;

    /// The check of that identifier.
    [[nodiscard]] Finding operator[](const std::string& id) const;
};

using Environment = std::map<std::string, std::optional<std::string>>;

/// Gives each test a folder, in which kordoctor runs with no settings of the machine's or the
/// user's own.
class DoctorTest : public testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;

    [[nodiscard]] std::string path(const std::string& name) const { return m_folder + "/" + name; }
    /// Writes a file below the folder, and the folders that lead to it. Its path.
    std::string put(const std::string& name, const std::string& text) const;

    /// Runs kordoctor and waits for it. `environment` comes on top of the tests' own; `before` are
    /// words that stand before the program, such as those of unshare(1).
    Diagnosis diagnose(const Environment& environment = {},
                       const std::vector<std::string>& arguments = {},
                       const std::vector<std::string>& before = {}) const;
    /// Runs it without any display.
    Diagnosis diagnoseBlindly(Environment environment = {},
                              const std::vector<std::string>& arguments = {}) const;
    /// The environment of such a run.
    [[nodiscard]] Environment plainEnvironment() const;

    std::string m_folder;
};

/// The same with the two servers of a session.
class SessionTest : public DoctorTest {
  protected:
    /// `environment` comes on top of that of the session.
    Diagnosis diagnoseSession(Environment environment = {},
                              const std::vector<std::string>& arguments = {},
                              const std::vector<std::string>& before = {}) const;
    /// One server; further arguments of its own.
    static XServer startLocal(const std::vector<std::string>& arguments = {});
    static XServer startSession(const std::string& glDisplay,
                                const std::vector<std::string>& arguments = {});

    XServer m_local{{.kind = XServer::Kind::Xvfb, .width = 320, .height = 240}};
    XServer m_session{
        {.kind = XServer::Kind::Xkor, .width = 320, .height = 240, .glDisplay = m_local.name()}};
};

/// A display on which there is no server.
inline const std::string noDisplay = ":59000";

/// Begins with unshare(1): the program runs in a namespace of its own of that kind.
std::vector<std::string> inOwnNamespace(const std::string& option);

MATCHER_P(HasStatus, status, "") {
    return arg.status == status;
}

} // namespace kor::test

#endif
