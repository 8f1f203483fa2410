#ifndef KOR_TESTS_INTEGRATION_SERVER_RAW_CLIENT_H
#define KOR_TESTS_INTEGRATION_SERVER_RAW_CLIENT_H

#include <cstdint>
#include <string>
#include <vector>

namespace kor::test {

enum class ByteOrder { Little, Big };

/// One answer of the server, as it came off the wire, read in the client's byte order.
struct Answer {
    ByteOrder order = ByteOrder::Little;
    std::vector<uint8_t> bytes; ///< 32, and what a reply has beyond; empty: the connection is gone

    [[nodiscard]] bool isReply() const { return !bytes.empty() && bytes[0] == 1; }
    [[nodiscard]] bool isError() const { return !bytes.empty() && bytes[0] == 0; }
    [[nodiscard]] uint8_t errorCode() const { return bytes.at(1); }
    [[nodiscard]] uint8_t status() const { return bytes.at(1); }
    [[nodiscard]] uint16_t sequence() const { return u16(2); }
    [[nodiscard]] uint16_t u16(size_t offset) const;
    [[nodiscard]] uint32_t u32(size_t offset) const;
    [[nodiscard]] int32_t i32(size_t offset) const { return static_cast<int32_t>(u32(offset)); }
};

/// Writes numbers in one byte order.
class RequestBuilder {
  public:
    explicit RequestBuilder(ByteOrder order) : m_order(order) {}
    RequestBuilder& u8(uint8_t value);
    RequestBuilder& u16(uint16_t value);
    RequestBuilder& u32(uint32_t value);
    RequestBuilder& text(const std::string& value); ///< padded to a multiple of four
    [[nodiscard]] const std::vector<uint8_t>& bytes() const { return m_bytes; }

  private:
    ByteOrder m_order;
    std::vector<uint8_t> m_bytes;
};

/// The cookie in the first entry of an authority file. Throws std::runtime_error.
std::string cookieIn(const std::string& authorityFile);

/// An X client that speaks the protocol itself, in either byte order, so that it can also say what
/// no library would. Every wait is bounded: a silent server looks like a closed connection. Throws
/// std::runtime_error when the connection cannot be set up.
class RawClient {
  public:
    /// Connects with the cookie of the tests' authority file, or with the one given.
    RawClient(int display, ByteOrder order);
    RawClient(int display, ByteOrder order, const std::string& cookie);
    RawClient(const RawClient&) = delete;
    RawClient& operator=(const RawClient&) = delete;
    ~RawClient();

    [[nodiscard]] ByteOrder order() const { return m_order; }
    [[nodiscard]] uint32_t root() const { return m_root; }
    /// Major opcode of an extension; 0 when the server has none of that name.
    uint8_t majorOpcode(const std::string& extension);

    /// Sends a request and counts it. The sequence number that its answer bears.
    uint16_t send(const std::vector<uint8_t>& request);
    /// Sends several requests at once.
    void sendAll(const std::vector<std::vector<uint8_t>>& requests);
    /// The next reply or error; events are passed over.
    Answer receive();
    /// True when something of the server's is there to be received within that time.
    [[nodiscard]] bool hasAnswer(int milliseconds) const;
    /// Sends a request that is answered, and waits for that answer.
    Answer ask(const std::vector<uint8_t>& request);

    Answer getWindowInfo(uint32_t window);
    Answer getGLDisplay();
    /// A request to KOR-V1 of any minor code, with the words after its header. Its length field is
    /// true to its size.
    std::vector<uint8_t> korRequest(uint8_t minor, const std::vector<uint32_t>& words);

  private:
    void connectTo(int display, const std::string& cookie);
    bool readExactly(uint8_t* data, size_t size);

    ByteOrder m_order;
    int m_socket = -1;
    uint16_t m_sequence = 0;
    uint32_t m_root = 0;
    int m_kor = -1; ///< major opcode of KOR-V1, once asked for
};

} // namespace kor::test

#endif
