#ifndef KOR_TESTS_FUZZ_SCRIPTED_SERVER_H
#define KOR_TESTS_FUZZ_SCRIPTED_SERVER_H

#include <cstdint>
#include <string>
#include <thread>
#include <vector>

namespace kor::fuzz {

/// As much of an X server as a connection of Xlib's needs, on a socket of its own in this process;
/// it has the extension "KOR-V1", whose requests are answered with a script. One connection at a
/// time.
class ScriptedServer {
  public:
    ScriptedServer();

    /// For XOpenDisplay.
    [[nodiscard]] const std::string& displayName() const { return name_; }

    /// What answers the next request of "KOR-V1": these bytes, with the request's sequence number
    /// and an error's major opcode put where they belong. To be called while no request is under
    /// way. After an answer that is shorter than it claims to be the connection is closed.
    void setAnswer(std::vector<uint8_t> answer) { answer_ = std::move(answer); }

    static constexpr int majorOpcode = 150;

  private:
    void serve();
    void serveConnection(int connection);
    bool answerRequest(int connection, const uint8_t* request, uint16_t sequence) const;

    std::string name_;
    int listener_ = -1;
    std::vector<uint8_t> answer_;
};

} // namespace kor::fuzz

#endif
