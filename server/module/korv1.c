#include <xorg-server.h>

#include <X11/X.h>
#include <X11/Xproto.h>
#include <misc.h>

#include <dix.h>
#include <dixaccess.h>
#include <dixstruct.h>
#include <extension.h>
#include <extnsionst.h>
#include <os.h>
#include <window.h>
#include <windowstr.h>

#include <stdlib.h>
#include <string.h>

#include "../korv1_proto.h"
#include "korv1.h"
#include "server_grab.h"

/* Padded with zeros to a multiple of four, as it goes out. */
static char* glDisplay;
static uint32_t glDisplayLength;

int korV1SetGLDisplay(const char* name) {
    const size_t length = name ? strlen(name) : 0;
    char* copy = NULL;
    if (length > 0) {
        copy = calloc(1, (length + 3) & ~(size_t)3);
        if (!copy)
            return 0;
        memcpy(copy, name, length);
    }
    free(glDisplay);
    glDisplay = copy;
    glDisplayLength = (uint32_t)length;
    return 1;
}

/* A window that the client must not look at is answered like one that does not exist: the reply
 * gives nothing away, and asking about a window that has just gone never ends a client. */
static int getWindowInfo(ClientPtr client) {
    REQUEST(KorV1GetWindowInfoRequest);
    REQUEST_SIZE_MATCH(KorV1GetWindowInfoRequest);
    if (client->swapped)
        swapl(&stuff->window);

    KorV1GetWindowInfoReply reply = {.type = X_Reply, .sequenceNumber = (uint16_t)client->sequence};
    WindowPtr window = NULL;
    if (dixLookupWindow(&window, stuff->window, client, DixGetAttrAccess) == Success) {
        const DrawablePtr root = &window->drawable.pScreen->root->drawable;
        reply.status = 1;
        reply.x = window->drawable.x - root->x;
        reply.y = window->drawable.y - root->y;
        reply.width = window->drawable.width;
        reply.height = window->drawable.height;
        reply.visual = (uint32_t)wVisual(window);
        reply.visible = window->viewable && window->visibility != VisibilityFullyObscured;
    }
    if (client->swapped) {
        swaps(&reply.sequenceNumber);
        swapl(&reply.x);
        swapl(&reply.y);
        swapl(&reply.width);
        swapl(&reply.height);
        swapl(&reply.visual);
    }
    WriteToClient(client, sizeof(reply), &reply);
    return Success;
}

static int getGLDisplay(ClientPtr client) {
    REQUEST_SIZE_MATCH(KorV1GetGLDisplayRequest);

    const uint32_t words = (glDisplayLength + 3) / 4;
    KorV1GetGLDisplayReply reply = {.type = X_Reply,
                                    .status = glDisplayLength > 0,
                                    .sequenceNumber = (uint16_t)client->sequence,
                                    .length = words,
                                    .nameLength = glDisplayLength};
    if (client->swapped) {
        swaps(&reply.sequenceNumber);
        swapl(&reply.length);
        swapl(&reply.nameLength);
    }
    WriteToClient(client, sizeof(reply), &reply);
    if (words > 0)
        WriteToClient(client, (int)(words * 4), glDisplay);
    return Success;
}

/* Takes clients of either byte order: each request swaps what it reads and writes. */
static int dispatch(ClientPtr client) {
    REQUEST(xReq);
    korServerGrabUser(client);
    switch (stuff->data) {
    case KorV1MinorGetWindowInfo:
        return getWindowInfo(client);
    case KorV1MinorGetGLDisplay:
        return getGLDisplay(client);
    default:
        return BadRequest;
    }
}

void korV1Init(void) {
    if (!AddExtension(KOR_V1_NAME, 0, 0, dispatch, dispatch, NULL, StandardMinorOpcode))
        ErrorF("%s: the server has no room for another extension\n", KOR_V1_NAME);
}
