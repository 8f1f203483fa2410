#include <xorg-server.h>

#include <X11/X.h>
#include <misc.h>

#include <dix.h>
#include <randrstr.h>
#include <scrnintstr.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "screen_size.h"

/* The memory of the dummy driver's screen is laid out once, for the largest size: beyond it the
 * driver would take any size whose pixels fit by their number, and mix up the rows. */
static unsigned largestWidth;
static unsigned largestHeight;

static RRScreenSetSizeProcPtr driverSetSize[MAXSCREENS];
static RRCrtcSetProcPtr driverSetCrtc[MAXSCREENS];

int korScreenSizeSetLargest(const char* size) {
    char rest;
    if (!size)
        return 1;
    return sscanf(size, "%5ux%5u%c", &largestWidth, &largestHeight, &rest) == 2 &&
           largestWidth > 0 && largestHeight > 0;
}

/* A mode of exactly this size, which nothing ever scans out: only its size counts. */
static RRModePtr modeOf(unsigned width, unsigned height) {
    char name[32];
    const int length = snprintf(name, sizeof name, "%ux%u", width, height);
    xRRModeInfo info = {.width = (CARD16)width,
                        .height = (CARD16)height,
                        .hSyncStart = (CARD16)(width + 16),
                        .hSyncEnd = (CARD16)(width + 48),
                        .hTotal = (CARD16)(width + 80),
                        .vSyncStart = (CARD16)(height + 3),
                        .vSyncEnd = (CARD16)(height + 9),
                        .vTotal = (CARD16)(height + 20),
                        .nameLength = (CARD16)length};
    info.dotClock = 60u * info.hTotal * info.vTotal;
    return RRModeGet(&info, name);
}

/* A viewer's new size is taken by setting the screen's size first and then the mode of that size on
 * the screen's output, which a fixed list of modes would not have. */
static void offerMode(ScreenPtr screen, unsigned width, unsigned height) {
    rrScrPriv(screen);
    const RROutputPtr output = pScrPriv->numOutputs > 0 ? pScrPriv->outputs[0] : NULL;
    if (!output)
        return;
    for (int i = 0; i < output->numModes; ++i)
        if (output->modes[i]->mode.width == width && output->modes[i]->mode.height == height)
            return;
    RRModePtr* modes = calloc((size_t)output->numModes + 1, sizeof *modes);
    const RRModePtr mode = modes ? modeOf(width, height) : NULL;
    if (mode) {
        /* The list takes over the references of those that it holds. */
        for (int i = 0; i < output->numModes; ++i) {
            modes[i] = output->modes[i];
            ++modes[i]->refcnt;
        }
        modes[output->numModes] = mode;
        RROutputSetModes(output, modes, output->numModes + 1, output->numPreferred);
    }
    free(modes);
}

/* VNC turns an output off that would not fit into a viewer's size, and leaves it so when the size
 * is refused: window managers would see no monitor any more. It is turned on again with the size
 * that the screen has kept. */
static Bool turnOutputOn(ClientPtr client, void* data) {
    (void)client;
    const ScreenPtr screen = data;
    rrScrPriv(screen);
    RROutputPtr output = pScrPriv->numOutputs > 0 ? pScrPriv->outputs[0] : NULL;
    if (!output || output->crtc || output->numCrtcs == 0)
        return TRUE;
    offerMode(screen, (unsigned)screen->width, (unsigned)screen->height);
    for (int i = 0; i < output->numModes; ++i)
        if (output->modes[i]->mode.width == screen->width &&
            output->modes[i]->mode.height == screen->height) {
            RRCrtcSet(output->crtcs[0], output->modes[i], 0, 0, RR_Rotate_0, 1, &output);
            break;
        }
    return TRUE;
}

static Bool setCrtc(ScreenPtr screen, RRCrtcPtr crtc, RRModePtr mode, int x, int y,
                    Rotation rotation, int numOutputs, RROutputPtr* outputs) {
    /* A client that turns an output off means it. VNC does so between the clients' requests, and
     * has turned it on again, if it is going to, when the queue is looked at. */
    if (!mode && !GetCurrentClient())
        QueueWorkProc(turnOutputOn, NULL, screen);
    return driverSetCrtc[screen->myNum](screen, crtc, mode, x, y, rotation, numOutputs, outputs);
}

static Bool setSize(ScreenPtr screen, CARD16 width, CARD16 height, CARD32 mmWidth,
                    CARD32 mmHeight) {
    if (width > largestWidth || height > largestHeight)
        return FALSE;
    if (!driverSetSize[screen->myNum](screen, width, height, mmWidth, mmHeight))
        return FALSE;
    offerMode(screen, width, height);
    return TRUE;
}

static void afterWaiting(void* data, int result) {
    (void)data;
    (void)result;
}

/* Before the first client is served. Modules that follow the screen's size heard of it when the
 * screen was still as large as its memory: they are told what it is now. */
static void startUp(void* data, void* timeout) {
    (void)timeout;
    const ScreenPtr screen = data;
    RemoveBlockAndWakeupHandlers(startUp, afterWaiting, data);
    rrScrPriv(screen);
    /* No size is too small: VNC turns the output off before it learns of a refusal, and a viewer's
     * window may well be smaller than the driver's own limit, which no memory depends on. */
    RRScreenSetSizeRange(screen, 1, 1, (CARD16)largestWidth, (CARD16)largestHeight);
    pScrPriv->rrScreenSetSize(screen, (CARD16)screen->width, (CARD16)screen->height,
                              (CARD32)screen->mmWidth, (CARD32)screen->mmHeight);
}

void korScreenSizeInit(void) {
    if (largestWidth == 0)
        return;
    for (int i = 0; i < screenInfo.numScreens; ++i) {
        const ScreenPtr screen = screenInfo.screens[i];
        if (!dixPrivateKeyRegistered(rrPrivKey))
            return;
        rrScrPriv(screen);
        if (!pScrPriv || !pScrPriv->rrScreenSetSize)
            continue;
        driverSetSize[i] = pScrPriv->rrScreenSetSize;
        pScrPriv->rrScreenSetSize = setSize;
        driverSetCrtc[i] = pScrPriv->rrCrtcSet;
        if (driverSetCrtc[i])
            pScrPriv->rrCrtcSet = setCrtc;
        RegisterBlockAndWakeupHandlers(startUp, afterWaiting, screen);
    }
}
