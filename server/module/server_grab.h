#ifndef KOR_SERVER_MODULE_SERVER_GRAB_H
#define KOR_SERVER_MODULE_SERVER_GRAB_H

#include <dix.h>

/* A program that has grabbed the server (XGrabServer) is served on one connection alone: all others
 * wait until it lets go. A GL program's frames come over further connections of the same process,
 * for which it waits in turn. So, while a client of one process holds a grab, these are served,
 * too: the connections of the same process that use "KOR-V1", and those that it opens meanwhile.
 * Other processes wait as ever. */

void korServerGrabInit(void);

/* Tells that a client uses the extension. To be called for each of its requests. */
void korServerGrabUser(ClientPtr client);

#endif
