// counts_stress DISPLAY: what the clients of a server hold in it, all of them together but for this
// one: "TYPE NUMBER" a line, "clients", "pixmap-bytes" and "pixmap-objects" among them.
#include <X11/Xlib.h>
#include <X11/extensions/XRes.h>

#include <cstdio>
#include <map>
#include <string>

int main(int count, char** words) {
    Display* const display = XOpenDisplay(count > 1 ? words[1] : nullptr);
    if (display == nullptr)
        return 1;
    const XID own = DefaultRootWindow(display) == 0 ? 0 : XAllocID(display);
    int number = 0;
    XResClient* clients = nullptr;
    if (XResQueryClients(display, &number, &clients) == 0)
        return 1;
    std::map<std::string, unsigned long> found;
    for (int i = 0; i < number; ++i) {
        const XResClient& client = clients[i];
        const bool server = client.resource_base == 0;
        if (server || (own & ~client.resource_mask) == client.resource_base)
            continue;
        ++found["clients"];
        unsigned long bytes = 0;
        XResQueryClientPixmapBytes(display, client.resource_base, &bytes);
        found["pixmap-bytes"] += bytes;
        int types = 0;
        XResType* resources = nullptr;
        if (XResQueryClientResources(display, client.resource_base, &types, &resources) == 0)
            continue; // it has gone meanwhile
        for (int j = 0; j < types; ++j) {
            char* const name = XGetAtomName(display, resources[j].resource_type);
            std::string text = name != nullptr ? name : "unnamed";
            for (char& letter : text)
                letter = letter == ' ' ? '_' : letter;
            found[text] += resources[j].count;
            XFree(name);
        }
        XFree(resources);
    }
    XFree(clients);
    for (const auto& [name, amount] : found)
        std::printf("%s %lu\n", name.c_str(), amount);
    XCloseDisplay(display);
    return 0;
}
