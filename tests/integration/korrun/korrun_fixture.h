#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <gmock/gmock.h>
#include <map>
#include <string>
#include <sys/types.h>
#include <vector>

// A running korrun. It is ended with the object, should it still run.
class Program {
  public:
    // Standard output and standard error go to files in `folder`. "-" as a value of the environment
    // removes the variable.
    Program(const std::string& folder, const std::vector<std::string>& command,
            const std::map<std::string, std::string>& environment);
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    pid_t pid() const { return m_pid; }
    // Waits for the end, at most 60 seconds; the status is as waitpid has it.
    int waitStatus();
    // The exit status, or 128 and the signal's number.
    int status();
    std::string output() const;
    std::string errors() const;

  private:
    pid_t m_pid = -1;
    bool m_ended = false;
    int m_waitStatus = 0;
    std::string m_output;
    std::string m_errors;
};

// True as soon as the condition is; false when it is not after `patience`.
bool comesTrue(const std::function<bool()>& condition,
               std::chrono::milliseconds patience = std::chrono::seconds(20));

std::string readFile(const std::string& path);

// Gives each test an installation of its own: the real korrun and the real Xkor with a stand-in for
// the front library, in a folder that holds all files of the sessions as well.
class KorrunTest : public testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;

    std::string path(const std::string& name) const { return m_folder + "/" + name; }
    Program korrun(const std::vector<std::string>& arguments,
                   std::map<std::string, std::string> environment = {}) const;
    // The folders of sessions that exist now.
    std::vector<std::string> sessionFolders() const;
    // Processes that have a file of this test's in their command line.
    std::vector<std::string> servers() const;

    std::string m_folder;
};

// The number in a display's name such as ":7.0".
std::string displayNumber(const std::string& display);
// Whether the server's socket is there.
bool hasSocket(const std::string& number);
// Whether a socket is there on which nobody listens. Another program's server may have taken the
// number as soon as ours had ended; that one answers.
bool hasDeadSocket(const std::string& number);
