#include <xorg-server.h>
#include <xorgVersion.h>

#if XORG_VERSION_CURRENT < XORG_VERSION_NUMERIC(1, 20, 0, 0, 0)
#error "the KOR-V1 module needs X server 1.20 or newer"
#endif

#include <X11/Xproto.h>
#include <misc.h>

#include <extension.h>
#include <xf86Module.h>
#include <xf86Opt.h>

#include "../korv1_proto.h"
#include "korv1.h"
#include "screen_size.h"
#include "server_grab.h"
#include "vendor_names.h"

/* How the server loads the module "kor" and what it takes from the configuration:
 *
 *   Section "Module"
 *       SubSection "kor"
 *           Option "GLDisplay" ":0.0"
 *           Option "VendorNames" "true"
 *           Option "LargestSize" "7680x4320"
 *       EndSubSection
 *   EndSection
 */

static int tellsVendorNames;

static void initialise(void) {
    korV1Init();
    korServerGrabInit();
    if (tellsVendorNames)
        korVendorNamesInit();
    korScreenSizeInit();
}

static const ExtensionModule extension = {initialise, KOR_V1_NAME, NULL};

/* The server hands the options over as a plain pointer, and sets one of the two error numbers only
 * on failure. */
static void* setup(void* module, void* options, int* errorMajor, int* errorMinor) {
    static int done;
    (void)errorMinor;
    if (done) {
        *errorMajor = LDR_ONCEONLY;
        return NULL;
    }
    if (!korV1SetGLDisplay(xf86FindOptionValue(options, "GLDisplay"))) {
        *errorMajor = LDR_NOMEM;
        return NULL;
    }
    if (!korScreenSizeSetLargest(xf86FindOptionValue(options, "LargestSize"))) {
        *errorMajor = LDR_MODSPECIFIC;
        return NULL;
    }
    tellsVendorNames = xf86SetBoolOption(options, "VendorNames", TRUE);
    done = 1;
    LoadExtensionList(&extension, 1, FALSE);
    return module;
}

static XF86ModuleVersionInfo versionInfo = {
    .modname = "kor",
    .vendor = "KOR-GL",
    ._modinfo1_ = MODINFOSTRING1,
    ._modinfo2_ = MODINFOSTRING2,
    .xf86version = XORG_VERSION_CURRENT,
    .majorversion = 1,
    .minorversion = 0,
    .patchlevel = 0,
    .abiclass = ABI_CLASS_EXTENSION,
    .abiversion = ABI_EXTENSION_VERSION,
    .moduleclass = MOD_CLASS_EXTENSION,
};

/* Looked up by the loader under this very name. */
extern _X_EXPORT XF86ModuleData korModuleData;
_X_EXPORT XF86ModuleData korModuleData = {&versionInfo, setup, NULL};
