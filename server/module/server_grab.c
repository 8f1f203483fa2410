#include <xorg-server.h>

#include <X11/X.h>
#include <X11/Xproto.h>
#include <misc.h>

#include <dix.h>
#include <dixstruct.h>
#include <os.h>

#include <string.h>

#include "server_grab.h"

/* Per place in the server's list of clients. */
static struct {
    int process; /* of a client that uses the extension; 0 for others */
    int served;  /* whether we had it served during this grab */
} users[MAXCLIENTS];

static int grabber; /* the process that holds the grab; 0 for none, or for one that is unknown */

/* The process at the other end of a client's connection; 0 where the system does not tell it (TCP,
 * another PID namespace). */
static int processOf(ClientPtr client) {
    LocalClientCredRec* credentials = NULL;
    if (GetLocalClientCreds(client, &credentials) == -1 || !credentials)
        return 0;
    const int process =
        (credentials->fieldsSet & LCC_PID_SET) && credentials->pid > 0 ? credentials->pid : 0;
    FreeLocalClientCreds(credentials);
    return process;
}

static void serve(ClientPtr client) {
    users[client->index].served = 1;
    MakeClientGrabImpervious(client);
}

static void grabBegins(ClientPtr holder) {
    grabber = processOf(holder);
    if (!grabber)
        return;
    for (int i = 1; i < currentMaxClients; i++) {
        ClientPtr client = clients[i];
        if (!client || client == holder || users[i].process != grabber || client->clientGone)
            continue;
        serve(client);
        /* The server has put requests that are here already aside until the grab ends; this brings
         * them back. */
        IgnoreClient(client);
        AttendClient(client);
    }
}

static void grabEnds(void) {
    grabber = 0;
    for (int i = 1; i < currentMaxClients; i++) {
        if (!users[i].served)
            continue;
        users[i].served = 0;
        if (clients[i] && !clients[i]->clientGone)
            MakeClientGrabPervious(clients[i]);
    }
}

static void onGrab(CallbackListPtr* list, void* closure, void* data) {
    const ServerGrabInfoRec* info = data;
    (void)list;
    (void)closure;
    if (info->grabstate == SERVER_GRABBED)
        grabBegins(info->client);
    else if (info->grabstate == SERVER_UNGRABBED)
        grabEnds();
}

static void onClient(CallbackListPtr* list, void* closure, void* data) {
    ClientPtr client = ((const NewClientInfoRec*)data)->client;
    (void)list;
    (void)closure;
    if (client->clientState != ClientStateInitial && client->clientState != ClientStateGone)
        return;
    memset(&users[client->index], 0, sizeof(users[client->index]));
    if (client->clientState == ClientStateInitial && grabber && processOf(client) == grabber)
        serve(client);
}

void korServerGrabUser(ClientPtr client) {
    if (!users[client->index].process)
        users[client->index].process = processOf(client);
}

void korServerGrabInit(void) {
    memset(users, 0, sizeof(users));
    grabber = 0;
    if (!AddCallback(&ServerGrabCallback, onGrab, NULL) ||
        !AddCallback(&ClientStateCallback, onClient, NULL))
        ErrorF("kor: no memory to wait for grabs; GL programs that grab the server stand still\n");
}
