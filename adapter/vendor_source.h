#ifndef KOR_ADAPTER_VENDOR_SOURCE_H
#define KOR_ADAPTER_VENDOR_SOURCE_H

#include "driver.h"
#include "vendor_library.h"

#include <string>

namespace kor::adapter {

/// Which vendor's library serves which display.
struct VendorChoice {
    std::string localDisplay; // its name, for XOpenDisplay
    std::string localVendor;  // empty: the one that the local display's server names
    std::string appVendor;    // empty: the next one that the application's server names after ours
};

/// The drivers' vendor libraries, with nothing between. All functions are those of the local
/// display's vendor, except that what is asked about a display is answered by its own vendor; the
/// choice between the two is made by the display of each call.
class VendorSource : public FunctionSource {
  public:
    /// Finds the local display's vendor, on a connection of its own that lasts no longer.
    VendorSource(const DispatchLibrary& dispatch, const VendorChoice& choice);

    /// As with the vendor-neutral dispatch, there is no function that the driver lacks: one that
    /// does nothing and gives 0 takes its place.
    void* find(const char* name) const override;

    /// What the local display's vendor itself has; null when it lacks the function.
    void* localFunction(const char* name) const;

    const VendorLibrary* local() const { return local_; }

  private:
    const VendorLibrary* local_ = nullptr;
};

/// Tells that a connection is one to the local display. Ends with XCloseDisplay.
void addVendorsLocalDisplay(Display* display);

} // namespace kor::adapter

#endif
