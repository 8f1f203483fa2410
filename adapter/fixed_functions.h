#ifndef KOR_ADAPTER_FIXED_FUNCTIONS_H
#define KOR_ADAPTER_FIXED_FUNCTIONS_H

namespace kor::adapter {

/// The function to hand out for a name: ours where one stands before the driver's, the driver's own
/// otherwise, null where the driver lacks it or none is known yet. Any thread.
void* resolveFunction(const char* name);

} // namespace kor::adapter

#endif
