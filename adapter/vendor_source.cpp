#include "vendor_source.h"

#include "local_displays.h"
#include "support/forked_child.h"
#include "vendor_names.h"

#include <X11/Xlibint.h>
#undef min
#undef max

#include <cstring>

namespace kor::adapter {
namespace {

/// What the vendor-neutral dispatch tries when a server names nobody that can be had.
constexpr const char* lastResort = "indirect";

/// What the start has found out, and children go on with; lives until the process ends.
struct State {
    DispatchLibrary dispatch;
    VendorChoice choice;
    const VendorLibrary* local = nullptr;
};

State* state = nullptr;

/// Under tablesMutex(): the vendor of each display that was asked about.
PerProcess<std::unordered_map<Display*, const VendorLibrary*>> displayVendors;
/// Held while a library is being opened, by one thread after the other.
PerProcess<std::mutex> opening;

void* nothing() {
    return nullptr;
}

/// The first of those names whose library can be had and serves the screen. The last is taken on
/// trust: nobody else is there, and to ask costs as much as to begin.
const VendorLibrary* firstOf(std::vector<std::string> names, Display* display, int screen) {
    std::erase(names, ourVendor);
    names.emplace_back(lastResort);
    for (size_t i = 0; i < names.size(); ++i) {
        const VendorLibrary* library = VendorLibrary::open(names[i], state->dispatch);
        if (library && (i + 2 >= names.size() || library->supports(display, screen)))
            return library;
    }
    return nullptr;
}

const VendorLibrary* chooseLocal() {
    const VendorChoice& choice = state->choice;
    if (!choice.localVendor.empty())
        return VendorLibrary::open(choice.localVendor, state->dispatch);
    Display* const display = XOpenDisplay(choice.localDisplay.c_str());
    if (!display)
        // The library will say that there is no such display, every time that it is needed.
        return VendorLibrary::open("mesa", state->dispatch);
    const int screen = DefaultScreen(display);
    const VendorLibrary* library = firstOf(askVendorNames(display, screen), display, screen);
    XCloseDisplay(display);
    return library;
}

const VendorLibrary* chooseForApplication(Display* display) {
    const std::lock_guard lock(*opening);
    const VendorLibrary* library = nullptr;
    if (!state->choice.appVendor.empty())
        library = VendorLibrary::open(state->choice.appVendor, state->dispatch);
    else
        library = firstOf(askVendorNames(display, DefaultScreen(display)), display,
                          DefaultScreen(display));
    return library ? library : state->local;
}

int forgetDisplay(Display* display, XExtCodes* /*codes*/) {
    const std::lock_guard lock(tablesMutex());
    displayVendors->erase(display);
    return 0;
}

void remember(Display* display, const VendorLibrary* library) {
    XExtCodes* codes = XAddExtension(display);
    if (!codes)
        return; // without it the entry would outlive the connection
    XESetCloseDisplay(display, codes->extension, forgetDisplay);
    const std::lock_guard lock(tablesMutex());
    displayVendors->insert_or_assign(display, library);
}

const VendorLibrary* vendorOf(Display* display) {
    {
        const std::lock_guard lock(tablesMutex());
        const auto found = displayVendors->find(display);
        if (found != displayVendors->end())
            return found->second;
    }
    const VendorLibrary* library = chooseForApplication(display);
    remember(display, library);
    return library;
}

/// A function that is asked about either kind of display. What it gives when there is no display or
/// no vendor is given as well.
template <auto function, auto failure> struct ByDisplay;
template <typename Result, typename... Arguments,
          Result (*VendorLibrary::*function)(Display*, Arguments...), auto failure>
struct ByDisplay<function, failure> {
    static Result call(Display* display, Arguments... arguments) {
        const VendorLibrary* const vendor = display ? vendorOf(display) : nullptr;
        if (!vendor)
            return static_cast<Result>(failure);
        return (vendor->*function)(display, arguments...);
    }
};

void* byDisplay(const char* name) {
    const struct {
        const char* name;
        void* function;
    } functions[] = {
        {"glXChooseFBConfig",
         reinterpret_cast<void*>(ByDisplay<&VendorLibrary::chooseFBConfig, nullptr>::call)},
        {"glXGetConfig",
         reinterpret_cast<void*>(ByDisplay<&VendorLibrary::getConfig, GLX_NO_EXTENSION>::call)},
        {"glXGetFBConfigAttrib",
         reinterpret_cast<void*>(
             ByDisplay<&VendorLibrary::getFBConfigAttrib, GLX_NO_EXTENSION>::call)},
        {"glXQueryDrawable",
         reinterpret_cast<void*>(ByDisplay<&VendorLibrary::queryDrawable, nullptr>::call)},
        {"glXQueryExtensionsString",
         reinterpret_cast<void*>(ByDisplay<&VendorLibrary::queryExtensionsString, nullptr>::call)},
    };
    for (const auto& candidate : functions)
        if (!std::strcmp(candidate.name, name))
            return candidate.function;
    return nullptr;
}

} // namespace

VendorSource::VendorSource(const DispatchLibrary& dispatch, const VendorChoice& choice) {
    state = new State{dispatch, choice, nullptr};
    state->local = local_ = chooseLocal();
}

void* VendorSource::localFunction(const char* name) const {
    return local_ ? local_->function(name) : nullptr;
}

void* VendorSource::find(const char* name) const {
    if (void* const function = local_ ? byDisplay(name) : nullptr)
        return function;
    void* const function = localFunction(name);
    return function ? function : reinterpret_cast<void*>(nothing);
}

void addVendorsLocalDisplay(Display* display) {
    if (state)
        remember(display, state->local);
}

} // namespace kor::adapter
