#include "raw_client.h"

#include "framework/x_server.h"

#include <X11/Xauth.h>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

namespace kor::test {

namespace {

uint32_t number(const std::vector<uint8_t>& bytes, size_t offset, size_t width, ByteOrder order) {
    uint32_t value = 0;
    for (size_t i = 0; i < width; ++i) {
        const size_t from = order == ByteOrder::Big ? i : width - 1 - i;
        value = value << 8 | bytes.at(offset + from);
    }
    return value;
}

void append(std::vector<uint8_t>& bytes, uint32_t value, size_t width, ByteOrder order) {
    for (size_t i = 0; i < width; ++i) {
        const size_t place = order == ByteOrder::Big ? width - 1 - i : i;
        bytes.push_back(static_cast<uint8_t>(value >> 8 * place));
    }
}

} // namespace

std::string cookieIn(const std::string& authorityFile) {
    FILE* file = fopen(authorityFile.c_str(), "re");
    Xauth* entry = file ? XauReadAuth(file) : nullptr;
    if (file)
        fclose(file);
    if (!entry)
        throw std::runtime_error("no cookie in " + authorityFile);
    std::string cookie(entry->data, entry->data_length);
    XauDisposeAuth(entry);
    return cookie;
}

uint16_t Answer::u16(size_t offset) const {
    return static_cast<uint16_t>(number(bytes, offset, 2, order));
}
uint32_t Answer::u32(size_t offset) const {
    return number(bytes, offset, 4, order);
}

RequestBuilder& RequestBuilder::u8(uint8_t value) {
    m_bytes.push_back(value);
    return *this;
}
RequestBuilder& RequestBuilder::u16(uint16_t value) {
    append(m_bytes, value, 2, m_order);
    return *this;
}
RequestBuilder& RequestBuilder::u32(uint32_t value) {
    append(m_bytes, value, 4, m_order);
    return *this;
}
RequestBuilder& RequestBuilder::text(const std::string& value) {
    m_bytes.insert(m_bytes.end(), value.begin(), value.end());
    while (m_bytes.size() % 4 != 0)
        m_bytes.push_back(0);
    return *this;
}

RawClient::RawClient(int display, ByteOrder order) : m_order(order) {
    connectTo(display, cookieIn(XServer::authorityFile()));
}
RawClient::RawClient(int display, ByteOrder order, const std::string& cookie) : m_order(order) {
    connectTo(display, cookie);
}
RawClient::~RawClient() {
    if (m_socket != -1)
        close(m_socket);
}

void RawClient::connectTo(int display, const std::string& cookie) {
    const std::string path = "/tmp/.X11-unix/X" + std::to_string(display);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, path.c_str(), path.size() + 1);
    m_socket = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const timeval patience{20, 0};
    setsockopt(m_socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    setsockopt(m_socket, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
    if (connect(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        throw std::runtime_error("no connection to " + path + ": " + strerror(errno));

    const std::string protocol = "MIT-MAGIC-COOKIE-1";
    RequestBuilder setup(m_order);
    setup.u8(m_order == ByteOrder::Big ? 'B' : 'l').u8(0).u16(11).u16(0);
    setup.u16(static_cast<uint16_t>(protocol.size())).u16(static_cast<uint16_t>(cookie.size()));
    setup.u16(0).text(protocol).text(cookie);
    send(setup.bytes());
    m_sequence = 0;

    Answer head{m_order, std::vector<uint8_t>(8)};
    if (!readExactly(head.bytes.data(), head.bytes.size()))
        throw std::runtime_error("the server does not answer the connection setup");
    Answer body{m_order, std::vector<uint8_t>(size_t{4} * head.u16(6))};
    if (!readExactly(body.bytes.data(), body.bytes.size()))
        throw std::runtime_error("the server's connection setup breaks off");
    if (head.bytes[0] != 1)
        throw std::runtime_error("refused: " + std::string(body.bytes.begin(), body.bytes.end()));
    const size_t vendor = (body.u16(16) + size_t{3}) / 4 * 4;
    const size_t formats = body.bytes.at(21);
    m_root = body.u32(32 + vendor + 8 * formats);
}

bool RawClient::hasAnswer(int milliseconds) const {
    pollfd wanted{m_socket, POLLIN, 0};
    return poll(&wanted, 1, milliseconds) == 1;
}

bool RawClient::readExactly(uint8_t* data, size_t size) {
    size_t done = 0;
    while (done < size) {
        const ssize_t got = recv(m_socket, data + done, size - done, 0);
        if (got == -1 && errno == EINTR)
            continue;
        if (got <= 0)
            return false;
        done += static_cast<size_t>(got);
    }
    return true;
}

uint8_t RawClient::majorOpcode(const std::string& extension) {
    RequestBuilder request(m_order);
    request.u8(98).u8(0).u16(static_cast<uint16_t>(2 + (extension.size() + 3) / 4));
    request.u16(static_cast<uint16_t>(extension.size())).u16(0).text(extension);
    const Answer answer = ask(request.bytes());
    return answer.isReply() && answer.bytes[8] != 0 ? answer.bytes[9] : 0;
}

uint16_t RawClient::send(const std::vector<uint8_t>& request) {
    size_t done = 0;
    while (done < request.size()) {
        const ssize_t put =
            ::send(m_socket, request.data() + done, request.size() - done, MSG_NOSIGNAL);
        if (put == -1 && errno != EINTR)
            break;
        done += put > 0 ? static_cast<size_t>(put) : 0;
    }
    return ++m_sequence;
}

void RawClient::sendAll(const std::vector<std::vector<uint8_t>>& requests) {
    std::vector<uint8_t> together;
    for (const auto& request : requests)
        together.insert(together.end(), request.begin(), request.end());
    send(together);
    m_sequence = static_cast<uint16_t>(m_sequence + requests.size() - 1);
}

Answer RawClient::receive() {
    for (;;) {
        Answer answer{m_order, std::vector<uint8_t>(32)};
        if (!readExactly(answer.bytes.data(), answer.bytes.size()))
            return {m_order, {}};
        if (answer.isReply()) {
            const size_t extra = size_t{4} * answer.u32(4);
            answer.bytes.resize(32 + extra);
            if (!readExactly(answer.bytes.data() + 32, extra))
                return {m_order, {}};
        }
        if (answer.isReply() || answer.isError())
            return answer;
    }
}

Answer RawClient::ask(const std::vector<uint8_t>& request) {
    const uint16_t sequence = send(request);
    Answer answer = receive();
    if (!answer.bytes.empty() && answer.sequence() != sequence)
        throw std::runtime_error("an answer to another request");
    return answer;
}

std::vector<uint8_t> RawClient::korRequest(uint8_t minor, const std::vector<uint32_t>& words) {
    if (m_kor == -1)
        m_kor = majorOpcode("KOR-V1");
    RequestBuilder request(m_order);
    request.u8(static_cast<uint8_t>(m_kor)).u8(minor);
    request.u16(static_cast<uint16_t>(1 + words.size()));
    for (const uint32_t word : words)
        request.u32(word);
    return request.bytes();
}

Answer RawClient::getWindowInfo(uint32_t window) {
    // The last word is one that clients leave unwritten.
    return ask(korRequest(0, {window, 0xDEADBEEF}));
}
Answer RawClient::getGLDisplay() {
    return ask(korRequest(1, {}));
}

} // namespace kor::test
