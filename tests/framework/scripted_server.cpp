#include "scripted_server.h"

#include <X11/X.h>
#include <X11/Xproto.h>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace kor::test {

namespace {

bool readAll(int connection, void* memory, size_t size) {
    auto* bytes = static_cast<uint8_t*>(memory);
    while (size > 0) {
        const ssize_t count = read(connection, bytes, size);
        if (count <= 0)
            return false;
        bytes += count;
        size -= static_cast<size_t>(count);
    }
    return true;
}

bool writeAll(int connection, const void* memory, size_t size) {
    const auto* bytes = static_cast<const uint8_t*>(memory);
    while (size > 0) {
        const ssize_t count = send(connection, bytes, size, MSG_NOSIGNAL);
        if (count <= 0)
            return false;
        bytes += count;
        size -= static_cast<size_t>(count);
    }
    return true;
}

/// A fuzzer sends millions.
constexpr size_t maxRequestsKept = 10000;

/// The greeting: one screen with one visual.
std::vector<uint8_t> greeting() {
    xConnSetupPrefix prefix{};
    xConnSetup setup{};
    xPixmapFormat format{};
    xWindowRoot root{};
    xDepth depth{};
    xVisualType visual{};
    prefix.success = xTrue;
    prefix.majorVersion = X_PROTOCOL;
    setup.ridBase = 0x200000;
    setup.ridMask = 0x1fffff;
    setup.maxRequestSize = 0xffff;
    setup.numRoots = 1;
    setup.numFormats = 1;
    setup.minKeyCode = 8;
    setup.maxKeyCode = 255;
    format.depth = 24;
    format.bitsPerPixel = 32;
    format.scanLinePad = 32;
    root.windowId = ScriptedServer::rootWindow;
    root.defaultColormap = 0x101;
    root.pixWidth = 640;
    root.pixHeight = 480;
    root.minInstalledMaps = 1;
    root.maxInstalledMaps = 1;
    root.rootVisualID = ScriptedServer::rootVisual;
    root.rootDepth = 24;
    root.nDepths = 1;
    depth.depth = 24;
    depth.nVisuals = 1;
    visual.visualID = ScriptedServer::rootVisual;
    visual.c_class = 4; // TrueColor
    visual.bitsPerRGB = 8;
    visual.colormapEntries = 256;
    visual.redMask = 0xff0000;
    visual.greenMask = 0xff00;
    visual.blueMask = 0xff;
    std::vector<uint8_t> bytes;
    const auto append = [&bytes](const auto& part, size_t size) {
        const auto* begin = reinterpret_cast<const uint8_t*>(&part);
        bytes.insert(bytes.end(), begin, begin + size);
    };
    append(prefix, sz_xConnSetupPrefix);
    append(setup, sz_xConnSetup);
    append(format, sz_xPixmapFormat);
    append(root, sz_xWindowRoot);
    append(depth, sz_xDepth);
    append(visual, sz_xVisualType);
    const auto words = static_cast<uint16_t>((bytes.size() - sz_xConnSetupPrefix) / 4);
    memcpy(&bytes[offsetof(xConnSetupPrefix, length)], &words, sizeof words);
    return bytes;
}

} // namespace

ScriptedServer::ScriptedServer(Clients clients) {
    // An abstract socket leaves no file behind, and is where Xlib looks first. The number is beyond
    // any that a server picks for itself, and that of no other process or object.
    static std::atomic<int> made{0};
    const int number = 10000000 * ++made + getpid();
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const int length =
        snprintf(address.sun_path + 1, sizeof address.sun_path - 1, "/tmp/.X11-unix/X%d", number);
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + length);
    listener_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (bind(listener_, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
        listen(listener_, 16) != 0) {
        perror("the scripted server cannot listen");
        abort();
    }
    name_ = ":" + std::to_string(number);
    std::thread([this, clients] { serve(clients); }).detach();
}

void ScriptedServer::setAnswer(std::vector<uint8_t> answer) {
    const std::lock_guard lock(mutex_);
    answer_ = std::move(answer);
}

std::vector<std::vector<uint8_t>> ScriptedServer::requests() const {
    const std::lock_guard lock(mutex_);
    return requests_;
}

void ScriptedServer::serve(Clients clients) {
    for (;;) {
        const int connection = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection < 0)
            return;
        const auto attend = [this, connection] {
            serveConnection(connection);
            close(connection);
        };
        if (clients == Clients::AtOnce)
            std::thread(attend).detach();
        else
            attend();
    }
}

void ScriptedServer::serveConnection(int connection) {
    xConnClientPrefix client{};
    std::vector<uint8_t> bytes;
    if (!readAll(connection, &client, sz_xConnClientPrefix))
        return;
    bytes.resize(((client.nbytesAuthProto + 3U) & ~3U) + ((client.nbytesAuthString + 3U) & ~3U));
    const std::vector<uint8_t> hello = greeting();
    if (!readAll(connection, bytes.data(), bytes.size()) ||
        !writeAll(connection, hello.data(), hello.size()))
        return;
    for (uint16_t sequence = 1;; ++sequence) {
        xReq header{};
        if (!readAll(connection, &header, sizeof header) || header.length == 0)
            return;
        bytes.resize(header.length * 4U);
        memcpy(bytes.data(), &header, sizeof header);
        if (!readAll(connection, bytes.data() + sizeof header, bytes.size() - sizeof header) ||
            !answerRequest(connection, bytes, sequence))
            return;
    }
}

bool ScriptedServer::answerRequest(int connection, const std::vector<uint8_t>& request,
                                   uint16_t sequence) {
    xGenericReply reply{};
    reply.type = X_Reply;
    reply.sequenceNumber = sequence;
    switch (request[0]) {
    case X_QueryExtension: {
        xQueryExtensionReply answer{};
        answer.type = X_Reply;
        answer.sequenceNumber = sequence;
        const bool ours = request.size() >= sz_xQueryExtensionReq + 6 &&
                          memcmp(&request[sz_xQueryExtensionReq], "KOR-V1", 6) == 0;
        answer.present = ours ? xTrue : xFalse;
        answer.major_opcode = ours ? majorOpcode : 0;
        return writeAll(connection, &answer, sz_xQueryExtensionReply);
    }
    case X_GetProperty:
    case X_GetInputFocus:
        return writeAll(connection, &reply, sz_xGenericReply);
    case majorOpcode: {
        std::vector<uint8_t> answer;
        {
            const std::lock_guard lock(mutex_);
            if (requests_.size() < maxRequestsKept)
                requests_.push_back(request);
            answer = answer_;
        }
        if (answer.size() >= 4)
            memcpy(&answer[2], &sequence, sizeof sequence);
        if (answer.size() >= sz_xError && answer[0] == X_Error)
            answer[offsetof(xError, majorCode)] = majorOpcode;
        uint32_t words = 0;
        if (answer.size() >= 8 && answer[0] == X_Reply)
            memcpy(&words, &answer[4], sizeof words);
        const uint64_t claimed = 32 + uint64_t{words} * 4;
        if (answer.size() > claimed)
            answer.resize(claimed); // more would be a packet that answers nothing
        return writeAll(connection, answer.data(), answer.size()) && answer.size() == claimed;
    }
    default:
        return true;
    }
}

} // namespace kor::test
