#ifndef KOR_TESTS_FRAMEWORK_SCRIPTED_SERVER_H
#define KOR_TESTS_FRAMEWORK_SCRIPTED_SERVER_H

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace kor::test {

/// As much of an X server as connections of Xlib's need, on a socket of its own in this process,
/// until the process ends: one screen of depth 24, no windows but the root. It has the extension
/// "KOR-V1", whose requests are answered with a script, and none besides.
class ScriptedServer {
  public:
    enum class Clients { AtOnce, OneByOne };
    /// Clients that come one by one are all served by one thread. A fuzzer needs that: the leak
    /// checker, which it calls time and again, stops for good a thread that is just ending.
    explicit ScriptedServer(Clients clients = Clients::AtOnce);

    /// For XOpenDisplay.
    [[nodiscard]] const std::string& displayName() const { return name_; }

    /// What answers the next requests of "KOR-V1": these bytes, with the request's sequence number
    /// and an error's major opcode put where they belong. After an answer that is shorter than it
    /// claims to be the connection is closed.
    void setAnswer(std::vector<uint8_t> answer);

    /// The requests of "KOR-V1" so far, as they came.
    [[nodiscard]] std::vector<std::vector<uint8_t>> requests() const;

    static constexpr int majorOpcode = 150;
    static constexpr uint32_t rootWindow = 0x100;
    static constexpr uint32_t rootVisual = 0x21;

  private:
    void serve(Clients clients);
    void serveConnection(int connection);
    bool answerRequest(int connection, const std::vector<uint8_t>& request, uint16_t sequence);

    std::string name_;
    int listener_ = -1;
    mutable std::mutex mutex_; // guards the next two
    std::vector<uint8_t> answer_;
    std::vector<std::vector<uint8_t>> requests_;
};

} // namespace kor::test

#endif
