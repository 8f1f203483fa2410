#ifndef KOR_DISPLAY_KOR_EXT_PROTOCOL_H
#define KOR_DISPLAY_KOR_EXT_PROTOCOL_H

#include <cstdint>

/// "KOR-V1" on the wire, in the connection's byte order; request lengths in 4-byte units.
namespace kor::gl::protocol {

constexpr char extensionName[] = "KOR-V1";
constexpr uint8_t KorExtGetWindowInfo = 0;
constexpr uint8_t KorExtGetGLDisplay = 1;

struct GetWindowInfoRequest {
    uint8_t majorOpcode;
    uint8_t minorOpcode;
    uint16_t length;
    uint32_t window;
    uint32_t unused;
};
static_assert(sizeof(GetWindowInfoRequest) == 12);

struct GetWindowInfoReply {
    uint8_t type;
    uint8_t status; // non-zero: success
    uint16_t sequence;
    uint32_t length;
    int32_t x;
    int32_t y;
    uint32_t width;
    uint32_t height;
    uint32_t visualId;
    uint8_t visible;
    uint8_t unused[3];
};
static_assert(sizeof(GetWindowInfoReply) == 32);

struct GetGLDisplayRequest {
    uint8_t majorOpcode;
    uint8_t minorOpcode;
    uint16_t length;
};
static_assert(sizeof(GetGLDisplayRequest) == 4);

struct GetGLDisplayReply { // followed by the name, padded, without terminator
    uint8_t type;
    uint8_t status;
    uint16_t sequence;
    uint32_t length;
    uint32_t nameLength;
    uint8_t unused[20];
};
static_assert(sizeof(GetGLDisplayReply) == 32);

} // namespace kor::gl::protocol

#endif
