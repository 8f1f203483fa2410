#include "admission.h"

#include <cstdio>
#include <cstdlib>
#include <unistd.h>
#include <xcb/xcb.h>

namespace kor::server {

void admitOwnUser(int display, const std::string& cookie) {
    // The server takes a user's number, after a "#", as well as a name.
    std::string host = "localuser";
    host += '\0';
    host += "#" + std::to_string(geteuid());

    char protocol[] = "MIT-MAGIC-COOKIE-1";
    std::string data = cookie;
    xcb_auth_info_t authority{sizeof protocol - 1, protocol, static_cast<int>(data.size()),
                              data.data()};
    const std::string name = ":" + std::to_string(display);
    xcb_connection_t* connection =
        xcb_connect_to_display_with_auth_info(name.c_str(), &authority, nullptr);
    const xcb_void_cookie_t request = xcb_change_hosts_checked(
        connection, XCB_HOST_MODE_INSERT, XCB_FAMILY_SERVER_INTERPRETED,
        static_cast<uint16_t>(host.size()), reinterpret_cast<const uint8_t*>(host.data()));
    xcb_generic_error_t* error = xcb_request_check(connection, request);
    if (xcb_connection_has_error(connection) || error)
        fprintf(stderr, "Xkor: display %s cannot be opened to its own user without a cookie\n",
                name.c_str());
    free(error);
    xcb_disconnect(connection);
}

} // namespace kor::server
