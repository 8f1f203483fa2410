#ifndef KOR_SERVER_LAUNCHER_PROBLEM_H
#define KOR_SERVER_LAUNCHER_PROBLEM_H

#include <stdexcept>
#include <string>

namespace kor::server {

/// What the user gets to read, in one line without the program's name, and the exit status.
class Problem : public std::runtime_error {
  public:
    enum Status { StartFailed = 1, WrongUse = 2 };

    Problem(Status status, const std::string& line) : std::runtime_error(line), m_status(status) {}
    [[nodiscard]] int status() const { return m_status; }

  private:
    int m_status;
};

} // namespace kor::server

#endif
