#ifndef KOR_SERVER_KORV1_PROTO_H
#define KOR_SERVER_KORV1_PROTO_H

/// Wire format of the X extension "KOR-V1". All multi-byte fields are in the client's byte order;
/// request and reply lengths are counted in units of four bytes. C and C++.

#include <stddef.h>
#include <stdint.h>

#define KOR_V1_NAME "KOR-V1"

enum { KorV1MinorGetWindowInfo = 0, KorV1MinorGetGLDisplay = 1 };

/// Geometry, visual and visibility of a window. Length 3.
typedef struct {
    uint8_t majorOpcode;
    uint8_t minorOpcode;
    uint16_t length;
    uint32_t window;
    uint32_t unused; ///< clients leave it unwritten: never look at it
} KorV1GetWindowInfoRequest;

/// Position and size are those of the window's inside (without its border), the position relative
/// to the root window.
typedef struct {
    uint8_t type;
    uint8_t status; ///< 0: no such window, or none that this client may look at; all else is zero
    uint16_t sequenceNumber;
    uint32_t length; ///< 0
    int32_t x;
    int32_t y;
    uint32_t width;
    uint32_t height;
    uint32_t visual;
    uint8_t visible; ///< 1: viewable and not fully obscured
    uint8_t unused[3];
} KorV1GetWindowInfoReply;

/// Name of the display that drives the GPU. Length 1.
typedef struct {
    uint8_t majorOpcode;
    uint8_t minorOpcode;
    uint16_t length;
} KorV1GetGLDisplayRequest;

/// Followed by the name: nameLength bytes without terminator, padded with zeros to a multiple of
/// four.
typedef struct {
    uint8_t type;
    uint8_t status; ///< 0: the server was given no name; nameLength is 0
    uint16_t sequenceNumber;
    uint32_t length; ///< (nameLength + 3) / 4
    uint32_t nameLength;
    uint32_t unused[5];
} KorV1GetGLDisplayReply;

#ifdef __cplusplus
#define KOR_V1_ASSERT static_assert
#else
#define KOR_V1_ASSERT _Static_assert
#endif
KOR_V1_ASSERT(sizeof(KorV1GetWindowInfoRequest) == 12, "fixed by the protocol");
KOR_V1_ASSERT(sizeof(KorV1GetWindowInfoReply) == 32, "fixed by the protocol");
KOR_V1_ASSERT(offsetof(KorV1GetWindowInfoReply, visible) == 28, "fixed by the protocol");
KOR_V1_ASSERT(sizeof(KorV1GetGLDisplayRequest) == 4, "fixed by the protocol");
KOR_V1_ASSERT(sizeof(KorV1GetGLDisplayReply) == 32, "fixed by the protocol");
#undef KOR_V1_ASSERT

#endif
