#ifndef KOR_FRONT_VENDOR_EXTENSION_DISPATCH_H
#define KOR_FRONT_VENDOR_EXTENSION_DISPATCH_H

#include "core/gl_headers.h"

#include <glvnd/libglxabi.h>

/// GLX functions that the dispatch library does not know itself. An application gets one function
/// for a name, whatever displays it uses it on; so each asks the dispatch library whose display,
/// config, context or drawable it was given and calls that vendor's. What a call creates is made
/// known to the dispatch library, and what it destroys is taken back. An object that belongs to no
/// vendor makes the call fail with 0, None or null.
namespace kor::front {

/// Where the dispatch library is found from now on. Called when it loads us.
void useDispatchLibrary(const __GLXapiExports* exports);

/// The function to give to applications for a name; null when it is none of these.
void* extensionDispatch(const char* name);

/// The place of that name in every vendor's table.
void setExtensionIndex(const char* name, int index);

} // namespace kor::front

#endif
