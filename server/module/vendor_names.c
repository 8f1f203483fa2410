#include <xorg-server.h>

#include <X11/X.h>
#include <X11/Xproto.h>
#include <misc.h>

#include <dix.h>
#include <dixstruct.h>
#include <extension.h>
#include <extnsionst.h>
#include <opaque.h>
#include <os.h>
#include <scrnintstr.h>

#include <GL/glxproto.h>

#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include "vendor_names.h"

enum { NamesOfVendors = 0x20F6 }; /* GLX_VENDOR_NAMES_EXT */

static const char ours[] = "kor";

typedef int (*RequestHandler)(ClientPtr);

/* GLX's own handlers; null while they are not wrapped. */
static RequestHandler glxHandler;
static RequestHandler swappedGlxHandler;
static int glxOpcode;

/* Per screen: what the server answers by itself, from its first use on; null where it has no such
 * answer. */
static struct {
    int asked;
    char* names;
} own[MAXSCREENS];

static int isNamesRequest(ClientPtr client, CARD32* screen) {
    REQUEST(xGLXQueryServerStringReq);
    if (client->req_len != sz_xGLXQueryServerStringReq / 4 ||
        stuff->glxCode != X_GLXQueryServerString)
        return 0;
    CARD32 name = stuff->name;
    *screen = stuff->screen;
    if (client->swapped) {
        swapl(&name);
        swapl(screen);
    }
    return name == NamesOfVendors && *screen < (CARD32)screenInfo.numScreens;
}

/* Has GLX answer the question on behalf of a client, whose connection ends at that socket. A heap
 * copy of the names, or null. */
static char* readAnswer(ClientPtr client, int socket, CARD32 screen) {
    xGLXQueryServerStringReq request = {.reqType = (CARD8)glxOpcode,
                                        .glxCode = X_GLXQueryServerString,
                                        .length = sz_xGLXQueryServerStringReq / 4,
                                        .screen = screen,
                                        .name = NamesOfVendors};
    void* const buffer = client->requestBuffer;
    const unsigned length = client->req_len;
    client->requestBuffer = &request;
    client->req_len = request.length;
    const int result = glxHandler(client);
    client->requestBuffer = buffer;
    client->req_len = length;
    if (result != Success)
        return NULL;

    FlushAllOutput();
    union {
        xGLXQueryServerStringReply reply;
        char bytes[1024];
    } answer;
    const ssize_t size = recv(socket, &answer, sizeof(answer), MSG_DONTWAIT);
    if (size < (ssize_t)sizeof(answer.reply) || answer.reply.type != X_Reply)
        return NULL;
    const size_t there = (size_t)size - sizeof(answer.reply);
    if (answer.reply.n == 0 || answer.reply.n > there)
        return NULL;
    return strndup(answer.bytes + sizeof(answer.reply), answer.reply.n);
}

/* GLX tells its vendors' names to clients and nobody else, so we ask as one: over a connection that
 * begins and ends within the server, and that nothing is ever read from. */
static char* askGlx(CARD32 screen) {
    int free = 1;
    while (free < MAXCLIENTS && clients[free])
        free++;
    int sockets[2];
    if (free == MAXCLIENTS || socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets))
        return NULL;
    char* names = NULL;
    if (!AddClientOnOpenFD(sockets[1])) {
        close(sockets[1]);
    } else if (clients[free]) { /* the server takes the first free place */
        names = readAnswer(clients[free], sockets[0], screen);
        CloseDownClient(clients[free]);
    }
    close(sockets[0]);
    return names;
}

static const char* ownNames(CARD32 screen) {
    if (!own[screen].asked) {
        own[screen].asked = 1;
        own[screen].names = askGlx(screen);
        if (!own[screen].names)
            ErrorF("kor: GLX names no vendors on screen %u; \"%s\" is not named either\n",
                   (unsigned)screen, ours);
    }
    return own[screen].names;
}

static int answerNames(ClientPtr client, const char* names) {
    const size_t nameLength = strlen(names);
    const size_t length = sizeof(ours) + nameLength + 1; /* a space in place of our terminator */
    const size_t padded = (length + 3) & ~(size_t)3;
    char* text = calloc(1, padded);
    if (!text)
        return BadAlloc;
    memcpy(text, ours, sizeof(ours) - 1);
    text[sizeof(ours) - 1] = ' ';
    memcpy(text + sizeof(ours), names, nameLength);

    xGLXQueryServerStringReply reply = {.type = X_Reply,
                                        .sequenceNumber = (CARD16)client->sequence,
                                        .length = (CARD32)(padded / 4),
                                        .n = (CARD32)length};
    if (client->swapped) {
        swaps(&reply.sequenceNumber);
        swapl(&reply.length);
        swapl(&reply.n);
    }
    WriteToClient(client, sizeof(reply), &reply);
    WriteToClient(client, (int)padded, text);
    free(text);
    return Success;
}

/* In the place of both of GLX's handlers. */
static int handleGlx(ClientPtr client) {
    CARD32 screen = 0;
    const char* names = isNamesRequest(client, &screen) ? ownNames(screen) : NULL;
    if (names)
        return answerNames(client, names);
    return client->swapped ? swappedGlxHandler(client) : glxHandler(client);
}

/* Called for every new client, long before its first request to any extension: GLX may be
 * initialised after us. */
static void wrapGlx(CallbackListPtr* list, void* closure, void* data) {
    (void)list;
    (void)closure;
    (void)data;
    if (glxHandler)
        return;
    const ExtensionEntry* glx = CheckExtension("GLX");
    if (!glx)
        return;
    glxOpcode = glx->base;
    glxHandler = ProcVector[glxOpcode];
    swappedGlxHandler = SwappedProcVector[glxOpcode];
    ProcVector[glxOpcode] = handleGlx;
    SwappedProcVector[glxOpcode] = handleGlx;
}

void korVendorNamesInit(void) {
    /* A new generation of the server has taken down its extensions and its callbacks. */
    glxHandler = NULL;
    for (int screen = 0; screen < MAXSCREENS; screen++) {
        free(own[screen].names);
        own[screen].names = NULL;
        own[screen].asked = 0;
    }
    if (!AddCallback(&ClientStateCallback, wrapGlx, NULL))
        ErrorF("kor: no memory to wait for clients; no GL vendor is named\n");
}
